#include "support/thclass.h"

#include "support/cancellation.h"

#include <array>
#include <bit>
#include <sched.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr unsigned long DEFAULT_INTERVAL_MS = 1000;
constexpr unsigned long END_TIMEOUT_MS = 10000;
constexpr int MAX_POLLS_AFTER_KILL = 1000; // of a millisecond each

struct Scheduling
{
    int policy;
    int steps;
};

constexpr int ALL_STEPS = 6;

/** By ThreadPriority. The middle real-time priority is unused. */
constexpr std::array<Scheduling, 7> SCHEDULINGS{ {
        { SCHED_FIFO, 0 },
        { SCHED_FIFO, 1 },
        { SCHED_FIFO, 2 },
        { SCHED_OTHER, 0 },
        { SCHED_FIFO, 4 },
        { SCHED_FIFO, 5 },
        { SCHED_FIFO, ALL_STEPS },
} };

int realTimePriority(int steps)
{
    const int min = sched_get_priority_min(SCHED_FIFO);
    const int max = sched_get_priority_max(SCHED_FIFO);
    return steps == ALL_STEPS ? max : min + steps * ((max - min) / ALL_STEPS);
}

void applyPriority(pthread_t thread, ThClass::ThreadPriority priority)
{
    const Scheduling &row =
            SCHEDULINGS[priority < SCHEDULINGS.size() ? priority : ThClass::PrioNormal];
    sched_param param{};
    param.sched_priority = row.policy == SCHED_FIFO ? realTimePriority(row.steps) : 0;
    pthread_setschedparam(thread, row.policy, &param);
}

/**
 * Calls a function that Kill() may cancel at any instruction. Nothing here may need cleaning up,
 * nor may this be inlined where something does: unwinding from an instruction between two calls
 * ends the process if the function has clean-ups.
 */
template <class Object>
[[gnu::noinline]] void callExposed(Object &object, void (Object::*function)())
{
    pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
    (object.*function)();
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
}

/** Runs a step of a thread. Drops exceptions, but not the unwinding of a cancelled thread. */
template <class Step>
[[gnu::noinline]] void runStep(Step step)
{
    try {
        step();
    } catch (...) {
        RethrowForcedUnwind();
        pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
    }
}

/**
 * Joins the thread, or detaches it if the caller is cancelled meanwhile. `hold` is suspended during
 * the wait, so that only the wait can be cancelled.
 */
void joinOrDetach(pthread_t thread, const CancellationHold &hold)
{
    int type = PTHREAD_CANCEL_DEFERRED;
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &type);
    int result = 0;
    try {
        pthread_setcancelstate(hold.previous(), nullptr);
        result = pthread_join(thread, nullptr);
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    } catch (...) {
        pthread_detach(thread);
        throw;
    }
    pthread_setcanceltype(type, nullptr);
    if (result != 0)
        pthread_detach(thread);
}

timeval now()
{
    timeval time{};
    gettimeofday(&time, nullptr);
    return time;
}

} // namespace

unsigned long GetSystemTick()
{
    const timeval time = now();
    return static_cast<unsigned long>(time.tv_sec) * 1000
           + static_cast<unsigned long>(time.tv_usec) / 1000;
}

unsigned long usGetSystemTick()
{
    const timeval time = now();
    return static_cast<unsigned long>(time.tv_sec) * 1000000
           + static_cast<unsigned long>(time.tv_usec);
}

void Delay(unsigned long ms)
{
    usleep(ms == 0 ? 1000 : static_cast<std::uint32_t>(ms) * 1000U);
}

void usDelay(unsigned long us)
{
    usleep(us == 0 ? 1 : static_cast<std::uint32_t>(us));
}

// ThLockClass

ThLockClass::ThLockClass()
{
    pthread_mutex_init(&m_mutex, nullptr);
}

ThLockClass::~ThLockClass()
{
    pthread_mutex_destroy(&m_mutex);
}

void ThLockClass::Lock()
{
    pthread_mutex_lock(&m_mutex);
}

void ThLockClass::Unlock()
{
    pthread_mutex_unlock(&m_mutex);
}

pthread_mutex_t ThLockClass::GetMutexID() const
{
    return m_mutex;
}

// TimeOutClass

