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

constexpr unsigned int MAX_DIGITS = 4096;

std::string padded(std::string number, unsigned int width, char fill)
{
    const std::size_t missing = std::min(width, MAX_DIGITS);
    if (number.size() < missing)
        number.insert(number.front() == '-' ? 1 : 0, missing - number.size(), fill);
    return number;
}

std::string printed(double value, unsigned int precision)
{
    const LocaleScope classic(0);
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
    FUZZ_CHECK(StrToIntDef(IntToStr(number, least, '0'), ~number) == number);
    FUZZ_CHECK(StrToIntDef(UIntToStr(bits, least, '0'), ~number) == number);
    FUZZ_CHECK(!std::isfinite(real)
               || StrToFloatDef(FloatToStr(real, width, 17, '0'), 0.5 - real) == real);
}

/** As strtol has it, or strtoul; `def` for what fits neither. */
long integer(const std::string &text, long def)
{
    char *end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || errno == 0)
        return end == text.c_str() ? def : value;
    errno = 0;
    const unsigned long wide = std::strtoul(text.c_str(), nullptr, 10);
    return errno == 0 ? static_cast<long>(wide) : def;
}

/** Whether strtod takes all of it, and it has none of the forms beyond plain decimal ones. */
bool readReal(std::string text, double &value)
{
    const LocaleScope classic(0);
    if (const std::size_t comma = text.find(','); comma != text.npos)
        text[comma] = '.';
    char *end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && text.find_first_not_of("0123456789+-.Ee") == text.npos
           && end == text.data() + text.size();
}

void checkReading(const std::string &text)
{
    const std::size_t sign = text.starts_with('+') || text.starts_with('-') ? 1 : 0;
    const bool isInt = !text.empty() && text.find_first_not_of("0123456789", sign) == text.npos;
    FUZZ_CHECK(StrIsInt(text) == isInt);
    for (const long def : { 5L, LONG_MIN })
        FUZZ_CHECK(StrToIntDef(text, def) == (isInt ? integer(text, def) : def));

    double real = 0;
    const bool isFloat = readReal(text, real);
    FUZZ_CHECK(StrIsFloat(text) == isFloat);
    for (const double def : { 0.25, -1e300 }) {
        const double expected = isFloat && std::isfinite(real) ? real : def;
        FUZZ_CHECK(std::bit_cast<std::uint64_t>(StrToFloatDef(text, def))
                   == std::bit_cast<std::uint64_t>(expected));
    }
}

/** All of it by way of wide characters, unless some are not valid or take too much room. */
std::string cased(const std::string &text, bool upper)
{
    std::mbstate_t state{};
    std::wstring wide(text.size(), L'\0');
    const char *from = text.c_str();
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the state is a variable of ours
    const std::size_t count = std::mbsrtowcs(wide.data(), &from, wide.size(), &state);
    if (count > wide.size())
        return text;
    wide.resize(count);
    std::ranges::transform(wide, wide.begin(), [upper](std::wint_t c) {
        return static_cast<wchar_t>(upper ? std::towupper(c) : std::towlower(c));
    });
    std::string result(MB_LEN_MAX * wide.size(), '\0');
    const wchar_t *fromWide = wide.c_str();
    state = {};
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    const std::size_t bytes = std::wcsrtombs(result.data(), &fromWide, result.size(), &state);
    return bytes > text.size() + 1 ? text : result.substr(0, bytes);
}

void checkTexts(const std::string &text)
{
    constexpr const char *BLANKS = " \n\t\r";
    const std::string left = text.substr(std::min(text.find_first_not_of(BLANKS), text.size()));
    FUZZ_CHECK(TrimLeft(text) == left);
    FUZZ_CHECK(TrimRight(text) == text.substr(0, text.find_last_not_of(BLANKS) + 1));
    FUZZ_CHECK(Trim(text) == left.substr(0, left.find_last_not_of(BLANKS) + 1));

    for (const bool upper : { false, true }) {
        std::string bytes = text;
        for (char &c : bytes) {
            const auto byte = static_cast<unsigned char>(c);
            c = static_cast<char>(upper ? std::toupper(byte) : std::tolower(byte));
        }
        FUZZ_CHECK((upper ? UpperCase(text) : LowerCase(text)) == bytes);
        FUZZ_CHECK((upper ? LocaleUpperCase(text) : LocaleLowerCase(text)) == cased(text, upper));
    }
    // The maps of INI files hold folded names, which are folded again to be found.
    FUZZ_CHECK(LocaleUpperCase(LocaleUpperCase(text)) == LocaleUpperCase(text));

    FUZZ_CHECK(ExtractFilePath(text) == text.substr(0, text.rfind('/') + 1));
    FUZZ_CHECK(IncludePathDelimiter(text)
               == text + (text.empty() || text.ends_with('/') ? "" : "/"));
}

/** Points in time, in UTC. */
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
    checkTexts(text);
    checkTimes(time, text, format);
    return 0;
}
