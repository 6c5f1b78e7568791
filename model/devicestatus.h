#ifndef PELCLOUD_MODEL_DEVICESTATUS_H
#define PELCLOUD_MODEL_DEVICESTATUS_H

#include "model/capabilities.h"
#include "model/failures.h"
#include "model/fields.h"
#include "model/regressivecounter.h"
#include "model/status.h"
#include "model/variables.h"

// One row per field; keys as on the wire.
#define PELCLOUD_DEVICE_STATUS_FIELDS(FIELD) \
    FIELD(Capabilities, Caps, "caps") \
    FIELD(Variables, Vars, "vars") \
    FIELD(Status, Status, "status") \
    FIELD(Failures, Failures, "failures") \
    FIELD(RegressiveCounter, RegressiveCounter, "regressiveCounter") \
    FIELD(int, FullDischargeRequired, "fullDischargeRequired", -1)

/**
 * One UPS at one moment. The JSON always has all six keys; the five records are nested objects.
 * fullDischargeRequired is 0 or 1, or -1 while unknown.
 */
class DeviceStatus
{
public:
    DeviceStatus() = default;
    DeviceStatus(const DeviceStatus &) = default;
    DeviceStatus &operator=(const DeviceStatus &) = default;
    virtual ~DeviceStatus();

    PELCLOUD_DEVICE_STATUS_FIELDS(PELCLOUD_FIELD_ACCESSORS)

    [[nodiscard]] QJsonObject toJson() const;

private:
    struct Table;

    PELCLOUD_DEVICE_STATUS_FIELDS(PELCLOUD_FIELD_MEMBER)
};

#endif
