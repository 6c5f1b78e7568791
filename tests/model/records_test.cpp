#include "model/computer.h"
#include "model/devicestatus.h"
#include "support/jsontext.h"
#include "tests/golden.h"

#include <gtest/gtest.h>

#include <type_traits>

#include <QJsonObject>

namespace {

template <class... Records>
constexpr bool arePolymorphicValues = ((
        std::has_virtual_destructor_v<
                Records> && std::is_copy_constructible_v<Records> && std::is_copy_assignable_v<Records>)&&...);
static_assert(arePolymorphicValues<Computer, DeviceStatus, Capabilities, Status, Failures,
                                   RegressiveCounter, Variables>);

std::string text(const DeviceStatus &device)
{
    return ToJsonText(device.toJson()).toStdString();
}

// Sets the fields to consecutive numbers. The test of the translation checks every setter's key.
#define SET_NEXT(Type, Stem, Key) record.set##Stem(next++);
#define NUMBERED(Record, FIELDS, first) \
    [record = Record(), next = first]() mutable { FIELDS(SET_NEXT) return record; }()

/** A device with a different value in every field. */
DeviceStatus distinctDevice()
{
    Variables vars;
    vars.setFamily(301);
    vars.setModel(302);
    vars.setName("Caf\u00e9 \"1\"");
    vars.setVersion("12.");
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

    DeviceStatus device;
    device.setCaps(NUMBERED(Capabilities, PELCLOUD_CAPABILITIES_FIELDS, 101));
    device.setVars(vars);
    device.setStatus(NUMBERED(Status, PELCLOUD_STATUS_FIELDS, 201));
    device.setFailures(NUMBERED(Failures, PELCLOUD_FAILURES_FIELDS, 1));
    RegressiveCounter counter =
            NUMBERED(RegressiveCounter, PELCLOUD_REGRESSIVE_COUNTER_FIELDS, 401);
    counter.setCause(-403);
    device.setRegressiveCounter(counter);
    device.setFullDischargeRequired(404);
    return device;
}

/** `device` with `change` applied to each of its flag records. */
template <class Change>
DeviceStatus withFlags(DeviceStatus device, Change change)
{
    device.setCaps(change(device.getCaps()));
    device.setStatus(change(device.getStatus()));
    device.setFailures(change(device.getFailures()));
    return device;
}

TEST(Records, DeviceMatchesGoldenTexts)
{
    const auto all = [](auto record) { return record.all(), record; };
    const auto cleared = [](auto record) { return record.clear(), record; };
    EXPECT_EQ(text(DeviceStatus()), golden("device_default.json"));
    EXPECT_EQ(text(withFlags(DeviceStatus(), all)), golden("device_all.json"));

    const DeviceStatus original = distinctDevice();
    DeviceStatus device = withFlags(original, cleared);
    device.setVars(cleared(device.getVars()));
    device.setRegressiveCounter(cleared(device.getRegressiveCounter()));
    device.setFullDischargeRequired(-1);
    EXPECT_EQ(text(device), golden("device_default.json"));
    EXPECT_EQ(text(original), golden("device_distinct.json")) << "a copy shares nothing";
}

TEST(Records, ComputerHasAllKeysAlways)
{
    Computer computer;
    computer.setId("i");
    computer.setName("n");
    computer.setOs("o");
    computer.setVer("v");
    const QJsonObject expected{ { "id", "i" }, { "name", "n" }, { "os", "o" }, { "ver", "v" } };
    EXPECT_EQ(computer.toJson(), expected);
    computer.clear();
    const QJsonObject empty{ { "id", "" }, { "name", "" }, { "os", "" }, { "ver", "" } };
    EXPECT_EQ(computer.toJson(), empty);
    EXPECT_EQ(Computer().toJson(), empty);
}

} // namespace
