#include "model/failures.h"

struct Failures::Table
{
    using Record = Failures;
    static constexpr std::tuple ROWS{ PELCLOUD_FAILURES_FIELDS(PELCLOUD_FIELD_ROW) };
    static_assert(hasUniqueKeys(ROWS, 12));
};

Failures::~Failures() = default;

void Failures::clear()
{
    *this = Failures();
}

void Failures::all()
{
    setAllFields(*this, Table::ROWS);
}

QJsonObject Failures::toJson() const
{
    return fieldsToJson(*this, Table::ROWS);
}
