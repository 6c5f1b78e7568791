#include "model/variables.h"

struct Variables::Table
{
    using Record = Variables;
    static constexpr std::tuple ROWS{ PELCLOUD_VARIABLES_FIELDS(PELCLOUD_FIELD_ROW) };
    static_assert(hasUniqueKeys(ROWS, 24));
};

Variables::~Variables() = default;

void Variables::clear()
{
    *this = Variables();
}

QJsonObject Variables::toJson() const
{
    return fieldsToJson(*this, Table::ROWS);
}