TimeOutClass::TimeOutClass()
    : m_interval(DEFAULT_INTERVAL_MS)
    , m_startTick(GetSystemTick())
{}

TimeOutClass::~TimeOutClass() = default;

void TimeOutClass::SetInterval(unsigned long interval)
{
    m_interval = interval;
}

unsigned long TimeOutClass::GetInterval() const
{
    return m_interval;
}

void TimeOutClass::Start(unsigned long interval)
{
    SetInterval(interval);
    Start();
}

void TimeOutClass::Start()
{
    m_startTick = GetSystemTick();
}

bool TimeOutClass::IsTimeOut() const
{
    return GetSystemTick() >= m_startTick + m_interval;
}

// ThClass

/** Holds the state lock; the holder cannot be cancelled meanwhile. */
class ThClass::Transition
{
public:
    explicit Transition(ThClass &thread)
        : m_lock(thread.m_stateLock)
    {
        m_lock.Lock();
    }
    ~Transition() noexcept(false) { m_lock.Unlock(); }
    Transition(const Transition &) = delete;
    Transition &operator=(const Transition &) = delete;

private:
    CancellationHold m_hold; // ends after the lock is released
    ThLockClass &m_lock;
};

ThClass::~ThClass()
{
    endBody();
}

void ThClass::OnTerminate() {}

bool ThClass::GetTerminated() const
{
    return m_terminated;
}

void ThClass::SetReturnValue(long value)
{
    m_returnValue = value;
}

void ThClass::Resume()
{
    const Transition transition(*this);
    if (!m_suspended)
        return;
    if (!m_exists)
        create();
    m_suspended = !m_exists;
}

void ThClass::Terminate()
{
    m_terminated = true;
}

long ThClass::WaitFor(unsigned long timeout)
{
    if (timeout == 0) {
        if (m_running && !m_suspended)
            join();
        return m_returnValue;
    }
    TimeOutClass timeOut;
    timeOut.Start(timeout);
    while (m_running && !m_suspended) {
        Delay(0);
        if (timeOut.IsTimeOut())
            break;
    }
    return m_returnValue;
}

void ThClass::Kill()
{
    bool suicide = false;
    {
        const Transition transition(*this);
        if (!m_running)
            return;
        m_terminated = true;
        if (std::exchange(m_joinable, false))
            pthread_detach(m_threadId);
        suicide = isOwnThread();
        if (m_exists && !suicide)
            pthread_cancel(m_threadId);
        m_exists = false;
        m_suspended = true;
        m_running = false;
    }
    OnTerminate(); // NOLINT(*.VirtualCall): the destructor means this class's
    if (suicide)
        pthread_cancel(pthread_self());
}

void ThClass::SetPriority(ThreadPriority priority)
{
    const Transition transition(*this);
    if (!m_running)
        return;
    if (m_exists)
        applyPriority(m_threadId, priority);
    m_priority = priority;
}

ThClass::ThreadPriority ThClass::GetPriority() const
{
    return m_priority;
}

void ThClass::Lock()
{
    m_lock.Lock();
}

void ThClass::Unlock()
{
    m_lock.Unlock();
}

long ThClass::GetReturnValue() const
{
    return m_returnValue;
}

bool ThClass::GetSuspended() const
{
    return m_suspended;
}

int ThClass::GetHandle() const
{
    return m_handle;
}

pthread_t ThClass::GetThreadID() const
{
    return m_threadId;
}

pthread_mutex_t ThClass::GetMutexID() const
{
    return m_lock.GetMutexID();
}

void ThClass::ThCreate()
{
    const Transition transition(*this);
    create();
}

/** Under the state lock; the new thread waits for it first. */
void ThClass::create()
{
    m_terminated = false;
    m_running = true;
    pthread_t created{};
    m_handle = pthread_create(&created, nullptr, ThreadProc, this);
    if (m_handle != 0)
        return; // a previous thread that still runs remains the object's thread
    if (m_joinable)
        pthread_detach(m_threadId); // nobody has joined the last one
    m_exists = m_joinable = true;
    m_threadId = created;
    ++m_visitors;
}

void *ThClass::ThreadProc(void *self)
{
    // Unwinds the thread, so that nothing may catch here.
    pthread_exit(std::bit_cast<void *>(static_cast<ThClass *>(self)->run()));
}

