#ifndef PELCLOUD_MODEL_COMPUTER_H
#define PELCLOUD_MODEL_COMPUTER_H

#include "model/fields.h"

#include <QString>

// One row per field; keys as on the wire.
#define PELCLOUD_COMPUTER_FIELDS(FIELD) \
    FIELD(QString, Id, "id") \
    FIELD(QString, Name, "name") \
    FIELD(QString, Os, "os") \
    FIELD(QString, Ver, "ver")

/**
 * The identity of the monitored computer, sent once per report. The JSON always has all four keys;
 * a field that was never set is an empty string.
 */
class Computer
{
public:
    Computer() = default;
    Computer(const Computer &) = default;
    Computer &operator=(const Computer &) = default;
    virtual ~Computer();

    PELCLOUD_COMPUTER_FIELDS(PELCLOUD_FIELD_ACCESSORS)

    /** Resets to the values of a new record. */
    void clear();
    [[nodiscard]] QJsonObject toJson() const;

private:
    struct Table;

    PELCLOUD_COMPUTER_FIELDS(PELCLOUD_FIELD_MEMBER)
};

#endif
