#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_SUITE_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_SUITE_H

#include "plugin/recordbuffers.h"
#include "plugin/suitelibrary.h"

#include <string>
#include <vector>

class Computer;
class DeviceStatus;
struct Installation;

/** The suite's client library, asked as the plug-in asks it. For one thread. */
class Suite
{
public:
    /** Loads and starts the library; a Problem when that fails or an entry is missing. */
    explicit Suite(const Installation &installation);
    ~Suite();
    Suite(const Suite &) = delete;
    Suite &operator=(const Suite &) = delete;

    /** How many UPSs there are. */
    [[nodiscard]] unsigned long count();
    /** Asks for the version record; false, with nothing changed, when the library has none. */
    [[nodiscard]] bool readVersion(unsigned long index, Computer &computer);
    /**
     * Asks for a UPS's state; false, with nothing changed, when the library gives none. Samples are
     * appended to those of earlier calls, as in the plug-in's reports.
     */
    [[nodiscard]] bool readState(unsigned long index, DeviceStatus &device);
    /** What the library filled last. */
    [[nodiscard]] RecordBuffers &buffers() { return m_buffers; }

    /** The names of the entries that the plug-in calls and this library lacks. */
    [[nodiscard]] static std::vector<std::string> missingEntries(const UpsCliDL &library);

private:
    SuiteLibrary m_library;
    RecordBuffers m_buffers;
};

/** The UPS's number in reports, such as "000". */
[[nodiscard]] std::string unitName(unsigned long index);

#endif
