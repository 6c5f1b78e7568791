#include "model/computer.h"
#include "model/devicestatus.h"
#include "support/jsontext.h"
#include "tests/golden.h"

#include <gtest/gtest.h>

#include <type_traits>

#include <QJsonObject>

namespace {

template <class... Records>
constexpr bool arePolymorphicValues =
        ((std::has_virtual_destructor_v<Records> && std::is_copy_constructible_v<Records>
          && std::is_copy_assignable_v<Records>)&&...);
static_assert(arePolymorphicValues<Computer, DeviceStatus, Capabilities, Status, Failures,
                                   RegressiveCounter, Variables>);

std::string text(const DeviceStatus &device)
{
    return ToJsonText(device.toJson()).toStdString();
}

// Sets the next field of `record` to the next number. That each setter has the right key is checked
// where the suite's records are translated.
#define SET_NEXT(Type, Stem, Key) record.set##Stem(next++);

/** A different value in every field. */
DeviceStatus distinctDevice()
{
    DeviceStatus device;
    const auto numbered = [](auto record, int next, auto set) {
        set(record, next);
        return record;
    };
    device.setCaps(numbered(Capabilities(), 101, [](auto &record, int next) {
        PELCLOUD_CAPABILITIES_FIELDS(SET_NEXT)
    }));
    return device;
}

} // namespace
