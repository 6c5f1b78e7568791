// Any text as a scenario of the simulated suite, and what its units then report.

#include "devkit/suite/scenario.h"
#include "devkit/suite/simulation.h"
#include "fuzz/fuzz.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

namespace {

bool isWithin(double value, double least, double most)
{
    return value >= least && value <= most;
}

void checkRanges(const suite::Scenario &scenario)
{
    FUZZ_CHECK(scenario.os.size() <= 255 && scenario.version.size() <= 6);
    FUZZ_CHECK(scenario.units.size() <= suite::MAX_UNITS);
    FUZZ_CHECK(isWithin(scenario.timeScale, 0.001, 1e6));
    for (const int delay :
         { scenario.startDelayMs, scenario.countDelayMs, scenario.stopDelayMs, scenario.lingerMs,
           scenario.workerPollMs, scenario.destructorDelayMs, scenario.elfDestructorDelayMs })
        FUZZ_CHECK(isWithin(delay, 0, 3'600'000));
    for (const suite::Unit &unit : scenario.units) {
        FUZZ_CHECK(isWithin(unit.family, -32768, 32767) && isWithin(unit.model, -32768, 32767));
        FUZZ_CHECK(isWithin(unit.voltage, 1.0, 1e3) && isWithin(unit.power, 1.0, 1e6));
        FUZZ_CHECK(isWithin(unit.noise, 0.0, 100.0));
        FUZZ_CHECK(isWithin(unit.samples, 0, suite::MAX_SAMPLES) && unit.name.size() <= 31);
        FUZZ_CHECK(isWithin(unit.delayMs, 0, 3'600'000) && unit.timeline.size() <= 100);
        for (const suite::TimedPhase &phase : unit.timeline)
            FUZZ_CHECK(phase.seconds >= 1 && phase.seconds <= 1'000'000'000);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto second = input.ConsumeIntegralInRange<std::int64_t>(0, INT64_MAX);
    const bool isFaulty = input.ConsumeBool();
    const auto choice = input.ConsumeIntegral<std::uint16_t>();
    const std::string text = input.ConsumeRemainingBytesAsString();

    std::vector<suite::Complaint> complaints;
    std::istringstream in(text);
    const suite::Scenario scenario = suite::readScenario(in, complaints);
    checkRanges(scenario);
    FUZZ_CHECK(std::ranges::is_sorted(complaints, {}, &suite::Complaint::line));

    if (scenario.units.empty())
        return 0;
    const std::size_t index = choice % scenario.units.size();
    const suite::Unit &unit = scenario.units[index];
    const suite::Report report = suite::stateReport(scenario, index, second, isFaulty);
    const pelorin_version_info info = suite::versionReport(scenario, index, second, isFaulty);
    if (isFaulty && (unit.garbage || unit.extreme || unit.nan || unit.unterminated))
        return 0;
    FUZZ_CHECK(report.vars.name == upToNul(unit.name) && info.os == upToNul(scenario.os));
    FUZZ_CHECK(std::isfinite(report.vars.vInput) && isWithin(report.vars.cBattery, 0, 100));
    return 0;
}
