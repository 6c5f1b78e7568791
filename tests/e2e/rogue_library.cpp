// A suite's library that does what none should: the variable ROGUE says what. When it does so, the
// file that ROGUE_DEED names comes to be.

#include <chrono>
#include <climits>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#define ENTRY extern "C" __attribute__((visibility("default")))

namespace {

using namespace std::chrono_literals;

bool does(std::string_view behaviour)
{
    const char *const told = std::getenv("ROGUE"); // NOLINT(concurrency-mt-unsafe)
    if (told == nullptr || behaviour != told)
        return false;
    const char *const deed = std::getenv("ROGUE_DEED"); // NOLINT(concurrency-mt-unsafe)
    if (deed != nullptr)
        close(open(deed, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    return true;
}

/** Its code lies in this library: nobody may keep one once the library is gone. */
struct Failure : std::runtime_error
{
    Failure()
        : std::runtime_error("rogue")
    {}
    ~Failure() override { destroyed = true; }
    volatile bool destroyed = false;
};

struct Cleanup
{
    std::mutex mutex;
    ~Cleanup()
    {
        if (does("hangs when it is unloaded"))
            std::this_thread::sleep_for(60s);
        const std::lock_guard lock(mutex);
    }
} cleanup;

} // namespace

ENTRY void *CliStart()
{
    static std::thread worker; // ends the process in exit() unless it has been joined
    if (does("throws when it is stopped"))
        worker = std::thread([] { std::this_thread::sleep_for(60s); });
    return &cleanup;
}

ENTRY void CliStop(void *)
{
    if (does("throws when it is stopped"))
        throw Failure();
}

ENTRY unsigned long GetServerCount(void *)
{
    if (does("hangs at the end of the process")) {
        const std::lock_guard lock(cleanup.mutex);
        std::this_thread::sleep_for(60s);
    }
    if (does("throws in a run"))
        throw Failure();
    if (does("throws in a run after the stop")) {
        std::this_thread::sleep_for(260ms); // the stop waits for 200
        throw Failure();
    }
    return does("has units without end") ? ULONG_MAX : 0;
}

ENTRY int UPSSrvGetVersionInfo(void *, unsigned long, void *)
{
    return 0;
}

ENTRY int UPSSrvGetState(void *, unsigned long, void *, void *, void *, void *, void *, void *,
                         void *)
{
    return 0;
}
