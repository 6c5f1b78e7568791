// Hosts that are stopped at random moments of a run. Each must end with status 0 and in time, whatever
// the network and the suite's library do. PELCLOUD_STOPS is the number of hosts, PELCLOUD_STOPS_AT_ONCE
// how many of them run at a time, PELCLOUD_STOP_SLACK_MS how long a stop may take beside the library.

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
constexpr int STOPS_PER_STAGE = PELCLOUD_SANITIZED ? 2 : 4;
constexpr int SLACK_MS = PELCLOUD_SANITIZED ? 20000 : 5000;
constexpr const char *LAST_LINE = "[TIME] [Info] {PelCloud} upscli library still in memory 5 s "
                                  "after the stop, ending the process.\n";
constexpr int HANGS = 5000; // milliseconds until the watchdog ends the process

/** What a host is doing when it is stopped. */
struct Stage
{
    const char *name;
    const char *scenario;
    int libraryMs;                    // that the library itself takes to stop
    const char *line;                 // of the log, after which the stop comes; null: the start
    int spreadMs;                     // within so much time
    std::vector<std::string> cloud{}; // options
    std::vector<std::string> host{};  // options
    bool isMute = false;              // nobody answers behind the proxy
};

const char *const VERSION = "UPSSrvGetVersionInfo";

