#include "bench/allocations.h"

// What the C library calls its own.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

constinit thread_local Allocations ofThread;

void count(std::size_t bytes)
{
    ++ofThread.count;
    ofThread.bytes += bytes;
}

} // namespace

Allocations Allocations::soFar()
{
    return ofThread;
}

// These take the place of the C library's, for whoever allocates: ours, Qt, libcurl.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

extern "C" void *malloc(std::size_t size)
{
    count(size);
    return __libc_malloc(size);
}

extern "C" void *calloc(std::size_t items, std::size_t size)
{
    count(items * size);
    return __libc_calloc(items, size);
}

extern "C" void *realloc(void *block, std::size_t size)
{
    count(size);
    return __libc_realloc(block, size);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
