// A stand-in for the suite's client library: the same entries, told by a scenario what to answer.

#include "devkit/suite/scenario.h"
#include "devkit/suite/simulation.h"
#include "model/suiterecords.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dlfcn.h>

extern "C" void *CliStart();

namespace {

constexpr const char *SCENARIO_FILENAME = "scenario.ini";
constexpr std::size_t MAX_SESSIONS = 16;

void pause(int milliseconds)
{
    if (milliseconds > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

/**
 * What lives from CliStart to CliStop, and on in the calls that CliStop meets. Its worker thread
 * runs until stop().
 */
class Session
{
public:
    explicit Session(suite::Scenario played)
        : scenario(std::move(played))
        , calls(scenario.units.size())
        , m_start(std::chrono::steady_clock::now())
        , m_worker([this] { work(); })
    {}

    /** Since the start, in whole seconds of the scenario. */
    [[nodiscard]] std::int64_t second() const
    {
        const std::chrono::duration<double> real = std::chrono::steady_clock::now() - m_start;
        return static_cast<std::int64_t>(real.count() * scenario.timeScale);
    }

    /** Delays a call; true when stop() has woken it. */
    bool delay(int milliseconds)
    {
        if (milliseconds == 0 || !scenario.stopWakesCalls) {
            pause(milliseconds);
            return false;
        }
        std::unique_lock lock(m_mutex);
        return m_stopped.wait_for(lock, std::chrono::milliseconds(milliseconds),
                                  [this] { return m_isStopped; });
    }

    void stop()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_isStopped = true;
        }
        m_stopped.notify_all();
        m_worker.join();
    }

    struct Calls
    {
        std::atomic<std::int64_t> version = 0;
        std::atomic<std::int64_t> state = 0;
    };

    const suite::Scenario scenario;
    std::vector<Calls> calls; // a unit each

private:
    void work()
    {
        std::unique_lock lock(m_mutex);
        while (!m_isStopped) {
            if (scenario.workerPollMs == 0) {
                m_stopped.wait(lock);
            } else {
                lock.unlock();
                pause(scenario.workerPollMs);
                lock.lock();
            }
        }
    }

    std::chrono::steady_clock::time_point m_start;
    std::mutex m_mutex;
    std::condition_variable m_stopped;
    bool m_isStopped = false;
    std::thread m_worker; // last: it uses all of the above
};

constinit std::atomic<bool> g_isDestroyed = false;

/**
 * The library's global state, which every call uses: the sessions by their handles. Ordinary in
 * that unloading and exit() destroy it; a call that comes later ends the process by abort().
 */
class Sessions
{
public:
    Sessions() = default;
    Sessions(const Sessions &) = delete;
    Sessions &operator=(const Sessions &) = delete;
    ~Sessions()
    {
        pause(m_destructorDelayMs);
        g_isDestroyed = true;
    }

    /** Null when there are too many. */
    void *add(std::shared_ptr<Session> session)
    {
        const auto lock = locked();
        if (m_sessions.size() == MAX_SESSIONS) {
            session->stop();
            return nullptr;
        }
        m_destructorDelayMs = session->scenario.destructorDelayMs;
        void *const handle = session.get();
        m_sessions.emplace(handle, std::move(session));
        return handle;
    }

    /** Null for a handle that is none, or no longer. */
    std::shared_ptr<Session> find(const void *handle)
    {
        const auto lock = locked();
        const auto found = m_sessions.find(handle);
        return found == m_sessions.end() ? nullptr : found->second;
    }

    std::shared_ptr<Session> take(const void *handle)
    {
        const auto lock = locked();
        const auto node = m_sessions.extract(handle);
        return node ? node.mapped() : nullptr;
    }

private:
    std::unique_lock<std::mutex> locked()
    {
        if (g_isDestroyed) {
            std::fputs("upscli.so: used after its destruction\n", stderr);
            std::abort();
        }
        return std::unique_lock(m_mutex);
    }

