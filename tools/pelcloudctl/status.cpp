#include "model/computer.h"
#include "model/devicestatus.h"
#include "model/unitstate.h"
#include "support/jsontext.h"
#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/suite.h"
#include "tools/pelcloudctl/terminal.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <thread>
#include <unistd.h>
#include <vector>

#include <QJsonArray>
#include <QJsonObject>

namespace {

using namespace Qt::StringLiterals;
using Terminal::Cell;
using Terminal::Colour;

struct Options
{
    bool isWatching = false;
    double seconds = 2; // between refreshes
    bool isJson = false;
};

/** The state of all UPSs at one moment, as the plug-in would send it. */
struct Snapshot
{
    QJsonObject computer;
    std::vector<QJsonObject> units; // an empty object where the library gives no state
};

/** The identifier in pelcloud.json; empty while the computer is not enrolled. */
QString computerId(const Installation &installation)
{
    try {
        return readConfiguration(installation.config())["cpid"_L1].toString();
    } catch (const Problem &) {
        return {};
    }
}

Snapshot takeSnapshot(Suite &suite, const Installation &installation)
{
    Snapshot snapshot;
    Computer computer;
    DeviceStatus device; // one for all units: samples accumulate as in the plug-in's reports
    const unsigned long count = suite.count();
    snapshot.units.reserve(count);
    for (unsigned long index = 0; index < count; ++index) {
        static_cast<void>(suite.readVersion(index, computer));
        const bool isKnown = suite.readState(index, device);
        snapshot.units.push_back(isKnown ? device.toJson() : QJsonObject());
    }
    snapshot.computer = computer.toJson();
    snapshot.computer.insert("id"_L1, computerId(installation));
    snapshot.computer.remove("name"_L1);
    return snapshot;
}

std::string jsonText(const Snapshot &snapshot)
{
    QJsonArray devices;
    for (const QJsonObject &unit : snapshot.units)
        devices.append(unit.isEmpty() ? QJsonValue() : QJsonValue(unit));
    return ToJsonText({ { "computer", snapshot.computer }, { "devices", devices } }).toStdString();
}

Colour colourOf(StateLevel level)
{
    switch (level) {
    case StateLevel::Good:
        return Colour::Green;
    case StateLevel::Notice:
        return Colour::Plain;
    case StateLevel::Warning:
        return Colour::Yellow;
    case StateLevel::Critical:
        break;
    }
    return Colour::Red;
}

std::string number(double value, int decimals, const char *unit)
{
    char text[400]; // the largest double has 309 digits
    std::snprintf(text, sizeof text, "%.*f %s", decimals, value, unit);
    return text;
}

/** The measurement with its unit; "-" where the UPS does not measure it or it is not a number. */
Cell measured(const QJsonObject &unit, const char *capability, const char *variable, int decimals,
              const char *symbol)
{
    const QJsonValue value = unit["vars"_L1].toObject()[QLatin1String(variable)];
    const bool isOffered = unit["caps"_L1].toObject()[QLatin1String(capability)].toInt() != 0;
    if (!isOffered || !std::isfinite(value.toDouble(NAN)))
        return { "-", Colour::Dim, true };
    return { number(value.toDouble(), decimals, symbol), Colour::Plain, true };
}

Cell load(const QJsonObject &unit)
{
    const double percent = loadOf(unit);
    if (percent < 0)
        return { "-", Colour::Dim, true };
    return { number(percent, 0, "%"), percent > 100 ? Colour::Red : Colour::Plain, true };
}

std::string timers(const QJsonObject &unit)
{
    constexpr struct
    {
        const char *capability;
        const char *variable;
        const char *words;
    } ROWS[] = {
        { "hasShutdownTimer", "shutdownTimer", "shutdown " },
        { "hasPowerOffTimer", "powerOffTimer", "power off " },
        { "hasPowerOnTimer", "powerOnTimer", "power on " },
    };
    const QJsonObject caps = unit["caps"_L1].toObject();
    const QJsonObject vars = unit["vars"_L1].toObject();
    const QJsonObject counter = unit["regressiveCounter"_L1].toObject();
    std::string text;
    const auto add = [&text](const char *words, const QJsonValue &value) {
        text.append(text.empty() ? "" : ", ").append(words).append(std::to_string(value.toInt()));
    };
    if (counter["active"_L1].toInt() != 0)
        add("counting down ", counter["value"_L1]);
    for (const auto &row : ROWS) {
        if (caps[QLatin1String(row.capability)].toInt() != 0
            && vars[QLatin1String(row.variable)].toInt() > 0)
            add(row.words, vars[QLatin1String(row.variable)]);
    }
    return text;
}

std::string notes(const UnitState &state)
{
    std::string text;
    for (const std::string_view note : state.notes)
        text.append(text.empty() ? "" : ", ").append(note);
    return text;
}

Terminal::Row row(unsigned long index, const QJsonObject &unit)
{
    if (unit.isEmpty())
        return { { unitName(index) }, { "-" }, { "State unknown", Colour::Red } };
    const UnitState state = unitStateOf(unit);
    return { { unitName(index), Colour::Bold },
             { Terminal::printable(unit["vars"_L1]["name"_L1].toString()) },
             { std::string(state.words), colourOf(state.level) },
             measured(unit, "hasVInput", "vInput", 1, "V"),
             measured(unit, "hasVOutput", "vOutput", 1, "V"),
             load(unit),
             measured(unit, "hasCBattery", "cBattery", 0, "%"),
             measured(unit, "hasVBattery", "vBattery", 1, "V"),
             measured(unit, "hasTemperature", "temperature", 0, "°C"),
             { timers(unit) },
             { notes(state), Colour::Yellow } };
}

std::string tableText(const Snapshot &snapshot)
{
    const auto text = [&snapshot](const char *key) {
        return Terminal::printable(snapshot.computer[QLatin1String(key)].toString());
    };
    const std::string id = text("id");
    std::string out = Terminal::painted(Colour::Bold, id.empty() ? "this computer" : id);
    if (!text("os").empty() || !text("ver").empty())
        out.append(": ").append(text("os")).append(", suite ").append(text("ver"));
    out += "\n\n";
    if (snapshot.units.empty())
        return out.append("The suite watches no UPS.\n");
    std::vector<Terminal::Row> rows{ { { "UPS" },
                                       { "NAME" },
                                       { "STATE" },
                                       { "INPUT", Colour::Plain, true },
                                       { "OUTPUT", Colour::Plain, true },
                                       { "LOAD", Colour::Plain, true },
                                       { "CHARGE", Colour::Plain, true },
                                       { "BATTERY", Colour::Plain, true },
                                       { "TEMP", Colour::Plain, true },
                                       { "TIMERS" },
                                       { "NOTES" } } };
    rows.reserve(snapshot.units.size() + 1);
    for (std::size_t index = 0; index < snapshot.units.size(); ++index)
        rows.push_back(row(index, snapshot.units[index]));
    return out + Terminal::table(rows);
}

constexpr char ENTER_SCREEN[] = "\033[?1049h\033[?25l"; // another screen, without a cursor
constexpr char LEAVE_SCREEN[] = "\033[?25h\033[?1049l";

/** The terminal's alternate screen in this scope, on which each text replaces the one before. */
class Screen
{
public:
    Screen()
    {
        struct sigaction action = {};
        action.sa_handler = onSignal;
        for (const int number : { SIGINT, SIGTERM, SIGHUP, SIGQUIT })
            sigaction(number, &action, nullptr);
        signal(SIGTSTP, SIG_IGN); // a stopped program would leave the shell on this screen
        Terminal::print(ENTER_SCREEN);
    }
    ~Screen() { leave(); }
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    static void draw(std::string text)
    {
        for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 4)
            text.replace(at, 1, "\033[K\n"); // clear the rest of the old line
        s_isDrawing = true;
        if (s_signal == 0)
            Terminal::print("\033[H" + text + "\n\033[KPress Ctrl-C to quit.\033[J");
        s_isDrawing = false;
        if (const int number = s_signal; number != 0)
            leaveAndEnd(number);
    }

private:
    /** May run in a thread of the suite's library. Nothing may be drawn after leave(). */
    static void onSignal(int number)
    {
        s_signal = number;
        if (!s_isDrawing) // otherwise draw() does it, which may be in another thread
            leaveAndEnd(number);
    }
    static void leave()
    {
        static_cast<void>(write(STDOUT_FILENO, LEAVE_SCREEN, sizeof LEAVE_SCREEN - 1) < 0);
    }
    static void leaveAndEnd(int number)
    {
        leave();
        if (number == SIGINT)
            _exit(EXIT_SUCCESS); // the normal end of this command
        signal(number, SIG_DFL);
        raise(number);
    }

