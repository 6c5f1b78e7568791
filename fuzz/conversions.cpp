// Conversions between text, numbers and times, trimming and change of case, in several locales.

#include "fuzz/fuzz.h"
#include "support/datetext.h"
#include "support/utils.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <string>

namespace {

/** Checks that numbers come back from their texts, which have the asked width, up to 4096. */
void checkNumbers(FuzzedDataProvider &input)
{
    const auto bits = input.ConsumeIntegral<unsigned long>();
    const auto number = static_cast<long>(bits);
    const auto real = std::bit_cast<double>(bits);
    const unsigned int width =
            input.ConsumeIntegral<std::uint16_t>() >> (bits & 15); // mostly small
    const std::size_t least = std::min(width, 4096U);

    const std::string whole = IntToStr(number, width, '0');
    FUZZ_CHECK(whole.size() == std::max(least, std::to_string(number).size()));
    FUZZ_CHECK(StrToIntDef(whole, ~number) == number);
    const std::string natural = UIntToStr(bits, width, '0');
    FUZZ_CHECK(natural.size() == std::max(least, std::to_string(bits).size()));
    FUZZ_CHECK(StrToIntDef(natural, ~number) == number);
    const std::string text = FloatToStr(real, static_cast<int>(width), std::max(width, 17U), '0');
    FUZZ_CHECK(!std::isfinite(real) || StrToFloatDef(text, 0.5 - real) == real);
    FUZZ_CHECK(text.size() >= least);
}

/** Compares with strtoul() and strtod(), which take more forms: " 1", "0x1p3", "inf". */
void checkReading(const std::string &text, std::size_t locale)
{
    const auto hasOnly = [&text](const char *characters) {
        return !text.empty() && text.find_first_not_of(characters) == text.npos;
    };
    char *end = nullptr;
    errno = 0;
    const unsigned long whole = std::strtoul(text.c_str(), &end, 10);
    const bool isLong = hasOnly("0123456789+-") && *end == '\0' && end != text.c_str();
    FUZZ_CHECK(StrIsInt(text) == (isLong || text == "+" || text == "-"));
    FUZZ_CHECK(StrToIntDef(text, -6) == (isLong && errno == 0 ? static_cast<long>(whole) : -6));

    std::string pointed = text;
    if (const std::size_t comma = text.find(','); comma != text.npos)
        pointed[comma] = '.';
    useLocale(0);
    const double real = std::strtod(pointed.c_str(), &end);
    useLocale(locale);
    const bool isFloat = hasOnly("0123456789+-.,Ee") && *end == '\0' && end != pointed.c_str();
    FUZZ_CHECK(StrIsFloat(text) == isFloat);
    FUZZ_CHECK(StrToFloatDef(text, 0.25) == (isFloat && std::isfinite(real) ? real : 0.25));
}

/** A text is folded as its characters are, unless it is invalid or grows by two bytes. */
void checkCase(const std::string &text)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): UTF-8 and the C locale have no shift states
    const bool isValid = std::mbstowcs(nullptr, text.c_str(), 0) != static_cast<std::size_t>(-1);
    for (const bool upper : { false, true }) {
        std::string characters;
        for (std::size_t from = 0, to = 0; from < text.size(); from = to) {
            for (++to; to < text.size() && (text[to] & 0xC0) == 0x80;)
                ++to; // a later byte of the same character in UTF-8
            characters += LocaleChangeCase(text.substr(from, to - from), upper);
        }
        const bool isFolded = isValid && characters.size() <= text.size() + 1;
        const std::string folded = LocaleChangeCase(text, upper);
        FUZZ_CHECK(folded == (isFolded ? characters : text));
        FUZZ_CHECK(LocaleChangeCase(folded, upper) == folded); // as CfgClass does with names
    }
}

/** Times are in UTC, where each text stands for one time. */
void checkTimes(long time, const std::string &text, const std::string &format)
{
    constexpr const char *FULL = "yyyy-mm-dd hh:nn:ss";
    const std::string full = DateTimeToStr(time, FULL);
    FUZZ_CHECK(full.empty() || StrToDateTimeDef(full.c_str(), FULL, ~time) == time);

    const long read = StrToDateTimeDef(text.c_str(), format.c_str(), 1);
    if (read != 1 || StrToDateTimeDef(text.c_str(), format.c_str(), 2) == 1)
        FUZZ_CHECK(DateTimeToStr(read, format.c_str()) == text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread
    [[maybe_unused]] static const int zone = setenv("TZ", "UTC", 1);
    FuzzedDataProvider input(data, size);
    const auto locale = input.ConsumeIntegral<std::uint8_t>();
    useLocale(locale);
    checkNumbers(input);
    const auto time = input.ConsumeIntegral<long>() >> input.ConsumeIntegralInRange(0, 63);
    const std::string format = upToNul(input.ConsumeRandomLengthString());
    const std::string bytes = input.ConsumeRemainingBytesAsString();
    const std::string text = upToNul(bytes);
    FUZZ_CHECK(Trim(bytes) == Trim(text) && LocaleUpperCase(bytes) == LocaleUpperCase(text));
    checkReading(text, locale);
    checkCase(text);
    checkTimes(time, text, format);
    return 0;
}
