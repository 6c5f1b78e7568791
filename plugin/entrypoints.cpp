#include "plugin/dlpelcloud.h"

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
    if (handle == nullptr || *handle == nullptr)
        return 1;
    auto *const service = static_cast<PelCloudService *>(*handle);
    service->stop();
    delete service; // which ends the process
    *handle = nullptr;
    return 1;
}
