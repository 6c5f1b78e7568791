#include "support/jsontext.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <locale>
#include <random>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

std::string numberText(double number)
{
    const QByteArray text = ToJsonText({ { "n", number } });
    const QByteArray head = "{\n    \"n\": ";
    EXPECT_TRUE(text.startsWith(head) && text.endsWith("\n}\n")) << text.constData();
    return text.sliced(head.size()).chopped(3).toStdString();
}

TEST(JsonText, HasTheLayoutOfQt)
{
    constexpr char16_t UNITS[] = { u'"',   u'\\',  u'/',   0x0000, 0x0001, 0x0007, 0x0008,
                                   0x0009, 0x000a, 0x000c, 0x000d, 0x001f, 0x0020, 0x007f,
                                   0x0080, 0x07ff, 0x0800, 0x20ac, 0xd7ff, 0xd800, 0xdbff,
                                   0xdc00, 0xdfff, 0xe000, 0xfeff, 0xffff, u'a',   u'Z' };
    QJsonObject object{ { "", true }, { "n", QJsonValue::Null }, { "f", false } };
    object["a"] =
            QJsonArray{ 999999, -999999, 0, QJsonArray(), QJsonArray{ object }, QJsonObject() };
    for (const char16_t first : UNITS) {
        QJsonArray pairs;
        QString all;
        for (const char16_t second : UNITS) {
            pairs.append(QString(QChar(first)) + QChar(second));
            all += pairs.last().toString();
        }
        object[all] = pairs;
    }
    EXPECT_EQ(ToJsonText(object), QJsonDocument(object).toJson());
}

TEST(JsonText, HasNumbersLikePrintfWithSixDigits)
{
    const auto previous = std::locale::global(std::locale("de_DE.UTF-8")); // with a decimal comma
    using Limits = std::numeric_limits<double>;
    const std::pair<double, const char *> rows[] = {
        { -0.0, "0" },
        { 229.6F, "229.6" },
        { 999999, "999999" },
        { 1000000, "1e+06" },
        { -1000000, "-1e+06" },
        { 999999.5, "1e+06" },
        { 0.0001, "0.0001" },
        { 0.00001, "1e-05" },
        { 2147483647, "2.14748e+09" },
        { Limits::max(), "1.79769e+308" },
        { -Limits::denorm_min(), "-4.94066e-324" },
        { Limits::quiet_NaN(), "null" },
        { -Limits::infinity(), "null" },
    };
    for (const auto &[number, text] : rows)
        EXPECT_EQ(numberText(number), text);
    std::locale::global(previous);

    std::mt19937_64 random(11);
    for (int i = 0; i < 50000; ++i) {
        const double any = std::bit_cast<double>(random());
        const double usual = std::ldexp(static_cast<double>(random() >> 11), -33 - i % 40);
        for (const double number : { any, usual, std::floor(usual) }) {
            char expected[32];
            std::snprintf(expected, sizeof expected, "%.6g", number);
            ASSERT_EQ(numberText(number), std::isfinite(number) ? expected : "null");
        }
    }
}

} // namespace
