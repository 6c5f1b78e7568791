#include "devkit/suite/scenario.h"
#include "devkit/suite/simulation.h"
#include "model/computer.h"
#include "model/devicestatus.h"
#include "model/pel6trans.h"
#include "tests/golden.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include <QJsonObject>
#include <dlfcn.h>
#include <stdlib.h>

namespace {

using suite::Scenario;

/** The scenario; `lines` gets the numbers of those that are complained of. */
Scenario scenarioOf(const std::string &text, std::string *lines = nullptr)
{
    std::istringstream stream(text);
    std::vector<suite::Complaint> complaints;
    Scenario scenario = suite::readScenario(stream, complaints);
    for (std::size_t i = 0; lines != nullptr && i < complaints.size(); ++i)
        lines->append(i == 0 ? "" : " ").append(std::to_string(complaints[i].line));
    return scenario;
}

DeviceStatus translated(const suite::Report &report)
{
    DeviceStatus device;
    Pel6Translator::translate(device, &report.caps, &report.failures, &report.state, &report.vars,
                              &report.cause, &report.counter, &report.fullDischarge);
    return device;
}

/** The keys of all flags of failures, with an "!", and of state that are set, each after a blank. */
std::string words(const DeviceStatus &device)
{
    std::string result;
    for (const auto &[section, mark] : { std::pair("failures", " !"), { "status", " " } }) {
        const QJsonObject flags = device.toJson()[QLatin1String(section)].toObject();
        for (const QString &key : flags.keys())
            result += flags[key].toInt() == 1 ? mark + key.toStdString() : "";
    }
    return result;
}

/** What the keys of the rows below set; of the last unit, and of its time line the length. */
std::string digest(const Scenario &scenario)
{
    const suite::Unit last = scenario.units.empty() ? suite::Unit() : scenario.units.back();
    std::ostringstream text;
    text << scenario.seed << ' ' << scenario.os << ' ' << scenario.units.size() << ' ' << last.name
         << ' ' << last.family << ' ' << last.noise << ' ' << last.samples << ' '
         << last.timeline.size();
    return text.str();
}

TEST(ScenarioReader, KeepsWhatItCanUseAndNamesTheRest)
{
    const std::string suite = "1 Linux 6.1.0 x86_64 ";
    const std::string first = suite + "1 Server room 10 0.5 64 1";
    const std::string third = "3 Workshop 13 0.5 64 5";
    const struct
    {
        std::string text;
        std::string complaints; // the lines of them
        std::string digest;
    } rows[] = {
        { "", "", suite + third },
        { "# a = b\r\n ; c\r\n\r\n seed =  4 \r\nseed=-5", "", "-5 Linux 6.1.0 x86_64 " + third },
        { "units = 0\n[unit *]\nnoise = 2", "", suite + "0  10 0.5 64 0" },
        { "units = 999", "", suite + "999 UPS 998 13 0.5 64 5" },
        { "units = 1000\n[unit 999]\nname = x\n[unit 3]\nname = y = z", "1 2",
          suite + "4 y = z 10 0.5 64 1" },
        { "[unit 0]\nsamples=256\n[suite]\nunits=1\nos=B", "", "1 B 1 Server room 10 0.5 256 1" },
        { "[unit *]\nnoise=0\nfamily=-32768\n[unit 1]\nfamily=32767", "",
          suite + "2 Telephone rack 32767 0 64 3" },
        { "[unit 1]\nfamily=5\n[unit *]\nfamily=-32768\nsamples=x", "5",
          suite + "2 Telephone rack -32768 0.5 64 3" },
        { "[unit 0]\ntimeline = sag 2 ,battery-test  1000000000\ntimeline=\ntimeline=sag 0\n"
          "timeline=rain 5\ntimeline=sag 2,, sag 1\ntimeline=sag 2, mains\ntimeline=sag 1.5",
          "3 4 5 6 7 8", suite + "1 Server room 10 0.5 64 2" },
        { "[unit 0]\nsamples=257\nsamples=-1\nfamily=32768\nnoise=nan\nnoise=1e999\nnan=true\n"
          "delay-ms=5 s\nname=12345678901234567890123456789012\nfault-call=0",
          "2 3 4 5 6 7 8 9 10", first },
        { "=\nversion\nversion=1234567\nnoise=1\n[unit\nos=a\n[unit -1]\n[unit 1 2]\n[unit 0]",
          "1 2 3 4 5 7 8", first },
        { std::string("os=\0\xff\n\0\n", 8) + "seed=7", "2", std::string("7 \0\xff ", 5) + third },
    };
    for (const auto &row : rows) {
        std::string lines;
        EXPECT_EQ(digest(scenarioOf(row.text, &lines)), row.digest) << row.text;
        EXPECT_EQ(lines, row.complaints) << row.text;
    }
}

TEST(Simulation, PlaysTheTimeline)
{
    // Time line, second, and: input and output in volts, charge in percent, count-down, flags.
    std::istringstream course(golden("simulation.txt"));
    EXPECT_TRUE(course.peek() == 'm');
    std::string timeline, second, expected;
    while (std::getline(course, timeline, '|') && std::getline(course, second, '|')) {
        std::getline(course, expected);
        const Scenario scenario = scenarioOf("[unit 0]\nnoise=0\ntimeline=" + timeline);
        const DeviceStatus device =
                translated(suite::stateReport(scenario, 0, std::stoll(second), false));
        const Variables &vars = device.getVars();
        const RegressiveCounter &shutdown = device.getRegressiveCounter();
        std::ostringstream text;
        text << std::lround(vars.getVInput()) << ' ' << vars.getVOutput() << ' '
             << vars.getCBattery() << ' ' << shutdown.getActive() * shutdown.getValue()
             << words(device);
        EXPECT_EQ(text.str(), expected) << timeline << " at " << second;
    }
}

TEST(Simulation, SameSecondSameReport)
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

/** A copy of the library in a directory of its own, beside the scenario; without a text, alone. */
class Library
{
public:
    explicit Library(const std::string &scenario)
    {
        std::string name = (std::filesystem::temp_directory_path() / "suiteXXXXXX").string();
        m_directory = mkdtemp(name.data());
        std::filesystem::copy(UPSCLI_FILE, m_directory);
        if (!scenario.empty())
            std::ofstream(m_directory / "scenario.ini") << scenario;
        m_library = dlopen((m_directory / "upscli.so").c_str(), RTLD_NOW | RTLD_LOCAL);
        testing::internal::CaptureStderr();
        handle = entry<void *()>("CliStart")();
        complaints = testing::internal::GetCapturedStderr();
    }
    ~Library()
    {
        stop();
        dlclose(m_library);
        std::filesystem::remove_all(m_directory);
    }

