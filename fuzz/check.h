#ifndef PELCLOUD_FUZZ_CHECK_H
#define PELCLOUD_FUZZ_CHECK_H

#include <cstdio>
#include <cstdlib>

/** What a fuzzer holds to be true of every input. When it is not, libFuzzer keeps the input. */
#define FUZZ_CHECK(condition) \
    do { \
        if (!(condition)) \
            failedCheck(__FILE__, __LINE__, #condition); \
    } while (false)

[[noreturn]] inline void failedCheck(const char *file, int line, const char *condition)
{
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    std::abort();
}

#endif
