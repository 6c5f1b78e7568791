#include "devkit/suite/scenario.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

namespace suite {

namespace {

constexpr std::string_view BLANKS = " \t\r\f\v";
constexpr std::size_t MAX_PHASES = 100;
constexpr std::int64_t MAX_SECONDS = 1'000'000'000;
constexpr int MAX_DELAY_MS = 3'600'000;
constexpr int BUILT_IN_UNITS = 3;

struct PhaseWord
{
    std::string_view word;
    Phase phase;
};

constexpr PhaseWord PHASES[] = {
    { "mains", Phase::Mains },
    { "sag", Phase::Sag },
    { "outage", Phase::Outage },
    { "overload", Phase::Overload },
    { "overheating", Phase::Overheating },
    { "battery-test", Phase::BatteryTest },
};

/** What a time line that is a single word stands for; the last phase lasts until all is well. */
constexpr struct
{
    std::string_view word;
    std::string_view phases;
} BUILT_IN_TIMELINES[] = {
    { "mains", "mains 60" },
    { "sag", "mains 15, sag 30, mains 15" },
    { "outage", "mains 15, outage 85, mains 60" },
    { "overload", "mains 15, overload 30, mains 15" },
    { "overheating", "mains 15, overheating 60, mains 60" },
    { "battery-test", "mains 15, battery-test 60, mains 30" },
};

constexpr struct
{
    std::string_view name;
    int family;
    std::string_view timeline;
} BUILT_IN[BUILT_IN_UNITS] = {
    { "Server room", 10, "mains" },
    { "Telephone rack", 2, "outage" },
    { "Workshop", 13, "mains 25, overload 20, mains 20, overheating 60, mains 45" },
};

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == text.npos)
        return {};
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

/** Takes off the part of `text` before the first `separator`, and the separator. */
std::string_view takeUntil(std::string_view &text, char separator)
{
    const std::size_t at = text.find(separator);
    const std::string_view part = text.substr(0, at);
    text.remove_prefix(at == text.npos ? text.size() : at + 1);
    return trimmed(part);
}

template <class Number>
bool parseNumber(Number &number, std::string_view text, Number least, Number most)
{
    Number parsed{};
    const char *const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, parsed);
    // A NaN is in no range, and must not get through.
    if (result.ec != std::errc() || result.ptr != end || !(parsed >= least && parsed <= most))
        return false;
    number = parsed;
    return true;
}

std::optional<TimedPhase> parsePhase(std::string_view text)
{
    const std::string_view word = takeUntil(text, ' ');
    const auto *const row = std::ranges::find(PHASES, word, &PhaseWord::word);
    TimedPhase phase{};
    if (row == std::end(PHASES)
        || !parseNumber<std::int64_t>(phase.seconds, trimmed(text), 1, MAX_SECONDS))
        return std::nullopt;
    phase.phase = row->phase;
    return phase;
}

bool setTimeline(Unit &unit, std::string_view text)
{
    for (const auto &row : BUILT_IN_TIMELINES) {
        if (row.word == text)
            text = row.phases;
    }
    Timeline timeline;
    while (!text.empty() && timeline.size() < MAX_PHASES) {
        const std::optional<TimedPhase> phase = parsePhase(takeUntil(text, ','));
        if (!phase)
            return false;
        timeline.push_back(*phase);
    }
    if (timeline.empty() || !text.empty())
        return false;
    unit.timeline = timeline;
    return true;
}

// Setters of one member each, for the tables of keys: false when the text is no value for it.

template <auto Member, std::int64_t Least, std::int64_t Most, class Record>
bool setNumber(Record &record, std::string_view text)
{
    using Number = std::remove_reference_t<decltype(record.*Member)>;
    return parseNumber(record.*Member, text, static_cast<Number>(Least), static_cast<Number>(Most));
}

bool setTimeScale(Scenario &scenario, std::string_view text)
{
    return parseNumber(scenario.timeScale, text, 0.001, 1e6);
}

template <auto Member, std::size_t MaxLength, class Record>
bool setText(Record &record, std::string_view text)
{
    if (text.size() > MaxLength)
        return false;
    record.*Member = text;
    return true;
}

template <auto Member, class Record>
bool setSwitch(Record &record, std::string_view text)
{
    if (text != "yes" && text != "no")
        return false;
    record.*Member = text == "yes";
    return true;
}

