// Conversions between text and numbers, trimming and case, with libc as the second opinion, in several locales.

#include "fuzz/check.h"
#include "fuzz/localescope.h"
#include "fuzz/texts.h"
#include "support/datetext.h"
#include "support/utils.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <string>

namespace {

constexpr std::size_t CLASSIC = 0;
constexpr unsigned int MAX_DIGITS = 4096;

// Number to text.

std::string padded(std::string number, unsigned int width, char fill)
{
    const std::size_t missing = std::min(width, MAX_DIGITS);
    if (number.size() < missing)
        number.insert(number.front() == '-' ? 1 : 0, missing - number.size(), fill);
    return number;
}

std::string printed(double value, unsigned int precision)
{
    const LocaleScope classic(CLASSIC);
    static std::array<char, 2UL * MAX_DIGITS> text;
    const int digits = static_cast<int>(std::min(precision, MAX_DIGITS));
    std::snprintf(text.data(), text.size(), "%#.*g", digits, value);
    return text.data();
}

void checkNumbers(FuzzedDataProvider &input)
{
    const auto bits = input.ConsumeIntegral<unsigned long>();
    const auto number = static_cast<long>(bits);
    const auto real = std::bit_cast<double>(bits);
    // Mostly of everyday size; what is far beyond counts as the limit.
    const int width = input.ConsumeIntegral<std::int16_t>() >> input.ConsumeIntegralInRange(0, 15);
    const auto least = static_cast<unsigned int>(std::max(width, 0));
    const unsigned int precision =
            input.ConsumeIntegral<std::uint16_t>() >> input.ConsumeIntegralInRange(0U, 15U);
    const auto fill = static_cast<char>(input.ConsumeIntegral<std::uint8_t>());

    FUZZ_CHECK(IntToStr(number, least, fill) == padded(std::to_string(number), least, fill));
    FUZZ_CHECK(UIntToStr(bits, least, fill) == padded(std::to_string(bits), least, fill));
    FUZZ_CHECK(FloatToStr(real, width, precision, fill)
               == padded(printed(real, precision), least, fill));

    FUZZ_CHECK(StrToIntDef(IntToStr(number, 0, fill), ~number) == number);
    FUZZ_CHECK(StrToIntDef(IntToStr(number, least, '0'), ~number) == number);
    FUZZ_CHECK(StrToIntDef(UIntToStr(bits, least, '0'), ~number) == number);
    if (std::isfinite(real)) {
        const std::string exact = FloatToStr(real, width, 17, '0');
        FUZZ_CHECK(StrIsFloat(exact) && StrToFloatDef(exact, 0.5 - real) == real);
    }
}

// Text to number.

bool isInteger(const std::string &text)
{
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const std::size_t sign = text.starts_with('+') || text.starts_with('-') ? 1 : 0;
    return !text.empty()
           && std::all_of(text.begin() + static_cast<long>(sign), text.end(), isDigit);
}

long integer(const std::string &text, long def)
{
    const LocaleScope classic(CLASSIC);
    char *end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str())
        return def;
    if (errno == 0)
        return value;
    errno = 0;
    const unsigned long wide = std::strtoul(text.c_str(), nullptr, 10);
    return errno == 0 ? static_cast<long>(wide) : def;
}

/** Whether strtod takes all of it, and it has none of the forms beyond plain decimal ones. */
bool readReal(std::string text, double &value)
{
    const LocaleScope classic(CLASSIC);
    if (text.empty() || text.find_first_not_of("0123456789+-.,Ee") != text.npos)
        return false;
    if (const std::size_t comma = text.find(','); comma != text.npos)
        text[comma] = '.';
    char *end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return end == text.data() + text.size();
}

void checkReading(const std::string &text)
{
    for (const long def : { 5L, LONG_MIN }) {
        const long expected = isInteger(text) ? integer(text, def) : def;
        FUZZ_CHECK(StrToIntDef(text, def) == expected);
        FUZZ_CHECK(StrToIntDef(text.c_str(), def) == expected);
    }
    FUZZ_CHECK(StrIsInt(text) == isInteger(text) && StrIsInt(text.c_str()) == isInteger(text));

    double real = 0;
    const bool isReal = readReal(text, real);
    FUZZ_CHECK(StrIsFloat(text) == isReal && StrIsFloat(text.c_str()) == isReal);
    for (const double def : { 0.25, -1e300 }) {
        const double expected = isReal && std::isfinite(real) ? real : def;
        FUZZ_CHECK(std::bit_cast<std::uint64_t>(StrToFloatDef(text, def))
                   == std::bit_cast<std::uint64_t>(expected));
    }
}