    int stop() const { return entry<int(void *)>("CliStop")(handle); }
    auto count() const { return entry<std::uint64_t(void *)>("GetServerCount")(handle); }
    int state(std::uint64_t index, DeviceStatus *device = nullptr) const
    {
        const auto ask = [&](const auto &...buffer) {
            using State = int(void *, std::uint64_t, decltype(buffer.get())...);
            const int result = entry<State>("UPSSrvGetState")(handle, index, buffer.get()...);
            if (device != nullptr && result != 0)
                *device = translated({ *buffer... });
            return result;
        };
        return ask(dirty<nb_capabilities>(), dirty<nb_variaveis>(), dirty<nb_estado_flags>(),
                   dirty<nb_falha_flags>(), dirty<long>(), dirty<unsigned long>(), dirty<char>());
    }
    /** The version record's texts; empty when the call fails. */
    std::string version(std::uint64_t index) const
    {
        using Version = int(void *, std::uint64_t, pelorin_version_info *);
        const auto info = dirty<pelorin_version_info>();
        Computer computer;
        if (entry<Version>("UPSSrvGetVersionInfo")(handle, index, info.get()) == 0)
            return {};
        Pel6Translator::translate(computer, info.get());
        return (computer.getVer() + ", " + computer.getOs()).toStdString();
    }

    void *handle;
    std::string complaints;

private:
    template <class F>
    F *entry(const char *name) const
    {
        return reinterpret_cast<F *>(dlsym(m_library, name));
    }
    /** A record that holds whatever was there before, with nothing behind it. */
    template <class Record>
    static std::unique_ptr<Record> dirty()
    {
        return std::make_unique_for_overwrite<Record>();
    }

