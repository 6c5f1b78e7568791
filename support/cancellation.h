#ifndef PELCLOUD_SUPPORT_CANCELLATION_H
#define PELCLOUD_SUPPORT_CANCELLATION_H

#include <exception>
#include <pthread.h>

/**
 * Disables pthread_cancel() of the calling thread in this scope: a thread cancelled while holding a
 * lock would block all others. Declare it before the lock's guard. A cancellation that arrives
 * meanwhile takes effect in the destructor, which may therefore unwind the thread.
 */
class CancellationHold
{
public:
    CancellationHold() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_previous); }
    ~CancellationHold() noexcept(false) { pthread_setcancelstate(m_previous, nullptr); }
    CancellationHold(const CancellationHold &) = delete;
    CancellationHold &operator=(const CancellationHold &) = delete;

    /** The state to return to. */
    [[nodiscard]] int previous() const { return m_previous; }

private:
    int m_previous = PTHREAD_CANCEL_ENABLE;
};

/**
 * For catch (...) handlers: rethrows the forced unwind of a cancelled thread, which carries no
 * exception and must not be stopped. A handler for its type would bind a reference to nothing.
 */
inline void RethrowForcedUnwind()
{
    if (std::current_exception() == nullptr)
        throw;
}

#endif