const Stage STAGES[] = {
    { "library call", "[unit *]\ndelay-ms = 60\n", 60, "UPSSrvGetState(0)", 60 },
    { "TLS handshake", "", 0, "Computer: Os:", 12 },
    { "handshake without an answer", "", 0, "Computer: Os:", 20, {}, {}, true },
    { "token request", "", 0, "Computer: Os:", 300, { "--fault", "token:slow:seconds=0.3" } },
    { "report", "", 0, "Computer: Os:", 600, { "--fault", "api:slow:seconds=0.3" } },
    { "log write", "units = 999\n[unit *]\nversion-fails = yes\nstate-fails = yes\n", 0,
      "UPSSrvGetState(0)", 60 },
    { "idle", "", 0, nullptr, 3000 },
    { "call that CliStop wakes",
      "stop-wakes-calls = yes\nlinger-ms = 50\n[unit *]\ndelay-ms = 60000\n", 250, VERSION, 20 },
    { "call that CliStop wakes, slowly",
      "stop-wakes-calls = yes\nlinger-ms = 400\n[unit *]\ndelay-ms = 60000\n", 600, VERSION, 20 },
    { "worker that polls", "worker-poll-ms = 500\n", 500, nullptr, 3000 },
    { "worker that polls slowly", "worker-poll-ms = 2000\n", 2000, nullptr, 3000 },
    { "slow CliStop and destructor", "stop-delay-ms = 302\ndestructor-delay-ms = 5\n", 307, VERSION,
      20 },
    { "slow CliStop", "stop-delay-ms = 1500\n", 1500, VERSION, 20 },
    // The handler takes longer than the watchdog waits.
    { "slow exit handler of the host", "", 6000, VERSION, 20, {}, { "--exit-handler-ms", "6000" } },
    { "stop without threads", "", 0, VERSION, 20, {}, { "--stop-without-threads" } },
    { "hanging call and CliStop", "stop-delay-ms = 60000\n[unit *]\ndelay-ms = 60000\n", HANGS,
      VERSION, 20 },
    { "hanging call and ELF destructor",
      "elf-destructor-delay-ms = 60000\n[unit *]\ndelay-ms = 60000\n", HANGS, VERSION, 20 },
    { "hanging destructor after a request",
      "destructor-delay-ms = 60000\n",
      HANGS,
      "Computer: Os:",
      600,
      { "--fault", "api:slow:seconds=0.3" } },
    { "hanging destructor of a library that stays mapped",
      "stays-mapped = yes\ndestructor-delay-ms = 60000\n", HANGS, nullptr, 20 },
    { "hanging destructor, no threads",
      "destructor-delay-ms = 60000\n",
      HANGS,
      VERSION,
      20,
      {},
      { "--stop-without-threads" } },
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

struct Stopped
{
    milliseconds time; // from the signal to the end
    std::string output;
};

/** Stops the host, which must end with status 0 within `limit` and the slack. */
Stopped stop(Process &host, milliseconds limit)
{
    const auto before = Clock::now();
    host.signal(SIGTERM);
    Stopped stopped;
    stopped.output = host.readAll();
    EXPECT_EQ(host.wait(), 0) << stopped.output;
    stopped.time = std::chrono::duration_cast<milliseconds>(Clock::now() - before);
    EXPECT_LE(stopped.time, limit + milliseconds(setting("PELCLOUD_STOP_SLACK_MS", SLACK_MS)));
    return stopped;
}

/** A host's whole life; the time that its stop took. */
milliseconds stopped(const Stage &stage, LocalCloud &cloud, const std::string &proxy, int delayMs)
{
    SCOPED_TRACE(std::string(stage.name) + ", " + std::to_string(delayMs) + " ms");
    const Installation home;
    home.writeScenario(stage.scenario);
    home.writeConfig(configOfOneClient(cloud.address("api")));
    const auto host = home.startHost(proxy, {}, "", stage.host);
    EXPECT_TRUE(home.awaitLog(stage.line != nullptr ? stage.line : "Start service: OK."));
    std::this_thread::sleep_for(milliseconds(delayMs));
    const auto [time, output] = stop(*host, milliseconds(stage.libraryMs));

    const std::string log = home.log();
    const bool hasExited =
            output.find("exited by the plug-in during SrvStop, status 0") != std::string::npos;
    if (stage.libraryMs == HANGS) {
        EXPECT_TRUE(log.ends_with(LAST_LINE)) << log;
    } else {
        EXPECT_TRUE(hasExited) << output;
        EXPECT_NE(log.find("} Unloading upscli library.\n"), std::string::npos) << log;
        EXPECT_TRUE(log.ends_with("} Stopping service.\n")) << log;
        EXPECT_EQ(log.find("rror"), std::string::npos) << log; // of a request that was given up
    }
    EXPECT_EQ(std::ranges::count(stage.host, "--exit-handler-ms") != 0,
              output.find("exit handler done") != std::string::npos)
            << output;
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

TEST(Stops, EndHostsInTime)
{
    const std::size_t hosts = static_cast<std::size_t>(
            setting("PELCLOUD_STOPS", STOPS_PER_STAGE * std::ssize(STAGES)));
    const std::size_t atOnce = static_cast<std::size_t>(setting("PELCLOUD_STOPS_AT_ONCE", AT_ONCE));
    LoopbackServer mute(muteTunnel);
    std::vector<std::unique_ptr<LocalCloud>> clouds;
    for (const Stage &stage : STAGES) {
        std::vector<std::string> options = stage.cloud;
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
}

/** What a library may do to the plug-in, of its own code beside the entries too. */
TEST(Stops, EndHostsOfRogueLibraries)
{
    const struct
    {
        const char *behaviour;
        const char *line; // of the log, to be awaited; null: the deed
        int lines;
        const char *end; // of the log
    } rows[] = {
        { "hangs when it is unloaded", "Start service: OK.", 1, LAST_LINE },
        { "hangs at the end of the process", nullptr, 0, LAST_LINE },
        { "throws in a run", "Unknown error in polling cycle.", 2, "} Stopping service.\n" },
        { "throws in a run after the stop", nullptr, 0, "} Stopping service.\n" },
        { "throws when it is stopped", "Start service: OK.", 1,
          "} Unknown error stopping service.\n" },
        { "has units without end", "UPSSrvGetState(99)", 1, "} Stopping service.\n" },
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
            stop(*host, milliseconds(row.end == LAST_LINE ? HANGS : 300));
            EXPECT_TRUE(isDone());
            EXPECT_TRUE(home.log().ends_with(row.end)) << home.log();
        }));
    }
    for (std::future<void> &end : ends)
        end.get();
}

} // namespace
