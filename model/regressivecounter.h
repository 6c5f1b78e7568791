#ifndef PELCLOUD_MODEL_REGRESSIVECOUNTER_H
#define PELCLOUD_MODEL_REGRESSIVECOUNTER_H

#include "model/fields.h"

// One row per field; keys as on the wire.
#define PELCLOUD_REGRESSIVE_COUNTER_FIELDS(FIELD) \
    FIELD(int, Active, "active") \
    FIELD(int, Value, "value") \
    FIELD(int, Cause, "cause")

/**
 * The shutdown count-down of a UPS: active is 1 while it runs, value is the remaining count in
 * the suite's unit, cause is the suite's code (negative when none runs). The JSON always has all.
 */
class RegressiveCounter
{
public:
    RegressiveCounter() = default;
    RegressiveCounter(const RegressiveCounter &) = default;
    RegressiveCounter &operator=(const RegressiveCounter &) = default;
    virtual ~RegressiveCounter();

    PELCLOUD_REGRESSIVE_COUNTER_FIELDS(PELCLOUD_FIELD_ACCESSORS)

    /** Resets to the values of a new record. */
    void clear();
    [[nodiscard]] QJsonObject toJson() const;

private:
    struct Table;

    PELCLOUD_REGRESSIVE_COUNTER_FIELDS(PELCLOUD_FIELD_MEMBER)
};

#endif
