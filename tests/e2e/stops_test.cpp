// Hosts that are stopped at chance moments of a run. Each must end by exit(0) and soon, whatever
// the plug-in was doing. PELCLOUD_STOPS says how many hosts, PELCLOUD_STOPS_AT_ONCE how many of them
// live at a time, PELCLOUD_STOP_LIMIT_MS how soon they must end.

#include "tests/e2e/installation.h"
#include "tests/support/loopbackserver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <map>
#include <random>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A sanitizer makes each of them several times as heavy.
constexpr int AT_ONCE = PELCLOUD_SANITIZED ? 12 : 20;
constexpr int HOSTS = PELCLOUD_SANITIZED ? 24 : 64;
constexpr int LIMIT_MS = PELCLOUD_SANITIZED ? 20000 : 5000;

/** What a host is doing when it is stopped. */
struct Stage
{
    const char *name;
    const char *scenario;
    std::vector<std::string> options; // of the cloud
    const char *line;                 // of the log, after which the stop comes; null: the start
    int spreadMs;                     // within so much time
    bool isMute = false;              // nobody answers behind the proxy
};

const Stage STAGES[] = {
    { "call of the library", "[unit *]\ndelay-ms = 60\n", {}, "UPSSrvGetState(0)", 60 },
    { "call that hangs",
      "stop-delay-ms = 60000\n[unit *]\ndelay-ms = 60000\n",
      {},
      "UPSSrvGetVersionInfo",
      20 },
    { "TLS handshake", "", {}, "Computer: Os:", 12 },
    { "handshake without an answer", "", {}, "Computer: Os:", 20, true },
    { "token request", "", { "--fault", "token:slow:seconds=0.3" }, "Computer: Os:", 300 },
    { "report", "", { "--fault", "api:slow:seconds=0.3" }, "Computer: Os:", 600 },
    { "write of the log",
      "units = 999\n[unit *]\nversion-fails = yes\nstate-fails = yes\n",
      {},
      "UPSSrvGetState(0)",
      60 },
    { "nothing", "", {}, nullptr, 3000 },
};

/** A proxy behind which nobody ever answers. */
bool muteTunnel(int socket, const LoopbackServer::Request &)
{
    return LoopbackServer::send(socket, "HTTP/1.1 200 OK\r\n\r\n");
}

int setting(const char *name, int otherwise)
{
    const char *const text = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    return text != nullptr ? std::atoi(text) : otherwise;
}

/** Stops the host, which must end with status 0; the time that it took. */
milliseconds stop(Process &host)
{
    const auto before = Clock::now();
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0) << host.readAll();
    return std::chrono::duration_cast<milliseconds>(Clock::now() - before);
}

milliseconds limit()
{
    return milliseconds(setting("PELCLOUD_STOP_LIMIT_MS", LIMIT_MS));
}

/** A host's whole life; the time from the signal to its end. */
milliseconds stopped(const Stage &stage, LocalCloud &cloud, const std::string &proxy, int delayMs)
{
    SCOPED_TRACE(std::string(stage.name) + ", " + std::to_string(delayMs) + " ms");
    const Installation home;
    home.writeScenario(stage.scenario);
    home.writeConfig(configOfOneClient(cloud.address("api")));
    const auto host = home.startHost(proxy);
    EXPECT_TRUE(home.awaitLog(stage.line != nullptr ? stage.line : "Start service: OK."));
    std::this_thread::sleep_for(milliseconds(delayMs));
    const milliseconds time = stop(*host);
    const std::string log = home.log();
    EXPECT_NE(log.find("} Stopping service.\n"), std::string::npos) << log;
    return time;
}

void printHistogram(std::vector<milliseconds> times)
{
    std::sort(times.begin(), times.end());
    std::map<long, int> buckets;
    for (const milliseconds time : times)
        ++buckets[time.count() / 50 * 50];
    std::printf("%zu hosts stopped; half of them within %ld ms, all within %ld ms\n", times.size(),
                times[times.size() / 2].count(), times.back().count());
    for (const auto &[from, count] : buckets)
        std::printf("%4ld to %4ld ms: %d\n", from, from + 49, count);
}

