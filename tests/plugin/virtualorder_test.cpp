#include "http/httprequest.h"
#include "plugin/dlclass.h"
#include "plugin/dlpelcloud.h"
#include "support/thclass.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace {

/** Position in the class's table of virtual functions. A function that is not virtual has none. */
template <class Function>
std::size_t slotOf(Function function)
{
    static_assert(std::is_member_function_pointer_v<Function>);
    std::size_t offset = 0; // in bytes; some processors' ABI adds 1
    std::memcpy(&offset, &function, sizeof offset);
    return offset / sizeof(void *);
}

/** Expects the functions to follow one another, the first of them in slot `first`. */
template <class... Functions>
void expectSlots(const char *className, std::size_t first, Functions... functions)
{
    std::vector<std::size_t> expected(sizeof...(functions));
    for (std::size_t i = 0; i < expected.size(); ++i)
        expected[i] = first + i;
    EXPECT_EQ(std::vector{ slotOf(functions)... }, expected) << className;
}

// Programs compiled against these classes call their virtual functions by slot. A destructor takes
// two slots, which the gaps below leave for it.
TEST(VirtualOrder, EveryFunctionHasItsSlot)
{
    using Lock = ThLockClass;
    expectSlots("ThLockClass", 2, &Lock::Lock, &Lock::Unlock, &Lock::GetMutexID);

    using TimeOut = TimeOutClass;
    expectSlots("TimeOutClass", 2, &TimeOut::SetInterval, &TimeOut::GetInterval,
                static_cast<void (TimeOut::*)(unsigned long)>(&TimeOut::Start),
                static_cast<void (TimeOut::*)()>(&TimeOut::Start), &TimeOut::IsTimeOut);

    using Th = ThClass;
    expectSlots("ThClass", 0, &Th::Execute, &Th::OnTerminate, &Th::GetTerminated,
                &Th::SetReturnValue);
    expectSlots("ThClass", 6, &Th::Resume, &Th::Terminate, &Th::WaitFor, &Th::Kill,
                &Th::SetPriority, &Th::GetPriority, &Th::Lock, &Th::Unlock, &Th::GetReturnValue,
                &Th::GetSuspended, &Th::GetHandle, &Th::GetThreadID, &Th::GetMutexID);

    using Tmr = TmrClass;
    expectSlots("TmrClass", 0, &Tmr::OnTimer, &Tmr::GetTerminated);
    expectSlots("TmrClass", 4, &Tmr::SetInterval, &Tmr::GetInterval,
                static_cast<void (Tmr::*)(unsigned long)>(&Tmr::Start),
                static_cast<void (Tmr::*)()>(&Tmr::Start), &Tmr::Stop, &Tmr::IsStarted,
                &Tmr::GetThread);

    using Request = HttpRequest;
    expectSlots("HttpRequest", 2, &Request::url, &Request::rawHeaderList, &Request::rawHeader,
                &Request::setUrl, &Request::setRawHeader);

    using Dl = DLClass;
    expectSlots("DLClass", 0, &Dl::GetSymbol, &Dl::GetAllSymbols);
    expectSlots("DLClass", 4, static_cast<bool (Dl::*)(const std::string &)>(&Dl::Load),
                static_cast<bool (Dl::*)(const char *)>(&Dl::Load), &Dl::Unload, &Dl::IsLoaded,
                &Dl::GetLastErrorStr, &Dl::ClearAllSymbols);

    using Service = PelCloudService;
    using Logger = QLogger::QLoggerManager;
    expectSlots("PelCloudService", 2, &Service::start, &Service::stop,
                static_cast<Logger *(Service::*)()>(&Service::getLogger),
                static_cast<const Logger *(Service::*)() const>(&Service::getLogger));
}

} // namespace
