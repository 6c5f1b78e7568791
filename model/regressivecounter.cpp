#include "model/regressivecounter.h"

struct RegressiveCounter::Table
{
    using Record = RegressiveCounter;
    static constexpr std::tuple ROWS{ PELCLOUD_REGRESSIVE_COUNTER_FIELDS(PELCLOUD_FIELD_ROW) };
    static_assert(hasUniqueKeys(ROWS, 3));
};

RegressiveCounter::~RegressiveCounter() = default;

void RegressiveCounter::clear()
{
    *this = RegressiveCounter();
}

QJsonObject RegressiveCounter::toJson() const
{
    return fieldsToJson(*this, Table::ROWS);
}
