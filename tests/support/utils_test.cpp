#include "support/utils.h"
#include "tests/golden.h"

#include <gtest/gtest.h>

#include <climits>
#include <locale>

namespace {

struct Locales : testing::Test
{
    ~Locales() override { std::locale::global(std::locale::classic()); }
};

constexpr const char *LOCALES[] = { "C", "de_DE.UTF-8", "en_IN.UTF-8", "tr_TR.UTF-8" };

TEST_F(Locales, DoNotChangeNumbersAsText)
{
    for (const char *name : LOCALES) {
        std::locale::global(std::locale(name));
        const std::pair<std::string, const char *> rows[] = {
            { IntToStr(-5, 3, '0'), "-05" },
            { IntToStr(1234, 2, '0'), "1234" },
            { IntToStr(LONG_MIN, 0, '0'), "-9223372036854775808" },
            { UIntToStr(5, 3, '0'), "005" },
            { UIntToStr(ULONG_MAX, 21, '*'), "*18446744073709551615" },
            { FloatToStr(1.05F, 0, 2, ' '), "1.0" },
            { FloatToStr(1.23F, 0, 2, ' '), "1.2" },
            { FloatToStr(2, 0, 2, ' '), "2.0" },
            { FloatToStr(12, 0, 2, ' '), "12." },
            { FloatToStr(1234567, -1, 9, ' '), "1234567.00" },
            { FloatToStr(-1.5, 6, 2, '0'), "-001.5" },
            { FloatToStr(100, 0, 2, ' '), "1.0e+02" },
            { FloatToStr(0.5, 0, 2, ' '), "0.50" },
            { FloatToStr(0.5, 0, 0, ' '), "0.5" },
        };
        for (const auto &[text, expected] : rows)
            EXPECT_EQ(text, expected) << name;
        EXPECT_EQ(FloatToStr(0.0, 0, UINT_MAX, ' ').size(), 4097U); // the bound, and its point
    }
}

/** In the golden file null stands for a text that is not a number. */
TEST_F(Locales, DoNotChangeTextsAsNumbers)
{
    constexpr long DEF = 5;
    for (const char *name : LOCALES) {
        std::locale::global(std::locale(name));
        for (const QJsonValue row : goldenRows("text_to_number.json")) {
            const std::string text = row["text"].toString().toStdString();
            EXPECT_EQ(StrIsInt(text), row["int"].isString()) << text;
            bool hasInt = false;
            const long number = row["int"].toString().toLong(&hasInt);
            EXPECT_EQ(StrToIntDef(text, DEF), hasInt ? number : DEF) << text;
            EXPECT_EQ(StrIsFloat(text), !row["float"].isNull()) << text;
            EXPECT_EQ(StrToFloatDef(text, DEF), row["float"].toDouble(DEF)) << text;
        }
    }
    EXPECT_EQ(StrToIntDef(std::string("8\0x", 3), DEF), 8);
    EXPECT_TRUE(StrToIntDef(nullptr, DEF) == DEF && StrToFloatDef(nullptr, DEF) == DEF);
}

TEST(Trimming, RemovesFourKindsOfBlanks)
{
    const struct
    {
        const char *text, *both, *left, *right;
    } rows[] = {
        { nullptr, "", "", "" },
        { " \t\r\n", "", "", "" },
        { "\t key = v \r\n", "key = v", "key = v \r\n", "\t key = v" },
        { "\va\f", "\va\f", "\va\f", "\va\f" },
        { "\xc2\xa0x\xc2\xa0", "\xc2\xa0x\xc2\xa0", "\xc2\xa0x\xc2\xa0", "\xc2\xa0x\xc2\xa0" },
    };
    for (const auto &row : rows) {
        const std::string text = row.text == nullptr ? "" : row.text;
        EXPECT_EQ(Trim(row.text) + Trim(text), std::string(row.both) + row.both);
        EXPECT_EQ(TrimLeft(row.text) + TrimLeft(text), std::string(row.left) + row.left);
        EXPECT_EQ(TrimRight(row.text) + TrimRight(text), std::string(row.right) + row.right);
    }
}

TEST_F(Locales, ChangeCase)
{
    const struct
    {
        const char *locale;
        std::string text, upper, lower;
    } rows[] = {
        { "C", "aB1-z", "AB1-Z", "ab1-z" },
        { "C", "a\xc3\xa9", "a\xc3\xa9", "a\xc3\xa9" }, // not ASCII: unchanged as a whole
        { "de_DE.UTF-8", "gr\xc3\xbc\xc3\x9f", "GR\xc3\x9c\xc3\x9f", "gr\xc3\xbc\xc3\x9f" },
        { "de_DE.UTF-8", "ab\xff", "ab\xff", "ab\xff" },
        { "de_DE.UTF-8", std::string(999, 'a'), std::string(999, 'A'), std::string(999, 'a') },
        // A capital of three bytes for a letter of two: twice, it grows by more than a byte.
        { "de_DE.UTF-8", "\xc9\x90\xc9\x90", "\xc9\x90\xc9\x90", "\xc9\x90\xc9\x90" },
        { "tr_TR.UTF-8", "ix", "\xc4\xb0X", "ix" },
    };
    for (const auto &row : rows) {
        std::locale::global(std::locale(row.locale));
        EXPECT_EQ(LocaleUpperCase(row.text), row.upper);
        EXPECT_EQ(LocaleLowerCase(row.text), row.lower);
    }
    std::locale::global(std::locale("de_DE.UTF-8"));
    EXPECT_EQ(UpperCase("a\xc3\xa9z") + LowerCase("A\xc3\x89Z"), "A\xc3\xa9Za\xc3\x89z"); // bytes
    EXPECT_EQ(UpperCase(nullptr) + LowerCase(nullptr) + LocaleUpperCase(nullptr), "");
}

} // namespace
