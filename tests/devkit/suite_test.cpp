// The simulated suite plays what a scenario says.

#include "devkit/suite/scenario.h"
#include "devkit/suite/simulation.h"
#include "model/devicestatus.h"
#include "model/pel6trans.h"
#include "tests/golden.h"

#include <cmath>
#include <set>
#include <sstream>

namespace {

using namespace Qt::StringLiterals;

suite::Scenario scenarioOf(const std::string &text)
{
    std::istringstream stream(text);
    std::vector<suite::Complaint> complaints;
    suite::Scenario scenario = suite::readScenario(stream, complaints);
    EXPECT_TRUE(complaints.empty()) << text;
    return scenario;
}

/** The keys of all flags of failures, with an "!", and of state that are set, each after a blank. */
std::string words(const DeviceStatus &device)
{
    std::string result;
    for (const auto &[section, mark] : { std::pair("failures"_L1, " !"), { "status"_L1, " " } }) {
        const QJsonObject flags = device.toJson()[section].toObject();
        for (const QString &key : flags.keys())
            result += flags[key].toInt() == 1 ? mark + key.toStdString() : "";
    }
    return result;
}

TEST(Simulation, FollowsTimeline)
{
    // Time line, second, and: input and output in volts, charge in percent, count-down, flags.
    std::istringstream course(golden("simulation.txt"));
    EXPECT_EQ(course.peek(), 'm');
    std::string timeline, second, expected;
    while (std::getline(course, timeline, '|') && std::getline(course, second, '|')) {
        std::getline(course, expected);
        const suite::Scenario scenario = scenarioOf("[unit 0]\nnoise=0\ntimeline=" + timeline);
        const auto report = suite::stateReport(scenario, 0, std::stoll(second), false);
        DeviceStatus device;
        Pel6Translator::translate(device, &report.caps, &report.failures, &report.state,
                                  &report.vars, &report.cause, &report.counter,
                                  &report.fullDischarge);
        const Variables &vars = device.getVars();
        const RegressiveCounter &shutdown = device.getRegressiveCounter();
        std::ostringstream text;
        text << std::lround(vars.getVInput()) << ' ' << vars.getVOutput() << ' '
             << vars.getCBattery() << ' ' << shutdown.getActive() * shutdown.getValue()
             << words(device);
        EXPECT_EQ(text.str(), expected) << timeline << " at " << second;
    }
}

TEST(Simulation, RepeatsReportsOfASecond)
{
    const auto report = [](const std::string &text, std::size_t unit, std::int64_t second) {
        const auto vars = suite::stateReport(scenarioOf(text), unit, second, true).vars;
        return std::string(vars.name, sizeof vars.name) + std::to_string(vars.vInput);
    };
    for (const std::string text : { "[unit *]\nname=a", "[unit *]\ngarbage=yes" }) {
        const std::set different{ report(text, 0, 5), report(text, 0, 5), report(text, 0, 6),
                                  report(text, 1, 5), report("seed=2\n" + text, 0, 5) };
        EXPECT_EQ(different.size(), 4U) << text;
    }
}

TEST(Simulation, LimitsFaultsToCallsAndSeconds)
{
    const struct
    {
        const char *keys;
        const char *calls; // from call 1 in second 10; a call each second
    } rows[] = {
        { "", "xxxx" },
        { "fault-call=2", "-x--" },
        { "fault-from=12", "--xx" },
        { "fault-until=12", "xx--" },
        { "fault-from=11\nfault-until=12", "-x--" },
        { "fault-call=1\nfault-from=11", "----" },
    };
    for (const auto &row : rows) {
        const suite::Scenario scenario = scenarioOf(std::string("[unit 0]\n") + row.keys);
        std::string calls;
        for (int call = 1; call <= 4; ++call)
            calls += suite::isFaulty(scenario.units[0], call, 9 + call) ? 'x' : '-';
        EXPECT_EQ(calls, row.calls) << row.keys;
    }
}

} // namespace
