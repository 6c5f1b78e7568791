// A plug-in with a thread of its own, for the host's tests; TEST_PLUGIN says how it behaves;
// a number is a signal that it sends to the host.

#include <csignal>
#include <cstdlib>
#include <semaphore>
#include <string>
#include <thread>

#include <unistd.h>

static std::binary_semaphore g_stop(0);
static std::thread g_thread;
static const std::string BEHAVIOUR = std::getenv("TEST_PLUGIN"); // NOLINT(concurrency-mt-unsafe)

#define ENTRY extern "C" __attribute__((visibility("default")))

ENTRY int SrvStart(void **handle)
{
    if (BEHAVIOUR == "refuses")
        return 0;
    g_thread = std::thread([] { g_stop.acquire(); });
    kill(getpid(), std::atoi(BEHAVIOUR.c_str()));
    *handle = &g_stop;
    return 1;
}

ENTRY int SrvStop(void **handle)
{
    g_stop.release();
    g_thread.join();
    if (BEHAVIOUR == "exits")
        std::exit(0); // NOLINT(concurrency-mt-unsafe)
    return *handle == &g_stop ? 1 : 0;
}
