#ifndef PELCLOUD_SUPPORT_DATETEXT_H
#define PELCLOUD_SUPPORT_DATETEXT_H

#include <string>

/**
 * Points in time as text, by formats such as "dd/mm/yyyy hh:nn:ss".
 *
 * In a format dd, mm, yyyy, yy, hh, nn and ss stand for day, month, year, year of the century,
 * hour, minute and second, with exactly as many digits; any other character stands for itself.
 * Times are whole seconds since 1970, texts are local time. Any thread may call both functions.
 */

/** Empty when `format` is null or the year of `time` does not have four digits. */
[[nodiscard]] std::string DateTimeToStr(long time, const char *format);

/**
 * The time in `text`, or `def` if the text does not match the format exactly, contradicts itself,
 * names a day or time of day that does not exist, or is empty or null. Fields that the format
 * leaves out are those of 1 January 1970, 00:00:00; two-digit years mean 1969 to 2068. For an hour
 * that occurs twice when summer time ends, the system chooses one; an hour that is skipped is read
 * as one hour later.
 */
[[nodiscard]] long StrToDateTimeDef(const char *text, const char *format, long def);

#endif