// Trimming, case and names.

bool isBlank(char c)
{
    return c == ' ' || c == '\n' || c == '\t' || c == '\r';
}

void checkTrimming(const std::string &text)
{
    std::string left = text;
    while (!left.empty() && isBlank(left.front()))
        left.erase(0, 1);
    std::string right = text;
    while (!right.empty() && isBlank(right.back()))
        right.pop_back();
    std::string both = left;
    while (!both.empty() && isBlank(both.back()))
        both.pop_back();
    FUZZ_CHECK(TrimLeft(text) == left && TrimLeft(text.c_str()) == left);
    FUZZ_CHECK(TrimRight(text) == right && TrimRight(text.c_str()) == right);
    FUZZ_CHECK(Trim(text) == both && Trim(text.c_str()) == both);
    FUZZ_CHECK(TrimmedView(text) == both);
}

std::string mapped(const std::string &text, bool upper)
{
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        result += static_cast<char>(upper ? std::toupper(byte) : std::tolower(byte));
    }
    return result;
}

std::string mappedByCharacters(const std::string &text, bool upper)
{
    std::string result;
    std::mbstate_t reading{};
    std::mbstate_t writing{};
    for (std::size_t at = 0, length = 0; at < text.size(); at += length) {
        wchar_t character = 0;
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the state is a variable of ours
        length = std::mbrtowc(&character, text.data() + at, text.size() - at, &reading);
        if (length > text.size() - at)
            return text;
        const auto wide = std::char_traits<wchar_t>::to_int_type(character);
        char bytes[MB_LEN_MAX] = {};
        // NOLINTNEXTLINE(concurrency-mt-unsafe)
        const std::size_t written = std::wcrtomb(
                bytes, static_cast<wchar_t>(upper ? std::towupper(wide) : std::towlower(wide)),
                &writing);
        if (written > sizeof bytes)
            return text;
        result.append(bytes, written);
    }
    return result.size() > text.size() + 1 ? text : result;
}

void checkCase(const std::string &text)
{
    FUZZ_CHECK(UpperCase(text) == mapped(text, true));
    FUZZ_CHECK(LowerCase(text) == mapped(text, false));
    for (const bool upper : { false, true }) {
        const std::string expected = mappedByCharacters(text, upper);
        FUZZ_CHECK(LocaleChangeCase(text, upper) == expected);
        FUZZ_CHECK(LocaleChangeCase(text.c_str(), upper) == expected);
        FUZZ_CHECK((upper ? LocaleUpperCase(text) : LocaleLowerCase(text)) == expected);
        // The maps of INI files hold folded names, which are folded again to be found.
        FUZZ_CHECK(!upper || LocaleUpperCase(expected) == expected);
    }
}

void checkNames(const std::string &text)
{
    std::string directory = text;
    while (!directory.empty() && directory.back() != '/')
        directory.pop_back();
    FUZZ_CHECK(ExtractFilePath(text) == directory);
    const std::string ended = text + (text.empty() || text.ends_with('/') ? "" : "/");
    FUZZ_CHECK(IncludePathDelimiter(text) == ended);
}

// Points in time, in UTC.

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

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    setenv("TZ", "UTC", 1); // NOLINT(concurrency-mt-unsafe): there is no other thread yet
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const LocaleScope scope(input.ConsumeIntegral<std::uint8_t>());
    checkNumbers(input);
    const auto time = input.ConsumeIntegral<long>() >> input.ConsumeIntegralInRange(0, 63);
    const std::string format = upToNul(input.ConsumeRandomLengthString());
    const std::string bytes = input.ConsumeRemainingBytesAsString();
    const std::string text = upToNul(bytes);

    FUZZ_CHECK(StrToIntDef(bytes, 7) == StrToIntDef(text, 7) && Trim(bytes) == Trim(text));
    FUZZ_CHECK(LocaleUpperCase(bytes) == LocaleUpperCase(text));
    checkReading(text);
    checkTrimming(text);
    checkCase(text);
    checkNames(text);
    checkTimes(time, text, format);
    return 0;
}