/** All that a thread does with its object. The object is not used after this returns or unwinds. */
long ThClass::run()
{
    struct Visit
    {
        ThClass &thread;
        ~Visit() { thread.leave(); }
    };
    const Visit visit{ *this };
    if (isAbandoned())
        return 0;
    runStep([this] { callExposed(*this, &ThClass::Execute); });
    runStep([this] { callExposed(*this, &ThClass::OnTerminate); });
    // Before the flags are set: after that the object may be destroyed.
    long value = 0;
    runStep([this, &value] { value = GetReturnValue(); });
    return value;
}

/** A thread's last use of its object. A killed one leaves the flags to its successor. */
void ThClass::leave()
{
    {
        const Transition transition(*this);
        if (m_exists && isOwnThread()) {
            m_exists = false;
            m_suspended = true; // first, so that a reader of m_running sees both
            m_running = false;
        }
    }
    --m_visitors;
}

/** Joins the thread, or waits for its end if another caller joins it. */
void ThClass::join()
{
    const CancellationHold hold; // until the thread is joined
    pthread_t thread{};
    bool mine = false;
    {
        const Transition transition(*this);
        if (isOwnThread())
            return;
        thread = m_threadId;
        mine = std::exchange(m_joinable, false);
    }
    if (mine) {
        joinOrDetach(thread, hold);
        return;
    }
    pthread_setcancelstate(hold.previous(), nullptr);
    while (m_running && !m_suspended)
        Delay(0);
}

bool ThClass::isOwnThread() const
{
    return (m_exists || m_joinable) && pthread_equal(m_threadId, pthread_self()) != 0;
}

/** Waits until the creator of the calling thread has recorded it. */
bool ThClass::isAbandoned()
{
    const Transition transition(*this);
    return m_abandoned;
}

void ThClass::endBody()
{
    {
        const Transition transition(*this);
        m_abandoned = true;
    }
    if (m_running) {
        ThClass::Terminate();
        ThClass::WaitFor(END_TIMEOUT_MS);
        if (m_running)
            ThClass::Kill();
    }
    join();
    for (int polls = 0; m_visitors > 0 && polls < MAX_POLLS_AFTER_KILL; ++polls)
        Delay(0);
}

// ThTimer

ThTimer::ThTimer(TmrClass *owner)
    : m_owner(owner)
{}

ThTimer::~ThTimer() = default;

void ThTimer::Execute()
{
    // OnTimer() may be killed anywhere, this loop only while it sleeps, not while it holds the
    // lock.
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
    for (; !GetTerminated(); Delay(0)) {
        if (!m_owner->m_started || !m_owner->m_timeOut.IsTimeOut())
            continue;
        runStep([this] { callExposed(*m_owner, &TmrClass::OnTimer); });
        Lock();
        m_owner->m_timeOut.Start();
        Unlock();
    }
}

// TmrClass

TmrClass::TmrClass()
    : m_thread(this)
{
    m_timeOut.SetInterval(DEFAULT_INTERVAL_MS);
}

TmrClass::~TmrClass()
{
    m_started = false; // the pure OnTimer() must not be called
    m_thread.endBody();
}

bool TmrClass::GetTerminated() const
{
    return m_thread.GetTerminated();
}

void TmrClass::SetInterval(unsigned long interval)
{
    if (interval == 0)
        return;
    const bool restart = m_started;
    if (restart)
        Stop();
    m_timeOut.SetInterval(interval);
    if (restart)
        Start();
}

unsigned long TmrClass::GetInterval() const
{
    return m_timeOut.GetInterval();
}

void TmrClass::Start(unsigned long interval)
{
    SetInterval(interval);
    Start();
}

void TmrClass::Start()
{
    if (m_started)
        return;
    m_thread.Resume();
    m_thread.Lock();
    m_timeOut.Start();
    m_started = true;
    m_thread.Unlock();
}

void TmrClass::Stop()
{
    if (!m_started)
        return;
    m_thread.Lock();
    m_started = false;
    m_thread.Unlock();
}

bool TmrClass::IsStarted() const
{
    return m_started;
}

ThClass *TmrClass::GetThread()
{
    return &m_thread;
}
