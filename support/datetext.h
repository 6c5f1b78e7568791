#ifndef PELCLOUD_SUPPORT_DATETEXT_H
#define PELCLOUD_SUPPORT_DATETEXT_H

#include <string>

/**
 * Points in time as text, by formats such as "dd/mm/yyyy hh:nn:ss".
 *
 * In a format dd, mm, yyyy, yy, hh, nn and ss stand for day, month, year, year of the century,
 * hour, minute and second, with just as many digits each; any other character stands for itself.
 * Times are whole seconds since 1970, texts are local time. Both may be called from any thread.
 */

/** Empty when `format` is null or the year of `time` does not have four digits. */
[[nodiscard]] std::string DateTimeToStr(long time, const char *format);

/**
 * The time that `text` tells, or `def` when it is not exactly what the format says, contradicts
 * itself, names no day or time of day that exists, or is empty or null. What the format leaves out
 * is that of 1 January 1970, 00:00:00; two digits of a year mean 1969 to 2068. Of an hour that the
 * clocks repeat, the system chooses which one is meant; one that they skip is read as an hour
 * later.
 */
[[nodiscard]] long StrToDateTimeDef(const char *text, const char *format, long def);

#endif
