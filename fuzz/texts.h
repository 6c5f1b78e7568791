#ifndef PELCLOUD_FUZZ_TEXTS_H
#define PELCLOUD_FUZZ_TEXTS_H

#include <cstdio>
#include <cstdlib>
#include <string>

/** What the library takes a text for: the characters up to the first NUL. */
inline std::string upToNul(const std::string &text)
{
    return text.substr(0, text.find('\0'));
}

/** A number as JSON text has it, which is with six digits. */
inline double sixDigits(double number)
{
    char text[32] = {};
    std::snprintf(text, sizeof text, "%.6g", number);
    return std::strtod(text, nullptr);
}

#endif
