// A plug-in that does nothing: what the host itself takes.

#include <cstdlib>

extern "C" [[gnu::visibility("default")]] int SrvStart(void **handle)
{
    *handle = nullptr;
    return 1;
}

extern "C" [[gnu::visibility("default")]] int SrvStop(void **)
{
    std::exit(EXIT_SUCCESS); // NOLINT(concurrency-mt-unsafe): as the real one ends the host
}
