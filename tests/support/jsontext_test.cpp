#include "support/jsontext.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <locale>
#include <random>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

using namespace Qt::StringLiterals;

std::string numberText(double number)
{
    const QByteArray text = ToJsonText(QJsonObject{ { u"n"_s, number } });
    const QByteArray head = "{\n    \"n\": ";
    EXPECT_TRUE(text.startsWith(head) && text.endsWith("\n}\n")) << text.constData();
    return text.mid(head.size(), text.size() - head.size() - 3).toStdString();
}

QString randomText(std::mt19937 &random)
{
    static constexpr char16_t UNITS[] = { u'"',   u'\\',  u'/',   0x0000, 0x0001, 0x0007, 0x0008,
                                          0x0009, 0x000a, 0x000c, 0x000d, 0x001f, 0x0020, 0x007f,
                                          0x0080, 0x07ff, 0x0800, 0x20ac, 0xd7ff, 0xd800, 0xdbff,
                                          0xdc00, 0xdfff, 0xe000, 0xfeff, 0xffff, u'a',   u'Z' };
    QString text;
    for (auto length = random() % 12; length > 0; --length)
        text += QChar(UNITS[random() % std::size(UNITS)]);
    return text;
}

QJsonObject randomObject(std::mt19937 &random, int depth);

QJsonValue randomValue(std::mt19937 &random, int depth)
{
    switch (random() % (depth > 0 ? 7 : 5)) {
    case 0:
        return random() % 2 == 0;
    case 1:
        return QJsonValue::Null;
    case 2:
        return randomText(random);
    case 3:
    case 4:
        return static_cast<int>(random() % 1999999) - 999999;
    case 5:
        return randomObject(random, depth - 1);
    default:
        QJsonArray array;
        for (auto size = random() % 5; size > 0; --size)
            array.append(randomValue(random, depth - 1));
        return array;
    }
}

QJsonObject randomObject(std::mt19937 &random, int depth)
{
    QJsonObject object;
    if (random() % 4 == 0) // only as the first: Qt 6.8 falls over an empty key that comes later
        object.insert(QString(), depth);
    for (auto size = random() % 6; size > 0; --size)
        object.insert(randomText(random) + u'k', randomValue(random, depth));
    return object;
}

TEST(JsonText, LaysOutAsQtDoes)
{
    std::mt19937 random(7);
    for (int i = 0; i < 5000; ++i) {
        const QJsonObject object = randomObject(random, 5);
        ASSERT_EQ(ToJsonText(object), QJsonDocument(object).toJson()) << "document " << i;
    }
}

TEST(JsonText, WritesNumbersWithSixDigits)
{
    const auto previous = std::locale::global(std::locale("de_DE.UTF-8")); // with a decimal comma
    const struct
    {
        double number;
        const char *text;
    } rows[] = {
        { 0, "0" },
        { -1, "-1" },
        { 229.6F, "229.6" },
        { 999999, "999999" },
        { 1000000, "1e+06" },
        { -1000000, "-1e+06" },
        { 1234567, "1.23457e+06" },
        { 999999.5, "1e+06" },
        { 123456.4, "123456" },
        { 0.0001, "0.0001" },
        { 0.00001, "1e-05" },
        { 2147483647, "2.14748e+09" },
        { 4294967296.0, "4.29497e+09" },
        { std::numeric_limits<double>::max(), "1.79769e+308" },
        { std::numeric_limits<double>::denorm_min(), "4.94066e-324" },
        { std::numeric_limits<double>::quiet_NaN(), "null" },
        { std::numeric_limits<double>::infinity(), "null" },
        { -std::numeric_limits<double>::infinity(), "null" },
    };
    for (const auto &row : rows)
        EXPECT_EQ(numberText(row.number), row.text);
    std::locale::global(previous);
}

TEST(JsonText, WritesNumbersAsPrintfDoes)
{
    std::mt19937_64 random(11);
    for (int i = 0; i < 50000; ++i) {
        const double any = std::bit_cast<double>(random());
        const double everyday = std::ldexp(static_cast<double>(random() >> 11), -33 - i % 40);
        for (const double number : { any, everyday, std::floor(everyday) }) {
            if (!std::isfinite(number))
                continue;
            char expected[32];
            std::snprintf(expected, sizeof expected, "%.6g", number);
            ASSERT_EQ(numberText(number), expected);
        }
    }
}

} // namespace
