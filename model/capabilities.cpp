#include "model/capabilities.h"

struct Capabilities::Table
{
    using Record = Capabilities;
    static constexpr std::tuple ROWS{ PELCLOUD_CAPABILITIES_FIELDS(PELCLOUD_FIELD_ROW) };
    static_assert(hasUniqueKeys(ROWS, 29));
};

Capabilities::~Capabilities() = default;

void Capabilities::clear()
{
    *this = Capabilities();
}

void Capabilities::all()
{
    setAllFields(*this, Table::ROWS);
}

QJsonObject Capabilities::toJson() const
{
    return fieldsToJson(*this, Table::ROWS);
}
