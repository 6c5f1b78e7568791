#ifndef PELCLOUD_LOGGING_CANCELLATIONHOLD_H
#define PELCLOUD_LOGGING_CANCELLATIONHOLD_H

#include <pthread.h>

namespace QLogger {

/**
 * Holds pthread_cancel off the calling thread while it lives. Threads that log may be cancelled at
 * any instruction; one that vanished with a lock in its hands would silence every other for good.
 * Declare it before the lock's guard. A cancellation that came meanwhile takes effect in the
 * destructor, which therefore must let the unwinding of the thread's stack pass.
 */
class CancellationHold
{
public:
    CancellationHold() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_previous); }
    ~CancellationHold() noexcept(false) { pthread_setcancelstate(m_previous, nullptr); }
    CancellationHold(const CancellationHold &) = delete;
    CancellationHold &operator=(const CancellationHold &) = delete;

private:
    int m_previous = PTHREAD_CANCEL_ENABLE;
};

} // namespace QLogger

#endif
