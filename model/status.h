#ifndef PELCLOUD_MODEL_STATUS_H
#define PELCLOUD_MODEL_STATUS_H

#include "model/fields.h"

// One row per field; keys as on the wire.
#define PELCLOUD_STATUS_FIELDS(FIELD) \
    FIELD(int, Connected, "connected") \
    FIELD(int, OpStartup, "opStartup") \
    FIELD(int, OpBattery, "opBattery") \
    FIELD(int, OpStandby, "opStandby") \
    FIELD(int, OpCheckup, "opCheckup") \
    FIELD(int, OpWarning, "opWarning") \
    FIELD(int, NoVInput, "noVInput") \
    FIELD(int, LowVInput, "lowVInput") \
    FIELD(int, HighVInput, "highVInput") \
    FIELD(int, LowFInput, "lowFInput") \
    FIELD(int, HighFInput, "highFInput") \
    FIELD(int, NoSyncInput, "noSyncInput") \
    FIELD(int, SyncInput, "syncInput") \
    FIELD(int, NoiseInput, "noiseInput") \
    FIELD(int, HighPOutput, "highPOutput") \
    FIELD(int, LowBattery, "lowBattery") \
    FIELD(int, MaxBattery, "maxBattery") \
    FIELD(int, NoBattery, "noBattery") \
    FIELD(int, OldBattery, "oldBattery") \
    FIELD(int, MoreBattery, "moreBattery") \
    FIELD(int, LessBattery, "lessBattery") \
    FIELD(int, ShutdownTimerActive, "shutdownTimerActive") \
    FIELD(int, RemoteControlActive, "remoteControlActive") \
    FIELD(int, NoCalibrated, "noCalibrated")

/** The operating state of a UPS. Flags hold 0 or 1. The JSON always has all, as numbers. */
class Status
{
public:
    Status() = default;
    Status(const Status &) = default;
    Status &operator=(const Status &) = default;
    virtual ~Status();

    PELCLOUD_STATUS_FIELDS(PELCLOUD_FIELD_ACCESSORS)

    /** Resets to the values of a new record. */
    void clear();
    /** Sets every flag to 1. */
    void all();
    [[nodiscard]] QJsonObject toJson() const;

private:
    struct Table;

    PELCLOUD_STATUS_FIELDS(PELCLOUD_FIELD_MEMBER)
};

#endif
