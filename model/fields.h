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
#include <QLatin1String>
#include <QString>
#include <QVector>

/**
 * What the records have in common. Each record names its fields once, in a list of rows
 *
 *     FIELD(type, accessor stem, JSON key[, initial value])
 *
 * and the macros below turn the rows into declarations: getter and setter, member, table row.
 * Behaviour is written once, for every record, over the table. Stem and key are both literal,
 * since neither follows from the other and both must be found by a text search.
 *
 * Every record is a plain value: a change of a copy does not show in the original. A record is for
 * one thread at a time.
 */

/** Numbers travel by value, everything else by constant reference. */
template <class Type>
using FieldArgument = std::conditional_t<std::is_arithmetic_v<Type>, Type, const Type &>;

// The accessors of one row: get<stem>(), set<stem>(value). Values are stored as they are given.
#define PELCLOUD_FIELD_ACCESSORS(Type, Stem, Key, ...) \
    [[nodiscard]] FieldArgument<Type> get##Stem() const \
    { \
        return m_##Stem; \
    } \
    void set##Stem(FieldArgument<Type> value) \
    { \
        m_##Stem = value; \
    }

// The member of one row, zero or empty unless the row says otherwise.
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

/** Whether a table has `count` rows with a key of its own each; asserted at compile time. */
template <class... Fields>
constexpr bool hasUniqueKeys(const std::tuple<Fields...> &table, std::size_t count)
{
    auto keys = std::apply([](const auto &...row) { return std::array{ row.key... }; }, table);
    std::sort(keys.begin(), keys.end());
    return keys.size() == count && std::adjacent_find(keys.begin(), keys.end()) == keys.end();
}

// A value of a record as its JSON object holds it. A record inside a record is a nested object.

inline QJsonValue fieldToJson(int value)
{
    return value;
}

inline QJsonValue fieldToJson(float value)
{
    return static_cast<double>(value);
}

inline QJsonValue fieldToJson(const QString &value)
{
    return value;
}

inline QJsonValue fieldToJson(const QVector<float> &samples)
{
    QJsonArray array;
    for (const float sample : samples)
        array.append(static_cast<double>(sample));
    return array;
}

template <class Record>
auto fieldToJson(const Record &record) -> decltype(record.toJson())
{
    return record.toJson();
}

/** Samples are left out while there are none; every other key is always present. */
template <class Type>
constexpr bool isAlwaysPresent = !std::is_same_v<Type, QVector<float>>;

template <class Record, class Type>
QLatin1String keyOf(const Field<Record, Type> &row)
{
    return QLatin1String(row.key.data(), static_cast<qsizetype>(row.key.size()));
}

/**
 * The JSON object of a record, from its table. Finding the place of a key is most of the work of
 * building an object, and the places are the same every time: the keys are put in once, into an
 * object that all others start from.
 */
template <class Record, class... Types>
QJsonObject fieldsToJson(const Record &record, const std::tuple<Field<Record, Types>...> &table)
{
    struct Layout
    {
        QJsonObject blank;
        std::array<qsizetype, sizeof...(Types)> places{};
    };
    const auto forEach = [&table](const auto &work) {
        std::apply([&work](const auto &...row) { (work(row), ...); }, table);
    };

    // Never destroyed: exit() may find a thread at this.
    static const Layout &layout = *new Layout([&forEach] {
        Layout made;
        forEach([&made]<class Type>(const Field<Record, Type> &row) {
            if (isAlwaysPresent<Type>)
                made.blank.insert(keyOf(row), QJsonValue());
        });
        auto place = made.places.begin();
        forEach([&made, &place](const auto &row) {
            *place++ = made.blank.constFind(keyOf(row)) - made.blank.constBegin();
        });
        return made;
    }());

    QJsonObject object = layout.blank;
    const QJsonObject::iterator values = object.begin();
    auto place = layout.places.begin();
    forEach([&]<class Type>(const Field<Record, Type> &row) {
        if (isAlwaysPresent<Type>)
            values[*place] = fieldToJson(record.*row.member);
        ++place;
    });
    forEach([&]<class Type>(const Field<Record, Type> &row) {
        if constexpr (!isAlwaysPresent<Type>) {
            if (const Type &samples = record.*row.member; !samples.isEmpty())
                object.insert(keyOf(row), fieldToJson(samples));
        }
    });
    return object;
}

/** Sets every field of a record of flags to 1. */
template <class Record, class Table>
void setAllFields(Record &record, const Table &table)
{
    std::apply([&record](const auto &...row) { ((record.*row.member = 1), ...); }, table);
}

#endif
