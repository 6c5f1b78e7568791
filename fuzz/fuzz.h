#ifndef PELCLOUD_FUZZ_FUZZ_H
#define PELCLOUD_FUZZ_FUZZ_H

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <locale.h>
#include <string>

#include <QTemporaryDir>

/** What must hold for every input. If it does not, libFuzzer stores the input. */
#define FUZZ_CHECK(condition) ((condition) ? void() : failedCheck(__FILE__, __LINE__, #condition))

[[noreturn]] inline void failedCheck(const char *file, int line, const char *condition)
{
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    std::abort();
}

/** The characters up to the first NUL, where texts of the support library end. */
inline std::string upToNul(const std::string &text)
{
    return text.substr(0, text.find('\0'));
}

/** The path of a file of the target's own, in a directory that is removed at exit. */
inline std::string scratchFile(const char *name)
{
    static const QTemporaryDir directory;
    return directory.filePath(name).toStdString();
}

inline std::string readFile(const std::string &name)
{
    std::ifstream in(name, std::ios::binary);
    return { std::istreambuf_iterator<char>(in), {} };
}

inline void writeFile(const std::string &name, const std::string &text)
{
    std::ofstream(name, std::ios::binary) << text;
}

/** Sets the thread's locale; number 0, and one that is not installed, is the C locale. */
inline void useLocale(std::size_t number)
{
    // In Turkish the cases of some characters differ in length, those of "i" included.
    static const std::array LOCALES{ newlocale(LC_ALL_MASK, "C", nullptr),
                                     newlocale(LC_ALL_MASK, "de_DE.UTF-8", nullptr),
                                     newlocale(LC_ALL_MASK, "tr_TR.UTF-8", nullptr) };
    uselocale(LOCALES[0]);
    uselocale(LOCALES.at(number % LOCALES.size())); // null changes nothing
}

#endif
