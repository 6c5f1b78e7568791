#include "model/pel6trans.h"

#include "model/computer.h"
#include "model/devicestatus.h"
#include "support/utils.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

// The suite's bits: one row per byte, from bit 0 to bit 7. The records list their fields in another
// order.

template <class Record>
using SetFlag = void (Record::*)(int);

template <class Record>
using BitRow = SetFlag<Record>[8];

using C = Capabilities;
constexpr BitRow<C> CAPABILITY_BITS[] = {
    { &C::setHasFamily, &C::setHasModel, &C::setHasVInput, &C::setHasVOutput, //
      &C::setHasIOutput, &C::setHasPOutput, &C::setHasFOutput, &C::setHasVBattery },
    { &C::setHasTemperature, &C::setHasCBattery, &C::setHasVersion, &C::setHasIcBattery,
      &C::setHasShutdownTimer, &C::setHasPowerOnTimer, &C::setHasPowerOffTimer,
      &C::setHasNominalVBattery },
    { &C::setHasNominalVInput, &C::setHasNominalPOutput, &C::setHasNominalVOutput,
      &C::setHasManualShutdown, &C::setHasProgPowerOff, &C::setHasProgPowerOn,
      &C::setHasSetIcBattery, &C::setHasSampVInput },
    { &C::setHasSampVOutput, &C::setHasSampIOutput },
};

using F = Failures;
constexpr BitRow<F> FAILURE_BITS[] = {
    { &F::setOverTemp, &F::setInternal, &F::setEndBattery, &F::setOverLoad, //
      &F::setShortCircuit, &F::setAbnormalVOutput, &F::setAbnormalVBattery, &F::setInverter },
    { &F::setLowVInput, &F::setHighPOutput, &F::setTiristor },
};

using S = Status;
constexpr BitRow<S> STATE_BITS[] = {
    { &S::setConnected, &S::setOpBattery, &S::setOpStandby, &S::setOpWarning, //
      &S::setOpStartup, &S::setLowFInput, &S::setHighFInput, &S::setNoSyncInput },
    { &S::setSyncInput, &S::setLowVInput, &S::setHighVInput, &S::setNoVInput, //
      &S::setLowBattery, &S::setNoiseInput, &S::setMaxBattery, &S::setShutdownTimerActive },
    { &S::setRemoteControlActive, nullptr, &S::setOpCheckup, nullptr, //
      &S::setNoBattery, &S::setOldBattery, &S::setHighPOutput, &S::setMoreBattery },
    { &S::setLessBattery },
};

/** The two bits of the state record that are not plain state flags. */
constexpr struct
{
    std::size_t byte;
    unsigned int bit;
} CALIBRATED{ 2, 1 }, FAN_FAILURE{ 2, 3 };

template <class From, class To>
struct VariableRow
{
    From nb_variaveis::*from;
    void (Variables::*set)(To);
};

using V = Variables;
using R = nb_variaveis;
constexpr VariableRow<std::int16_t, int> SHORT_VARIABLES[] = {
    { &R::family, &V::setFamily },
    { &R::model, &V::setModel },
    { &R::icBattery, &V::setIcBattery },
};

constexpr VariableRow<std::int32_t, int> INTEGER_VARIABLES[] = {
    { &R::shutdownTimer, &V::setShutdownTimer },
    { &R::powerOnTimer, &V::setPowerOnTimer },
    { &R::powerOffTimer, &V::setPowerOffTimer },
};

constexpr VariableRow<float, float> FLOAT_VARIABLES[] = {
    { &R::vInput, &V::setVInput },
    { &R::vOutput, &V::setVOutput },
    { &R::iOutput, &V::setIOutput },
    { &R::pOutput, &V::setPOutput },
    { &R::fOutput, &V::setFOutput },
    { &R::vBattery, &V::setVBattery },
    { &R::temperature, &V::setTemperature },
    { &R::cBattery, &V::setCBattery },
    { &R::nominalVBattery, &V::setNominalVBattery },
    { &R::nominalVInput, &V::setNominalVInput },
    { &R::nominalPOutput, &V::setNominalPOutput },
    { &R::nominalVOutput, &V::setNominalVOutput },
};

