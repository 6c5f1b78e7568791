#ifndef PELCLOUD_FUZZ_TEXTS_H
#define PELCLOUD_FUZZ_TEXTS_H

#include <string>

/** What the library takes a text for: the characters up to the first NUL. */
inline std::string upToNul(const std::string &text)
{
    return text.substr(0, text.find('\0'));
}

#endif
