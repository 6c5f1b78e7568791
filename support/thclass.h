#ifndef PELCLOUD_SUPPORT_THCLASS_H
#define PELCLOUD_SUPPORT_THCLASS_H

#include <atomic>
#include <cstdint>
#include <pthread.h>

/**
 * Threads, locks, time-outs and interval timers over POSIX threads.
 *
 * All waiting polls once per millisecond. Times are milliseconds of the wall clock, also when that
 * clock is set; names that begin with "us" count microseconds.
 *
 * In every class the order of the virtual functions is a contract: compiled code calls them by
 * their slots. New ones go to the end.
 */

/** The wall clock: time since 1970. */
[[nodiscard]] unsigned long GetSystemTick();
[[nodiscard]] unsigned long usGetSystemTick();

/**
 * Sleeps for `ms` milliseconds; 0 counts as 1. The microseconds are computed in 32 bits: more than
 * 4294967 ms wraps.
 */
void Delay(unsigned long ms);

/** Sleeps for the lower 32 bits of `us`; 0 counts as 1. */
void usDelay(unsigned long us);

/**
 * A value that one thread writes and another one polls. A reader that gets a new value also sees
 * everything that the writer did before it, such as the results of a body that has ended.
 */
template <class Value>
class Polled
{
public:
    explicit Polled(Value value)
        : m_value(value)
    {}
    Polled &operator=(Value value)
    {
        m_value.store(value, std::memory_order_release);
        return *this;
    }
    operator Value() const { return m_value.load(std::memory_order_acquire); }

private:
    std::atomic<Value> m_value;
};

/** A mutex. Not recursive: a second Lock() by its holder never returns. */
class ThLockClass
{
public:
    ThLockClass();
    ThLockClass(const ThLockClass &) = delete;
    ThLockClass &operator=(const ThLockClass &) = delete;

    virtual ~ThLockClass();
    virtual void Lock();
    virtual void Unlock();
    /** A copy, which must not be locked. */
    [[nodiscard]] virtual pthread_mutex_t GetMutexID() const;

private:
    pthread_mutex_t m_mutex;
};

/**
 * Expires one interval after the last Start(); the constructor starts it, too. A clock set back
 * delays the time-out, a clock set forward shortens it. One thread may query it while another one
 * changes it.
 */
class TimeOutClass
{
public:
    TimeOutClass();
    TimeOutClass(const TimeOutClass &) = delete;
    TimeOutClass &operator=(const TimeOutClass &) = delete;

    virtual ~TimeOutClass();
    /** Does not restart. The initial interval is 1000 ms. */
    virtual void SetInterval(unsigned long interval);
    [[nodiscard]] virtual unsigned long GetInterval() const;
    /** SetInterval() and Start(). */
    virtual void Start(unsigned long interval);
    virtual void Start();
    [[nodiscard]] virtual bool IsTimeOut() const;

private:
    Polled<unsigned long> m_interval;
    Polled<unsigned long> m_startTick;
};

/**
 * A thread whose body is Execute() of a derived class. It is created by the first Resume() and ends
 * when the body returns, throws or is killed; Resume() then runs the body on a new thread.
 *
 * All operations may be called from any thread, also from the body. If the system cannot create a
 * thread, GetHandle() gives the error, GetSuspended() stays true, nothing waits, and the next
 * Resume() tries again.
 *
 * The destructor asks the body to end, waits for up to ten seconds and then kills it. By then the
 * derived part is destroyed: if the body uses it, the derived destructor must call endBody() first.
 * A thread cannot destroy its own object.
 */
class ThClass
{
public:
    enum ThreadPriority : std::uint32_t {
        PrioMinimum = 0,
        PrioLower = 1,
        PrioLow = 2,
        PrioNormal = 3,
        PrioHigh = 4,
        PrioHigher = 5,
        PrioMaximum = 6
    };

    ThClass() = default;
    ThClass(const ThClass &) = delete;
    ThClass &operator=(const ThClass &) = delete;