    std::mutex m_mutex;
    std::map<const void *, std::shared_ptr<Session>> m_sessions;
    int m_destructorDelayMs = 0;
};

Sessions g_sessions;

constinit std::atomic<int> g_elfDestructorDelayMs = 0;

[[gnu::destructor]] void onUnload()
{
    pause(g_elfDestructorDelayMs);
}

/** Delays a call. One that CliStop has woken goes on to use the global state. */
void delayCall(Session &session, int milliseconds)
{
    if (!session.delay(milliseconds))
        return;
    const auto end =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(session.scenario.lingerMs);
    while (std::chrono::steady_clock::now() < end) {
        static_cast<void>(g_sessions.find(&session));
        pause(1);
    }
}

std::string ownPath()
{
    Dl_info self{};
    return dladdr(reinterpret_cast<void *>(&CliStart), &self) == 0 ? "" : self.dli_fname;
}

/** Keeps dlclose() from unloading this library. */
void stayMapped()
{
    if (void *const self = dlopen(ownPath().c_str(), RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE))
        dlclose(self);
}

/** The file beside this library. */
std::filesystem::path scenarioPath()
{
    return std::filesystem::path(ownPath()).parent_path() / SCENARIO_FILENAME;
}

/** Read anew for each session. A file that is not there means the built-in scenario. */
suite::Scenario loadScenario()
{
    const std::filesystem::path path = scenarioPath();
    std::ifstream file(path);
    std::vector<suite::Complaint> complaints;
    suite::Scenario scenario = suite::readScenario(file, complaints);
    if (file.bad() || (!file.is_open() && std::filesystem::exists(path)))
        std::fprintf(stderr, "%s: cannot be read; playing what is built in\n", path.c_str());
    for (const suite::Complaint &complaint : complaints)
        std::fprintf(stderr, "%s:%d: %s\n", path.c_str(), complaint.line, complaint.text.c_str());
    return scenario;
}

/** Runs an entry's body; a host that is plain C must not meet an exception. */
template <class Result, class Body>
Result guarded(Result onFailure, Body body) noexcept
{
    try {
        return body();
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "upscli.so: %s\n", problem.what());
    } catch (...) {
        std::fputs("upscli.so: unknown error\n", stderr);
    }
    return onFailure;
}

/**
 * One call about one unit: counts it, delays it, and lets `answer(session, second, faulty)` write
 * the records; 1 on success, 0 when there is no such session or unit, or the unit's fault says so.
 */
template <class Answer>
int callUnit(void *handle, std::uint64_t index, std::atomic<std::int64_t> Session::Calls::*counter,
             bool suite::Unit::*fails, Answer answer) noexcept
{
    return guarded(0, [&] {
        const std::shared_ptr<Session> session = g_sessions.find(handle);
        if (session == nullptr || index >= session->scenario.units.size())
            return 0;
        const suite::Unit &unit = session->scenario.units[index];
        const std::int64_t call = ++(session->calls[index].*counter);
        const std::int64_t second = session->second();
        const bool faulty = suite::isFaulty(unit, call, second);
        if (faulty)
            delayCall(*session, unit.delayMs);
        if (faulty && unit.*fails)
            return 0;
        answer(session->scenario, second, faulty);
        return 1;
    });
}

/** The buffers need not be aligned, as those of the suite's library need not. */
template <class Record>
void write(Record *to, const Record &record)
{
    std::memcpy(static_cast<void *>(to), &record, sizeof record);
}

} // namespace

#define PELCLOUD_ENTRY extern "C" __attribute__((visibility("default")))

PELCLOUD_ENTRY void *CliStart()
{
    return guarded<void *>(nullptr, []() -> void * {
        suite::Scenario scenario = loadScenario();
        pause(scenario.startDelayMs);
        if (scenario.cliStartFails)
            return nullptr;
        if (scenario.staysMapped)
            stayMapped();
        g_elfDestructorDelayMs = scenario.elfDestructorDelayMs;
        return g_sessions.add(std::make_shared<Session>(std::move(scenario)));
    });
}

PELCLOUD_ENTRY int CliStop(void *handle)
{
    return guarded(0, [handle] {
        const std::shared_ptr<Session> session = g_sessions.take(handle);
        if (session == nullptr)
            return 0;
        pause(session->scenario.stopDelayMs);
        session->stop();
        return 1;
    });
}

