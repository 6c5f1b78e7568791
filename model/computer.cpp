#include "model/computer.h"

struct Computer::Table
{
    using Record = Computer;
    static constexpr std::tuple ROWS{ PELCLOUD_COMPUTER_FIELDS(PELCLOUD_FIELD_ROW) };
    static_assert(hasUniqueKeys(ROWS, 4));
};

Computer::~Computer() = default;

void Computer::clear()
{
    *this = Computer();
}

QJsonObject Computer::toJson() const
{
    return fieldsToJson(*this, Table::ROWS);
}
