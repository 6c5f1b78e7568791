#ifndef PELCLOUD_PLUGIN_SUITELIBRARY_H
#define PELCLOUD_PLUGIN_SUITELIBRARY_H

#include "plugin/upsclidl.h"

#include <condition_variable>
#include <mutex>
#include <string>

struct RecordBuffers;

/**
 * The suite's client library, from loading to unloading.
 *
 * load(), start(), stop() and destruction belong to one thread, since libraries may insist on it.
 * The calls between start() and stop() may come from one other thread, also while stop() runs.
 * What the library throws ends here, since its code is gone after unloading; the caller gets a
 * std::runtime_error instead. The destructor unloads without stopping.
 */
class SuiteLibrary
{
public:
    SuiteLibrary() = default;
    SuiteLibrary(const SuiteLibrary &) = delete;
    SuiteLibrary &operator=(const SuiteLibrary &) = delete;
    ~SuiteLibrary() = default;

    /** False when `path` is not a library that can be loaded; lastError() says why. */
    [[nodiscard]] bool load(const std::string &path);
    /** Calls CliStart; false when the library gives no handle. */
    [[nodiscard]] bool start();
    /**
     * Stops and unloads, whatever the state. A call in progress gets Timeouts::CALL_GRACE before
     * CliStop; CliStop and the end of that call are waited for without limit. False when CliStop
     * throws; the library stays loaded then.
     */
    [[nodiscard]] bool stop();

    /** How many UPSs there are, MAX_UNITS at most. 0, like a failed call, when it is not started. */
    [[nodiscard]] unsigned long count();
    /** Fills the version record; false when the library has none. */
    [[nodiscard]] bool readVersion(unsigned long index, RecordBuffers &buffers);
    /** Fills all other records; false when the library does not know the UPS. */
    [[nodiscard]] bool readState(unsigned long index, RecordBuffers &buffers);

    [[nodiscard]] const UpsCliDL &entries() const { return m_entries; }
    /** The dynamic linker's text on this thread's last failure. */
    [[nodiscard]] std::string lastError() { return m_entries.GetLastErrorStr(); }
    /** Whether the library last loaded is in memory; it may stay there after unloading. */
    [[nodiscard]] bool isMapped() const;

private:
    class Call;

    template <class Result, class... Parameters, class... Arguments>
    Result call(Result (*UpsCliDL::*entry)(Parameters...), Arguments... arguments);
    bool stopCalls();

    UpsCliDL m_entries;
    void *m_handle = nullptr;
    const void *m_address = nullptr; // within the library

    std::mutex m_mutex; // guards what follows
    std::condition_variable m_callEnded;
    bool m_isOpen = false; // for calls
    bool m_isInCall = false;
};

#endif
