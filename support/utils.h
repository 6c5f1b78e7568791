#ifndef PELCLOUD_SUPPORT_UTILS_H
#define PELCLOUD_SUPPORT_UTILS_H

#include <string>
#include <string_view>

/**
 * Conversions between numbers and 8-bit text, trimming, change of case, and parts of file names.
 *
 * None of them reports an error: what cannot be read gives the caller's default, what cannot be
 * folded stays as it is, and a null text counts as empty. Text is read up to its first NUL, also
 * in the std::string overloads. All may be called from any thread; only a change of the process's
 * locale must not come at the same time.
 *
 * Numbers are always those of the classic C locale: a decimal point, no digit grouping, whatever
 * locale the process runs under. Only the case functions look at the process's locale.
 */

// Number to text. `width` is a minimum, filled with `fill` between the sign and the digits; more
// than 4096 count as 4096.

[[nodiscard]] std::string IntToStr(long value, unsigned int width, char fill);
[[nodiscard]] std::string UIntToStr(unsigned long value, unsigned int width, char fill);

/**
 * `precision` significant digits in general notation, with the decimal point always shown: the
 * C conversion %#.Ng. With 2 digits 1.5 gives "1.5", 12.0 gives "12." and 100.0 gives "1.0e+02".
 * Like there, no digits count as one. More than 4096 count as 4096.
 */
[[nodiscard]] std::string FloatToStr(double value, int width, unsigned int precision, char fill);

// Text to number.

/** Digits with at most one sign, in front; no blanks. A lone sign passes. */
[[nodiscard]] bool StrIsInt(const char *text);
[[nodiscard]] bool StrIsInt(const std::string &text);

/**
 * The decimal number in `text`, or `def` when the text fails StrIsInt(), is a lone sign or needs
 * more than 64 bits. What fits only an unsigned 64-bit number is reinterpreted as signed.
 */
[[nodiscard]] long StrToIntDef(const char *text, long def);
[[nodiscard]] long StrToIntDef(const std::string &text, long def);

/**
 * A plain decimal number: an optional sign, digits with at most one decimal point or comma among,
 * before or after them, and optionally an "E" or "e" with an exponent of its own sign and digits.
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

/** What Trim() leaves of `text`, without a copy. A NUL is a character like any other here. */
[[nodiscard]] std::string_view TrimmedView(std::string_view text);

// Case, byte by byte: multi-byte characters are not understood here.

[[nodiscard]] std::string UpperCase(const char *text);
[[nodiscard]] std::string UpperCase(const std::string &text);
[[nodiscard]] std::string LowerCase(const char *text);
[[nodiscard]] std::string LowerCase(const std::string &text);

/**
 * Case, character by character, in the encoding of the process's C locale. Text that is not valid
 * in that encoding, or that would grow by more than a byte, is returned unchanged.
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

/** `path` with a "/" at its end. The empty path stays empty rather than become the root. */
[[nodiscard]] std::string IncludePathDelimiter(const char *path);
[[nodiscard]] std::string IncludePathDelimiter(const std::string &path);

/**
 * The absolute path of the running program, or only its file name when `nameOnly` is set. Empty
 * when the system does not tell. A program whose file was replaced while it runs is looked for
 * under the name by which it was started.
 */
[[nodiscard]] std::string GetExeName(bool nameOnly);

namespace Internal {

/** The path of the program that a directory like /proc/self describes. For tests. */
[[nodiscard]] std::string ExeNameFrom(const std::string &process);

} // namespace Internal

#endif
