#include "support/thclass.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sys/syscall.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

// Replacements for system functions: a clock that the tests set, sleeps that are recorded, and
// priorities that are recorded instead of set.

static std::atomic<long> clockUs{ 1'700'000'000'123'999 };
static std::atomic<long> clockStepUs{ 0 }; // for each sleep
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
    syscall(SYS_poll, nullptr, 0, 1); // see ENDLESS
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
    std::atomic<pthread_t> terminators{ 0 }; // their sum, which shows a second one
};

/** Waits for a condition, for at most about 20 s. */
bool becomesTrue(const std::function<bool()> &condition)
{
    for (int polls = 0; polls < 20000 && !condition(); ++polls)
        syscall(SYS_poll, nullptr, 0, 1);
    return condition();
}

const Body::Step NOTHING = [](Body &) {};
const Body::Step KILL = [](Body &body) { body.Kill(); };
const Body::Step WAIT = [](Body &body) { body.WaitFor(0); };
// Not pause(): ThreadSanitizer loses track of a thread that is killed in a function it intercepts.
const Body::Step ENDLESS = [](Body &) { syscall(SYS_pause); };

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

TEST(Clock, ComputesDelaysIn32Bits)
{
    Delay(0);
    EXPECT_EQ(lastSleep, 1000U);
    Delay(4294968);
    EXPECT_EQ(lastSleep, 704U);
    EXPECT_EQ(GetSystemTick() * 1000 + 999, usGetSystemTick());
}

TEST(Thread, HasTheSameStateAfterEveryKindOfEnd)
{
    const std::tuple<const char *, Body::Step, Body::Step, int> rows[] = {
        { "returns", NOTHING, NOTHING, 1 },
        { "throws", [](Body &) { throw 1; }, NOTHING, 1 },
        { "is killed", ENDLESS, KILL, 2 },
        { "kills itself", [](Body &body) { KILL(body), ENDLESS(body); }, NOTHING, 1 },
        { "exits", [](Body &) { pthread_exit(nullptr); }, NOTHING, 0 },
        { "waits for itself", WAIT, NOTHING, 1 },
    };
    for (const auto &[name, body, end, terminator] : rows) {
        Body thread(body);
        for (int run = 0; run < 2; ++run) {
            thread.terminators = 0;
            thread.begun = false;
            thread.Resume();
            EXPECT_TRUE(becomesTrue([&] { return thread.begun.load(); })) << name;
            end(thread);
            thread.WaitFor(0);
            EXPECT_TRUE(thread.GetSuspended()) << name;
            const pthread_t terminators[] = { 0, thread.GetThreadID(), pthread_self() };
            const pthread_t expected = terminators[terminator];
            EXPECT_TRUE(becomesTrue([&] { return thread.terminators == expected; })) << name;
        }
    }
}

TEST(Thread, StaysUsableIfItCannotBeCreated)
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
}

TEST(Thread, TakesPrioritiesAndIsKilledByItsDestructor)
{
    const int expected[] = { 101, 117, 133, 0, 165, 181, 199, 0 }; // of the range 1 to 99
    const long start = clockUs;
    auto thread = std::make_unique<Body>(ENDLESS);
    thread->SetPriority(ThClass::PrioHigh);
    EXPECT_EQ(thread->GetPriority(), ThClass::PrioNormal);
    thread->Resume();
    for (unsigned i = 0; i < std::size(expected); ++i) {
        thread->SetPriority(static_cast<ThClass::ThreadPriority>(i));
        EXPECT_EQ(thread->GetPriority(), i);
        EXPECT_EQ(lastPriority, expected[i]) << i;
    }
    ASSERT_TRUE(becomesTrue([&thread] { return thread->begun.load(); })); // before it is killed
    clockStepUs = 100'000;
    thread->WaitFor(500);
    thread.reset();
    EXPECT_GE(clockUs - start, 10'500'000);
    clockStepUs = 0;
}

TEST(Thread, DoesNotLeakInTenThousandCycles)
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
    EXPECT_LT(pages.back() - pages.front(), 128 << 10); // 512 MB; all stacks would be 80 GB
}

TEST(Timer, CountsFromStartAndFromTheEndOfATick)
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
        EXPECT_TRUE(becomesTrue([before] { return sleeps - before >= 4; })) << name;
        EXPECT_EQ(timer.ticks, ticks) << name;
    }
}

} // namespace
