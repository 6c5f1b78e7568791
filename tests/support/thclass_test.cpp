#include "support/thclass.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/syscall.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<long> clockUs{ 1'700'000'000'123'999 };
std::atomic<long> clockStepUs{ 0 }; // taken with every sleep
std::atomic<unsigned> sleeps{ 0 };
thread_local useconds_t lastSleep = 0;
thread_local std::pair<int, int> lastPriority;

} // namespace

// What the code under test asks of the system comes from here: a clock that moves only as told,
// sleeps that are noted and counted, and priorities that are noted instead of set.

extern "C" int gettimeofday(timeval *time, void *) noexcept
{
    const long us = clockUs;
    *time = { us / 1000000, us % 1000000 };
    return 0;
}

extern "C" int usleep(useconds_t us)
{
    const timespec briefly{ 0, 1000000 };
    syscall(SYS_nanosleep, &briefly, nullptr); // for this function's sake see FOR_EVER
    pthread_testcancel();
    clockUs += clockStepUs;
    lastSleep = us;
    return static_cast<int>(0 * ++sleeps);
}

extern "C" int pthread_setschedparam(pthread_t, int policy, const sched_param *param) noexcept
{
    lastPriority = { policy, param->sched_priority };
    return EPERM;
}

// The stack of a killed thread keeps AddressSanitizer's marks, unless what is marked lies elsewhere.
extern "C" [[gnu::visibility("default")]] const char *__asan_default_options() // NOLINT
{
    return "detect_stack_use_after_return=1";
}

namespace {

bool eventually(const std::function<bool()> &event)
{
    for (int ms = 0; ms < 60000 && !event(); ++ms)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return event();
}

struct Body : ThClass
{
    using Step = std::function<void(Body &)>;
    explicit Body(Step step)
        : body(std::move(step))
    {}
    ~Body() override { endBody(); }
    void Execute() override { seen = pthread_self(), body(*this); }
    void OnTerminate() override { terminators += pthread_self(); }
    bool start()
    {
        seen = terminators = 0;
        Resume();
        return eventually([this] { return seen != 0; });
    }

    Step body;
    std::atomic<pthread_t> seen{ 0 };
    std::atomic<pthread_t> terminators{ 0 }; // their sum, so that a second one shows
};

const Body::Step NOTHING = [](Body &) {};
const Body::Step KILL = [](Body &body) { body.Kill(); };
const Body::Step WAIT = [](Body &body) { body.WaitFor(0); };
const Body::Step UNTIL_ASKED = [](Body &body) {
    eventually([&body] { return body.GetTerminated(); });
};
// Not pause(): ThreadSanitizer loses sight of a thread that is killed in a wait that it knows.
const Body::Step FOR_EVER = [](Body &) { syscall(SYS_pause); };

struct Ticker : TmrClass
{
    ~Ticker() override { Stop(); }
    void OnTimer() override { during(++ticks); }
    int ticksAfter(long ms)
    {
        clockUs += ms * 1000;
        EXPECT_TRUE(eventually([before = sleeps.load()] { return sleeps - before > 3; }));
        return ticks;
    }

