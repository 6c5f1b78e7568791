// The simulated suite plays what a scenario says.

#include "devkit/suite/scenario.h"
#include "devkit/suite/simulation.h"
#include "model/devicestatus.h"
#include "model/pel6trans.h"
#include "tests/golden.h"

#include <cmath>
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

TEST(Simulation, LimitsFaultsToCallsAndSeconds)
{
    const auto faultyCalls = [](const std::string &keys) {
        const suite::Unit unit = scenarioOf("[unit 0]\n" + keys).units[0];
        std::string calls;
        for (int call = 1; call <= 4; ++call)
            calls += suite::isFaulty(unit, call, 9 + call) ? 'x' : '-';
        return calls;
    };
    EXPECT_EQ(faultyCalls("fault-call=2"), "-x--");
    EXPECT_EQ(faultyCalls("fault-from=11\nfault-until=13"), "-xx-");
    EXPECT_EQ(faultyCalls("fault-call=1\nfault-from=11"), "----");
}

} // namespace