constexpr struct
{
    std::size_t offset;
    const QVector<float> &(Variables::*get)() const;
    void (Variables::*set)(const QVector<float> &);
} SAMPLE_BLOCKS[] = {
    { offsetof(R, sampVInput), &V::getSampVInput, &V::setSampVInput },
    { offsetof(R, sampVOutput), &V::getSampVOutput, &V::setSampVOutput },
    { offsetof(R, sampIOutput), &V::getSampIOutput, &V::setSampIOutput },
};

// The families of UPSs that decide the derived capabilities and the nominal output frequency.
constexpr unsigned int DISCHARGEABLE_FAMILIES = 0xA7B6; // one bit per family
constexpr int MAX_DISCHARGEABLE_FAMILY = 15;
constexpr int ADJUSTABLE_AUTONOMY_FAMILIES[] = { 10, 13 };
constexpr int FAMILY_WITH_50_HZ_MODELS = 3;
constexpr int FIRST_50_HZ_MODEL = 8;
constexpr int LAST_50_HZ_MODEL = 15;

/** A copy of the record at `bytes`, untyped because a typed pointer would promise alignment. */
template <class Record>
Record copyOf(const void *bytes)
{
    Record copy;
    std::memcpy(&copy, bytes, sizeof copy);
    return copy;
}

QString latin1(const char *text, std::size_t width)
{
    return QString::fromLatin1(text, static_cast<qsizetype>(strnlen(text, width)));
}

int bitOf(const std::uint8_t *bytes, std::size_t byte, unsigned int bit)
{
    return static_cast<int>((bytes[byte] >> bit) & 1U);
}

template <class Record, std::size_t Size>
void setFlags(Record &record, const BitRow<Record> (&map)[Size], const std::uint8_t (&bytes)[Size])
{
    for (std::size_t byte = 0; byte < Size; ++byte) {
        for (unsigned int bit = 0; bit < 8; ++bit) {
            if (const SetFlag<Record> set = map[byte][bit])
                (record.*set)(bitOf(bytes, byte, bit));
        }
    }
}

template <class From, class To, std::size_t Size>
void setVariables(Variables &variables, const VariableRow<From, To> (&map)[Size],
                  const nb_variaveis &record)
{
    for (const auto &row : map)
        (variables.*row.set)(record.*row.from);
}

bool canDischarge(int family)
{
    return family >= 0 && family <= MAX_DISCHARGEABLE_FAMILY
           && ((DISCHARGEABLE_FAMILIES >> family) & 1U) != 0;
}

bool canChangeAutonomy(int family)
{
    return std::ranges::find(ADJUSTABLE_AUTONOMY_FAMILIES, family)
           != std::end(ADJUSTABLE_AUTONOMY_FAMILIES);
}

float nominalFrequency(int family, int model)
{
    const bool is50Hz = family == FAMILY_WITH_50_HZ_MODELS && model >= FIRST_50_HZ_MODEL
                        && model <= LAST_50_HZ_MODEL;
    return is50Hz ? 50.0F : 60.0F;
}

/** Appends `count` bytes from `first` on to `samples`, but none beyond `recordEnd`. */
QVector<float> withSamples(QVector<float> samples, const std::uint8_t *first,
                           const std::uint8_t *recordEnd, std::int32_t count)
{
    const auto held = std::min<std::ptrdiff_t>(count, recordEnd - first);
    samples.reserve(samples.size() + held);
    std::copy(first, first + held, std::back_inserter(samples));
    return samples;
}

