#ifndef PELCLOUD_MODEL_FAILURES_H
#define PELCLOUD_MODEL_FAILURES_H

#include "model/fields.h"

// One row per field; keys as on the wire.
#define PELCLOUD_FAILURES_FIELDS(FIELD) \
    FIELD(int, OverTemp, "overTemp") \
    FIELD(int, Internal, "internal") \
    FIELD(int, OverLoad, "overLoad") \
    FIELD(int, ShortCircuit, "shortCircuit") \
    FIELD(int, Inverter, "inverter") \
    FIELD(int, Fan, "fan") \
    FIELD(int, Tiristor, "tiristor") \
    FIELD(int, EndBattery, "endBattery") \
    FIELD(int, LowVInput, "lowVInput") \
    FIELD(int, AbnormalVOutput, "abnormalVOutput") \
    FIELD(int, HighPOutput, "highPOutput") \
    FIELD(int, AbnormalVBattery, "abnormalVBattery")

/**
 * The failures that a UPS reports. Flags hold 0 or 1. The JSON always has all of them, as
 * numbers. On the wire the thyristor is "tiristor".
 */
class Failures
{
public:
    Failures() = default;
    Failures(const Failures &) = default;
    Failures &operator=(const Failures &) = default;
    virtual ~Failures();

    PELCLOUD_FAILURES_FIELDS(PELCLOUD_FIELD_ACCESSORS)

    /** Resets to the values of a new record. */
    void clear();
    /** Sets every flag to 1. */
    void all();
    [[nodiscard]] QJsonObject toJson() const;

private:
    struct Table;

    PELCLOUD_FAILURES_FIELDS(PELCLOUD_FIELD_MEMBER)
};

#endif
