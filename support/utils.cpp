#include "support/utils.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <locale.h>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

/** A bound on widths and precisions, for callers with a defect. */
constexpr unsigned int MAX_DIGITS = 4096;

std::string_view view(const char *text)
{
    return text == nullptr ? std::string_view() : std::string_view(text);
}

bool isSign(char c)
{
    return c == '+' || c == '-';
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isBlank(char c)
{
    return c == ' ' || c == '\n' || c == '\t' || c == '\r';
}

/** Pads on the left, after a sign. */
std::string padded(std::string_view number, unsigned int width, char fill)
{
    const std::size_t minimum = std::min(width, MAX_DIGITS);
    std::string result(number);
    if (number.size() < minimum) {
        const std::size_t at = !number.empty() && isSign(number.front()) ? 1 : 0;
        result.insert(at, minimum - number.size(), fill);
    }
    return result;
}

template <class Integer>
std::string decimal(Integer value, unsigned int width, char fill)
{
    std::array<char, 24> digits{}; // 20 digits or a sign and 19 digits
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    return padded({ digits.data(), static_cast<std::size_t>(end - digits.data()) }, width, fill);
}

/** The C locale: a constant of libc, which needs no memory and is never freed. */
locale_t classicLocale()
{
    static const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
    return classic;
}

/** Switches the calling thread to the C locale in this scope. */
class ClassicLocaleScope
{
public:
    ClassicLocaleScope()
        : m_previous(uselocale(classicLocale()))
    {}
    ~ClassicLocaleScope() { uselocale(m_previous); }
    ClassicLocaleScope(const ClassicLocaleScope &) = delete;
    ClassicLocaleScope &operator=(const ClassicLocaleScope &) = delete;

private:
    locale_t m_previous;
};

std::size_t skipDigits(std::string_view text, std::size_t from)
{
    while (from < text.size() && isDigit(text[from]))
        ++from;
    return from;
}

std::size_t skipSign(std::string_view text, std::size_t from)
{
    return from < text.size() && isSign(text[from]) ? from + 1 : from;
}

std::string_view trimmed(std::string_view text, bool left, bool right)
{
    while (left && !text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (right && !text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string mapBytes(std::string_view text, int (*map)(int))
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [map](unsigned char c) { return static_cast<char>(map(c)); });
    return result;
}

/** Space for `size` items: on the stack for names and lines of usual length, else on the heap. */
template <class Item>
class Scratch
{
public:
    explicit Scratch(std::size_t size)
        : m_size(size)
    {
        if (size > m_few.size())
            m_many.resize(size);
    }
    Item *data() { return m_size > m_few.size() ? m_many.data() : m_few.data(); }
    [[nodiscard]] std::size_t size() const { return m_size; }

private:
    std::size_t m_size;
    std::array<Item, 256> m_few;
    std::vector<Item> m_many;
};

std::wint_t changedCase(std::wint_t c, bool upper)
{
    return upper ? std::towupper(c) : std::towlower(c);
}

bool isAsciiLetter(unsigned char byte)
{
    const unsigned char lower = byte | 0x20U;
    return lower >= 'a' && lower <= 'z';
}

/**
 * Changes the case of ASCII text, whose characters are single bytes in the encoding of every
 * locale. False, with the text changed in part, if a character is not ASCII before or after the
 * change.
 */
bool changeCaseOfAscii(std::string &text, bool upper)
{
    constexpr unsigned int ASCII_END = 0x80;
    for (char &c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const std::wint_t changed = isAsciiLetter(byte) ? changedCase(byte, upper) : byte;
        if (changed >= ASCII_END)
            return false;
        c = static_cast<char>(changed);
    }
    return true;
}

/** The target of a symbolic link; empty if it cannot be read. */
std::string linkTarget(const std::string &link)
{
    std::array<char, 4097> target{};
    return readlink(link.c_str(), target.data(), target.size() - 1) > 0 ? target.data() : "";
}

} // namespace

std::string IntToStr(long value, unsigned int width, char fill)
{
    return decimal(value, width, fill);
}

std::string UIntToStr(unsigned long value, unsigned int width, char fill)
{
    return decimal(value, width, fill);
}

std::string FloatToStr(double value, int width, unsigned int precision, char fill)
{
    const int digits = static_cast<int>(std::min(precision, MAX_DIGITS));
    const unsigned int minimum = width > 0 ? static_cast<unsigned int>(width) : 0;

    const ClassicLocaleScope classic;
    std::array<char, 64> few{};
    const int needed = std::snprintf(few.data(), few.size(), "%#.*g", digits, value);
    const auto length = static_cast<std::size_t>(std::max(needed, 0));
    if (length < few.size())
        return padded({ few.data(), length }, minimum, fill);
    std::string many(length + 1, '\0');
    std::snprintf(many.data(), many.size(), "%#.*g", digits, value);
    return padded({ many.data(), length }, minimum, fill);
}

bool StrIsInt(const char *text)
{
    const std::string_view all = view(text);
    const std::string_view digits = all.substr(skipSign(all, 0));
    return !all.empty() && std::all_of(digits.begin(), digits.end(), isDigit);
}

bool StrIsInt(const std::string &text)
{
    return StrIsInt(text.c_str());
}

long StrToIntDef(const char *text, long def)
{
    const std::string_view all = view(text);
    const std::string_view digits = all.substr(skipSign(all, 0));
    const char *const end = digits.data() + digits.size();
    std::uint64_t magnitude = 0;
    // Read as unsigned, which takes digits only: a text that fails StrIsInt() stops before its end.
    const auto [stop, error] = std::from_chars(digits.data(), end, magnitude);
    if (error != std::errc() || stop != end)
        return def;
    // Negated modulo two to the 64th power: the number itself in the signed range, the
    // reinterpreted unsigned number beyond it.
    return static_cast<long>(all.front() == '-' ? 0 - magnitude : magnitude);
}

long StrToIntDef(const std::string &text, long def)
{
    return StrToIntDef(text.c_str(), def);
}

bool StrIsFloat(const char *text)
{
    const std::string_view all = view(text);
    const std::size_t whole = skipSign(all, 0);
    std::size_t at = skipDigits(all, whole);
    std::size_t digits = at - whole;
    if (at < all.size() && (all[at] == '.' || all[at] == ',')) {
        const std::size_t fraction = at + 1;
        at = skipDigits(all, fraction);
        digits += at - fraction;
    }
    if (digits == 0)
        return false;
    if (at < all.size() && (all[at] == 'E' || all[at] == 'e')) {
        const std::size_t exponent = skipSign(all, at + 1);
        at = skipDigits(all, exponent);
        if (at == exponent)
            return false;
    }
    return at == all.size();
}

bool StrIsFloat(const std::string &text)
{
    return StrIsFloat(text.c_str());
}

double StrToFloatDef(const char *text, double def)
{
    if (!StrIsFloat(text))
        return def;
    std::string pointed(text);
    if (const std::size_t comma = pointed.find(','); comma != std::string::npos)
        pointed[comma] = '.';
    const double value = strtod_l(pointed.c_str(), nullptr, classicLocale());
    return std::isinf(value) ? def : value;
}

double StrToFloatDef(const std::string &text, double def)
{
    return StrToFloatDef(text.c_str(), def);
}

std::string Trim(const char *text)
{
    return std::string(trimmed(view(text), true, true));
}

std::string Trim(const std::string &text)
{
    return Trim(text.c_str());
}

std::string TrimLeft(const char *text)
{
    return std::string(trimmed(view(text), true, false));
}

std::string TrimLeft(const std::string &text)
{
    return TrimLeft(text.c_str());
}

std::string TrimRight(const char *text)
{
    return std::string(trimmed(view(text), false, true));
}

std::string TrimRight(const std::string &text)
{
    return TrimRight(text.c_str());
}

std::string_view TrimmedView(std::string_view text)
{
    return trimmed(text, true, true);
}

std::string UpperCase(const char *text)
{
    return mapBytes(view(text), std::toupper);
}

std::string UpperCase(const std::string &text)
{
    return UpperCase(text.c_str());
}

std::string LowerCase(const char *text)
{
    return mapBytes(view(text), std::tolower);
}

std::string LowerCase(const std::string &text)
{
    return LowerCase(text.c_str());
}

std::string LocaleChangeCase(const char *text, bool upper)
{
    const std::string_view original = view(text);
    if (std::string result(original); changeCaseOfAscii(result, upper))
        return result;

    // Both conversions keep their state in a local variable, so that they are thread-safe.
    constexpr auto FAILED = static_cast<std::size_t>(-1);
    Scratch<wchar_t> wide(original.size() + 1);
    std::mbstate_t reading{};
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    const std::size_t count = std::mbsrtowcs(wide.data(), &text, wide.size(), &reading);
    if (count == FAILED)
        return std::string(original);

    std::transform(wide.data(), wide.data() + count, wide.data(),
                   [upper](std::wint_t c) { return static_cast<wchar_t>(changedCase(c, upper)); });

    Scratch<char> narrow(original.size() + 1);
    const wchar_t *source = wide.data();
    std::mbstate_t writing{};
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    const std::size_t length = std::wcsrtombs(narrow.data(), &source, narrow.size(), &writing);
    const bool whole = length != FAILED && (source == nullptr || *source == L'\0');
    return whole ? std::string(narrow.data(), length) : std::string(original);
}

std::string LocaleChangeCase(const std::string &text, bool upper)
{
    return LocaleChangeCase(text.c_str(), upper);
}

std::string LocaleUpperCase(const char *text)
{
    return LocaleChangeCase(text, true);
}

std::string LocaleUpperCase(const std::string &text)
{
    return LocaleUpperCase(text.c_str());
}

std::string LocaleLowerCase(const char *text)
{
    return LocaleChangeCase(text, false);
}

std::string LocaleLowerCase(const std::string &text)
{
    return LocaleLowerCase(text.c_str());
}

std::string ExtractFilePath(const char *name)
{
    const std::string_view all = view(name);
    return std::string(all.substr(0, all.rfind('/') + 1)); // nothing when there is no delimiter
}

std::string ExtractFilePath(const std::string &name)
{
    return ExtractFilePath(name.c_str());
}

std::string IncludePathDelimiter(const char *path)
{
    std::string result(view(path));
    if (!result.empty() && result.back() != '/')
        result += '/';
    return result;
}

std::string IncludePathDelimiter(const std::string &path)
{
    return IncludePathDelimiter(path.c_str());
}

std::string GetExeName(bool nameOnly)
{
    const std::string path = Internal::ExeNameFrom("/proc/self");
    return nameOnly ? path.substr(path.rfind('/') + 1) : path;
}

std::string Internal::ExeNameFrom(const std::string &process)
{
    std::string program = linkTarget(process + "/exe");
    if (!program.empty() && access(program.c_str(), R_OK) == 0)
        return program;

    std::string argument;
    std::ifstream arguments(process + "/cmdline", std::ios::binary);
    std::getline(arguments, argument, '\0');
    const std::filesystem::path directory = linkTarget(process + "/cwd");
    const std::filesystem::path path = directory / argument; // an absolute argument stands alone
    return argument.empty() || path.is_relative() ? std::string()
                                                  : path.lexically_normal().string();
}
