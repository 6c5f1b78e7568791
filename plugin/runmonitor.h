#ifndef PELCLOUD_PLUGIN_RUNMONITOR_H
#define PELCLOUD_PLUGIN_RUNMONITOR_H

#include <chrono>
#include <condition_variable>
#include <mutex>

/**
 * Where a polling run stands, so that a stop, and the end of the whole process, may come at any
 * moment of it. A stop does not wait for a run; but the run must not enter the suite's library any
 * more, and it must not be in the middle of a request while exit() tears libraries down.
 *
 * The timer thread is the only one to call begin(), end(), goesOn(), enterLibrary() and
 * leaveLibrary(). Once the process is ending, goesOn(), enterLibrary() and leaveLibrary() do not
 * return: the run rests there until it has ended. Every other operation is for any thread.
 */
class RunMonitor
{
public:
    using Duration = std::chrono::milliseconds;

    /** Whether a run may begin; when true, end() must follow. False once the process is ending. */
    [[nodiscard]] bool begin();
    void end();

    /** Whether a run has something to go on for: false once the library is closed. */
    [[nodiscard]] bool goesOn();
    /** Whether the library may be called; when true, leaveLibrary() must follow the call. */
    [[nodiscard]] bool enterLibrary();
    void leaveLibrary();

    /** Lets calls of the library in. */
    void openLibrary();
    /** Lets no more in, and waits up to `patience` for the one inside. True when none is inside. */
    bool closeLibrary(Duration patience);

    /** Waits up to `patience` until no run is in progress. True when none is. */
    bool waitForEnd(Duration patience);

    /**
     * Declares that the process is ending, and waits up to `patience` until the run has ended,
     * rests, or is inside the library, from where it will not come back. True when that is so.
     */
    bool rest(Duration patience);

private:
    using Lock = std::unique_lock<std::mutex>;
    void restIfEnding(Lock &lock);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_running = false;
    bool m_inLibrary = false;
    bool m_libraryOpen = false;
    bool m_ending = false;
};

/** Leaves the library that was entered, also when an exception leaves it. */
class LibraryCall
{
public:
    explicit LibraryCall(RunMonitor &monitor)
        : m_monitor(monitor)
    {}
    ~LibraryCall() { m_monitor.leaveLibrary(); }
    LibraryCall(const LibraryCall &) = delete;
    LibraryCall &operator=(const LibraryCall &) = delete;

private:
    RunMonitor &m_monitor;
};

/** Ends the run that was begun, also when an exception leaves it. */
class RunScope
{
public:
    explicit RunScope(RunMonitor &monitor)
        : m_monitor(monitor)
    {}
    ~RunScope() { m_monitor.end(); }
    RunScope(const RunScope &) = delete;
    RunScope &operator=(const RunScope &) = delete;

private:
    RunMonitor &m_monitor;
};

#endif