PELCLOUD_ENTRY std::uint64_t GetServerCount(void *handle)
{
    return guarded<std::uint64_t>(0, [handle]() -> std::uint64_t {
        const std::shared_ptr<Session> session = g_sessions.find(handle);
        if (session == nullptr)
            return 0;
        delayCall(*session, session->scenario.countDelayMs);
        return session->scenario.countZero ? 0 : session->scenario.units.size();
    });
}

PELCLOUD_ENTRY int UPSSrvGetVersionInfo(void *handle, std::uint64_t index,
                                        pelorin_version_info *info)
{
    if (info == nullptr)
        return 0;
    return callUnit(handle, index, &Session::Calls::version, &suite::Unit::versionFails,
                    [=](const suite::Scenario &scenario, std::int64_t second, bool faulty) {
                        write(info, suite::versionReport(scenario, index, second, faulty));
                    });
}

PELCLOUD_ENTRY int UPSSrvGetState(void *handle, std::uint64_t index, nb_capabilities *caps,
                                  nb_variaveis *vars, nb_estado_flags *state,
                                  nb_falha_flags *failures, long *cause, unsigned long *counter,
                                  char *fullDischarge)
{
    if (caps == nullptr || vars == nullptr || state == nullptr || failures == nullptr
        || cause == nullptr || counter == nullptr || fullDischarge == nullptr)
        return 0;
    return callUnit(handle, index, &Session::Calls::state, &suite::Unit::stateFails,
                    [=](const suite::Scenario &scenario, std::int64_t second, bool faulty) {
                        const suite::Report report =
                                suite::stateReport(scenario, index, second, faulty);
                        write(caps, report.caps);
                        write(vars, report.vars);
                        write(state, report.state);
                        write(failures, report.failures);
                        write(cause, report.cause);
                        write(counter, report.counter);
                        write(fullDischarge, report.fullDischarge);
                    });
}

// Entries that a client looks up and never calls. Whatever they are handed, they do nothing.

#define PELCLOUD_UNUSED_ENTRY(name) \
    PELCLOUD_ENTRY int name() \
    { \
        return 0; \
    }

PELCLOUD_UNUSED_ENTRY(CliStart1)
PELCLOUD_UNUSED_ENTRY(CliStart2)
PELCLOUD_UNUSED_ENTRY(GetServerInfoByIndex)
PELCLOUD_UNUSED_ENTRY(GetServerInfoByIndex2)
PELCLOUD_UNUSED_ENTRY(GetServerInfoByIndex3)
PELCLOUD_UNUSED_ENTRY(GetServerIndexById)
PELCLOUD_UNUSED_ENTRY(UPSSrvRestart)
PELCLOUD_UNUSED_ENTRY(UPSSrvGetSetFlags)
PELCLOUD_UNUSED_ENTRY(UPSSrvGetResetFlags)
PELCLOUD_UNUSED_ENTRY(UPSSrvUpdateFlags)
PELCLOUD_UNUSED_ENTRY(UPSSrvSetUpsVar)
PELCLOUD_UNUSED_ENTRY(UPSSrvSetLimitTimerManual)
PELCLOUD_UNUSED_ENTRY(UPSSrvCancelLimitTimer)
PELCLOUD_UNUSED_ENTRY(UPSSrvClearLog)
PELCLOUD_UNUSED_ENTRY(UPSSrvGetVersion)
PELCLOUD_UNUSED_ENTRY(UPSSrvParseStateFlags)
PELCLOUD_UNUSED_ENTRY(UPSSrvDischargeBattery)
PELCLOUD_UNUSED_ENTRY(UPSSrvChangeAutonomy)
PELCLOUD_UNUSED_ENTRY(FileDownload)
PELCLOUD_UNUSED_ENTRY(FileUpload)
PELCLOUD_UNUSED_ENTRY(FileCancelDownload)
PELCLOUD_UNUSED_ENTRY(FileCancelUpload)
PELCLOUD_UNUSED_ENTRY(FileDownloadProgress)
PELCLOUD_UNUSED_ENTRY(FileUploadProgress)
PELCLOUD_UNUSED_ENTRY(ParseUPSState)