    std::atomic<int> ticks{ 0 };
    std::function<void(int)> during = [](int) {};
};

TEST(Clock, DelaysWrapAndTimeOutsCompareUnsigned)
{
    const std::tuple<void (*)(unsigned long), unsigned long, useconds_t> delays[] = {
        { Delay, 0, 1000 },
        { Delay, 4294967, 4294967000 },
        { Delay, 4294968, 704 },
        { Delay, -1UL, -1000U },
        { usDelay, 0, 1 },
        { usDelay, 5, 5 },
        { usDelay, (5UL << 32) + 3, 3 },
    };
    for (const auto &[delay, count, slept] : delays) {
        delay(count);
        EXPECT_EQ(lastSleep, slept) << count;
    }
    const unsigned long now = GetSystemTick();
    EXPECT_EQ(now * 1000 + 999, usGetSystemTick());
    const std::tuple<unsigned long, long, bool> timeOuts[] = {
        { 10, 0, false }, { 10, 9, false },     { 10, 10, true },   { 0, 0, true },
        { 0, -1, false }, { -now, -now, true }, { ~now, 0, false },
    };
    for (const auto &[interval, passed, isTimeOut] : timeOuts) {
        TimeOutClass timeOut;
        timeOut.Start(interval);
        clockUs += passed * 1000;
        EXPECT_EQ(timeOut.IsTimeOut(), isTimeOut) << interval << ' ' << passed;
        clockUs -= passed * 1000;
    }
}

TEST(Thread, EveryWayToEndLeavesTheSameState)
{
    enum { NOBODY, ITSELF, KILLER };
    const std::tuple<const char *, Body::Step, Body::Step, int> rows[] = {
        { "returns", NOTHING, NOTHING, ITSELF },
        { "is asked", UNTIL_ASKED, [](Body &body) { body.Terminate(); }, ITSELF },
        { "throws", [](Body &) { throw 1; }, NOTHING, ITSELF },
        { "is killed", FOR_EVER, KILL, KILLER },
        { "kills itself", [](Body &body) { KILL(body), FOR_EVER(body); }, NOTHING, ITSELF },
        { "exits", [](Body &) { pthread_exit(nullptr); }, NOTHING, NOBODY },
        { "waits for itself", WAIT, NOTHING, ITSELF },
    };
    for (const auto &[name, body, end, terminator] : rows) {
        Body thread(body);
        for (const int handle : { -1, 0 }) {
            EXPECT_EQ(thread.GetHandle(), handle) << name;
            ASSERT_TRUE(thread.start()) << name;
            end(thread);
            std::thread rival(WAIT, std::ref(thread));
            thread.WaitFor(0);
            rival.join();
            EXPECT_TRUE(thread.GetSuspended()) << name;
            const pthread_t candidates[] = { 0, thread.GetThreadID(), pthread_self() };
            const pthread_t expected = candidates[terminator];
            EXPECT_TRUE(eventually([&] { return thread.terminators == expected; })) << name;
        }
    }
}

TEST(Thread, TakesPrioritiesUntilTheDestructorKillsIt)
{
    const std::pair<int, int> expected[] = {
        // of the range 1 to 99
        { SCHED_FIFO, 1 },  { SCHED_FIFO, 17 }, { SCHED_FIFO, 33 }, { SCHED_OTHER, 0 },
        { SCHED_FIFO, 65 }, { SCHED_FIFO, 81 }, { SCHED_FIFO, 99 }, { SCHED_OTHER, 0 },
    };
    const long start = clockUs;
    {
        Body thread(FOR_EVER);
        thread.SetPriority(ThClass::PrioHigh);
        EXPECT_EQ(thread.GetPriority(), ThClass::PrioNormal);
        ASSERT_TRUE(thread.start());
        for (unsigned i = 0; i < std::size(expected); ++i) {
            thread.SetPriority(static_cast<ThClass::ThreadPriority>(i));
            EXPECT_EQ(thread.GetPriority(), i);
            EXPECT_EQ(lastPriority, expected[i]) << i;
        }
        thread.SetReturnValue(5);
        clockStepUs = 100'000;
        EXPECT_EQ(thread.WaitFor(500), 5);
        EXPECT_EQ(clockUs - start, 500'000);
    }
    EXPECT_GE(clockUs - start, 10'500'000);
    clockStepUs = 0;
}

TEST(Thread, NothingTouchesOneThatWasNeverCreated)
{
    pthread_attr_t normal;
    pthread_getattr_default_np(&normal);
    pthread_attr_t huge = normal;
    pthread_attr_setstacksize(&huge, 1UL << 60);
    pthread_setattr_default_np(&huge);
    lastPriority = {};
    Ticker timer;
    timer.Start(1);
    Body(NOTHING).Resume();
    Body thread(NOTHING);
    thread.Resume();
    EXPECT_EQ(thread.GetHandle(), EAGAIN);
    EXPECT_TRUE(thread.GetSuspended());
    EXPECT_EQ(thread.WaitFor(0) + thread.WaitFor(1000), 0);
    thread.SetPriority(ThClass::PrioLow);
    EXPECT_EQ(lastPriority, std::pair(0, 0));
    thread.Kill();
    EXPECT_EQ(thread.terminators, pthread_self());
    pthread_setattr_default_np(&normal);
    EXPECT_TRUE(thread.start());
    timer.SetInterval(2); // starts it anew
    EXPECT_EQ(timer.ticksAfter(2), 1);
}

TEST(Thread, TenThousandCyclesLeaveNothing)
{
    const Body::Step ends[] = { WAIT, KILL, [](Body &body) { body.WaitFor(1); } };
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    const auto threads = std::distance(tasks, {});
    std::vector<long> pages;
    for (int i = 0; i < 10000; i += 100) {
        std::ifstream("/proc/self/statm") >> pages.emplace_back();
        Ticker timer;
        timer.Start(1);
        Body thread(NOTHING);
        for (int run = i; run < i + 100; ++run) {
            thread.Resume();
            ends[run % 3](thread);
            ASSERT_TRUE(thread.GetSuspended()) << run;
        }
        timer.GetThread()->Kill();
        timer.Stop(); // the lock is free
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}), threads);
    EXPECT_LT(pages.back() - pages.front(), 128 << 10); // 512 MB; the stacks of all would be 80 GB
}

TEST(Timer, CountsFromTheLastStartAndFromTheEndOfTheLastTick)
{
    Ticker timer;
    timer.during = [&timer](int tick) {
        clockUs += 3'000'000; // several intervals
        if (tick == 2)
            throw 1;
        if (tick == 4) // a Stop() that waits for the tick would never return
            std::thread([&timer] { timer.Stop(); }).join();
    };
    const std::tuple<const char *, std::function<void()>, long, int> rows[] = {
        { "start", [&] { timer.Start(); }, 999, 0 },
        { "second start", [&] { timer.Start(); }, 1, 1 },
        { "no tick to catch up", [] {}, 999, 1 },
        { "from end to start", [] {}, 1, 2 },
        { "after an exception", [&] { timer.SetInterval(0); }, 1000, 3 },
        { "new interval", [&] { timer.SetInterval(500); }, 499, 3 },
        { "its end", [] {}, 1, 4 },
        { "stopped while it ticked", [&] { timer.SetInterval(700); }, 10000, 4 },
        { "start again", [&] { timer.Start(); }, 699, 4 },
        { "start with an interval", [&] { timer.Start(800); }, 799, 4 },
        { "clock set back", [] { clockUs -= 3'600'000'000; }, 3600000, 4 },
        { "end of the extra hour", [] {}, 1, 5 },
    };
    for (const auto &[name, action, passed, ticks] : rows) {
        action();
        EXPECT_EQ(timer.ticksAfter(passed), ticks) << name;
    }
}

} // namespace