void appendSamples(Variables &variables, const nb_variaveis &record)
{
    const auto *const begin = reinterpret_cast<const std::uint8_t *>(&record);
    for (const auto &block : SAMPLE_BLOCKS) {
        const auto count = copyOf<std::int32_t>(begin + block.offset + offsetof(nb_samples, count));
        if (count <= 0)
            continue;
        const std::uint8_t *const first = begin + block.offset + offsetof(nb_samples, samples);
        (variables
         .*block.set)(withSamples((variables.*block.get)(), first, begin + sizeof record, count));
    }
}

Capabilities translated(Capabilities caps, const nb_capabilities &flags, int family)
{
    setFlags(caps, CAPABILITY_BITS, flags.bytes);
    caps.setHasNominalFOutput(family > 0 ? 1 : 0);
    caps.setHasSetDischargeBattery(canDischarge(family) ? 1 : 0);
    caps.setHasChangeAutonomy(canChangeAutonomy(family) ? 1 : 0);
    return caps;
}

Failures translated(Failures failures, const nb_falha_flags &flags, const nb_estado_flags &state)
{
    setFlags(failures, FAILURE_BITS, flags.bytes);
    failures.setFan(bitOf(state.bytes, FAN_FAILURE.byte, FAN_FAILURE.bit));
    return failures;
}

Status translated(Status status, const nb_estado_flags &state)
{
    setFlags(status, STATE_BITS, state.bytes);
    status.setNoCalibrated(1 - bitOf(state.bytes, CALIBRATED.byte, CALIBRATED.bit));
    return status;
}

Variables translated(Variables variables, const nb_variaveis &record)
{
    setVariables(variables, SHORT_VARIABLES, record);
    variables.setName(latin1(record.name, sizeof record.name));
    variables.setVersion(QString::fromStdString(FloatToStr(record.version, 0, 2, ' ')));
    setVariables(variables, FLOAT_VARIABLES, record);
    setVariables(variables, INTEGER_VARIABLES, record);
    variables.setNominalFOutput(nominalFrequency(record.family, record.model));
    appendSamples(variables, record);
    return variables;
}

RegressiveCounter translated(RegressiveCounter counter, long cause, unsigned long value)
{
    counter.setActive(cause >= 0 ? 1 : 0);
    counter.setCause(static_cast<int>(cause));
    counter.setValue(static_cast<int>(value));
    return counter;
}

} // namespace

Pel6Translator::~Pel6Translator() = default;

void Pel6Translator::translate(Computer &computer, const pelorin_version_info *info)
{
    if (info == nullptr)
        return;
    const char *const record = reinterpret_cast<const char *>(info);
    computer.setOs(latin1(record + offsetof(pelorin_version_info, os), sizeof info->os));
    computer.setVer(latin1(record + offsetof(pelorin_version_info, version), sizeof info->version));
}

void Pel6Translator::translate(DeviceStatus &device, const nb_capabilities *caps,
                               const nb_falha_flags *failures, const nb_estado_flags *state,
                               const nb_variaveis *vars, const long *cause,
                               const unsigned long *counter, const char *fullDischarge)
{
    if (caps == nullptr || failures == nullptr || state == nullptr || vars == nullptr
        || cause == nullptr || counter == nullptr || fullDischarge == nullptr)
        return;

    const nb_estado_flags stateFlags = copyOf<nb_estado_flags>(state);
    const nb_variaveis variables = copyOf<nb_variaveis>(vars);

    device.setCaps(translated(device.getCaps(), copyOf<nb_capabilities>(caps), variables.family));
    device.setFailures(
            translated(device.getFailures(), copyOf<nb_falha_flags>(failures), stateFlags));
    device.setStatus(translated(device.getStatus(), stateFlags));
    device.setVars(translated(device.getVars(), variables));
    device.setRegressiveCounter(translated(device.getRegressiveCounter(), copyOf<long>(cause),
                                           copyOf<unsigned long>(counter)));
    device.setFullDischargeRequired(*fullDischarge != 0 ? 1 : 0);
}
