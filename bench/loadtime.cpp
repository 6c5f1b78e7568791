// Prints how many nanoseconds it takes to load a library and to call one of its entries, in a process that has
// done nothing else: the entry SrvStart of a plug-in, or CliStart of the suite's client library.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

/** Whether the entry is there and has succeeded. */
bool start(void *library, const char *name)
{
    void *const entry = dlsym(library, name);
    if (entry == nullptr)
        return false;
    if (std::strcmp(name, "CliStart") == 0)
        return reinterpret_cast<void *(*)()>(entry)() != nullptr;
    void *handle = nullptr;
    return reinterpret_cast<int (*)(void **)>(entry)(&handle) != 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fputs("usage: loadtime LIBRARY SrvStart|CliStart\n", stderr);
        return 2;
    }
    const auto began = Clock::now();
    void *const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    const auto loaded = Clock::now();
    if (library == nullptr || !start(library, argv[2])) {
        std::fprintf(stderr, "loadtime: %s cannot be started\n", argv[1]);
        return 1;
    }
    const auto started = Clock::now();
    using std::chrono::nanoseconds;
    std::printf("%lld %lld\n", static_cast<long long>(nanoseconds(loaded - began).count()),
                static_cast<long long>(nanoseconds(started - loaded).count()));
    std::fflush(stdout);
    _exit(EXIT_SUCCESS); // without the clean-up of what was started
}