TEST(Stops, EndHostsWell)
{
    const std::size_t hosts = static_cast<std::size_t>(setting("PELCLOUD_STOPS", HOSTS));
    const std::size_t atOnce = static_cast<std::size_t>(setting("PELCLOUD_STOPS_AT_ONCE", AT_ONCE));
    LoopbackServer mute(muteTunnel);
    std::vector<std::unique_ptr<LocalCloud>> clouds;
    for (const Stage &stage : STAGES) {
        std::vector<std::string> options = stage.options;
        options.emplace_back("--quiet");
        clouds.push_back(std::make_unique<LocalCloud>(SEED_OF_ONE_CLIENT, options));
    }
    std::mt19937 chance(std::random_device{}());

    std::vector<std::future<milliseconds>> ends;
    std::vector<milliseconds> times;
    for (std::size_t i = 0; i < hosts; ++i) {
        if (i >= atOnce)
            times.push_back(ends[i - atOnce].get());
        const std::size_t number = i % std::size(STAGES);
        const Stage &stage = STAGES[number];
        const int delay = std::uniform_int_distribution(0, stage.spreadMs)(chance);
        ends.push_back(std::async(
                std::launch::async, stopped, std::cref(stage), std::ref(*clouds[number]),
                stage.isMute ? "http://" + mute.host() : clouds[number]->address("proxy"), delay));
    }
    for (std::future<milliseconds> &end : ends) {
        if (end.valid())
            times.push_back(end.get());
    }
    printHistogram(times);
    EXPECT_LE(*std::max_element(times.begin(), times.end()), limit());
}

/** What a library may do to the plug-in, of its own code beside the entries too. */
TEST(Stops, RogueLibrariesDoNotKeepAHost)
{
    const struct
    {
        const char *behaviour;
        const char *line; // of the log, to be awaited; null: the deed
        int lines;
        const char *end; // of the log; null: a run may have written once more after the stop
    } rows[] = {
        { "hangs when it is unloaded", "Start service: OK.", 1, "Unloading upscli library.\n" },
        { "hangs at the end of the process", nullptr, 0, "Stopping service.\n" },
        { "throws in a run", "Unknown error in polling cycle.", 2, "Stopping service.\n" },
        { "throws in a run after the stop", nullptr, 0, nullptr },
        { "throws when it is stopped", "Start service: OK.", 1,
          "Unknown error stopping service.\n" },
        { "has units without end", "UPSSrvGetState(99)", 1, nullptr },
    };
    std::vector<std::future<void>> ends;
    for (const auto &row : rows) {
        ends.push_back(std::async(std::launch::async, [&row] {
            SCOPED_TRACE(row.behaviour);
            const Installation home(ROGUE_FILE);
            home.writeConfig("{ \"log\": \"info\" }");
            const auto isDone = [&home] { return std::filesystem::exists(home.file("deed")); };
            const auto host = home.startHost("", { std::string("ROGUE=") + row.behaviour,
                                                   "ROGUE_DEED=" + home.file("deed") });
            if (row.line != nullptr)
                EXPECT_TRUE(home.awaitLog(row.line, row.lines));
            else
                EXPECT_TRUE(home.await(isDone));
            EXPECT_LE(stop(*host), limit());
            EXPECT_TRUE(isDone());
            const std::string log = home.log();
            if (row.end != nullptr) {
                EXPECT_TRUE(log.ends_with(std::string("} ") + row.end)) << log;
            }
            EXPECT_EQ(log.find("[]"), std::string::npos) << "a line without a time: Qt was gone";
        }));
    }
    for (std::future<void> &end : ends)
        end.get();
}

} // namespace