    /**
     * The body. Polls GetTerminated() and returns soon after that is true. An exception ends it
     * like a return.
     */
    virtual void Execute() = 0;
    /** Called when the body has ended: on its own thread, or on the one that kills it. */
    virtual void OnTerminate();
    /** Whether the body has been asked to end. */
    [[nodiscard]] virtual bool GetTerminated() const;
    virtual void SetReturnValue(long value);
    virtual ~ThClass();
    /** Runs the body on a new thread, unless it already runs. */
    virtual void Resume();
    /** Asks the body to end; does not wait. */
    virtual void Terminate();
    /**
     * Waits for the end of the body for at most `timeout` ms, or without limit if that is 0, but
     * never without limit on its own thread. Always gives the return value.
     */
    virtual long WaitFor(unsigned long timeout);
    /**
     * Cancels the body at any instruction: locks stay held, memory stays allocated, and cancelling
     * C++ code with destructors may end the whole process. The last resort.
     */
    virtual void Kill();
    /**
     * Does nothing unless the body runs. The priority counts as set even if the system refuses it.
     * PrioNormal and values above PrioMaximum are ordinary time sharing, all others real-time
     * priorities.
     */
    virtual void SetPriority(ThreadPriority priority);
    [[nodiscard]] virtual ThreadPriority GetPriority() const;
    /** The thread's own lock, for data that its users share. */
    virtual void Lock();
    virtual void Unlock();
    [[nodiscard]] virtual long GetReturnValue() const;
    /** True while no body runs. */
    [[nodiscard]] virtual bool GetSuspended() const;
    /** The result of the last creation of a thread: 0 or an error number; -1 before the first. */
    [[nodiscard]] virtual int GetHandle() const;
    [[nodiscard]] virtual pthread_t GetThreadID() const;
    [[nodiscard]] virtual pthread_mutex_t GetMutexID() const;

    /** Creates a thread even if the body runs. Resume() calls this when needed. */
    void ThCreate();
    /** Where a created thread starts; `self` is its ThClass. */
    static void *ThreadProc(void *self);

protected:
    /**
     * Ends the body as the destructor does. Afterwards no thread uses the object, except a killed
     * one that has not ended within a second.
     */
    void endBody();

private:
    class Transition;

    void create();
    long run();
    void leave();
    void join();
    [[nodiscard]] bool isOwnThread() const;
    [[nodiscard]] bool isAbandoned();

    Polled<bool> m_terminated{ false };
    Polled<bool> m_suspended{ true };
    Polled<bool> m_running{ false }; // also set when the creation of the thread has failed
    Polled<long> m_returnValue{ 0 };
    Polled<ThreadPriority> m_priority{ PrioNormal };
    ThLockClass m_lock;
    Polled<pthread_t> m_threadId{ pthread_t() };
    Polled<int> m_handle{ -1 };

    // Guards the start and the end of a thread. Not held while waiting or while a virtual function
    // of this class is called.
    ThLockClass m_stateLock;
    bool m_exists = false;    // m_threadId is a thread that has neither ended nor been killed
    bool m_joinable = false;  // m_threadId must still be joined or detached
    bool m_abandoned = false; // the destructor has begun
    std::atomic<int> m_visitors{ 0 }; // threads that may still touch this object
};

class TmrClass;

/** The thread of a timer. Polls once per millisecond, also while the timer is stopped. */
class ThTimer : public ThClass
{
public:
    /** `owner` embeds this object and is not owned by it. */
    explicit ThTimer(TmrClass *owner);

    void Execute() override;
    ~ThTimer() override;

private:
    friend class TmrClass;

    TmrClass *m_owner;
};

/**
 * Calls OnTimer() on its own thread one interval after Start() and after each return of OnTimer():
 * calls never overlap, and no call is made up for. An exception from OnTimer() is dropped and the
 * timer continues. If the system cannot create a thread, the timer counts as started but never
 * ticks until a Stop() and a Start().
 *
 * Start() and Stop() may be called from any thread that does not hold GetThread()'s lock, also from
 * OnTimer(). A derived class must call Stop() and make sure that no OnTimer() runs before its own
 * members are destroyed. The destructor ends the thread as ThClass's does.
 */
class TmrClass
{
public:
    TmrClass();
    TmrClass(const TmrClass &) = delete;
    TmrClass &operator=(const TmrClass &) = delete;

    virtual void OnTimer() = 0;
    /** True while the timer is destroyed: an OnTimer() that takes long should return. */
    [[nodiscard]] virtual bool GetTerminated() const;
    virtual ~TmrClass();
    /** Restarts a started timer. 0 is ignored; the initial interval is 1000 ms. */
    virtual void SetInterval(unsigned long interval);
    [[nodiscard]] virtual unsigned long GetInterval() const;
    /** SetInterval() and Start(). */
    virtual void Start(unsigned long interval);
    /** Starts the interval, unless the timer is already started. */
    virtual void Start();
    /**
     * No further OnTimer() begins, except one whose interval has just been found expired. Does not
     * wait for one that runs.
     */
    virtual void Stop();
    [[nodiscard]] virtual bool IsStarted() const;
    /** Gives access to priority and lock. Owned by the timer. */
    [[nodiscard]] virtual ThClass *GetThread();

private:
    friend class ThTimer;

    Polled<bool> m_started{ false };
    TimeOutClass m_timeOut;
    ThTimer m_thread; // last, so that it ends before what it uses
};

#endif
