#ifndef PELCLOUD_MODEL_FIELDS_H
#define PELCLOUD_MODEL_FIELDS_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <tuple>
#include <type_traits>

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QLatin1StringView>
#include <QString>
#include <QVector>

/**
 * The code shared by all records. Each record lists its fields once, one row per field:
 *
 *     FIELD(type, accessor stem, JSON key[, initial value])
 *
 * The macros below turn the rows into declarations: getter and setter, member, table row. The
 * functions below loop over the table. Stem and key are both literals, so that a text search finds
 * both; neither follows from the other.
 *
 * Every record is a plain value: changing a copy does not change the original. Only one thread at a
 * time may use a record.
 */

/** Numbers are passed by value, everything else by constant reference. */
template <class Type>
using FieldArgument = std::conditional_t<std::is_arithmetic_v<Type>, Type, const Type &>;

// The accessors of one row: get<stem>(), set<stem>(value). Values are stored unchanged.
#define PELCLOUD_FIELD_ACCESSORS(Type, Stem, Key, ...) \
    [[nodiscard]] FieldArgument<Type> get##Stem() const \
    { \
        return m_##Stem; \
    } \
    void set##Stem(FieldArgument<Type> value) \
    { \
        m_##Stem = value; \
    }

// The member of one row; zero or empty if the row has no initial value.
#define PELCLOUD_FIELD_MEMBER(Type, Stem, Key, ...) Type m_##Stem{ __VA_ARGS__ };

// The table row of one row, inside a struct nested in the record, where `Record` names the record.
#define PELCLOUD_FIELD_ROW(Type, Stem, Key, ...) Field{ Key, &Record::m_##Stem },

/** A row of a record's table. */
template <class Record, class Type>
struct Field
{
    std::string_view key;
    Type Record::*member;
};

template <class Record, class Type>
Field(const char *, Type Record::*) -> Field<Record, Type>;

/** Whether a table has `count` rows, each with a different key; asserted at compile time. */
template <class... Fields>
constexpr bool hasUniqueKeys(const std::tuple<Fields...> &table, std::size_t count)
{
    auto keys = std::apply([](const auto &...row) { return std::array{ row.key... }; }, table);
    std::sort(keys.begin(), keys.end());
    return keys.size() == count && std::adjacent_find(keys.begin(), keys.end()) == keys.end();
}

// Insert a value into a record's JSON object. A record inside a record becomes a nested object; an
// empty sample sequence is left out.

inline void insertField(QJsonObject &object, QLatin1StringView key, int value)
{
    object.insert(key, value);
}

inline void insertField(QJsonObject &object, QLatin1StringView key, float value)
{
    object.insert(key, static_cast<double>(value));
}

inline void insertField(QJsonObject &object, QLatin1StringView key, const QString &value)
{
    object.insert(key, value);
}

inline void insertField(QJsonObject &object, QLatin1StringView key, const QVector<float> &samples)
{
    if (samples.isEmpty())
        return;
    QJsonArray array;
    for (const float sample : samples)
        array.append(static_cast<double>(sample));
    object.insert(key, array);
}

template <class Record>
auto insertField(QJsonObject &object, QLatin1StringView key, const Record &record)
        -> decltype(record.toJson(), void())
{
    object.insert(key, record.toJson());
}

/** The JSON object of a record, from its table. */
template <class Record, class Table>
QJsonObject fieldsToJson(const Record &record, const Table &table)
{
    QJsonObject object;
    const auto insert = [&object, &record](const auto &row) {
        const QLatin1StringView key(row.key.data(), static_cast<qsizetype>(row.key.size()));
        insertField(object, key, record.*row.member);
    };
    std::apply([&insert](const auto &...row) { (insert(row), ...); }, table);
    return object;
}

/** Sets every field of a record of flags to 1. */
template <class Record, class Table>
void setAllFields(Record &record, const Table &table)
{
    std::apply([&record](const auto &...row) { ((record.*row.member = 1), ...); }, table);
}

#endif
