// The text of one unit's report, written by us, by Qt and by RapidJSON, each from its own tree of
// values. RapidJSON has read its tree from our text, and what it writes must be the same text.

#include "support/jsontext.h"
#include "bench/allocations.h"
#include "bench/device.h"

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <string_view>

#include <QJsonDocument>
#include <QJsonObject>

namespace {

std::string_view viewOf(const rapidjson::StringBuffer &buffer)
{
    return { buffer.GetString(), buffer.GetSize() };
}

rapidjson::StringBuffer written(const rapidjson::Document &document)
{
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter writer(buffer);
    document.Accept(writer);
    return buffer;
}

void jsonOurs(benchmark::State &state)
{
    const QJsonObject object = deviceWith(static_cast<int>(state.range(0))).toJson();
    measure(state, [&object] { benchmark::DoNotOptimize(ToJsonText(object)); });
    state.counters["bytes"] = static_cast<double>(ToJsonText(object).size());
}

void jsonQt(benchmark::State &state)
{
    const QJsonObject object = deviceWith(static_cast<int>(state.range(0))).toJson();
    measure(state, [&object] { benchmark::DoNotOptimize(QJsonDocument(object).toJson()); });
}

void jsonRapid(benchmark::State &state)
{
    const QByteArray text = ToJsonText(deviceWith(static_cast<int>(state.range(0))).toJson());
    rapidjson::Document document;
    document.Parse(text.constData());
    if (document.HasParseError() || text.chopped(1).toStdString() != viewOf(written(document))) {
        state.SkipWithError("RapidJSON writes another text");
        return;
    }
    measure(state, [&document] { benchmark::DoNotOptimize(written(document)); });
}

BENCHMARK(jsonOurs)->Arg(0);
BENCHMARK(jsonQt)->Arg(0);
BENCHMARK(jsonRapid)->Arg(0);
BENCHMARK(jsonOurs)->Arg(SuiteRecords::MOST_SAMPLES);
BENCHMARK(jsonQt)->Arg(SuiteRecords::MOST_SAMPLES);
BENCHMARK(jsonRapid)->Arg(SuiteRecords::MOST_SAMPLES);

} // namespace
