#include "plugin/dlpelcloud.h"

#include "support/cancellation.h"

#include <atomic>
#include <memory>

int SrvStart(void **handle)
{
    if (handle == nullptr)
        return 0;
    try {
        auto service = std::make_unique<PelCloudService>();
        service->start();
        *handle = service.release();
    } catch (...) {
        *handle = nullptr; // no memory for a service: the host goes on without one
    }
    return 1;
}

int SrvStop(void **handle)
{
    if (handle == nullptr)
        return 1;
    const CancellationHold hold; // exit() must not be left halfway
    // Taken in one step, since a thread or an exit handler may call again.
    auto *const service =
            static_cast<PelCloudService *>(std::atomic_ref(*handle).exchange(nullptr));
    if (service == nullptr)
        return 1;
    service->stop();
    delete service; // which ends the process
    return 1;
}
