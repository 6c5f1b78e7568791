#include "model/computer.h"
#include "model/devicestatus.h"

// What every record defines: its table of fields, whose number is stated again here so that a lost
// or doubled row does not compile, and what follows from the table.
#define PELCLOUD_RECORD(Class, FIELDS, fieldCount) \
    struct Class::Table \
    { \
        using Record = Class; \
        static constexpr std::tuple ROWS{ FIELDS(PELCLOUD_FIELD_ROW) }; \
        static_assert(hasUniqueKeys(ROWS, fieldCount)); \
    }; \
\
    Class::~Class() = default; \
\
    QJsonObject Class::toJson() const \
    { \
        return fieldsToJson(*this, Table::ROWS); \
    }

PELCLOUD_RECORD(Computer, PELCLOUD_COMPUTER_FIELDS, 4)
PELCLOUD_RECORD(DeviceStatus, PELCLOUD_DEVICE_STATUS_FIELDS, 6)
PELCLOUD_RECORD(Capabilities, PELCLOUD_CAPABILITIES_FIELDS, 29)
PELCLOUD_RECORD(Variables, PELCLOUD_VARIABLES_FIELDS, 24)
PELCLOUD_RECORD(Status, PELCLOUD_STATUS_FIELDS, 24)
PELCLOUD_RECORD(Failures, PELCLOUD_FAILURES_FIELDS, 12)
PELCLOUD_RECORD(RegressiveCounter, PELCLOUD_REGRESSIVE_COUNTER_FIELDS, 3)

void Computer::clear()
{
    *this = Computer();
}

void Capabilities::clear()
{
    *this = Capabilities();
}

void Variables::clear()
{
    *this = Variables();
}

void Status::clear()
{
    *this = Status();
}

void Failures::clear()
{
    *this = Failures();
}

void RegressiveCounter::clear()
{
    *this = RegressiveCounter();
}

void Capabilities::all()
{
    setAllFields(*this, Table::ROWS);
}

void Status::all()
{
    setAllFields(*this, Table::ROWS);
}

void Failures::all()
{
    setAllFields(*this, Table::ROWS);
}
