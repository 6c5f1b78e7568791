// A plug-in with a thread that only sleeps, one millisecond at a time: the floor of every loop that looks
// around each millisecond.

#include <cstdlib>
#include <thread>

#include <unistd.h>

extern "C" [[gnu::visibility("default")]] int SrvStart(void **handle)
{
    *handle = nullptr;
    std::thread([] {
        for (;;)
            usleep(1000);
    }).detach();
    return 1;
}

extern "C" [[gnu::visibility("default")]] int SrvStop(void **)
{
    std::exit(EXIT_SUCCESS); // NOLINT(concurrency-mt-unsafe): as the real one ends the host
}
