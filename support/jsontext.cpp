#include "support/jsontext.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

namespace {

constexpr int INDENT_WIDTH = 4;
constexpr int SIGNIFICANT_DIGITS = 6;
constexpr double SIX_DIGIT_LIMIT = 1e6;       // whole numbers below are written digit by digit
constexpr qsizetype MAX_NUMBER_LENGTH = 16;   // "-1.23457e-308" and room to spare
constexpr qsizetype MAX_CHARACTER_LENGTH = 6; // "\u001f"
constexpr qsizetype FIRST_CAPACITY = 4096;    // a unit's whole report without samples

/** Bytes appended to an array that grows by doubling. */
class Output
{
public:
    Output()
        : m_bytes(FIRST_CAPACITY, Qt::Uninitialized)
        , m_next(m_bytes.data())
    {}

    /** Makes sure that `count` bytes can be put without a further check. */
    void reserve(qsizetype count)
    {
        const qsizetype used = m_next - m_bytes.constData();
        if (m_bytes.size() - used < count) {
            m_bytes.resize(2 * m_bytes.size() + count);
            m_next = m_bytes.data() + used;
        }
    }

    void put(char c) { *m_next++ = c; }

    void write(std::string_view text)
    {
        reserve(static_cast<qsizetype>(text.size()));
        std::memcpy(m_next, text.data(), text.size());
        m_next += text.size();
    }

    void writeBlanks(int count)
    {
        reserve(count);
        std::memset(m_next, ' ', static_cast<std::size_t>(count));
        m_next += count;
    }

    /** Lets `format(first, last)` put a number; it returns one past the last character. */
    template <class Format>
    void writeNumber(Format format)
    {
        reserve(MAX_NUMBER_LENGTH);
        m_next = format(m_next, m_next + MAX_NUMBER_LENGTH);
    }

    QByteArray take()
    {
        m_bytes.resize(m_next - m_bytes.constData());
        return std::move(m_bytes);
    }

private:
    QByteArray m_bytes;
    char *m_next;
};

void putUnicodeEscape(Output &out, char16_t unit)
{
    constexpr std::string_view HEX_DIGITS = "0123456789abcdef";
    out.put('\\');
    out.put('u');
    for (int shift = 12; shift >= 0; shift -= 4)
        out.put(HEX_DIGITS[(unit >> shift) & 0xfU]);
}

void putEscaped(Output &out, char16_t unit)
{
    constexpr std::string_view ESCAPED = "\"\\\b\f\n\r\t";
    constexpr std::string_view LETTERS = "\"\\bfnrt";
    const std::size_t at = ESCAPED.find(static_cast<char>(unit));
    if (at == ESCAPED.npos) {
        putUnicodeEscape(out, unit);
    } else {
        out.put('\\');
        out.put(LETTERS[at]);
    }
}

/** Bits `shift` and up of a code point as the first byte or a later byte of its UTF-8 form. */
char leadByte(char32_t point, int shift, unsigned int mark)
{
    return static_cast<char>(mark | (point >> shift));
}

char trailByte(char32_t point, int shift)
{
    return static_cast<char>(0x80U | ((point >> shift) & 0x3fU));
}

void putBeyondAscii(Output &out, char32_t point)
{
    if (point < 0x800) {
        out.put(leadByte(point, 6, 0xc0U));
    } else if (point < 0x10000) {
        out.put(leadByte(point, 12, 0xe0U));
        out.put(trailByte(point, 6));
    } else {
        out.put(leadByte(point, 18, 0xf0U));
        out.put(trailByte(point, 12));
        out.put(trailByte(point, 6));
    }
    out.put(trailByte(point, 0));
}

/** Whether a character stands for itself between quotes, as a byte. */
bool isPlain(char16_t unit)
{
    return unit >= 0x20 && unit < 0x80 && unit != u'"' && unit != u'\\';
}

void writeString(Output &out, const QString &text)
{
    out.reserve(MAX_CHARACTER_LENGTH * text.size() + 2);
    out.put('"');
    const QChar *const end = text.constEnd();
    for (const QChar *at = text.constBegin(); at != end; ++at) {
        if (isPlain(at->unicode())) {
            out.put(static_cast<char>(at->unicode()));
        } else if (at->unicode() < 0x80) {
            putEscaped(out, at->unicode());
        } else if (!at->isSurrogate()) {
            putBeyondAscii(out, at->unicode());
        } else if (at->isHighSurrogate() && at + 1 != end && at[1].isLowSurrogate()) {
            putBeyondAscii(out, QChar::surrogateToUcs4(at[0], at[1]));
            ++at;
        } else {
            putUnicodeEscape(out, at->unicode()); // half a pair has no UTF-8 form
        }
    }
    out.put('"');
}

void writeNumber(Output &out, double value)
{
    const int whole = std::fabs(value) < SIX_DIGIT_LIMIT ? static_cast<int>(value) : 0;
    if (whole == value) {
        // Most numbers of a report are flags and samples: the same digits, found sooner. A zero
        // has no sign here, for the JSON classes do not keep it.
        out.writeNumber(
                [whole](char *first, char *last) { return std::to_chars(first, last, whole).ptr; });
    } else if (std::isfinite(value)) {
        out.writeNumber([value](char *first, char *last) {
            return std::to_chars(first, last, value, std::chars_format::general, SIGNIFICANT_DIGITS)
                    .ptr;
        });
    } else {
        out.write("null");
    }
}

void writeValue(Output &out, QJsonValueConstRef value, int level);

/** Writes what stands between two brackets, an item a line. */
template <class Container, class WriteItem>
void writeItems(Output &out, const Container &items, std::string_view brackets, int level,
                WriteItem writeItem)
{
    out.write(brackets.substr(0, 1));
    std::string_view separator = "\n";
    const auto end = items.constEnd();
    for (auto item = items.constBegin(); item != end; ++item) {
        out.write(separator);
        out.writeBlanks((level + 1) * INDENT_WIDTH);
        writeItem(item);
        separator = ",\n";
    }
    out.write("\n");
    out.writeBlanks(level * INDENT_WIDTH);
    out.write(brackets.substr(1));
}

void writeObject(Output &out, const QJsonObject &object, int level)
{
    writeItems(out, object, "{}", level, [&out, level](const QJsonObject::const_iterator &member) {
        writeString(out, member.key()); // a copy; the class offers no look at the key itself
        out.write(": ");
        writeValue(out, *member, level + 1);
    });
}

void writeArray(Output &out, const QJsonArray &array, int level)
{
    writeItems(out, array, "[]", level, [&out, level](const QJsonArray::const_iterator &element) {
        writeValue(out, *element, level + 1);
    });
}

void writeValue(Output &out, QJsonValueConstRef value, int level)
{
    // By far most values are numbers, and this question is answered together with its answer.
    constexpr double NO_NUMBER = std::numeric_limits<double>::quiet_NaN();
    if (const double number = value.toDouble(NO_NUMBER); !std::isnan(number)) {
        writeNumber(out, number);
        return;
    }
    switch (value.type()) {
    case QJsonValue::Bool:
        out.write(value.toBool() ? "true" : "false");
        break;
    case QJsonValue::String:
        writeString(out, value.toString());
        break;
    case QJsonValue::Array:
        writeArray(out, value.toArray(), level);
        break;
    case QJsonValue::Object:
        writeObject(out, value.toObject(), level);
        break;
    case QJsonValue::Double: // not a number at all
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        out.write("null");
        break;
    }
}

} // namespace

QByteArray ToJsonText(const QJsonObject &object)
{
    Output out;
    writeObject(out, object, 0);
    out.write("\n");
    return out.take();
}
