// Any text as a scenario of the simulated suite, and what its units then report.

#include "devkit/suite/scenario.h"
#include "devkit/suite/simulation.h"
#include "fuzz/check.h"
#include "fuzz/texts.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto second =
            input.ConsumeIntegralInRange<std::int64_t>(0, std::numeric_limits<std::int64_t>::max());
    const bool isFaulty = input.ConsumeBool();
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
    const suite::Report report = suite::stateReport(scenario, index, second, isFaulty);
    const pelorin_version_info info = suite::versionReport(scenario, index, second, isFaulty);
    if (isFaulty && (unit.garbage || unit.extreme || unit.nan || unit.unterminated))
        return 0;
    FUZZ_CHECK(report.vars.name == upToNul(unit.name)); // with a NUL within their width
    FUZZ_CHECK(info.version == upToNul(scenario.version) && info.os == upToNul(scenario.os));
    FUZZ_CHECK(report.vars.sampVInput.count == unit.samples);
    FUZZ_CHECK(std::isfinite(report.vars.vInput) && std::isfinite(report.vars.iOutput));
    FUZZ_CHECK(isWithin(report.vars.cBattery, 0.0F, 100.0F));
    FUZZ_CHECK(isWithin(report.cause, -1L, 1L) && (report.cause > 0 || report.counter == 0));
    return 0;
}
