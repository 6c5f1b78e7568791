#include "devkit/suite/simulation.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <numbers>

namespace suite {

namespace {

// Bits of the state and the failure record, counted through their bytes.
enum StateBit {
    CONNECTED = 0,
    OP_BATTERY = 1,
    OP_STANDBY = 2,
    OP_WARNING = 3,
    NO_SYNC_INPUT = 7,
    SYNC_INPUT = 8,
    LOW_V_INPUT = 9,
    NO_V_INPUT = 11,
    LOW_BATTERY = 12,
    MAX_BATTERY = 14,
    SHUTDOWN_TIMER_ACTIVE = 15,
    CALIBRATED = 17,
    OP_CHECKUP = 18,
    FAN_FAILURE = 19,
    STATE_HIGH_P_OUTPUT = 22,
};
enum FailureBit { OVER_TEMP = 0, END_BATTERY = 2, OVER_LOAD = 3, HIGH_P_OUTPUT = 9 };

constexpr std::uint32_t bits(std::initializer_list<int> list)
{
    std::uint32_t mask = 0;
    for (const int bit : list)
        mask |= 1U << bit;
    return mask;
}

/** What a phase does to a unit. */
struct Effect
{
    double input;       // share of the nominal input voltage
    double load;        // share of the nominal power, or 0 for the usual load
    double charging;    // percent of the battery in a second
    double temperature; // that the unit tends to, in degrees Celsius
    std::uint32_t state;
    std::uint32_t failures;
};

// In the order of Phase.
constexpr Effect EFFECTS[] = {
    { 1.00, 0.00, 2.0, 31.0, bits({ SYNC_INPUT }), 0 },
    { 0.78, 0.00, 2.0, 33.0, bits({ SYNC_INPUT, LOW_V_INPUT, OP_WARNING }), 0 },
    { 0.00, 0.00, -1.0, 38.0, bits({ NO_SYNC_INPUT, NO_V_INPUT, OP_BATTERY, OP_WARNING }), 0 },
    { 0.97, 1.18, 2.0, 45.0, bits({ SYNC_INPUT, STATE_HIGH_P_OUTPUT, OP_WARNING }),
      bits({ OVER_LOAD, HIGH_P_OUTPUT }) },
    { 1.00, 0.00, 2.0, 78.0, bits({ SYNC_INPUT, FAN_FAILURE, OP_WARNING }), 0 },
    { 1.00, 0.00, -0.5, 35.0, bits({ SYNC_INPUT, OP_BATTERY, OP_CHECKUP }), 0 },
};

constexpr double FULL_CHARGE = 100;
constexpr double LOW_CHARGE = 20;
constexpr double DEGREES_PER_SECOND = 1;
constexpr double OVER_TEMPERATURE = 60;
constexpr double USUAL_LOAD = 0.4;
constexpr double LOAD_SWING = 0.05;
constexpr double LOAD_SWING_SECONDS = 120;
constexpr double NOMINAL_V_BATTERY = 24;
constexpr double EMPTY_V_BATTERY = 21;
constexpr double FULL_V_BATTERY = 27.2;
constexpr float FIRMWARE_VERSION = 1.5F;
constexpr std::int16_t IC_BATTERY = 7;
constexpr long SHUTDOWN_CAUSE = 1;
constexpr int SAMPLE_ZERO = 128;
constexpr double SAMPLE_AMPLITUDE = 110; // at the nominal value
constexpr std::int64_t MAX_ROUNDS = 1000;

constexpr float nb_variaveis::*FLOATS[] = {
    &nb_variaveis::vInput,          &nb_variaveis::vOutput,       &nb_variaveis::iOutput,
    &nb_variaveis::pOutput,         &nb_variaveis::fOutput,       &nb_variaveis::vBattery,
    &nb_variaveis::temperature,     &nb_variaveis::cBattery,      &nb_variaveis::version,
    &nb_variaveis::nominalVBattery, &nb_variaveis::nominalVInput, &nb_variaveis::nominalPOutput,
    &nb_variaveis::nominalVOutput,
};

/** Chance that repeats: the same for the same seed, unit and second (SplitMix64). */
class Chance
{
public:
    Chance(const Scenario &scenario, std::size_t index, std::int64_t second)
        : m_state(static_cast<std::uint64_t>(scenario.seed))
    {
        m_state = next() ^ index;
        m_state = next() ^ static_cast<std::uint64_t>(second);
    }

    std::uint64_t next()
    {
        m_state += 0x9e3779b97f4a7c15U;
        std::uint64_t mixed = m_state;
        mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
        return mixed ^ (mixed >> 31U);
    }

    /** `value`, up to `percent` more or less. */
    double around(double value, double percent)
    {
        const double spread = static_cast<double>(next() >> 11U) / static_cast<double>(1ULL << 52U);
        return value * (1 + (spread - 1) * percent / 100);
    }

