#include "tools/pelcloudctl/suite.h"

#include "support/utils.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/problem.h"

#include <filesystem>
#include <stdexcept>

namespace {

/** Calls the library; a Problem when the call throws. */
template <class Call>
auto guarded(Call call)
{
    try {
        return call();
    } catch (const std::runtime_error &) {
        throw Problem("the suite's library failed in a call",
                      "Check that the suite's service works.");
    }
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
    if (!m_library.load(name))
        throw Problem("cannot load the suite's library: " + m_library.lastError(),
                      "Find missing libraries with 'ldd " + name + "'.");
    if (const auto missing = missingEntries(m_library.entries()); !missing.empty())
        throw Problem("missing in " + name + ": " + joined(missing),
                      "Check that it is the suite's library, of a supported version.");
    if (!guarded([this] { return m_library.start(); }))
        throw Problem("the suite's library does not start",
                      "Check that the suite's service is running.");
}

Suite::~Suite()
{
    static_cast<void>(m_library.stop()); // a destructor cannot report a throwing CliStop
}

unsigned long Suite::count()
{
    return guarded([this] { return m_library.count(); });
}

bool Suite::readVersion(unsigned long index, Computer &computer)
{
    if (!guarded([this, index] { return m_library.readVersion(index, m_buffers); }))
        return false;
    m_buffers.translateVersion(computer);
    return true;
}

bool Suite::readState(unsigned long index, DeviceStatus &device)
{
    if (!guarded([this, index] { return m_library.readState(index, m_buffers); }))
        return false;
    m_buffers.translateState(device);
    return true;
}

std::string unitName(unsigned long index)
{
    return UIntToStr(index, 3, '0');
}
