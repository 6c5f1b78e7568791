#include "support/utils.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <locale>

namespace {

/** The whole process, C and C++ library, in another locale for one test. */
class LocaleScope
{
public:
    explicit LocaleScope(const char *name)
        : m_previous(std::locale::global(std::locale(name)))
    {}
    ~LocaleScope() { std::locale::global(m_previous); }
    LocaleScope(const LocaleScope &) = delete;
    LocaleScope &operator=(const LocaleScope &) = delete;

private:
    std::locale m_previous;
};

const std::array<const char *, 4> LOCALES{ "C", "de_DE.UTF-8", "en_IN.UTF-8", "tr_TR.UTF-8" };

TEST(NumberToText, LooksTheSameInEveryLocale)
{
    for (const char *name : LOCALES) {
        const LocaleScope scope(name);
        EXPECT_EQ(IntToStr(-5, 3, '0') + ' ' + UIntToStr(5, 3, '0'), "-05 005") << name;
        EXPECT_EQ(IntToStr(LONG_MIN, 0, '0'), "-9223372036854775808") << name;
        EXPECT_EQ(UIntToStr(ULONG_MAX, 21, '*'), "*18446744073709551615") << name;
        EXPECT_EQ(FloatToStr(1.05F, 0, 2, ' ') + ' ' + FloatToStr(12, 0, 2, ' '), "1.0 12.")
                << name;
        EXPECT_EQ(FloatToStr(1234567, -1, 9, ' '), "1234567.00") << name;
        EXPECT_EQ(FloatToStr(-1.5, 6, 2, '0'), "-001.5") << name;
        EXPECT_EQ(FloatToStr(100, 0, 2, ' ') + FloatToStr(0.5, 0, 0, ' '), "1.0e+020.5") << name;
        EXPECT_EQ(FloatToStr(0.0, 0, UINT_MAX, ' ').size(), 4097U); // the bound, and its point
    }
}

TEST(TextToNumber, Integers)
{
    constexpr long DEF = 5;
    const std::pair<const char *, long> accepted[] = {
        { "12", 12 },
        { "+12", 12 },
        { "-12", -12 },
        { "007", 7 },
        { "-", DEF },
        { "+", DEF },
        { "9223372036854775807", LONG_MAX },
        { "9223372036854775808", LONG_MIN },
        { "-9223372036854775808", LONG_MIN },
        { "-9223372036854775809", LONG_MAX },
        { "18446744073709551615", -1 },
        { "18446744073709551616", DEF },
        { "0000000000000000000000000001", 1 },
    };
    for (const char *name : LOCALES) {
        const LocaleScope scope(name);
        for (const auto &[text, value] : accepted) {
            EXPECT_TRUE(StrIsInt(text)) << text;
            EXPECT_EQ(StrToIntDef(text, DEF), value) << text;
        }
        for (const char *text : { "", " 12", "12 ", "1-2", "--1", "+-1", "0x10", "1.0", "1.000" }) {
            EXPECT_FALSE(StrIsInt(text)) << text;
            EXPECT_EQ(StrToIntDef(text, DEF), DEF) << text;
        }
    }
    EXPECT_EQ(StrToIntDef(std::string("8\0x", 3), DEF), 8);
    EXPECT_EQ(StrToIntDef(nullptr, DEF), DEF);
}

TEST(TextToNumber, Floats)
{
    constexpr double DEF = -77;
    const std::pair<const char *, double> accepted[] = {
        { "2,5", 2.5 },
        { "2.5", 2.5 },
        { "1e3", 1000 },
        { "1E+3", 1000 },
        { "-1.5e-1", -0.15 },
        { "+4", 4 },
        { "5.", 5 },
        { ".5", 0.5 },
        { ",5", 0.5 },
        { "1e999", DEF },
        { "-1e999", DEF },
        { "1e-999", 0 },
        { "4.9e-324", 4.9e-324 },
    };
    const char *const refused[] = { "",      ".",     "e3",        "1e",    "1e+",   "1e2.5",
                                    "1.2.3", "1,2.3", "1,234,567", "1-2",   " 1",    "1 ",
                                    "abc",   "inf",   "nan",       "0x1p3", "1e3e3", "--1" };
    for (const char *name : LOCALES) {
        const LocaleScope scope(name);
        for (const auto &[text, value] : accepted) {
            EXPECT_TRUE(StrIsFloat(text)) << text;
            EXPECT_EQ(StrToFloatDef(text, DEF), value) << text;
        }
        for (const char *text : refused) {
            EXPECT_FALSE(StrIsFloat(text)) << text;
            EXPECT_EQ(StrToFloatDef(text, DEF), DEF) << text;
        }
    }
    EXPECT_EQ(StrToFloatDef(nullptr, DEF), DEF);
}

TEST(Trimming, TakesExactlyFourBlanks)
{
    const struct
    {
        const char *text, *both, *left, *right;
    } rows[] = {
        { nullptr, "", "", "" },
        { "", "", "", "" },
        { " \t\r\n", "", "", "" },
        { "\t key = v \r\n", "key = v", "key = v \r\n", "\t key = v" },
        { "\va\f", "\va\f", "\va\f", "\va\f" },
        { "a b", "a b", "a b", "a b" },
        { "\xc2\xa0x\xc2\xa0", "\xc2\xa0x\xc2\xa0", "\xc2\xa0x\xc2\xa0", "\xc2\xa0x\xc2\xa0" },
    };
    for (const auto &row : rows) {
        const std::string text = row.text == nullptr ? "" : row.text;
        EXPECT_EQ(Trim(row.text) + Trim(text), std::string(row.both) + row.both);
        EXPECT_EQ(TrimLeft(row.text) + TrimLeft(text), std::string(row.left) + row.left);
        EXPECT_EQ(TrimRight(row.text) + TrimRight(text), std::string(row.right) + row.right);
    }
}

TEST(Case, FollowsTheLocale)
{
    const std::string longText(1000, 'a');
    const struct
    {
        const char *locale;
        std::string text, upper, lower;
    } rows[] = {
        { "C", "aB1-z", "AB1-Z", "ab1-z" },
        { "C", "a\xc3\xa9", "a\xc3\xa9", "a\xc3\xa9" }, // not ASCII: left alone as a whole
        { "de_DE.UTF-8", "gr\xc3\xbc\xc3\x9f", "GR\xc3\x9c\xc3\x9f", "gr\xc3\xbc\xc3\x9f" },
        { "de_DE.UTF-8", "ab\xff", "ab\xff", "ab\xff" },
        { "de_DE.UTF-8", longText, std::string(1000, 'A'), longText },
        // A capital of three bytes for a letter of two: twice, it grows by more than a byte.
        { "de_DE.UTF-8", "\xc9\x90\xc9\x90", "\xc9\x90\xc9\x90", "\xc9\x90\xc9\x90" },
        { "tr_TR.UTF-8", "ix", "\xc4\xb0X", "ix" },
    };
    for (const auto &row : rows) {
        const LocaleScope scope(row.locale);
        const char *const text = row.text.c_str();
        EXPECT_EQ(LocaleUpperCase(row.text) + LocaleUpperCase(text), row.upper + row.upper);
        EXPECT_EQ(LocaleLowerCase(row.text) + LocaleLowerCase(text), row.lower + row.lower);
    }
    const LocaleScope scope("de_DE.UTF-8");
    EXPECT_EQ(UpperCase("a\xc3\xa9z") + UpperCase(std::string("b")), "A\xc3\xa9ZB"); // byte by byte
    EXPECT_EQ(LowerCase("A\xc3\x89Z") + LowerCase(std::string("B")), "a\xc3\x89zb");
    EXPECT_EQ(UpperCase(nullptr) + LowerCase(nullptr) + LocaleUpperCase(nullptr), "");
}

} // namespace
