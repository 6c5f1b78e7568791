// Years in minutes: a client that runs every millisecond, against a local cloud with TLS and the
// simulated suite, while faults of either and of the configuration come and go. Memory, files and
// threads must stay what they were. PELCLOUD_SOAK_RUNS says how many runs.

#include "logging/qlogger.h"
#include "plugin/constants.h"
#include "plugin/pelcloud.h"
#include "support/config.h"
#include "tests/support/localcloud.h"
#include "tests/support/testsinside.h"

#include <condition_variable>
#include <malloc.h>
#include <random>

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr unsigned RUNS_BETWEEN_CHANGES = 50;
constexpr std::size_t HEAP_TOLERANCE = 64U << 10U;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool COUNTS_HEAP = false; // the sanitizers bring an allocator of their own
#else
constexpr bool COUNTS_HEAP = true;
#endif

/** A client that counts its runs: those begun and those ended. */
class Client : public PelCloudClient
{
public:
    void awaitRuns(unsigned count)
    {
        std::unique_lock lock(m_mutex);
        const unsigned enough = m_runs + count;
        ASSERT_TRUE(m_changed.wait_for(lock, 120s, [&] { return m_runs >= enough; }))
                << "no run for two minutes";
    }
    void awaitEndOfRun()
    {
        std::unique_lock lock(m_mutex);
        ASSERT_TRUE(m_changed.wait_for(lock, 120s, [&] { return m_runs == m_begun; }));
    }
    unsigned runs()
    {
        const std::lock_guard lock(m_mutex);
        return m_runs;
    }

private:
    void OnTimer() override
    {
        {
            const std::lock_guard lock(m_mutex);
            ++m_begun;
        }
        PelCloudClient::OnTimer();
        const std::lock_guard lock(m_mutex);
        ++m_runs;
        m_changed.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    unsigned m_begun = 0;
    unsigned m_runs = 0;
};

/** What a host would see grow. */
struct Usage
{
    std::size_t heap = COUNTS_HEAP ? mallinfo2().uordblks : 0;
    std::ptrdiff_t files = std::distance(fs::directory_iterator("/proc/self/fd"), {});
    std::ptrdiff_t threads = std::distance(fs::directory_iterator("/proc/self/task"), {});
};

class Soak : public testing::Test
{
protected:
    Soak() { config(m_good); }

    void config(const std::string &text) const
    {
        written(m_home + "new", text);
        fs::rename(m_home + "new", m_home + "pelcloud.json");
    }
    void faults(const std::string &list)
    {
        EXPECT_EQ(ask(m_cloud.address("api") + "/api/faults", "POST",
                      (R"({"faults": [)" + list + "]}").c_str())
                          .status,
                  200);
    }
    /** Something else goes wrong from now on, or all is well. */
    void change()
    {
        static const char *const CLOUD[] = { "",
                                             "\"api:500:share=0.3\"",
                                             "\"api:reset:share=0.3\"",
                                             "\"api:bad-json\"",
                                             "\"api:401:every=2\"",
                                             "\"token:500:share=0.5\"",
                                             "\"token:reset:share=0.5\"",
                                             "\"token:bad-json\", \"api:reset:every=7\"" };
        faults(CLOUD[m_chance() % std::size(CLOUD)]);
        switch (m_chance() % 6) {
        case 0:
            fs::remove(m_home + "pelcloud.json");
            break;
        case 1:
            config("{ \"home\": ");
            break;
        case 2:
            config("");
            break;
        default:
            config(m_good);
        }
    }
    /** All is well for a while; then the client stands still, with its one thread, and is measured. */
    Usage measured(Client &client)
    {
        faults("");
        config(m_good);
        client.awaitRuns(RUNS_BETWEEN_CHANGES);
        client.stop();
        client.awaitEndOfRun();
        removeOldLogs();
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (Usage().threads != m_threads + 1 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield(); // whatever stopped the library is ending
        const Usage usage;
        EXPECT_EQ(client.start(), 0);
        return usage;
    }
    void removeOldLogs() const
    {
        std::vector<fs::path> old;
        for (const auto &file : fs::directory_iterator(m_home)) {
            if (file.path().filename().string().starts_with("pelcloud_"))
                old.push_back(file.path());
        }
        for (const fs::path &file : old)
            fs::remove(file);
    }

    const std::string m_home = GetPelorinPath();
    LocalCloud m_cloud{ SEED_OF_ONE_CLIENT, { "--quiet" } };
    const std::string m_good =
            QJsonDocument(configOfOneClient(m_cloud.address("api"))).toJson().toStdString();
    const std::ptrdiff_t m_threads = Usage().threads;
    std::mt19937 m_chance{ 1 };
};

TEST_F(Soak, GrowsNothing)
{
    const char *const told = std::getenv("PELCLOUD_SOAK_RUNS"); // NOLINT(concurrency-mt-unsafe)
    const unsigned runs = told != nullptr ? static_cast<unsigned>(std::atol(told)) : 3000;
    ::setenv("HTTPS_PROXY", m_cloud.address("proxy").c_str(), 1); // NOLINT(concurrency-mt-unsafe)
    written(m_home + "scenario.ini", "units = 2\ntime-scale = 1000\n[unit *]\nsamples = 8\n"
                                     "[unit 1]\nstate-fails = yes\nfault-from = 1000\n"
                                     "fault-until = 20000\n");
    QLogger::QLoggerManager::getInstance()->addDestination(
            QString::fromStdString(m_home + "pelcloud.log"), { Constants::LOG_MODULE_NAME },
            QLogger::LogLevel::Info);

    Client client;
    client.setInterval(1);
    ASSERT_EQ(client.start(), 0);
    Usage early;
    for (unsigned changes = 1; client.runs() < runs && !HasFatalFailure(); ++changes) {
        client.awaitRuns(RUNS_BETWEEN_CHANGES);
        change();
        if (changes % 40 == 0) { // the suite's service was restarted
            client.stop();
            EXPECT_EQ(client.start(), 0);
        }
        if (changes % 200 == 0)
            removeOldLogs();
        if (changes == std::max(1U, runs / 10 / RUNS_BETWEEN_CHANGES))
            early = measured(client);
    }
    const Usage late = measured(client);
    client.stop();
    std::printf("after %u runs: heap %zu bytes, %td files, %td threads\n"
                "after %u runs: heap %zu bytes, %td files, %td threads\n",
                runs / 10, early.heap, early.files, early.threads, client.runs(), late.heap,
                late.files, late.threads);
    EXPECT_LE(late.heap, early.heap + HEAP_TOLERANCE);
    EXPECT_EQ(late.files, early.files);
    EXPECT_EQ(late.threads, early.threads);
}

} // namespace

int main(int argc, char **argv)
{
    // One heap to measure, whichever thread allocates, and no freed pieces that count as in use.
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the only thread
    ::setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=1", 1);
    return runTestsInside(argc, argv, UPSCLI_FILE);
}
