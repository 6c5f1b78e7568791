#include "model/status.h"

struct Status::Table
{
    using Record = Status;
    static constexpr std::tuple ROWS{ PELCLOUD_STATUS_FIELDS(PELCLOUD_FIELD_ROW) };
    static_assert(hasUniqueKeys(ROWS, 24));
};

Status::~Status() = default;

void Status::clear()
{
    *this = Status();
}

void Status::all()
{
    setAllFields(*this, Table::ROWS);
}

QJsonObject Status::toJson() const
{
    return fieldsToJson(*this, Table::ROWS);
}