template <class Record>
struct Key
{
    std::string_view name;
    bool (*set)(Record &, std::string_view);
    const char *takes;
};

constexpr const char *SWITCH = "\"yes\" or \"no\"";
constexpr const char *SHORT = "a whole number of 16 bits";
constexpr const char *DELAY = "milliseconds from 0 to 3600000";
constexpr const char *SECONDS = "whole seconds from 0 to 1000000000";

using S = Scenario;
constexpr Key<Scenario> SUITE_KEYS[] = {
    { "os", setText<&S::os, 255>, "at most 255 characters" },
    { "version", setText<&S::version, 6>, "at most 6 characters" },
    { "units", setNumber<&S::declaredUnits, 0, MAX_UNITS>, "a whole number from 0 to 999" },
    { "seed", setNumber<&S::seed, INT64_MIN, INT64_MAX>, "a whole number" },
    { "time-scale", setTimeScale, "a number from 0.001 to 1000000" },
    { "cli-start-fails", setSwitch<&S::cliStartFails>, SWITCH },
    { "count-zero", setSwitch<&S::countZero>, SWITCH },
    { "start-delay-ms", setNumber<&S::startDelayMs, 0, MAX_DELAY_MS>, DELAY },
    { "count-delay-ms", setNumber<&S::countDelayMs, 0, MAX_DELAY_MS>, DELAY },
    { "stop-delay-ms", setNumber<&S::stopDelayMs, 0, MAX_DELAY_MS>, DELAY },
    { "stop-wakes-calls", setSwitch<&S::stopWakesCalls>, SWITCH },
    { "linger-ms", setNumber<&S::lingerMs, 0, MAX_DELAY_MS>, DELAY },
    { "worker-poll-ms", setNumber<&S::workerPollMs, 0, MAX_DELAY_MS>, DELAY },
    { "destructor-delay-ms", setNumber<&S::destructorDelayMs, 0, MAX_DELAY_MS>, DELAY },
    { "elf-destructor-delay-ms", setNumber<&S::elfDestructorDelayMs, 0, MAX_DELAY_MS>, DELAY },
    { "stays-mapped", setSwitch<&S::staysMapped>, SWITCH },
};

using U = Unit;
constexpr Key<Unit> UNIT_KEYS[] = {
    { "name", setText<&U::name, 31>, "at most 31 characters" },
    { "family", setNumber<&U::family, INT16_MIN, INT16_MAX>, SHORT },
    { "model", setNumber<&U::model, INT16_MIN, INT16_MAX>, SHORT },
    { "voltage", setNumber<&U::voltage, 1, 1000>, "volts from 1 to 1000" },
    { "power", setNumber<&U::power, 1, 1000000>, "watts from 1 to 1000000" },
    { "noise", setNumber<&U::noise, 0, 100>, "percent from 0 to 100" },
    { "samples", setNumber<&U::samples, 0, MAX_SAMPLES>, "a whole number from 0 to 256" },
    { "timeline", setTimeline,
      "mains, sag, outage, overload, overheating or battery-test, "
      "or at most 100 of them with seconds, as in \"mains 15, outage 40\"" },
    { "version-fails", setSwitch<&U::versionFails>, SWITCH },
    { "state-fails", setSwitch<&U::stateFails>, SWITCH },
    { "extreme", setSwitch<&U::extreme>, SWITCH },
    { "nan", setSwitch<&U::nan>, SWITCH },
    { "unterminated", setSwitch<&U::unterminated>, SWITCH },
    { "garbage", setSwitch<&U::garbage>, SWITCH },
    { "delay-ms", setNumber<&U::delayMs, 0, MAX_DELAY_MS>, DELAY },
    { "fault-call", setNumber<&U::faultCall, 1, MAX_SECONDS>, "a whole number from 1" },
    { "fault-from", setNumber<&U::faultFrom, 0, MAX_SECONDS>, SECONDS },
    { "fault-until", setNumber<&U::faultUntil, 0, MAX_SECONDS>, SECONDS },
};

std::string quoted(std::string_view text)
{
    return '"' + std::string(text) + '"';
}

Unit builtInUnit(int index)
{
    const auto &row = BUILT_IN[index % BUILT_IN_UNITS];
    Unit unit;
    unit.name = index < BUILT_IN_UNITS ? std::string(row.name) : "UPS " + std::to_string(index);
    unit.family = row.family;
    setTimeline(unit, row.timeline);
    return unit;
}

