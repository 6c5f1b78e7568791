// A client that runs every millisecond, as often in minutes as otherwise in years, against a local cloud with TLS
// and the simulated suite, while faults of either and of the configuration come and go. Memory, files and threads
// must not grow. PELCLOUD_SOAK_RUNS sets the number of runs.

#include "logging/qlogger.h"
#include "plugin/constants.h"
#include "plugin/pelcloud.h"
#include "support/config.h"
#include "tests/support/localcloud.h"
#include "tests/support/testsinside.h"

#include <atomic>
#include <climits>
#include <malloc.h>
#include <random>

namespace {

namespace fs = std::filesystem;

constexpr unsigned RUNS_BETWEEN_CHANGES = 50;
constexpr std::size_t HEAP_TOLERANCE = 64U << 10U;

constexpr bool COUNTS_HEAP = !PELCLOUD_SANITIZED; // the sanitizers have an allocator of their own

/** A client that counts its runs. */
class Client : public PelCloudClient
{
public:
    /** Waits for `count` more runs. */
    void awaitRuns(unsigned count)
    {
        ::alarm(120); // ends the process when no run comes
        const unsigned enough = runs + count;
        for (unsigned now = runs; now < enough; now = runs)
            runs.wait(now);
    }
    std::atomic<unsigned> runs = 0;

    void OnTimer() override
    {
        PelCloudClient::OnTimer();
        ++runs;
        runs.notify_all();
    }
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
    /** Sets other faults, or none. */
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
        const std::string files[] = { m_good, m_good, m_good, "{ \"home\": ", "" };
        const std::size_t choice = m_chance() % (std::size(files) + 1);
        if (choice < std::size(files))
            config(files[choice]);
        else
            fs::remove(m_home + "pelcloud.json");
    }
    /** Measures the client between two runs, of which the first has no faults. */
    Usage measured(Client &client)
    {
        faults("");
        config(m_good);
        client.stop();
        client.setInterval(INT_MAX);
        EXPECT_EQ(client.start(), 0);
        client.OnTimer();
        removeOldLogs();
        const Usage usage;
        client.stop();
        client.setInterval(1);
        EXPECT_EQ(client.start(), 0);
        return usage;
    }
    void removeOldLogs() const
    {
        for (const auto &file : fs::directory_iterator(m_home)) {
            if (file.path().filename().string().starts_with("pelcloud_"))
                fs::remove(file);
        }
    }

    const std::string m_home = GetPelorinPath();
    LocalCloud m_cloud{ SEED_OF_ONE_CLIENT, { "--quiet" } };
    const std::string m_good =
            QJsonDocument(configOfOneClient(m_cloud.address("api"))).toJson().toStdString();
    std::mt19937 m_chance{ 1 };
};

TEST_F(Soak, KeepsMemoryFilesAndThreads)
{
    const char *const setting = std::getenv("PELCLOUD_SOAK_RUNS"); // NOLINT(concurrency-mt-unsafe)
    const unsigned runs = setting != nullptr ? static_cast<unsigned>(std::atol(setting)) : 3000;
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
    for (unsigned changes = 1; client.runs < runs && !HasFatalFailure(); ++changes) {
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
                runs / 10, early.heap, early.files, early.threads, client.runs.load(), late.heap,
                late.files, late.threads);
    EXPECT_LE(late.heap, early.heap + HEAP_TOLERANCE);
    EXPECT_EQ(late.files, early.files);
    EXPECT_EQ(late.threads, early.threads);
}

} // namespace

int main(int argc, char **argv)
{
    // One heap for all threads, and no freed memory that counts as in use.
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the only thread
    ::setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=1", 1);
    return runTestsInside(argc, argv, UPSCLI_FILE);
}
