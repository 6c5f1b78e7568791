#include "plugin/watchdog.h"

#include "logging/qlogger.h"
#include "plugin/constants.h"
#include "plugin/timeouts.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <system_error>
#include <thread>

#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using namespace Qt::StringLiterals;

constexpr Clock::rep DISARMED = std::numeric_limits<Clock::rep>::max();

// Without destructors: in use while exit() runs.
constinit std::atomic<Clock::rep> deadline = DISARMED;
constinit std::atomic<bool> isOver = false;

[[noreturn]] void watch() noexcept
{
    while (!isOver) {
        deadline.wait(DISARMED);
        const Clock::time_point due{ Clock::duration(deadline) };
        isOver = Clock::now() >= due;
        if (!isOver)
            std::this_thread::sleep_until(std::min(due, Clock::now() + Timeouts::LIBRARY_END));
    }
    isOver.notify_all();
    std::this_thread::sleep_for(Timeouts::LAST_LINE);
    _exit(EXIT_SUCCESS);
}

/** On a thread of its own, since whatever hangs may hold what the log needs. */
void logLastLine() noexcept
{
    isOver.wait(false);
    try {
        QLogger::QLog_Error(
                Constants::LOG_MODULE_NAME,
                u"upscli library still in memory %1 s after the stop, ending the process."_s.arg(
                        duration_cast<std::chrono::seconds>(Timeouts::LIBRARY_END).count()));
    } catch (...) { // NOLINT(bugprone-empty-catch)
        // No memory: the process ends without the line.
    }
    _exit(EXIT_SUCCESS);
}

/** The threads handle no signals: a handler of the host may call SrvStop, which they watch. */
void createThreads()
{
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    try {
        std::thread(logLastLine).detach();
        std::thread(watch).detach();
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

} // namespace

bool Watchdog::start() noexcept
{
    disarm();
    static std::once_flag created;
    try {
        std::call_once(created, createThreads);
    } catch (...) {
        return false;
    }
    return true;
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
