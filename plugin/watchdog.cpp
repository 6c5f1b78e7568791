#include "plugin/watchdog.h"

#include "logging/qlogger.h"
#include "plugin/constants.h"
#include "plugin/timeouts.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <thread>

#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using namespace Qt::StringLiterals;

constexpr Clock::rep DISARMED = std::numeric_limits<Clock::rep>::max();

// Without a destructor: in use while exit() runs.
constinit std::atomic<Clock::rep> deadline = DISARMED;

/** Logs, but for a limited time: whatever hangs may hold what the log needs. */
void logLastLine()
{
    std::thread([] {
        std::this_thread::sleep_for(Timeouts::LAST_LINE);
        _exit(EXIT_SUCCESS);
    }).detach();
    QLogger::QLog_Error(
            Constants::LOG_MODULE_NAME,
            u"upscli library not stopped after %1 s, ending the process."_s.arg(
                    duration_cast<std::chrono::seconds>(Timeouts::LIBRARY_END).count()));
}

[[noreturn]] void endProcess() noexcept
{
    try {
        logLastLine();
    } catch (...) { // NOLINT(bugprone-empty-catch)
        // No thread or no memory: the process ends without the line.
    }
    _exit(EXIT_SUCCESS);
}

[[noreturn]] void watch() noexcept
{
    for (;;) {
        deadline.wait(DISARMED);
        const Clock::time_point due{ Clock::duration(deadline) };
        if (Clock::now() >= due)
            endProcess();
        std::this_thread::sleep_until(std::min(due, Clock::now() + Timeouts::LIBRARY_END));
    }
}

} // namespace

void Watchdog::start()
{
    disarm();
    static const bool isStarted = (std::thread(watch).detach(), true);
    static_cast<void>(isStarted);
}

void Watchdog::arm() noexcept
{
    deadline = (Clock::now() + Timeouts::LIBRARY_END).time_since_epoch().count();
    deadline.notify_all();
}

void Watchdog::disarm() noexcept
{
    deadline = DISARMED;
}
