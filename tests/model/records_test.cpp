#include "model/computer.h"
#include "model/devicestatus.h"
#include "support/jsontext.h"
#include "tests/golden.h"

#include <gtest/gtest.h>

#include <type_traits>

#include <QJsonObject>

namespace {

template <class Record>
std::string text(const Record &record)
{
    return ToJsonText(record.toJson()).toStdString();
}

template <class Record, class... Setters>
Record numbered(int first, Setters... setters)
{
    Record record;
    ((record.*setters)(first++), ...);
    return record;
}

Capabilities numberedCapabilities()
{
    using C = Capabilities;
    return numbered<C>(101, &C::setHasFamily, &C::setHasModel, &C::setHasVInput, &C::setHasVOutput,
                       &C::setHasIOutput, &C::setHasPOutput, &C::setHasFOutput, &C::setHasVBattery,
                       &C::setHasCBattery, &C::setHasTemperature, &C::setHasVersion,
                       &C::setHasIcBattery, &C::setHasSetIcBattery, &C::setHasShutdownTimer,
                       &C::setHasPowerOnTimer, &C::setHasPowerOffTimer, &C::setHasManualShutdown,
                       &C::setHasProgPowerOn, &C::setHasProgPowerOff, &C::setHasSampVInput,
                       &C::setHasSampVOutput, &C::setHasSampIOutput, &C::setHasNominalVInput,
                       &C::setHasNominalVOutput, &C::setHasNominalPOutput, &C::setHasNominalFOutput,
                       &C::setHasNominalVBattery, &C::setHasSetDischargeBattery,
                       &C::setHasChangeAutonomy);
}

Status numberedStatus()
{
    using S = Status;
    return numbered<S>(201, &S::setConnected, &S::setOpStartup, &S::setOpBattery, &S::setOpStandby,
                       &S::setOpCheckup, &S::setOpWarning, &S::setNoVInput, &S::setLowVInput,
                       &S::setHighVInput, &S::setLowFInput, &S::setHighFInput, &S::setNoSyncInput,
                       &S::setSyncInput, &S::setNoiseInput, &S::setHighPOutput, &S::setLowBattery,
                       &S::setMaxBattery, &S::setNoBattery, &S::setOldBattery, &S::setMoreBattery,
                       &S::setLessBattery, &S::setShutdownTimerActive, &S::setRemoteControlActive,
                       &S::setNoCalibrated);
}

Failures numberedFailures()
{
    using F = Failures;
    return numbered<F>(1, &F::setOverTemp, &F::setInternal, &F::setOverLoad, &F::setShortCircuit,
                       &F::setInverter, &F::setFan, &F::setTiristor, &F::setEndBattery,
                       &F::setLowVInput, &F::setAbnormalVOutput, &F::setHighPOutput,
                       &F::setAbnormalVBattery);
}

Variables distinctVariables()
{
    Variables vars = numbered<Variables>(301, &Variables::setFamily, &Variables::setModel);
    vars.setName(QStringLiteral("Caf\u00e9 \"1\""));
    vars.setVersion(QStringLiteral("12."));
    vars.setVInput(229.6F);
    vars.setVOutput(230.1F);
    vars.setIOutput(2.5F);
    vars.setPOutput(41.25F);
    vars.setFOutput(60.02F);
    vars.setVBattery(25.3F);
    vars.setCBattery(87.5F);
    vars.setTemperature(31.75F);
    vars.setIcBattery(-7);
    vars.setShutdownTimer(1234567);
    vars.setPowerOnTimer(120);
    vars.setPowerOffTimer(-3);
    vars.setSampVInput({ 0, 255 });
    vars.setSampVOutput({ 0.5F });
    vars.setSampIOutput({ 7, 8, 9.1F });
    vars.setNominalVInput(231);
    vars.setNominalVOutput(232);
    vars.setNominalPOutput(1400);
    vars.setNominalFOutput(50);
    vars.setNominalVBattery(24.5F);
    return vars;
}

DeviceStatus distinctDevice()
{
    using R = RegressiveCounter;
    R counter = numbered<R>(401, &R::setActive, &R::setValue);
    counter.setCause(-403);
    DeviceStatus device;
    device.setCaps(numberedCapabilities());
    device.setVars(distinctVariables());
    device.setStatus(numberedStatus());
    device.setFailures(numberedFailures());
    device.setRegressiveCounter(counter);
    device.setFullDischargeRequired(404);
    return device;
}

template <class... Records>
constexpr bool arePolymorphicValues = ((
        std::has_virtual_destructor_v<
                Records> && std::is_copy_constructible_v<Records> && std::is_copy_assignable_v<Records>)&&...);
static_assert(arePolymorphicValues<Computer, DeviceStatus, Capabilities, Status, Failures,
                                   RegressiveCounter, Variables>);

TEST(Records, DefaultsMatchTheirGoldenText)
{
    EXPECT_EQ(text(DeviceStatus()), golden("device_default.json"));
    EXPECT_EQ(text(Computer()), R"({
    "id": "",
    "name": "",
    "os": "",
    "ver": ""
}
)");
}

/** `device` after `change` was applied to each of its flag records. */
template <class Change>
DeviceStatus withFlags(DeviceStatus device, Change change)
{
    device.setCaps(change(device.getCaps()));
    device.setStatus(change(device.getStatus()));
    device.setFailures(change(device.getFailures()));
    return device;
}

TEST(Records, AllSetsEveryFlag)
{
    const auto all = [](auto record) {
        record.all();
        return record;
    };
    EXPECT_EQ(text(withFlags(DeviceStatus(), all)), golden("device_all.json"));
}

TEST(Records, EveryFieldHasItsOwnKey)
{
    EXPECT_EQ(text(distinctDevice()), golden("device_distinct.json"));

    Computer computer;
    computer.setId(QStringLiteral("i"));
    computer.setName(QStringLiteral("n"));
    computer.setOs(QStringLiteral("o"));
    computer.setVer(QStringLiteral("v"));
    EXPECT_EQ(text(computer), R"({
    "id": "i",
    "name": "n",
    "os": "o",
    "ver": "v"
}
)");
    computer.clear();
    EXPECT_EQ(text(computer), text(Computer()));
}

TEST(Records, ClearRestoresTheDefaultsAndCopiesAreIndependent)
{
    const auto cleared = [](auto record) {
        record.clear();
        return record;
    };
    const DeviceStatus original = distinctDevice();
    DeviceStatus device = withFlags(original, cleared);
    device.setVars(cleared(device.getVars()));
    device.setRegressiveCounter(cleared(device.getRegressiveCounter()));
    device.setFullDischargeRequired(-1);
    EXPECT_EQ(text(device), golden("device_default.json"));
    EXPECT_EQ(text(original), golden("device_distinct.json"));
}

} // namespace
