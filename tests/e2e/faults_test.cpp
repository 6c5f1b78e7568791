// Faults of the system around the shipped plug-in. Each befalls a run of a real host, or several;
// when it has ended, the next run must report as if nothing had been. All at once, since runs are
// ten seconds apart.

#include "tests/e2e/installation.h"
#include "tests/support/loopbackserver.h"

#include <gtest/gtest.h>

#include <future>
#include <sys/resource.h>
#include <thread>

#include <QJsonArray>

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

struct Life
{
    Life()
    {
        home.writeScenario("units = 1\n");
        reportTo(cloud.address("api"));
    }
    void reportTo(const std::string &address) const
    {
        home.writeConfig(configOfOneClient(address));
    }
    void start(std::vector<std::string> variables = {}, const std::string &directory = "")
    {
        host = home.startHost(cloud.address("proxy"), std::move(variables), directory);
        EXPECT_EQ(host->readLine(), "loaded " + home.file("pelcloud.so"));
        EXPECT_EQ(host->readLine(), "SrvStart: 1");
    }
    /** Reads the cloud's lines up to that of a unit's report which arrives after this call. */
    bool reports()
    {
        const std::string reports = cloud.address("api") + "/api/reports";
        const Reply before = ask(reports);
        EXPECT_EQ(before.status, 200);
        const int last = before.json()["number"].toInt();
        const std::string later = reports + "?since=" + std::to_string(last);
        while (!cloud.readLine().empty()) {
            for (const QJsonValue report : ask(later).json()["reports"].toArray()) {
                if (report["computer"] == "pc1" && report["device"] == "000")
                    return true;
            }
        }
        return false;
    }
    void stop() const
    {
        host->signal(SIGTERM);
        EXPECT_EQ(host->wait(), 0) << host->readAll();
    }

    LocalCloud cloud;
    Installation home;
    std::unique_ptr<Process> host;
};

/** Sends the same bytes to whoever connects, whatever he says: once, slowly, or without end. */
class RawServer
{
public:
    enum class Manner { Once, ByteASecond, WithoutEnd };

    RawServer(std::string bytes, std::string repeated, Manner manner)
        : m_bytes(std::move(bytes))
        , m_repeated(std::move(repeated))
        , m_manner(manner)
    {
        auto *const address = reinterpret_cast<sockaddr *>(&m_address);
        socklen_t size = sizeof m_address;
        if (bind(m_listener, address, size) == 0 && listen(m_listener, SOMAXCONN) == 0)
            getsockname(m_listener, address, &size);
    }
    ~RawServer()
    {
        shutdown(m_listener, SHUT_RDWR);
        m_server.wait();
        close(m_listener);
    }
    RawServer(const RawServer &) = delete;
    RawServer &operator=(const RawServer &) = delete;

    [[nodiscard]] std::string host() const
    {
        return "127.0.0.1:" + std::to_string(ntohs(m_address.sin_port));
    }

private:
    void serve() const
    {
        for (int socket = 0; (socket = accept(m_listener, nullptr, nullptr)) >= 0;) {
            char request[4096];
            std::ignore = recv(socket, request, sizeof request, 0);
            if (m_manner == Manner::ByteASecond) {
                for (const char byte : m_bytes) {
                    std::this_thread::sleep_for(1s);
                    LoopbackServer::send(socket, std::string(1, byte));
                }
            } else {
                LoopbackServer::send(socket, m_bytes);
            }
            while (m_manner == Manner::WithoutEnd && LoopbackServer::send(socket, m_repeated)) {
            }
            close(socket);
        }
    }

    std::string m_bytes;
    std::string m_repeated;
    Manner m_manner;
    int m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in m_address{ AF_INET, 0, { htonl(INADDR_LOOPBACK) }, {} };
    std::future<void> m_server = std::async(std::launch::async, [this] { serve(); });
};

/** The cloud's address leads to somebody else for a run. */
struct Stranger
{
    const char *name;
    const char *scheme;
    std::string bytes;
    std::string repeated;
    RawServer::Manner manner;
};

void meets(const Stranger &stranger)
{
    const RawServer server(stranger.bytes, stranger.repeated, stranger.manner);
    Life life;
    life.reportTo(stranger.scheme + server.host());
    life.start({ "NO_PROXY=127.0.0.1" });
    EXPECT_TRUE(life.home.awaitLog("HTTP POST " + (stranger.scheme + server.host())
                                   + "/_ah/api/pelorin/v1/mon/pc1/device/000 error."));
    EXPECT_EQ(life.home.countInLog("/mon/pc1 error."), 1);
    life.reportTo(life.cloud.address("api"));
    EXPECT_TRUE(life.reports());
    life.stop();
}

void findsNoCloud()
{
    const LoopbackServer refusing;
    for (const std::string &address :
         { "http://" + refusing.host(), "http://" + std::string(64, 'x') + ".invalid" }) {
        Life life;
        life.reportTo(address);
        life.start();
        EXPECT_TRUE(life.home.awaitLog(" error.\n", 2));
        life.reportTo(life.cloud.address("api"));
        EXPECT_TRUE(life.reports());
        life.stop();
    }
}

void cannotWriteItsLog(const std::function<void(const fs::path &)> &spoil)
{
    Life life;
    const fs::path log = life.home.file("pelcloud.log");
    spoil(log);
    life.start();
    EXPECT_TRUE(life.reports());
    fs::remove(log);
    EXPECT_TRUE(life.reports());
    EXPECT_TRUE(life.home.awaitLog("device/000 OK."));
    life.stop();
}

