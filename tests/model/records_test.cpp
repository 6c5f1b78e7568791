#include "model/computer.h"
#include "model/devicestatus.h"
#include "support/jsontext.h"
#include "tests/golden.h"

#include <gtest/gtest.h>

#include <type_traits>

#include <QJsonObject>

namespace {

template <class... Records>
constexpr bool haveVirtualDestructors = (std::has_virtual_destructor_v<Records> && ...);
static_assert(haveVirtualDestructors<Computer, DeviceStatus, Capabilities, Status, Failures,
                                     RegressiveCounter, Variables>);

std::string text(const DeviceStatus &device)
{
    return ToJsonText(device.toJson()).toStdString();
}

/** A value that differs with `number`; for a waveform, two samples. */
template <class Type>
Type valueOf(int number)
{
    if constexpr (std::is_same_v<Type, QString>)
        return "\u00e9 \"" + QString::number(number);
    else if constexpr (std::is_same_v<Type, QVector<float>>)
        return { static_cast<float>(number), 9.1F };
    else
        return static_cast<Type>(number + 0.25);
}

// Numbers the fields from `first` on. The test of the translation checks the key of each setter.
#define SET_NEXT(Type, Stem, ...) record.set##Stem(valueOf<Type>(next++));
#define NUMBERED(Record, FIELDS, first) \
    [record = Record(), next = first]() mutable { FIELDS(SET_NEXT) return record; }()

/** A device with a different value in every field. */
DeviceStatus distinctDevice()
{
    DeviceStatus device;
    device.setCaps(NUMBERED(Capabilities, PELCLOUD_CAPABILITIES_FIELDS, 101));
    device.setVars(NUMBERED(Variables, PELCLOUD_VARIABLES_FIELDS, 301));
    device.setStatus(NUMBERED(Status, PELCLOUD_STATUS_FIELDS, 201));
    device.setFailures(NUMBERED(Failures, PELCLOUD_FAILURES_FIELDS, 1));
    device.setRegressiveCounter(
            NUMBERED(RegressiveCounter, PELCLOUD_REGRESSIVE_COUNTER_FIELDS, 401));
    device.setFullDischargeRequired(1234567);
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

TEST(Records, DefaultSetAndClearedFieldsHaveTheirKeys)
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

    Computer computer = NUMBERED(Computer, PELCLOUD_COMPUTER_FIELDS, 1);
    computer.clear();
    const QJsonObject empty{ { "id", "" }, { "name", "" }, { "os", "" }, { "ver", "" } };
    EXPECT_EQ(computer.toJson(), empty);
}

} // namespace
