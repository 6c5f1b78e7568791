#include "support/jsontext.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringEncoder>

namespace {

constexpr std::size_t INDENT_WIDTH = 4;
constexpr int SIGNIFICANT_DIGITS = 6;
constexpr double SIX_DIGIT_LIMIT = 1e6;
constexpr qsizetype MAX_NUMBER_LENGTH = 16;   // "-1.23457e-308" and some room
constexpr qsizetype MAX_CHARACTER_LENGTH = 6; // "\u001f"
constexpr qsizetype FIRST_CAPACITY = 4096;    // a unit's report without samples

/** Text that grows at its end. */
class Output
{
public:
    /** Where up to `count` bytes may be put; grow() takes them over. */
    char *room(qsizetype count)
    {
        if (m_bytes.size() - m_size < count)
            m_bytes.resize(2 * m_bytes.size() + count);
        return m_bytes.data() + m_size;
    }
    void grow(const char *end) { m_size = end - m_bytes.constData(); }
    void append(std::string_view text)
    {
        grow(std::copy(text.begin(), text.end(), room(static_cast<qsizetype>(text.size()))));
    }
    QByteArray take()
    {
        m_bytes.truncate(m_size);
        return m_bytes;
    }

private:
    QByteArray m_bytes{ FIRST_CAPACITY, Qt::Uninitialized };
    qsizetype m_size = 0;
};

/** Whether a character stands for itself between quotes, as a byte. */
bool isPlain(QChar c)
{
    return c >= u' ' && c < u'\x80' && c != u'"' && c != u'\\';
}

/** Writes a character of one or two units that does not stand for itself. */
char *writeSpecial(char *next, QStringView character)
{
    constexpr std::u16string_view ESCAPED = u"\"\\\b\f\n\r\t";
    constexpr std::string_view LETTERS = "\"\\bfnrt";
    const QChar first = character.front();
    if (const std::size_t at = ESCAPED.find(first.unicode()); at != ESCAPED.npos) {
        *next++ = '\\';
        *next++ = LETTERS[at];
        return next;
    }
    const bool isHalf = character.size() == 1 && first.isSurrogate(); // which has no UTF-8 form
    if (first < u' ' || isHalf)
        return next + std::sprintf(next, "\\u%04x", static_cast<unsigned int>(first.unicode()));
    return QStringEncoder(QStringEncoder::Utf8).appendToBuffer(next, character);
}

void writeString(Output &out, QStringView text)
{
    char *next = out.room(MAX_CHARACTER_LENGTH * text.size() + 2);
    *next++ = '"';
    while (!text.isEmpty()) {
        const auto *const special = std::find_if_not(text.begin(), text.end(), isPlain);
        next = std::transform(text.begin(), special, next,
                              [](QChar c) { return static_cast<char>(c.unicode()); });
        text = { special, text.end() };
        if (text.isEmpty())
            break;
        const bool isPair =
                text.size() > 1 && text[0].isHighSurrogate() && text[1].isLowSurrogate();
        next = writeSpecial(next, text.first(isPair ? 2 : 1));
        text = text.sliced(isPair ? 2 : 1);
    }
    *next++ = '"';
    out.grow(next);
}

/** `value` is finite. */
void writeNumber(Output &out, double value)
{
    char *const first = out.room(MAX_NUMBER_LENGTH);
    char *const last = first + MAX_NUMBER_LENGTH;
    const int whole = std::fabs(value) < SIX_DIGIT_LIMIT ? static_cast<int>(value) : 0;
    if (whole == value) // most numbers are flags and samples, for which this is much faster
        out.grow(std::to_chars(first, last, whole).ptr);
    else
        out.grow(std::to_chars(first, last, value, std::chars_format::general, SIGNIFICANT_DIGITS)
                         .ptr);
}

void writeValue(Output &out, QJsonValueConstRef value, std::size_t indent);

/** Writes what stands between two brackets, one item per line. */
template <class Items>
void writeItems(Output &out, const Items &items, std::string_view brackets, std::size_t indent)
{
    const std::string lineEnd = ",\n" + std::string(indent + INDENT_WIDTH, ' ');
    std::string_view separator = std::string_view(lineEnd).substr(1);
    const auto end = items.constEnd();
    out.append(brackets.substr(0, 1));
    for (auto item = items.constBegin(); item != end; ++item) {
        out.append(separator);
        separator = lineEnd;
        if constexpr (std::is_same_v<Items, QJsonObject>) {
            writeString(out, item.key());
            out.append(": ");
        }
        writeValue(out, *item, indent + INDENT_WIDTH);
    }
    out.append(std::string_view(lineEnd).substr(1, indent + 1));
    out.append(brackets.substr(1));
}

void writeValue(Output &out, QJsonValueConstRef value, std::size_t indent)
{
    // Most values are numbers, for which asking twice would take much longer.
    if (const double number = value.toDouble(NAN); std::isfinite(number)) {
        writeNumber(out, number);
        return;
    }
    switch (value.type()) {
    case QJsonValue::Bool:
        out.append(value.toBool() ? "true" : "false");
        break;
    case QJsonValue::String:
        writeString(out, value.toString());
        break;
    case QJsonValue::Array:
        writeItems(out, value.toArray(), "[]", indent);
        break;
    case QJsonValue::Object:
        writeItems(out, value.toObject(), "{}", indent);
        break;
    case QJsonValue::Double: // not finite
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        out.append("null");
        break;
    }
}

} // namespace

QByteArray ToJsonText(const QJsonObject &object)
{
    Output out;
    writeItems(out, object, "{}", 0);
    out.append("\n");
    return out.take();
}