    static inline std::atomic<int> s_signal = 0; // received
    static inline std::atomic<bool> s_isDrawing = false;
};

int watch(Suite &suite, const Installation &installation, const Options &options)
{
    std::optional<Screen> screen;
    if (Terminal::isTerminal(stdout) && !options.isJson)
        screen.emplace();
    for (;;) {
        const Snapshot snapshot = takeSnapshot(suite, installation);
        if (screen)
            Screen::draw(tableText(snapshot));
        else
            Terminal::print(options.isJson ? jsonText(snapshot) : tableText(snapshot) + "\n");
        std::this_thread::sleep_for(std::chrono::duration<double>(options.seconds));
    }
}

int run(const Installation &installation, const Options &options)
{
    Suite suite(installation);
    if (options.isWatching)
        return watch(suite, installation, options);
    const Snapshot snapshot = takeSnapshot(suite, installation);
    Terminal::print(options.isJson ? jsonText(snapshot) : tableText(snapshot));
    return 0;
}

std::string checkInterval(const std::string &text)
{
    char *end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    const bool isGood = *end == '\0' && seconds >= 0.1 && seconds <= 3600;
    return isGood ? "" : "not a number from 0.1 to 3600: " + text;
}

} // namespace

void addStatus(Program &program)
{
    const auto options = std::make_shared<Options>();
    CLI::App *const command = program.add(
            "status", "Show the current state of every UPS",
            "  pelcloudctl status --watch\n"
            "  pelcloudctl status --json | jq '.devices[].vars.cBattery'",
            [&program, options] { return run(findInstallation(program.directory()), *options); });
    command->add_flag("-w,--watch", options->isWatching, "Refresh until interrupted");
    command->add_option("--interval", options->seconds, "Seconds between refreshes (default: 2)")
            ->check(checkInterval)
            ->type_name("SECONDS");
    command->add_flag("--json", options->isJson, "Print the JSON that the plug-in would send");
}
