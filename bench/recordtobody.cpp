// From the suite's records to the body of a unit's report: the three stages, and all at once.

#include "bench/allocations.h"
#include "bench/device.h"
#include "support/jsontext.h"

#include <QJsonObject>

namespace {

void stageTranslate(benchmark::State &state)
{
    const SuiteRecords records(static_cast<int>(state.range(0)));
    measure(state, [&records] {
        DeviceStatus device;
        translate(device, records);
        benchmark::DoNotOptimize(device);
    });
}

void stageJson(benchmark::State &state)
{
    const DeviceStatus device = deviceWith(static_cast<int>(state.range(0)));
    measure(state, [&device] { benchmark::DoNotOptimize(device.toJson()); });
}

void stageText(benchmark::State &state)
{
    const QJsonObject object = deviceWith(static_cast<int>(state.range(0))).toJson();
    measure(state, [&object] { benchmark::DoNotOptimize(ToJsonText(object)); });
}

void recordToBody(benchmark::State &state)
{
    const SuiteRecords records(static_cast<int>(state.range(0)));
    measure(state, [&records] {
        DeviceStatus device;
        translate(device, records);
        benchmark::DoNotOptimize(ToJsonText(device.toJson()));
    });
}

BENCHMARK(stageTranslate)->Arg(0)->Arg(SuiteRecords::MOST_SAMPLES);
BENCHMARK(stageJson)->Arg(0)->Arg(SuiteRecords::MOST_SAMPLES);
BENCHMARK(stageText)->Arg(0)->Arg(SuiteRecords::MOST_SAMPLES);
BENCHMARK(recordToBody)->Arg(0)->Arg(SuiteRecords::MOST_SAMPLES);

} // namespace
