#include "support/thclass.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sys/syscall.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

// What the code under test asks of the system comes from here: a clock that moves only as told,
// sleeps that are noted and counted, and priorities that are noted instead of set.

static std::atomic<long> clockUs{ 1'700'000'000'123'999 };
static std::atomic<long> clockStepUs{ 0 }; // taken with every sleep
static std::atomic<unsigned> sleeps{ 0 };
static thread_local useconds_t lastSleep = 0;
static thread_local int lastPriority = -1; // the real-time ones from 100

extern "C" int gettimeofday(timeval *time, void *) noexcept
{
    const long us = clockUs;
    *time = { us / 1000000, us % 1000000 };
    return 0;
}

extern "C" int usleep(useconds_t us)
{
    syscall(SYS_poll, nullptr, 0, 1); // rather than a function, for the reason given with FOR_EVER
    pthread_testcancel();
    clockUs += clockStepUs;
    lastSleep = us;
    ++sleeps;
    return 0;
}

extern "C" int pthread_setschedparam(pthread_t, int policy, const sched_param *param) noexcept
{
    lastPriority = (policy == SCHED_FIFO ? 100 : policy) + param->sched_priority;
    return EPERM;
}

namespace {

struct Body : ThClass
{
    using Step = std::function<void(Body &)>;
    explicit Body(const Step &step) { body = step; }
    ~Body() override { endBody(); }
    void Execute() override
    {
        begun = true;
        body(*this);
    }
    void OnTerminate() override { terminators += pthread_self(); }

    Step body;
    std::atomic<bool> begun{ false };
    std::atomic<pthread_t> terminators{ 0 }; // their sum, so that a second one shows
};

/** Waits, but not for ever, until something is so. */
bool comesTrue(const std::function<bool()> &isSo)
{
    for (int polls = 0; polls < 20000 && !isSo(); ++polls)
        syscall(SYS_poll, nullptr, 0, 1);
    return isSo();
}

const Body::Step NOTHING = [](Body &) {};
const Body::Step KILL = [](Body &body) { body.Kill(); };
const Body::Step WAIT = [](Body &body) { body.WaitFor(0); };
// Not pause(): ThreadSanitizer loses sight of a thread that is killed in a wait that it knows.
const Body::Step FOR_EVER = [](Body &) { syscall(SYS_pause); };

struct Ticker : TmrClass
{
    ~Ticker() override { Stop(); }
    void OnTimer() override
    {
        clockUs += 3'000'000; // several intervals
        if (++ticks == 2)
            throw 1;
        if (ticks == 4) // a Stop() that waits for the tick would never return
            std::thread([this] { Stop(); }).join();
    }

    std::atomic<int> ticks{ 0 };
};

TEST(Clock, DelaysAreReckonedIn32Bits)
{
    Delay(0);
    EXPECT_EQ(lastSleep, 1000U);
    Delay(4294968);
    EXPECT_EQ(lastSleep, 704U);
    EXPECT_EQ(GetSystemTick() * 1000 + 999, usGetSystemTick());
}

TEST(Thread, EveryWayToEndLeavesTheSameState)
{
    const std::tuple<const char *, Body::Step, Body::Step, int> rows[] = {
        { "returns", NOTHING, NOTHING, 1 },
        { "throws", [](Body &) { throw 1; }, NOTHING, 1 },
        { "is killed", FOR_EVER, KILL, 2 },
        { "kills itself", [](Body &body) { KILL(body), FOR_EVER(body); }, NOTHING, 1 },
        { "exits", [](Body &) { pthread_exit(nullptr); }, NOTHING, 0 },
        { "waits for itself", WAIT, NOTHING, 1 },
    };
    for (const auto &[name, body, end, terminator] : rows) {
        Body thread(body);
        for (int run = 0; run < 2; ++run) {
            thread.terminators = 0;
            thread.begun = false;
            thread.Resume();
            EXPECT_TRUE(comesTrue([&] { return thread.begun.load(); })) << name;
            end(thread);
            thread.WaitFor(0);
            EXPECT_TRUE(thread.GetSuspended()) << name;
            const pthread_t terminators[] = { 0, thread.GetThreadID(), pthread_self() };
            const pthread_t expected = terminators[terminator];
            EXPECT_TRUE(comesTrue([&] { return thread.terminators == expected; })) << name;
        }
    }
}

TEST(Thread, NothingTouchesOneThatWasNeverCreated)
{
    pthread_attr_t normal;
    pthread_getattr_default_np(&normal);
    pthread_attr_t huge = normal;
    pthread_attr_setstacksize(&huge, 1UL << 60);
    pthread_setattr_default_np(&huge);
    Body thread(NOTHING);
    thread.Resume();
    EXPECT_EQ(thread.GetHandle(), EAGAIN);
    EXPECT_TRUE(thread.GetSuspended());
    EXPECT_EQ(thread.WaitFor(0) + thread.WaitFor(1000), 0);
    thread.SetPriority(ThClass::PrioLow);
    EXPECT_EQ(lastPriority, -1);
    thread.Kill();
    thread.Kill();
    EXPECT_EQ(thread.terminators, pthread_self());
    pthread_setattr_default_np(&normal);
    thread.Resume();
    EXPECT_FALSE(thread.GetHandle() != 0 || thread.GetTerminated());

    // A body that runs stays the object's own when a second thread for it is not to be had.
    Body running([](Body &body) {
        while (!body.GetTerminated())
            std::this_thread::yield();
    });
    running.Resume();
    pthread_setattr_default_np(&huge);
    running.ThCreate();
    pthread_setattr_default_np(&normal);
    EXPECT_EQ(running.GetHandle(), EAGAIN);
    running.Terminate();
    running.WaitFor(0);
    EXPECT_TRUE(running.GetSuspended());
}

TEST(Thread, TakesPrioritiesUntilTheDestructorKillsIt)
{
    const int expected[] = { 101, 117, 133, 0, 165, 181, 199, 0 }; // of the range 1 to 99
    const long start = clockUs;
    auto thread = std::make_unique<Body>(FOR_EVER);
    thread->SetPriority(ThClass::PrioHigh);
    EXPECT_EQ(thread->GetPriority(), ThClass::PrioNormal);
    thread->Resume();
    for (unsigned i = 0; i < std::size(expected); ++i) {
        thread->SetPriority(static_cast<ThClass::ThreadPriority>(i));
        EXPECT_EQ(thread->GetPriority(), i);
        EXPECT_EQ(lastPriority, expected[i]) << i;
    }
    ASSERT_TRUE(comesTrue([&thread] { return thread->begun.load(); })); // else it is never run
    clockStepUs = 100'000;
    thread->WaitFor(500);
    thread.reset();
    EXPECT_GE(clockUs - start, 10'500'000);
    clockStepUs = 0;
}

TEST(Thread, TenThousandCyclesLeaveNothing)
{
    const Body::Step ends[] = { [](Body &body) { body.WaitFor(1); }, KILL, WAIT, KILL, KILL };
    std::vector<long> pages;
    Body thread(NOTHING);
    for (unsigned run = 0; run < 10000; ++run) {
        std::ifstream("/proc/self/statm") >> pages.emplace_back();
        thread.Resume();
        ends[run % std::size(ends)](thread);
        ASSERT_TRUE(thread.GetSuspended()) << run;
        Ticker timer;
        if (run % 32 == 0)
            timer.Start();
        if (run % 64 == 0)
            timer.GetThread()->Kill();
    }
    EXPECT_LT(pages.back() - pages.front(), 128 << 10); // 512 MB; the stacks of all would be 80 GB
}

TEST(Timer, CountsFromTheLastStartAndFromTheEndOfTheLastTick)
{
    Ticker timer;
    const std::tuple<const char *, std::function<void()>, long, int> rows[] = {
        { "start", [&] { timer.Start(); }, 999, 0 },
        { "second start", [&] { timer.Start(); }, 1, 1 },
        { "no tick to catch up", [] {}, 999, 1 },
        { "from end to start", [] {}, 1, 2 },
        { "after an exception", [] {}, 1000, 3 },
        { "interval 0", [&] { timer.SetInterval(0); }, 600, 3 },
        { "new interval", [&] { timer.SetInterval(500); }, 499, 3 },
        { "its end", [] {}, 1, 4 },
        { "stopped while it ticked", [&] { timer.SetInterval(700); }, 10000, 4 },
        { "start with an interval", [&] { timer.Start(800); }, 799, 4 },
        { "clock set back", [] { clockUs -= 3'600'000'000; }, 3600000, 4 },
        { "end of the extra hour", [] {}, 1, 5 },
    };
    for (const auto &[name, action, passedMs, ticks] : rows) {
        action();
        clockUs += passedMs * 1000;
        const unsigned before = sleeps;
        EXPECT_TRUE(comesTrue([before] { return sleeps - before >= 4; })) << name;
        EXPECT_EQ(timer.ticks, ticks) << name;
    }
}

} // namespace