    std::filesystem::path m_directory;
    void *m_library;
};

/** What faults spoil: name, input in tens of volts, samples, flags of samples and connection. */
std::string digest(const DeviceStatus &device)
{
    std::ostringstream text;
    const Variables &vars = device.getVars();
    text << vars.getName().toStdString() << ' ' << std::round(vars.getVInput() / 10) * 10 << ' '
         << vars.getSampVInput().size() << ' ' << vars.getSampIOutput().size() << ' '
         << device.getCaps().getHasSampVInput() << device.getCaps().getHasSampIOutput()
         << device.getCaps().getHasNominalVOutput() << device.getStatus().getConnected();
    return text.str();
}

TEST(SuiteLibrary, AnswersAsTheScenarioSays)
{
    const std::string texts = "6.3.0, Linux 6.1.0 x86_64";
    const std::string sound = "Server room 230 64 64 1111";
    const std::string none = " 0 0 0 0000";
    const struct
    {
        std::string scenario; // of unit 0
        std::uint64_t count;
        std::string states;   // results of three calls
        std::string versions; // the texts of the first call
        std::string digest;   // of the last call that succeeds
    } rows[] = {
        { "", 3, "111", texts, sound },
        { "nonsense", 1, "111", texts, sound },
        { "[suite]\nos=A\nversion=123456\ncount-zero=yes", 0, "111", "123456, A", sound },
        { "[suite]\ncli-start-fails=yes", 0, "000", "", none },
        { "version-fails=yes", 1, "111", "", sound },
        { "state-fails=yes", 1, "000", texts, none },
        { "[unit 1]\nstate-fails=yes", 2, "111", texts, sound },
        { "state-fails=yes\nfault-call=2", 1, "101", texts, sound },
        { "state-fails=yes\nversion-fails=yes\nfault-call=1", 1, "011", "", sound },
        { "state-fails=yes\nfault-from=100000", 1, "111", texts, sound },
        { "state-fails=yes\nfault-until=100000", 1, "000", texts, none },
        { "samples=0", 1, "111", texts, "Server room 230 0 0 0011" },
        { "samples=256", 1, "111", texts, "Server room 230 256 256 1111" },
        { "nan=yes", 1, "111", texts, "Server room nan 64 64 1111" },
        { "extreme=yes", 1, "111", texts, "Server room 3.40282e+38 256 256 1111" },
        { "unterminated=yes", 1, "111", "XXXXXXX, " + std::string(4089, 'X'),
          std::string(32, 'X') + sound.substr(11) },
    };
    for (const auto &row : rows) {
        const Library library(row.scenario.empty() ? "" : "[unit 0]\nnoise=0\n" + row.scenario);
        const bool complains = library.complaints.find("scenario.ini:3: \"no") < std::string::npos;
        EXPECT_EQ(complains, row.scenario == "nonsense") << library.complaints;
        EXPECT_EQ(library.count(), row.count) << row.scenario;
        EXPECT_EQ(library.version(0), row.versions) << row.scenario;
        DeviceStatus device;
        std::string states;
        for (int call = 0; call < 3; ++call)
            states += std::to_string(library.state(0, &device));
        EXPECT_EQ(states, row.states) << row.scenario;
        EXPECT_EQ(digest(device), row.digest) << row.scenario;
    }
}

TEST(SuiteLibrary, KnowsItsUnitsAndHandles)
{
    Library library("units=999");
    std::uint64_t unit = 0;
    while (library.state(unit) != 0 && !library.version(unit).empty())
        ++unit;
    EXPECT_EQ(unit, 999U);
    EXPECT_EQ(library.state(UINT64_MAX), 0);

    void *const open = library.handle;
    for (void *const tried : { static_cast<void *>(nullptr), static_cast<void *>(&unit), open }) {
        library.handle = tried;
        EXPECT_EQ(library.stop(), tried == open ? 1 : 0);
        EXPECT_EQ(library.state(0) + library.stop() + static_cast<int>(library.count()), 0);
    }
}

TEST(SuiteLibrary, LetsTimePassAndStopsUnderACall)
{
    using Clock = std::chrono::steady_clock;
    const Library library("time-scale=1000\n[unit 2]\ndelay-ms=30"); // an outage each 160 ms
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(library.state(2), 1);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));

    std::atomic<int> changes = 0;
    std::thread caller([&library, &changes] {
        for (DeviceStatus device; library.state(1, &device) != 0;)
            changes += device.getStatus().getNoVInput() == changes % 2 ? 0 : 1;
    });
    while (changes < 4 && Clock::now() < start + std::chrono::seconds(60))
        std::this_thread::yield();
    EXPECT_EQ(library.stop(), 1);
    caller.join();
    EXPECT_GE(changes, 4);
}

/** What the host prints on both streams, and its status: that of its exit times 256. */
std::string hostReport(const std::string &behaviour, const std::string &arguments)
{
    const std::string host = "TEST_PLUGIN=" + behaviour + " exec '" PELHOST_FILE "' 2>&1 ";
    FILE *const pipe = popen((host + arguments).c_str(), "r");
    std::string report;
    for (char line[4096]; std::fgets(line, sizeof line, pipe) != nullptr;)
        report += line;
    return report + std::to_string(pclose(pipe));
}

TEST(Host, ReportsEachStep)
{
    const std::string plugin = TEST_PLUGIN_FILE;
    const std::string loaded = "loaded " + plugin + "\n";
    const std::string started = loaded + "SrvStart: 1\n";
    const std::string noEntry = "pelhost: the plug-in has no entry ";
    const struct
    {
        std::string behaviour; // of the plug-in; a number is a signal that it sends
        std::string arguments;
        std::string report;
    } rows[] = {
        { "15", plugin, started + "received SIGTERM\nstopping\nSrvStop: 1\n0" },
        { "2", plugin + " --seconds 60", started + "received SIGINT\nstopping\nSrvStop: 1\n0" },
        { "", plugin + " --seconds 0.01", started + "time is over\nstopping\nSrvStop: 1\n0" },
        { "exits", plugin + " --stop-after-ms 1",
          started + "time is over\nstopping\nexited by the plug-in during SrvStop, status 0\n0" },
        { "refuses", plugin, loaded + "SrvStart: 0\npelhost: the plug-in did not start\n256" },
        { "", UPSCLI_FILE, noEntry + "SrvStart\n" + noEntry + "SrvStop\n256" },
        { "", "/-.so",
          "pelhost: cannot load the plug-in: /-.so: cannot open shared object file: "
          "No such file or directory\n256" },
        { "", plugin + " --seconds 1 --stop-after-ms 1 2>&-", "512" },
    };
    for (const auto &row : rows)
        EXPECT_EQ(hostReport(row.behaviour, row.arguments), row.report);
}

} // namespace