void losesItsWorkingDirectory()
{
    Life life;
    fs::create_directory(life.home.file("work"));
    life.start({}, "work");
    fs::remove_all(life.home.file("work"));
    EXPECT_TRUE(life.reports());
    EXPECT_TRUE(life.reports());
    EXPECT_TRUE(life.home.awaitLog("device/000 OK.", 2));
    life.stop();
}

void runsOutOfFileDescriptors()
{
    Life life;
    life.start();
    EXPECT_TRUE(life.reports());
    const rlimit none{ 0, 4096 };
    EXPECT_EQ(prlimit(life.host->id(), RLIMIT_NOFILE, &none, nullptr), 0);
    std::this_thread::sleep_for(11s); // no event tells of a run that can open nothing
    const rlimit enough{ 1024, 4096 };
    EXPECT_EQ(prlimit(life.host->id(), RLIMIT_NOFILE, &enough, nullptr), 0);
    EXPECT_TRUE(life.reports());
    life.stop();
}

void losesItsLibrary(const std::function<void(const fs::path &)> &spoil)
{
    Life life;
    life.start();
    EXPECT_TRUE(life.reports());
    spoil(life.home.file("upscli.so"));
    EXPECT_TRUE(life.reports());
    life.stop();
}

/** The units misbehave during the first run. */
void hasAFaultyLibrary(const std::string &fault)
{
    Life life;
    life.home.writeScenario("units = 1\n[unit 0]\nfault-until = 15\n" + fault);
    life.start();
    EXPECT_TRUE(life.home.awaitLog("UPSSrvGetState(0)", 1));
    EXPECT_TRUE(life.home.awaitLog("UPSSrvGetState(0)", 2));
    EXPECT_TRUE(life.reports());
    // Looked for now, since the stop may cut the last report off.
    EXPECT_EQ(life.home.countInLog("rror"), 0) << life.home.log();
    life.stop();
}

[[maybe_unused]] void livesThroughAClockThatIsSet(const char *by)
{
    Life life;
    const auto set = [&life](const char *text) {
        written(life.home.file("new-clock"), text);
        fs::rename(life.home.file("new-clock"), life.home.file("clock"));
    };
    set("+0s");
    life.start({ "LD_PRELOAD=" FAKETIME_FILE, "FAKETIME_NO_CACHE=1",
                 "FAKETIME_DONT_FAKE_MONOTONIC=1",
                 "FAKETIME_TIMESTAMP_FILE=" + life.home.file("clock") });
    EXPECT_TRUE(life.reports());
    set(by);
    if (by[0] == '+')
        EXPECT_TRUE(life.reports());
    else
        std::this_thread::sleep_for(3s); // the next run waits until the clock has caught up
    set("+0s");
    EXPECT_TRUE(by[0] == '+' || life.reports());
    life.stop();
}

TEST(Faults, AllAtOnce)
{
    using enum RawServer::Manner;
    const std::string head = "HTTP/1.1 200 OK\r\n";
    const std::vector<Stranger> strangers{
        { "TLS alert", "https://", { "\x15\x03\x03\x00\x02\x02\x28", 7 }, "", Once },
        { "no TLS", "https://", "220 mail.example ESMTP\r\n", "", Once },
        { "no HTTP", "http://", "220 mail.example ESMTP\r\n", "", Once },
        { "one byte a second", "http://", head.substr(0, 9), "", ByteASecond },
        { "endless headers", "http://", head, "X-More: and more\r\n", WithoutEnd },
        { "endless body", "http://", head + "\r\n", std::string(9999, 'x'), WithoutEnd },
    };
    const auto replace = [](const fs::path &library) {
        written(library.string() + ".new", "no library");
        fs::rename(library.string() + ".new", library);
    };
    std::vector<std::pair<std::string, std::function<void()>>> faults
    {
        { "no cloud", findsNoCloud },
                { "log on a full disk",
                  [] {
                      cannotWriteItsLog(
                              [](const auto &log) { fs::create_symlink("/dev/full", log); });
                  } },
                { "log cannot be opened",
                  [] { cannotWriteItsLog([](const auto &log) { fs::create_directory(log); }); } },
                { "no working directory", losesItsWorkingDirectory },
                { "no file descriptors", runsOutOfFileDescriptors },
                { "library removed",
                  [] { losesItsLibrary([](const auto &file) { fs::remove(file); }); } },
                { "library replaced", [&replace] { losesItsLibrary(replace); } },
                { "slow library", [] { hasAFaultyLibrary("delay-ms = 1500\n"); } },
                { "failing library",
                  [] { hasAFaultyLibrary("version-fails = yes\nstate-fails = yes\n"); } },
                { "garbage", [] { hasAFaultyLibrary("garbage = yes\nunterminated = yes\n"); } },
                { "extremes", [] { hasAFaultyLibrary("extreme = yes\n"); } },
                { "no numbers", [] { hasAFaultyLibrary("nan = yes\n"); } },
#if !PELCLOUD_SANITIZED // a sanitizer's runtime must be loaded first
                { "clock set back", [] { livesThroughAClockThatIsSet("-3600s"); } },
                { "clock set forward", [] { livesThroughAClockThatIsSet("+86400s"); } },
#endif
    };
    for (const Stranger &stranger : strangers)
        faults.emplace_back(stranger.name, [&stranger] { meets(stranger); });
    std::vector<std::future<void>> ends;
    ends.reserve(faults.size());
    for (const auto &fault : faults)
        ends.push_back(std::async(std::launch::async, [&fault] {
            SCOPED_TRACE(fault.first);
            fault.second();
        }));
    for (std::future<void> &end : ends)
        end.get();
}

} // namespace
