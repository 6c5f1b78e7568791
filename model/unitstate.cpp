#include "model/unitstate.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <optional>

#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

/** What a flag of a report means when it equals `value`. */
struct Meaning
{
    const char *record;
    const char *flag;
    int value;
    const char *alsoStatus; // a status flag that must also be set, or null
    std::string_view key;   // empty: never names the state, only a note
    std::string_view words;
    StateLevel level;
};

// In order of precedence: the first one that applies names the state.
constexpr std::array MEANINGS{
    Meaning{ "status", "connected", 0, nullptr, "disconnected", "No connection",
             StateLevel::Critical },
    Meaning{ "failures", "shortCircuit", 1, nullptr, "short-circuit", "Short circuit",
             StateLevel::Critical },
    Meaning{ "failures", "overLoad", 1, nullptr, "overload", "Overload", StateLevel::Critical },
    Meaning{ "failures", "overTemp", 1, nullptr, "overheating", "Overtemperature",
             StateLevel::Critical },
    Meaning{ "failures", "endBattery", 1, nullptr, "battery-empty", "Battery empty",
             StateLevel::Critical },
    Meaning{ "failures", "internal", 1, nullptr, "internal-fault", "Internal fault",
             StateLevel::Critical },
    Meaning{ "failures", "inverter", 1, nullptr, "inverter-fault", "Inverter fault",
             StateLevel::Critical },
    Meaning{ "failures", "tiristor", 1, nullptr, "thyristor-fault", "Thyristor fault",
             StateLevel::Critical },
    Meaning{ "failures", "abnormalVOutput", 1, nullptr, "output-fault", "Output voltage abnormal",
             StateLevel::Critical },
    Meaning{ "failures", "abnormalVBattery", 1, nullptr, "battery-fault",
             "Battery voltage abnormal", StateLevel::Critical },
    Meaning{ "failures", "fan", 1, nullptr, "fan-fault", "Fan fault", StateLevel::Critical },
    Meaning{ "failures", "highPOutput", 1, nullptr, "power-fault", "Output power too high",
             StateLevel::Critical },
    Meaning{ "failures", "lowVInput", 1, nullptr, "input-fault", "Input voltage too low",
             StateLevel::Critical },
    Meaning{ "status", "opCheckup", 1, nullptr, "battery-test", "Battery test",
             StateLevel::Notice },
    Meaning{ "status", "lowBattery", 1, "opBattery", "battery-low", "Battery low",
             StateLevel::Critical },
    Meaning{ "status", "opBattery", 1, nullptr, "on-battery", "On battery", StateLevel::Warning },
    Meaning{ "status", "noBattery", 1, nullptr, "no-battery", "No battery", StateLevel::Warning },
    Meaning{ "status", "opStandby", 1, nullptr, "standby", "Standby", StateLevel::Notice },
    Meaning{ "status", "opStartup", 1, nullptr, "starting", "Starting", StateLevel::Notice },
    Meaning{ "status", "noVInput", 1, nullptr, "no-input", "No input voltage",
             StateLevel::Warning },
    Meaning{ "status", "lowVInput", 1, nullptr, "input-low", "Input voltage low",
             StateLevel::Warning },
    Meaning{ "status", "highVInput", 1, nullptr, "input-high", "Input voltage high",
             StateLevel::Warning },
    Meaning{ "status", "highPOutput", 1, nullptr, "high-load", "High load", StateLevel::Warning },
    Meaning{ "status", "lowBattery", 1, nullptr, "", "Battery low", StateLevel::Warning },
    Meaning{ "status", "lowFInput", 1, nullptr, "", "Input frequency low", StateLevel::Warning },
    Meaning{ "status", "highFInput", 1, nullptr, "", "Input frequency high", StateLevel::Warning },
    Meaning{ "status", "oldBattery", 1, nullptr, "", "Battery old", StateLevel::Warning },
    Meaning{ "status", "opWarning", 1, nullptr, "warning", "Warning", StateLevel::Warning },
    Meaning{ "status", "noiseInput", 1, nullptr, "", "Noisy input", StateLevel::Notice },
    Meaning{ "status", "shutdownTimerActive", 1, nullptr, "", "Shutdown counting down",
             StateLevel::Warning },
    Meaning{ "status", "remoteControlActive", 1, nullptr, "", "Remote control",
             StateLevel::Notice },
    Meaning{ "status", "noCalibrated", 1, nullptr, "", "Not calibrated", StateLevel::Notice },
};

std::optional<int> flagOf(const QJsonObject &report, const char *record, const char *flag)
{
    const QJsonValue value = report[QLatin1StringView(record)].toObject()[QLatin1StringView(flag)];
    return value.isDouble() ? std::optional(value.toInt(-1)) : std::nullopt;
}

bool holds(const Meaning &meaning, const QJsonObject &report)
{
    return flagOf(report, meaning.record, meaning.flag) == meaning.value
           && (!meaning.alsoStatus || flagOf(report, "status", meaning.alsoStatus) == 1);
}

bool isNoted(const UnitState &state, std::string_view words)
{
    return state.words == words
           || std::find(state.notes.begin(), state.notes.end(), words) != state.notes.end();
}

double variableOf(const QJsonObject &report, const char *name)
{
    return report["vars"_L1].toObject()[QLatin1StringView(name)].toDouble(NAN);
}

bool isCapable(const QJsonObject &report, const char *name)
{
    return flagOf(report, "caps", name) == 1;
}

} // namespace

std::string_view levelName(StateLevel level)
{
    constexpr std::array<std::string_view, 4> NAMES{ "good", "notice", "warning", "critical" };
    return NAMES[static_cast<std::size_t>(level)];
}

UnitState unitStateOf(const QJsonObject &report)
{
    UnitState state{ "on-mains", "On mains", StateLevel::Good, {} };
    bool isNamed = false;
    for (const Meaning &meaning : MEANINGS) {
        if (!holds(meaning, report))
            continue;
        if (!isNamed && !meaning.key.empty()) {
            isNamed = true;
            state.key = meaning.key;
            state.words = meaning.words;
            state.level = meaning.level;
        } else if (!isNoted(state, meaning.words)) {
            state.notes.push_back(meaning.words);
        }
    }
    return state;
}

double loadOf(const QJsonObject &report)
{
    const double rated = variableOf(report, "nominalPOutput");
    const double power = variableOf(report, "pOutput");
    return rated > 0 && std::isfinite(power) ? 100 * power / rated : -1;
}

std::string summaryOf(const QJsonObject &report)
{
    std::string text(unitStateOf(report).words);
    text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    const double battery = variableOf(report, "cBattery");
    if (isCapable(report, "hasCBattery") && std::isfinite(battery))
        text.append(1, ' ').append(std::to_string(std::llround(battery))).append(1, '%');
    return text;
}
