#include "plugin/suitelibrary.h"

#include "logging/qlogger.h"
#include "plugin/constants.h"
#include "plugin/recordbuffers.h"
#include "plugin/timeouts.h"
#include "support/cancellation.h"

#include <algorithm>
#include <stdexcept>

#include <dlfcn.h>
#include <link.h>

namespace {

using QLogger::QLog_Info;
using namespace Qt::StringLiterals;

/** Calls into the library; false when it throws. The exception is gone when this returns. */
template <class Function>
bool returns(Function function)
{
    try {
        function();
    } catch (...) {
        RethrowForcedUnwind();
        return false;
    }
    return true;
}

} // namespace

/** A call in progress. */
class SuiteLibrary::Call
{
public:
    explicit Call(SuiteLibrary &library)
        : m_library(library)
    {
        const std::lock_guard lock(m_library.m_mutex);
        m_isAllowed = m_library.m_isInCall = m_library.m_isOpen;
    }
    ~Call()
    {
        const std::lock_guard lock(m_library.m_mutex);
        m_library.m_isInCall = false;
        m_library.m_callEnded.notify_all();
    }
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;

    [[nodiscard]] bool isAllowed() const { return m_isAllowed; }

private:
    SuiteLibrary &m_library;
    bool m_isAllowed;
};

bool SuiteLibrary::load(const std::string &path)
{
    if (!m_entries.Load(path))
        return false;
    const link_map *map = nullptr;
    if (dlinfo(m_entries.GetDLHandle(), RTLD_DI_LINKMAP, &map) == 0)
        m_address = map->l_ld; // the dynamic section, which every library has
    return true;
}

bool SuiteLibrary::start()
{
    if (m_entries.CliStart == nullptr)
        return false;
    if (!returns([this] { m_handle = m_entries.CliStart(); }))
        throw std::runtime_error("CliStart");
    const std::lock_guard lock(m_mutex);
    m_isOpen = m_handle != nullptr;
    return m_isOpen;
}

bool SuiteLibrary::stop()
{
    if (!m_entries.IsLoaded())
        return true;
    if (m_handle != nullptr) {
        QLog_Info(Constants::LOG_MODULE_NAME, u"Stopping upscli library."_s);
        if (!stopCalls())
            return false;
    }
    QLog_Info(Constants::LOG_MODULE_NAME, u"Unloading upscli library."_s);
    m_entries.Unload();
    return true;
}

/** CliStop, between the grace for a call in progress and its end. */
bool SuiteLibrary::stopCalls()
{
    const auto isOutside = [this] { return !m_isInCall; };
    std::unique_lock lock(m_mutex);
    m_isOpen = false;
    m_callEnded.wait_for(lock, Timeouts::CALL_GRACE, isOutside);
    lock.unlock();
    const bool isStopped =
            m_entries.CliStop == nullptr || returns([this] { m_entries.CliStop(m_handle); });
    lock.lock();
    m_callEnded.wait(lock, isOutside);
    m_handle = nullptr;
    return isStopped;
}

bool SuiteLibrary::isMapped() const
{
    Dl_info info{};
    return dladdr(m_address, &info) != 0;
}

template <class Result, class... Parameters, class... Arguments>
Result SuiteLibrary::call(Result (*UpsCliDL::*entry)(Parameters...), Arguments... arguments)
{
    const Call call(*this);
    Result result{};
    if (!call.isAllowed() || m_entries.*entry == nullptr)
        return result;
    if (!returns([&] { result = (m_entries.*entry)(m_handle, arguments...); }))
        throw std::runtime_error("upscli.so");
    return result;
}

unsigned long SuiteLibrary::count()
{
    return std::min(call(&UpsCliDL::GetServerCount), MAX_UNITS);
}

bool SuiteLibrary::readVersion(unsigned long index, RecordBuffers &buffers)
{
    return call(&UpsCliDL::UPSSrvGetVersionInfo, index, buffers.version.get()) != 0;
}

bool SuiteLibrary::readState(unsigned long index, RecordBuffers &buffers)
{
    return call(&UpsCliDL::UPSSrvGetState, index, buffers.capabilities.get(),
                buffers.variables.get(), buffers.stateFlags.get(), buffers.failureFlags.get(),
                buffers.cause.get(), buffers.counter.get(), buffers.fullDischarge.get())
           != 0;
}
