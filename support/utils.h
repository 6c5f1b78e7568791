#ifndef PELCLOUD_SUPPORT_UTILS_H
#define PELCLOUD_SUPPORT_UTILS_H

#include <string>
#include <string_view>

/**
 * Conversions between numbers and 8-bit text, trimming, change of case, and parts of file names.
 *
 * No function reports an error: unreadable text gives the caller's default, text whose case cannot
 * be changed stays as it is, null counts as empty. Text is read up to its first NUL, also in the
 * std::string overloads. Any thread may call them, but not while the process's locale changes.
 *
 * Numbers are always in the format of the C locale, with a decimal point and without grouping. Only
 * the case functions depend on the process's locale.
 */

// Number to text. `width` is a minimum, padded with `fill` between the sign and the digits; more
// than 4096 counts as 4096.

[[nodiscard]] std::string IntToStr(long value, unsigned int width, char fill);
[[nodiscard]] std::string UIntToStr(unsigned long value, unsigned int width, char fill);

/**
 * `precision` significant digits in general notation, with the decimal point always shown: the C
 * conversion %#.Ng. With 2 digits 1.5 gives "1.5", 12.0 gives "12." and 100.0 gives "1.0e+02". 0
 * digits count as 1, more than 4096 as 4096.
 */
[[nodiscard]] std::string FloatToStr(double value, int width, unsigned int precision, char fill);

// Text to number.

/** Whether `text` is digits with at most one sign in front, without blanks; or a lone sign. */
[[nodiscard]] bool StrIsInt(const char *text);
[[nodiscard]] bool StrIsInt(const std::string &text);

/**
 * The decimal number in `text`, or `def` if the text fails StrIsInt(), is a lone sign or needs more
 * than 64 bits. A number that fits only 64 unsigned bits is reinterpreted as signed.
 */
[[nodiscard]] long StrToIntDef(const char *text, long def);
[[nodiscard]] long StrToIntDef(const std::string &text, long def);

/**
 * Whether `text` is a plain decimal number: an optional sign, digits with at most one decimal point
 * or comma among, before or after them, and optionally an "E" or "e", a sign and digits.
 */
[[nodiscard]] bool StrIsFloat(const char *text);
[[nodiscard]] bool StrIsFloat(const std::string &text);

/** The number in `text`, or `def` when the text fails StrIsFloat() or is too large for a double. */
[[nodiscard]] double StrToFloatDef(const char *text, double def);
[[nodiscard]] double StrToFloatDef(const std::string &text, double def);

// Trimming. Blanks are exactly space, line feed, tab and carriage return.

[[nodiscard]] std::string Trim(const char *text);
[[nodiscard]] std::string Trim(const std::string &text);
[[nodiscard]] std::string TrimLeft(const char *text);
[[nodiscard]] std::string TrimLeft(const std::string &text);
[[nodiscard]] std::string TrimRight(const char *text);
[[nodiscard]] std::string TrimRight(const std::string &text);

/** Trim() without a copy. Here a NUL is a character like any other. */
[[nodiscard]] std::string_view TrimmedView(std::string_view text);

// Case, byte by byte: not for multi-byte characters.

[[nodiscard]] std::string UpperCase(const char *text);
[[nodiscard]] std::string UpperCase(const std::string &text);
[[nodiscard]] std::string LowerCase(const char *text);
[[nodiscard]] std::string LowerCase(const std::string &text);

/**
 * Case, character by character, in the encoding of the process's C locale. Text that is invalid in
 * that encoding, or would grow by more than a byte, is returned unchanged.
 */
[[nodiscard]] std::string LocaleChangeCase(const char *text, bool upper);
[[nodiscard]] std::string LocaleChangeCase(const std::string &text, bool upper);
[[nodiscard]] std::string LocaleUpperCase(const char *text);
[[nodiscard]] std::string LocaleUpperCase(const std::string &text);
[[nodiscard]] std::string LocaleLowerCase(const char *text);
[[nodiscard]] std::string LocaleLowerCase(const std::string &text);

// File names.

/** Everything up to and including the last "/"; empty when there is none. */
[[nodiscard]] std::string ExtractFilePath(const char *name);
[[nodiscard]] std::string ExtractFilePath(const std::string &name);

/** `path` with a "/" at its end. An empty path stays empty. */
[[nodiscard]] std::string IncludePathDelimiter(const char *path);
[[nodiscard]] std::string IncludePathDelimiter(const std::string &path);

/**
 * The absolute path of the running program, or only its file name if `nameOnly` is set; empty if
 * unknown. If the program's file was replaced while it runs, the name it was started by counts.
 */
[[nodiscard]] std::string GetExeName(bool nameOnly);

namespace Internal {

/** The path of the program that a directory like /proc/self describes. For tests. */
[[nodiscard]] std::string ExeNameFrom(const std::string &process);

} // namespace Internal

#endif
