#include "plugin/exitguard.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <system_error>
#include <thread>

#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto PATIENCE_WITH_STOP = PELCLOUD_SLOWNESS * 900ms; // a stop has one second in all
constexpr auto PATIENCE_WITH_HOST = 10s;
constexpr auto GLANCE = 20ms;
constexpr Clock::rep NEVER = std::numeric_limits<Clock::rep>::max();

// Of a type without a destructor: read until the very end.
std::atomic<Clock::rep> deadline = NEVER;

void setDeadline(Clock::duration patience) noexcept
{
    deadline = (Clock::now() + patience).time_since_epoch().count();
}

/** exit() runs handlers in the reverse order of their registration. */
void onExit()
{
    if (deadline != NEVER)
        setDeadline(PATIENCE_WITH_HOST);
}

void watch()
{
    while (deadline != NEVER) {
        if (Clock::now().time_since_epoch().count() >= deadline)
            _exit(EXIT_SUCCESS);
        std::this_thread::sleep_for(GLANCE);
    }
}

} // namespace

void ExitGuard::prepare() noexcept
{
    [[maybe_unused]] static const int registered = std::atexit(onExit);
}

void ExitGuard::arm() noexcept
{
    setDeadline(PATIENCE_WITH_STOP);
    try {
        std::thread(watch).detach();
    } catch (const std::system_error &) {
        return; // the usual end comes without it
    }
}

void ExitGuard::disarm() noexcept
{
    deadline = NEVER;
}