    template <class Record>
    void fill(Record &record)
    {
        unsigned char bytes[sizeof record];
        for (unsigned char &byte : bytes)
            byte = static_cast<unsigned char>(next());
        std::memcpy(&record, bytes, sizeof record);
    }

private:
    std::uint64_t m_state;
};

/** What a unit carries from one second to the next. */
struct Levels
{
    double charge = FULL_CHARGE;
    double temperature = EFFECTS[0].temperature;

    bool operator==(const Levels &) const = default;
};

const Effect &effectOf(Phase phase)
{
    return EFFECTS[static_cast<std::size_t>(phase)];
}

Levels after(const Levels &levels, Phase phase, std::int64_t duration)
{
    const Effect &effect = effectOf(phase);
    const auto seconds = static_cast<double>(duration);
    const double reach = seconds * DEGREES_PER_SECOND;
    return { std::clamp(levels.charge + effect.charging * seconds, 0.0, FULL_CHARGE),
             std::clamp(effect.temperature, levels.temperature - reach,
                        levels.temperature + reach) };
}

struct Moment
{
    Phase phase = Phase::Mains;
    Levels levels;
};

Moment momentAt(const Timeline &timeline, std::int64_t second)
{
    std::int64_t period = 0;
    for (const TimedPhase &part : timeline)
        period += part.seconds;
    if (period == 0)
        return {};

    // The levels soon repeat from round to round, or stay about where they are.
    Levels levels;
    for (std::int64_t round = std::min(second / period, MAX_ROUNDS); round > 0; --round) {
        const Levels before = levels;
        for (const TimedPhase &part : timeline)
            levels = after(levels, part.phase, part.seconds);
        if (levels == before)
            break;
    }

    std::int64_t rest = second % period;
    auto part = timeline.begin();
    for (; rest >= part->seconds; ++part) {
        levels = after(levels, part->phase, part->seconds);
        rest -= part->seconds;
    }
    return { part->phase, after(levels, part->phase, rest) };
}

template <std::size_t Size>
void copyText(char (&field)[Size], const std::string &text)
{
    std::copy_n(text.begin(), std::min(text.size(), Size - 1), field);
}

template <class Flags>
Flags flags(std::uint32_t mask)
{
    Flags record{};
    for (std::uint8_t &byte : record.bytes) {
        byte = static_cast<std::uint8_t>(mask);
        mask >>= 8U;
    }
    return record;
}

nb_capabilities capabilities(const Unit &unit)
{
    // Everything that has a bit; the last three bits say that there are waveforms.
    return flags<nb_capabilities>(unit.samples > 0 ? 0x03ffffffU : 0x007fffffU);
}

/** One period of a sine; `level` is the share of the nominal value. */
nb_samples waveform(const Unit &unit, double level, Chance &chance)
{
    nb_samples wave{};
    wave.count = unit.samples;
    for (int i = 0; i < unit.samples; ++i) {
        const double sine = std::sin(2 * std::numbers::pi * i / unit.samples);
        const double sample =
                SAMPLE_ZERO + chance.around(SAMPLE_AMPLITUDE * level * sine, unit.noise);
        wave.samples[i] = static_cast<std::uint8_t>(std::lround(std::clamp(sample, 0.0, 255.0)));
    }
    return wave;
}

double nominalFrequency(const Unit &unit)
{
    return unit.family == 3 && unit.model >= 8 && unit.model <= 15 ? 50 : 60;
}

/** The unit's usual load, which moves slowly, each unit in a time of its own. */
double usualLoad(std::size_t index, std::int64_t second)
{
    const double turns =
            static_cast<double>(second) / LOAD_SWING_SECONDS + static_cast<double>(index) / 8;
    return USUAL_LOAD + LOAD_SWING * std::sin(2 * std::numbers::pi * turns);
}

/** The measurements, all of them as shares of the nominal values or in their own units. */
nb_variaveis variables(const Unit &unit, const Levels &levels, double input, double output,
                       double load, Chance &chance)
{
    const auto measured = [&unit, &chance](double value) {
        return static_cast<float>(chance.around(value, unit.noise));
    };
    nb_variaveis vars{};
    vars.family = static_cast<std::int16_t>(unit.family);
    vars.model = static_cast<std::int16_t>(unit.model);
    copyText(vars.name, unit.name);
    vars.version = FIRMWARE_VERSION;
    vars.icBattery = IC_BATTERY;
    vars.vInput = measured(unit.voltage * input);
    vars.vOutput = measured(unit.voltage * output);
    vars.iOutput = measured(unit.power * load / unit.voltage);
    vars.pOutput = measured(unit.power * load);
    vars.fOutput = measured(nominalFrequency(unit) * output);
    vars.vBattery =
            measured(std::lerp(EMPTY_V_BATTERY, FULL_V_BATTERY, levels.charge / FULL_CHARGE));
    vars.temperature = measured(levels.temperature);
    vars.cBattery = static_cast<float>(levels.charge); // computed by the unit, so without noise
    vars.nominalVBattery = static_cast<float>(NOMINAL_V_BATTERY);
    vars.nominalVInput = static_cast<float>(unit.voltage);
    vars.nominalPOutput = static_cast<float>(unit.power);
    vars.nominalVOutput = static_cast<float>(unit.voltage);
    vars.sampVInput = waveform(unit, input, chance);
    vars.sampVOutput = waveform(unit, output, chance);
    vars.sampIOutput = waveform(unit, load, chance);
    return vars;
}

Report soundReport(const Unit &unit, std::size_t index, std::int64_t second, Chance &chance)
{
    const Moment moment = momentAt(unit.timeline, second);
    const Levels &levels = moment.levels;
    const Effect &effect = effectOf(moment.phase);
    const bool onBattery = effect.charging < 0;
    const bool isEmpty = levels.charge <= 0 && effect.input == 0;
    const bool isEnding = moment.phase == Phase::Outage && levels.charge < LOW_CHARGE && !isEmpty;

    std::uint32_t state = effect.state | bits({ CONNECTED, CALIBRATED });
    std::uint32_t failures = effect.failures;
    if (levels.charge < LOW_CHARGE)
        state |= bits({ LOW_BATTERY });
    if (levels.charge >= FULL_CHARGE && !onBattery)
        state |= bits({ MAX_BATTERY });
    if (isEnding)
        state |= bits({ SHUTDOWN_TIMER_ACTIVE });
    if (isEmpty) {
        state = (state | bits({ OP_STANDBY })) & ~bits({ OP_BATTERY });
        failures |= bits({ END_BATTERY });
    }
    if (levels.temperature >= OVER_TEMPERATURE)
        failures |= bits({ OVER_TEMP });

    double load = effect.load > 0 ? effect.load : usualLoad(index, second);
    if (isEmpty)
        load = 0;

    Report report{};
    report.caps = capabilities(unit);
    report.state = flags<nb_estado_flags>(state);
    report.failures = flags<nb_falha_flags>(failures);
    report.vars = variables(unit, levels, effect.input, isEmpty ? 0 : 1, load, chance);
    report.cause = isEnding ? SHUTDOWN_CAUSE : -1;
    report.counter = isEnding ? static_cast<unsigned long>(levels.charge / -effect.charging) : 0;
    report.vars.shutdownTimer = static_cast<std::int32_t>(report.counter);
    report.fullDischarge = moment.phase == Phase::BatteryTest ? 1 : 0;
    return report;
}

template <std::size_t Size>
void fillText(char (&field)[Size])
{
    std::fill_n(field, Size, 'X');
}

/** Every number as large or as small as it can be. */
void makeExtreme(Report &report)
{
    std::memset(report.caps.bytes, 0xff, sizeof report.caps.bytes);
    std::memset(report.state.bytes, 0xff, sizeof report.state.bytes);
    std::memset(report.failures.bytes, 0xff, sizeof report.failures.bytes);
    report.cause = LONG_MAX;
    report.counter = ULONG_MAX;
    report.fullDischarge = CHAR_MIN;

    nb_variaveis &vars = report.vars;
    float extreme = FLT_MAX;
    for (const auto field : FLOATS) {
        vars.*field = extreme;
        extreme = -extreme;
    }
    vars.family = INT16_MAX;
    vars.model = INT16_MIN;
    vars.icBattery = INT16_MIN;
    vars.shutdownTimer = INT32_MAX;
    vars.powerOnTimer = INT32_MIN;
    vars.powerOffTimer = INT32_MAX;
    for (nb_samples *wave : { &vars.sampVInput, &vars.sampVOutput, &vars.sampIOutput }) {
        wave->count = MAX_SAMPLES;
        std::memset(wave->samples, 0xff, sizeof wave->samples);
    }
}

} // namespace

Report stateReport(const Scenario &scenario, std::size_t index, std::int64_t second, bool faulty)
{
    const Unit &unit = scenario.units[index];
    Chance chance(scenario, index, second);
    Report report = soundReport(unit, index, second, chance);
    if (!faulty)
        return report;
    if (unit.garbage)
        chance.fill(report);
    if (unit.extreme)
        makeExtreme(report);
    if (unit.nan) {
        for (const auto field : FLOATS)
            report.vars.*field = std::numeric_limits<float>::quiet_NaN();
    }
    if (unit.unterminated)
        fillText(report.vars.name);
    return report;
}

pelorin_version_info versionReport(const Scenario &scenario, std::size_t index, std::int64_t second,
                                   bool faulty)
{
    const Unit &unit = scenario.units[index];
    pelorin_version_info info{};
    copyText(info.version, scenario.version);
    copyText(info.os, scenario.os);
    if (faulty && unit.garbage)
        Chance(scenario, index, second).fill(info);
    if (faulty && unit.unterminated) {
        fillText(info.version);
        fillText(info.os);
    }
    return info;
}

} // namespace suite
