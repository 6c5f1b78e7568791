#include "tools/pelcloudctl/suite.h"

#include "model/computer.h"
#include "model/devicestatus.h"
#include "model/pel6trans.h"
#include "support/utils.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/problem.h"

#include <algorithm>
#include <filesystem>

namespace {

/** Calls the library. Its exceptions hold its code, so they must end before it is unloaded. */
template <class Call>
auto guarded(Call call)
{
    bool isDone = false;
    decltype(call()) result{};
    try {
        result = call();
        isDone = true;
    } catch (...) {
        isDone = false;
    }
    if (!isDone)
        throw Problem("the suite's library failed in a call",
                      "Check that the suite's service works.");
    return result;
}

std::string joined(const std::vector<std::string> &names)
{
    std::string text;
    for (const std::string &name : names)
        text.append(text.empty() ? "" : ", ").append(name);
    return text;
}

} // namespace

std::vector<std::string> Suite::missingEntries(const UpsCliDL &library)
{
    const struct
    {
        const char *name;
        bool isThere;
    } entries[] = {
        { "CliStart", library.CliStart != nullptr },
        { "CliStop", library.CliStop != nullptr },
        { "GetServerCount", library.GetServerCount != nullptr },
        { "UPSSrvGetState", library.UPSSrvGetState != nullptr },
        { "UPSSrvGetVersionInfo", library.UPSSrvGetVersionInfo != nullptr },
    };
    std::vector<std::string> missing;
    for (const auto &entry : entries) {
        if (!entry.isThere)
            missing.emplace_back(entry.name); // NOLINT(performance-inefficient-vector-operation)
    }
    return missing;
}

Suite::Suite(const Installation &installation)
{
    const std::string name = installation.library();
    std::error_code error;
    if (!std::filesystem::exists(name, error))
        throw Problem("file not found: " + name, "Give the suite's directory with --directory.");
    if (!m_library.Load(name))
        throw Problem("cannot load the suite's library: " + m_library.GetLastErrorStr(),
                      "Find missing libraries with 'ldd " + name + "'.");
    if (const auto missing = missingEntries(m_library); !missing.empty())
        throw Problem("missing in " + name + ": " + joined(missing),
                      "Check that it is the suite's library, of a supported version.");
    m_handle = guarded([this] { return m_library.CliStart(); });
    if (m_handle == nullptr)
        throw Problem("the suite's library does not start",
                      "Check that the suite's service is running.");
}

Suite::~Suite()
{
    if (m_handle == nullptr)
        return;
    try {
        m_library.CliStop(m_handle);
    } catch (...) {
        return; // a destructor cannot report it
    }
}

unsigned long Suite::count()
{
    return std::min(guarded([this] { return m_library.GetServerCount(m_handle); }), MAX_UNITS);
}

bool Suite::readVersion(unsigned long index, Computer &computer)
{
    const auto call = [this, index] {
        return m_library.UPSSrvGetVersionInfo(m_handle, index, m_buffers.version.get());
    };
    if (guarded(call) == 0)
        return false;
    Pel6Translator::translate(computer, m_buffers.version.get());
    return true;
}

bool Suite::readState(unsigned long index, DeviceStatus &device)
{
    const auto call = [this, index] {
        return m_library.UPSSrvGetState(m_handle, index, m_buffers.capabilities.get(),
                                        m_buffers.variables.get(), m_buffers.stateFlags.get(),
                                        m_buffers.failureFlags.get(), m_buffers.cause.get(),
                                        m_buffers.counter.get(), m_buffers.fullDischarge.get());
    };
    if (guarded(call) == 0)
        return false;
    translateState(device, m_buffers);
    return true;
}

std::string unitName(unsigned long index)
{
    return UIntToStr(index, 3, '0');
}

void translateState(DeviceStatus &device, RecordBuffers &buffers)
{
    Pel6Translator::translate(device, buffers.capabilities.get(), buffers.failureFlags.get(),
                              buffers.stateFlags.get(), buffers.variables.get(),
                              buffers.cause.get(), buffers.counter.get(),
                              buffers.fullDischarge.get());
}
