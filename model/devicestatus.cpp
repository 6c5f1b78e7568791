#include "model/devicestatus.h"

struct DeviceStatus::Table
{
    using Record = DeviceStatus;
    static constexpr std::tuple ROWS{ PELCLOUD_DEVICE_STATUS_FIELDS(PELCLOUD_FIELD_ROW) };
    static_assert(hasUniqueKeys(ROWS, 6));
};

DeviceStatus::~DeviceStatus() = default;

QJsonObject DeviceStatus::toJson() const
{
    return fieldsToJson(*this, Table::ROWS);
}
