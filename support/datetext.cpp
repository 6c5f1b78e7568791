#include "support/datetext.h"

#include "support/utils.h"

#include <charconv>
#include <chrono>
#include <ctime>
#include <string_view>

namespace {

/** A field of a format; its digits are `member` plus `offset`. */
struct DateField
{
    std::string_view letters;
    int std::tm::*member;
    int offset;
};

constexpr int TM_YEAR_OFFSET = 1900;
constexpr int MAX_YEAR = 9999;

constexpr DateField DATE_FIELDS[] = {
    { "yyyy", &std::tm::tm_year, TM_YEAR_OFFSET }, // before "yy", which it begins with
    { "yy", &std::tm::tm_year, TM_YEAR_OFFSET },
    { "mm", &std::tm::tm_mon, 1 },
    { "dd", &std::tm::tm_mday, 0 },
    { "hh", &std::tm::tm_hour, 0 },
    { "nn", &std::tm::tm_min, 0 },
    { "ss", &std::tm::tm_sec, 0 },
};

/** The field with which `format` begins, or null. */
const DateField *leadingField(std::string_view format)
{
    for (const DateField &field : DATE_FIELDS) {
        if (format.starts_with(field.letters))
            return &field;
    }
    return nullptr;
}

bool isShortYear(const DateField &field)
{
    return field.member == &std::tm::tm_year && field.letters.size() == 2;
}

bool readField(std::string_view digits, const DateField &field, std::tm &time)
{
    const char *const end = digits.data() + digits.size();
    unsigned int number = 0; // unsigned: a sign is an error
    const auto read = std::from_chars(digits.data(), end, number);
    if (digits.size() != field.letters.size() || read.ec != std::errc() || read.ptr != end)
        return false;
    const int century = !isShortYear(field) ? 0 : number < 69 ? 2000 : 1900;
    time.*field.member = static_cast<int>(number) + century - field.offset;
    return true;
}

bool readFields(std::string_view text, std::string_view format, std::tm &time)
{
    while (!format.empty()) {
        const DateField *const field = leadingField(format);
        const std::size_t width = field == nullptr ? 1 : field->letters.size();
        if (field == nullptr ? !text.starts_with(format.front())
                             : !readField(text.substr(0, width), *field, time))
            return false;
        text.remove_prefix(width);
        format.remove_prefix(width);
    }
    return text.empty();
}

bool exists(const std::tm &time)
{
    const std::chrono::year_month_day day(
            std::chrono::year(time.tm_year + TM_YEAR_OFFSET),
            std::chrono::month(static_cast<unsigned int>(time.tm_mon + 1)),
            std::chrono::day(static_cast<unsigned int>(time.tm_mday)));
    return day.ok() && time.tm_hour < 24 && time.tm_min < 60 && time.tm_sec < 60;
}

std::string formatted(const std::tm &time, std::string_view format)
{
    std::string text;
    while (!format.empty()) {
        const DateField *const field = leadingField(format);
        if (field == nullptr) {
            text += format.front();
            format.remove_prefix(1);
            continue;
        }
        const int number = time.*field->member + field->offset;
        const auto width = static_cast<unsigned int>(field->letters.size());
        text += IntToStr(isShortYear(*field) ? number % 100 : number, width, '0');
        format.remove_prefix(width);
    }
    return text;
}

} // namespace

std::string DateTimeToStr(long time, const char *format)
{
    std::tm local{};
    if (format == nullptr || localtime_r(&time, &local) == nullptr)
        return {};
    const int year = local.tm_year + TM_YEAR_OFFSET;
    return year < 0 || year > MAX_YEAR ? std::string() : formatted(local, format);
}

long StrToDateTimeDef(const char *text, const char *format, long def)
{
    std::tm local{};
    local.tm_year = 70;
    local.tm_mday = 1;
    local.tm_isdst = -1; // mktime() finds out
    local.tm_wday = -1;  // changed by success; a result of -1 may be valid
    if (text == nullptr || *text == '\0' || format == nullptr || !readFields(text, format, local)
        || !exists(local)
        || formatted(local, format) != text) // a field twice, with different numbers
        return def;
    const long time = std::mktime(&local);
    return local.tm_wday == -1 ? def : time;
}
