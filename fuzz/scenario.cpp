// Any text as a scenario of the simulated suite, and what its units then report.

#include "devkit/suite/scenario.h"
#include "devkit/suite/simulation.h"
#include "fuzz/check.h"
#include "fuzz/texts.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace {

using suite::Complaint;
using suite::Scenario;
using suite::Unit;

Scenario read(const std::string &text, std::vector<Complaint> &complaints)
{
    std::istringstream in(text);
    return suite::readScenario(in, complaints);
}

template <class Number>
bool isWithin(Number value, Number least, Number most)
{
    return value >= least && value <= most;
}

void checkRanges(const Scenario &scenario)
{
    FUZZ_CHECK(scenario.os.size() <= 255 && scenario.version.size() <= 6);
    FUZZ_CHECK(scenario.units.size() <= suite::MAX_UNITS);
    FUZZ_CHECK(isWithin(scenario.timeScale, 0.001, 1e6));
    for (const int delay : { scenario.startDelayMs, scenario.countDelayMs, scenario.stopDelayMs })
        FUZZ_CHECK(isWithin(delay, 0, 3'600'000));
    for (const Unit &unit : scenario.units) {
        FUZZ_CHECK(unit.name.size() <= 31);
        FUZZ_CHECK(isWithin(unit.family, -32768, 32767) && isWithin(unit.model, -32768, 32767));
        FUZZ_CHECK(isWithin(unit.voltage, 1.0, 1e3) && isWithin(unit.power, 1.0, 1e6));
        FUZZ_CHECK(isWithin(unit.noise, 0.0, 100.0));
        FUZZ_CHECK(isWithin(unit.samples, 0, suite::MAX_SAMPLES));
        FUZZ_CHECK(isWithin(unit.delayMs, 0, 3'600'000) && unit.timeline.size() <= 100);
        for (const suite::TimedPhase &phase : unit.timeline)
            FUZZ_CHECK(isWithin<std::int64_t>(phase.seconds, 1, 1'000'000'000));
    }
}

bool isHeader(const std::string &line)
{
    const std::size_t first = line.find_first_not_of(" \t\r\f\v");
    return first != line.npos && line[first] == '[';
}

/** The text without the lines that were complained of, and with them what stands under headers. */
std::string without(const std::string &text, const std::vector<Complaint> &complaints)
{
    std::string result;
    std::istringstream in(text);
    auto complaint = complaints.begin();
    bool isLeftOut = false;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        const bool isBad = complaint != complaints.end() && complaint->line == number;
        if (isBad)
            ++complaint;
        if (isHeader(line))
            isLeftOut = isBad;
        if (!isBad && !isLeftOut)
            result += line + '\n';
    }
    FUZZ_CHECK(complaint == complaints.end()); // in order, one a line, and each of a line that is
    return result;
}

bool isTerminated(const char *text, std::size_t width)
{
    return std::memchr(text, 0, width) != nullptr;
}

void checkReport(const Unit &unit, const suite::Report &report, bool isFaulty)
{
    const nb_variaveis &vars = report.vars;
    if (isFaulty) {
        FUZZ_CHECK(!unit.unterminated || !isTerminated(vars.name, sizeof vars.name));
        FUZZ_CHECK(!unit.nan || std::isnan(vars.nominalVBattery));
        FUZZ_CHECK(!unit.extreme || vars.sampIOutput.count == suite::MAX_SAMPLES);
        if (unit.garbage || unit.extreme || unit.nan || unit.unterminated)
            return;
    }
    FUZZ_CHECK(isTerminated(vars.name, sizeof vars.name) && vars.name == upToNul(unit.name));
    for (const nb_samples *wave : { &vars.sampVInput, &vars.sampVOutput, &vars.sampIOutput })
        FUZZ_CHECK(wave->count == unit.samples);
    for (const float value : { vars.vInput, vars.iOutput, vars.version, vars.nominalVOutput })
        FUZZ_CHECK(std::isfinite(value));
    FUZZ_CHECK(isWithin(vars.cBattery, 0.0F, 100.0F));
    FUZZ_CHECK(isWithin(report.cause, -1L, 1L) && (report.cause > 0 || report.counter == 0));
}

template <class Record>
bool isSame(const Record &a, const Record &b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto second =
            input.ConsumeIntegralInRange<std::int64_t>(0, std::numeric_limits<std::int64_t>::max());
    const auto call = input.ConsumeIntegralInRange<std::int64_t>(1, 1000);
    const auto choice = input.ConsumeIntegral<std::uint16_t>();
    const std::string text = input.ConsumeRemainingBytesAsString();

    std::vector<Complaint> complaints;
    const Scenario scenario = read(text, complaints);
    checkRanges(scenario);

    std::vector<Complaint> none;
    const Scenario rest = read(without(text, complaints), none);
    FUZZ_CHECK(none.empty() && rest == scenario);

    if (scenario.units.empty())
        return 0;
    const std::size_t index = choice % scenario.units.size();
    const Unit &unit = scenario.units[index];
    const bool isFaulty = suite::isFaulty(unit, call, second);
    const suite::Report report = suite::stateReport(scenario, index, second, isFaulty);
    checkReport(unit, report, isFaulty);
    const suite::Report repeated = suite::stateReport(rest, index, second, isFaulty);
    FUZZ_CHECK(isSame(report.vars, repeated.vars) && isSame(report.state, repeated.state));
    FUZZ_CHECK(isSame(report.failures, repeated.failures) && report.counter == repeated.counter);

    const pelorin_version_info info = suite::versionReport(scenario, index, second, isFaulty);
    FUZZ_CHECK(isSame(info, suite::versionReport(rest, index, second, isFaulty)));
    if (!isFaulty || !(unit.garbage || unit.unterminated)) {
        FUZZ_CHECK(info.version == upToNul(scenario.version));
        FUZZ_CHECK(info.os == upToNul(scenario.os));
    }
    return 0;
}
