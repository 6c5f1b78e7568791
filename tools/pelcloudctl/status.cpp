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
#include <optional>
#include <thread>
#include <unistd.h>
#include <vector>

#include <QJsonArray>
#include <QJsonObject>

namespace {

using Terminal::Cell;
using Terminal::Colour;

/** What the suite says at one moment, as the cloud would get it. */
struct Snapshot
{
    QJsonObject computer;
    std::vector<QJsonObject> units; // empty objects for those that the library does not know
};

/** The identifier in pelcloud.json; a computer has a state also before it has one. */
QString computerId(const Installation &installation)
{
    try {
        return readConfiguration(installation.config())[QLatin1String("cpid")].toString();
    } catch (const Problem &) {
        return {};
    }
}

Snapshot take(Suite &suite, const Installation &installation)
{
    Snapshot snapshot;
    Computer computer;
    DeviceStatus device; // one for all units, as in a run, so that the samples are the same
    const unsigned long count = suite.count();
    snapshot.units.reserve(count);
    for (unsigned long index = 0; index < count; ++index) {
        static_cast<void>(suite.readVersion(index, computer));
        const bool isKnown = suite.readState(index, device);
        snapshot.units.push_back(isKnown ? device.toJson() : QJsonObject());
    }
    snapshot.computer = computer.toJson();
    snapshot.computer.insert(QLatin1String("id"), computerId(installation));
    snapshot.computer.remove(QLatin1String("name"));
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

/** The measurement with its unit; "-" where the UPS does not offer it or it is no number. */
Cell measured(const QJsonObject &unit, const char *capability, const char *variable, int decimals,
              const char *symbol)
{
    const QJsonValue value = unit[QLatin1String("vars")].toObject()[QLatin1String(variable)];
    const bool isOffered =
            unit[QLatin1String("caps")].toObject()[QLatin1String(capability)].toInt() != 0;
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
    const QJsonObject caps = unit[QLatin1String("caps")].toObject();
    const QJsonObject vars = unit[QLatin1String("vars")].toObject();
    const QJsonObject counter = unit[QLatin1String("regressiveCounter")].toObject();
    std::string text;
    const auto add = [&text](const char *words, const QJsonValue &value) {
        text.append(text.empty() ? "" : ", ").append(words).append(std::to_string(value.toInt()));
    };
    if (counter[QLatin1String("active")].toInt() != 0)
        add("counting down ", counter[QLatin1String("value")]);
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
        return { { unitName(index) },
                 { "-" },
                 { "The suite does not know its state", Colour::Red } };
    const UnitState state = unitStateOf(unit);
    return { { unitName(index), Colour::Bold },
             { Terminal::printable(unit[QLatin1String("vars")][QLatin1String("name")].toString()) },
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
                                       { "ALSO" } } };
    rows.reserve(snapshot.units.size() + 1);
    for (std::size_t index = 0; index < snapshot.units.size(); ++index)
        rows.push_back(row(index, snapshot.units[index]));
    return out + Terminal::table(rows);
}

constexpr char ENTER_SCREEN[] = "\033[?1049h\033[?25l"; // another screen, without a cursor
constexpr char LEAVE_SCREEN[] = "\033[?25h\033[?1049l";

/** Draws each look over the one before, on a screen of its own, until it ends or a signal ends us. */
class Screen
{
public:
    Screen()
    {
        struct sigaction action = {};
        action.sa_handler = onSignal;
        for (const int number : { SIGINT, SIGTERM, SIGHUP, SIGQUIT })
            sigaction(number, &action, nullptr);
        signal(SIGTSTP, SIG_IGN); // a stopped program would leave the screen as it is
        Terminal::print(ENTER_SCREEN);
    }
    ~Screen() { leave(); }
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    static void draw(std::string text)
    {
        for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 4)
            text.replace(at, 1, "\033[K\n"); // the rest of the line is from before
        s_isDrawing = true;
        if (s_signal == 0)
            Terminal::print("\033[H" + text + "\n\033[KCtrl-C ends.\033[J");
        s_isDrawing = false;
        if (const int number = s_signal; number != 0)
            leaveAndEnd(number);
    }

private:
    /** In any thread, for the suite's library may have some: nothing may be drawn after the end. */
    static void onSignal(int number)
    {
        s_signal = number;
        if (!s_isDrawing) // the library may keep the thread that draws for long
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
            _exit(0); // as announced
        signal(number, SIG_DFL);
        raise(number);
    }

    static inline std::atomic<int> s_signal = 0; // that came
    static inline std::atomic<bool> s_isDrawing = false;
};

int watch(Suite &suite, const Installation &installation, const Commands::Status &options)
{
    std::optional<Screen> screen;
    if (Terminal::isTerminal(stdout) && !options.isJson)
        screen.emplace();
    for (;;) {
        const Snapshot snapshot = take(suite, installation);
        if (screen)
            Screen::draw(tableText(snapshot));
        else
            Terminal::print(options.isJson ? jsonText(snapshot) : tableText(snapshot) + "\n");
        std::this_thread::sleep_for(std::chrono::duration<double>(options.seconds));
    }
}

} // namespace

int Commands::run(const Status &options)
{
    const Installation installation = findInstallation(options.directory);
    Suite suite(installation);
    if (options.isWatching)
        return watch(suite, installation, options);
    const Snapshot snapshot = take(suite, installation);
    Terminal::print(options.isJson ? jsonText(snapshot) : tableText(snapshot));
    return 0;
}