class Reader
{
public:
    explicit Reader(std::vector<Complaint> &complaints)
        : m_complaints(complaints)
    {}

    /** Sorts a line out; its value is looked at when all lines are known. */
    void takeLine(std::string_view line)
    {
        ++m_line;
        line = trimmed(line);
        if (line.empty() || line.front() == '#' || line.front() == ';')
            return;
        if (line.front() == '[')
            startSection(line);
        else if (line.find('=') == line.npos)
            complain(m_line, quoted(line) + " is neither \"key = value\" nor \"[section]\"");
        else if (m_section != NO_SECTION)
            m_settings.push_back({ m_line, m_section, std::string(takeUntil(line, '=')),
                                   std::string(trimmed(line)) });
    }

    Scenario scenario()
    {
        Scenario result;
        for (const Setting &setting : m_settings) {
            if (setting.section == SUITE)
                assign(result, SUITE_KEYS, setting);
        }
        addUnits(result);
        for (const Setting &setting : m_settings) {
            if (setting.section != SUITE)
                assignToUnits(result.units, setting);
        }
        std::ranges::stable_sort(m_complaints, {}, &Complaint::line);
        return result;
    }

private:
    // What a setting belongs to, beside the units' indices.
    static constexpr int SUITE = -1;
    static constexpr int EVERY_UNIT = -2;
    static constexpr int NO_SECTION = -3;

    struct Setting
    {
        int line;
        int section;
        std::string key;
        std::string value;
    };

    void complain(int line, std::string text) { m_complaints.push_back({ line, std::move(text) }); }

    void startSection(std::string_view line)
    {
        constexpr std::string_view UNIT = "[unit ";
        if (line == "[suite]") {
            m_section = SUITE;
            return;
        }
        std::string_view index;
        if (line.starts_with(UNIT) && line.ends_with(']'))
            index = trimmed(line.substr(UNIT.size(), line.size() - UNIT.size() - 1));
        if (index == "*") {
            m_section = EVERY_UNIT;
        } else if (parseNumber(m_section, index, 0, MAX_UNITS - 1)) {
            m_highestUnit = std::max(m_highestUnit, m_section);
        } else {
            m_section = NO_SECTION;
            complain(m_line, quoted(line)
                                     + " and what stands under it is left out; a section is "
                                       "[suite], [unit *], or [unit 0] to [unit 998]");
        }
    }

    void addUnits(Scenario &scenario) const
    {
        int count = std::max(scenario.declaredUnits, m_highestUnit + 1);
        if (scenario.declaredUnits < 0 && m_highestUnit < 0)
            count = BUILT_IN_UNITS;
        for (int index = 0; index < count; ++index)
            scenario.units.push_back(builtInUnit(index));
    }

    void assignToUnits(std::vector<Unit> &units, const Setting &setting)
    {
        if (setting.section != EVERY_UNIT) {
            assign(units[static_cast<std::size_t>(setting.section)], UNIT_KEYS, setting);
            return;
        }
        Unit trial; // so that a bad line is named once, and also when there are no units
        if (!assign(trial, UNIT_KEYS, setting))
            return;
        for (Unit &unit : units)
            assign(unit, UNIT_KEYS, setting);
    }

    template <class Record, std::size_t Size>
    bool assign(Record &record, const Key<Record> (&keys)[Size], const Setting &setting)
    {
        const auto *const key = std::ranges::find(keys, setting.key, &Key<Record>::name);
        if (key == std::end(keys)) {
            complain(setting.line, "there is no key " + quoted(setting.key) + " in this section");
            return false;
        }
        if (!key->set(record, setting.value)) {
            complain(setting.line, quoted(setting.key) + " takes " + key->takes + ", not "
                                           + quoted(setting.value));
            return false;
        }
        return true;
    }

    std::vector<Complaint> &m_complaints;
    std::vector<Setting> m_settings;
    int m_line = 0;
    int m_section = SUITE;
    int m_highestUnit = -1;
};

} // namespace

Scenario readScenario(std::istream &text, std::vector<Complaint> &complaints)
{
    Reader reader(complaints);
    for (std::string line; std::getline(text, line);)
        reader.takeLine(line);
    return reader.scenario();
}

bool isFaulty(const Unit &unit, std::int64_t call, std::int64_t second)
{
    return (unit.faultCall == 0 || unit.faultCall == call) && second >= unit.faultFrom
           && second < unit.faultUntil;
}

} // namespace suite
