// The client against the simulated suite library and a cloud on loopback, run by run. The program
// copies itself into a directory of its own first: the installation directory is its program's.

#include "logging/qlogger.h"
#include "plugin/constants.h"
#include "plugin/dlpelcloud.h"
#include "support/config.h"
#include "tests/support/loopbackserver.h"
#include "tests/support/testsinside.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <QJsonDocument>

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

/** A client whose runs come when the test wants them. */
class Client : public PelCloudClient
{
public:
    using PelCloudClient::auth;
    using PelCloudClient::logLevelText;
};

/** An installation directory, a log at Info, and a cloud that answers tokens as it is told. */
class ClientTest : public testing::Test
{
protected:
    ClientTest()
    {
        GoogleAuth::GOOGLE_OAUTH2_GET_TOKEN = server.url("/oauth2/v4/token").toString();
        QLogger::QLoggerManager::getInstance()->addDestination(QString::fromStdString(log),
                                                               { Constants::LOG_MODULE_NAME },
                                                               QLogger::LogLevel::Info);
        logWriter()->setLogLevel(QLogger::LogLevel::Info);
        client.setInterval(3600 * 1000);
        fs::remove_all(home + "pelcloud.json");
        messages();
    }
    ~ClientTest() override { client.stop(); }

    static QLogger::QLoggerWriter *logWriter()
    {
        return QLogger::QLoggerManager::getInstance()->getLogWriter(Constants::LOG_MODULE_NAME);
    }
    void scenario(const std::string &text) const { std::ofstream(home + "scenario.ini") << text; }
    void config(QJsonObject object) const
    {
        object.insert("home", server.url("").toString());
        object.insert("cpid", "pc1");
        writeConfig(QJsonDocument(object).toJson().toStdString());
    }
    void writeConfig(const std::string &text) const
    {
        std::ofstream(home + "pelcloud.json", std::ios::binary) << text;
    }

    /** How many requests a run sends. */
    int run()
    {
        const int before = requests;
        client.OnTimer();
        return requests - before;
    }
    /** The log's messages since the last call; the directory reads as HOME. */
    Lines messages()
    {
        std::ifstream file(log);
        Lines lines;
        for (std::string line; std::getline(file, line);) {
            line.erase(0, line.find("} ") + 2);
            if (const auto at = line.find(home); at != std::string::npos)
                line.replace(at, home.size(), "HOME/");
            lines.push_back(line);
        }
        const std::ofstream emptied(log, std::ios::trunc);
        return lines;
    }

    const std::string home = GetPelorinPath();
    const std::string log = home + "pelcloud.log";
    std::atomic<int> requests = 0;
    LoopbackServer server{ [this](int socket, const LoopbackServer::Request &) {
        ++requests;
        return LoopbackServer::reply(socket, R"({"access_token":"s3cr3t-a","expires_in":3600})");
    } };
    Client client;
};

TEST_F(ClientTest, StartSaysWhatFailed)
{
    fs::rename(home + "upscli.so", home + "away");
    EXPECT_EQ(client.stop(), 0);
    EXPECT_EQ(client.start(), 4);
    EXPECT_EQ(client.stop(), 0);
    fs::rename(home + "away", home + "upscli.so");
    scenario("cli-start-fails = yes\n");
    EXPECT_EQ(client.start(), 5);
    EXPECT_EQ(client.stop(), 0);
    scenario("");
    EXPECT_EQ(client.start(), 0);
    EXPECT_EQ(client.stop(), 0);
    EXPECT_EQ(messages(),
              (Lines{ "Loading library 'HOME/upscli.so'.", "Error loading 'HOME/upscli.so'.",
                      "Loading library 'HOME/upscli.so'.", "Starting library 'HOME/upscli.so'.",
                      "Error starting 'HOME/upscli.so'.", "Unloading upscli library.",
                      "Loading library 'HOME/upscli.so'.", "Starting library 'HOME/upscli.so'.",
                      "Stopping upscli library.", "Unloading upscli library." }));
}

TEST_F(ClientTest, ABadConfigurationKeepsWhatIsHeld)
{
    const Lines opening{ "Error opening config file 'HOME/pelcloud.json'." };
    const Lines reading{ "Error reading config file 'HOME/pelcloud.json'." };
    const std::string path = home + "pelcloud.json";
    const std::string huge(100'000'000, 'x');
    const struct
    {
        const char *name;
        std::function<void()> make;
        int result;
        Lines messages;
    } rows[] = {
        { "missing", [] {}, 2, opening },
        { "directory", [&] { fs::create_directory(path); }, 2, opening },
        { "pipe", [&] { ::mkfifo(path.c_str(), 0600); }, 2, opening },
        { "empty", [&] { writeConfig(""); }, 2, reading },
        { "no JSON", [&] { writeConfig("{\"log\""); }, 2, {} },
        { "array", [&] { writeConfig("[1]"); }, 2, {} },
        { "empty object", [&] { writeConfig("{}"); }, 2, {} },
        { "deep", [&] { writeConfig("{\"a\":" + std::string(5000, '[')); }, 2, {} },
        { "invalid UTF-8", [&] { writeConfig("{\"log\":\"\xff\"}"); }, 2, {} },
        { "100 MB", [&] { writeConfig("{\"a\":\"" + huge + "\"}"); }, 0, {} },
        { "only a level", [&] { writeConfig("{\"log\":\"debug\"}"); }, 0, {} },
    };
    for (const auto &row : rows) {
        fs::remove_all(path);
        client.auth().getToken().setComputerId("held");
        row.make();
        EXPECT_EQ(client.readConfigFromFile(), row.result) << row.name;
        EXPECT_EQ(messages(), row.messages) << row.name;
        EXPECT_EQ(client.auth().getToken().getComputerId(), row.result == 0 ? "" : "held")
                << row.name;
    }
    EXPECT_EQ(client.logLevelText(), "debug");

    fs::remove_all(path);
    fs::create_symlink("/dev/full", path);
    EXPECT_EQ(client.writeConfigToFile(), 2);
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_EQ(client.writeConfigToFile(), 2);
    EXPECT_EQ(messages(), (Lines{ "Error writing config file 'HOME/pelcloud.json'.",
                                  "Error opening (to write) config file 'HOME/pelcloud.json'." }));
}

TEST_F(ClientTest, TheLogFollowsTheConfiguration)
{
    const std::pair<const char *, QLogger::LogLevel> rows[] = {
        { "error", QLogger::LogLevel::Error },   { "Warning", QLogger::LogLevel::Warning },
        { "INFO", QLogger::LogLevel::Info },     { "debug", QLogger::LogLevel::Debug },
        { "trace", QLogger::LogLevel::Trace },   { "fatal", QLogger::LogLevel::Fatal },
        { "verbose", QLogger::LogLevel::Fatal }, { "", QLogger::LogLevel::Fatal },
    };
    for (const auto &[text, level] : rows) {
        config({ { "log", text } });
        client.OnTimer();
        EXPECT_EQ(logWriter()->getLogLevel(), level) << text;
    }
    config({ { "log", "info" } });
    client.OnTimer();
    fs::remove(home + "pelcloud.json");
    client.OnTimer();
    EXPECT_EQ(logWriter()->getLogLevel(), QLogger::LogLevel::Info); // stays as it was
}

TEST_F(ClientTest, StopWaitsForTheRunAndStartAllowsTheNext)
{
    scenario("units = 1\n[unit 0]\ndelay-ms = 600\n");
    config({ { "rtk", "s3cr3t-r" }, { "log", "info" } });
    ASSERT_EQ(client.start(), 0);
    messages();
    auto running = std::async(std::launch::async, [this] { client.OnTimer(); });
    while (fs::file_size(log) == 0) // until "UPSSrvGetVersionInfo..."
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(client.stop(), 0);
    // The run has released its lock; its thread may still be returning.
    EXPECT_EQ(running.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    const Lines lines = messages();
    EXPECT_EQ(std::ranges::count(lines, "Unloading upscli library."), 1);
    EXPECT_EQ(run() + requests, 0);
    EXPECT_EQ(messages(), Lines()) << "a run after the stop";

    scenario("units = 1\n");
    ASSERT_EQ(client.start(), 0);
    EXPECT_EQ(run(), 3);
    config({});
    EXPECT_EQ(run(), 0); // nothing to sign in with
}

TEST_F(ClientTest, StartFailsWithoutAThread)
{
    pthread_attr_t usual, impossible;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    pthread_attr_init(&impossible);
    pthread_attr_setstacksize(&impossible, std::size_t(1) << 50U);
    pthread_setattr_default_np(&impossible);
    fs::rename(home + "upscli.so", home + "away");
    fs::copy_file(ROGUE_FILE, home + "upscli.so"); // which needs no thread itself
    EXPECT_EQ(client.start(), 6);
    pthread_setattr_default_np(&usual);
    EXPECT_EQ(messages(),
              (Lines{ "Loading library 'HOME/upscli.so'.", "Starting library 'HOME/upscli.so'.",
                      "Stopping upscli library.", "Unloading upscli library.",
                      "Unknown error loading upscli library." }));
    fs::rename(home + "away", home + "upscli.so");
    EXPECT_EQ(client.start(), 0);
}

TEST(Library, EntriesLiveAsLongAsACopy)
{
    const std::string path = GetPelorinPath() + "upscli.so";
    fs::remove(GetPelorinPath() + "scenario.ini");
    UpsCliDL library;
    EXPECT_FALSE(library.Load("") || library.Load(nullptr) || library.Load("/nowhere.so"));
    EXPECT_FALSE(library.GetLastErrorStr().empty());
    ASSERT_TRUE(library.Load(path));
    EXPECT_NE(library.ParseUPSState, nullptr);
    const UpsCliDL copy = library;
    EXPECT_TRUE(library.Unload());
    EXPECT_TRUE(!library.IsLoaded() && library.CliStart == nullptr);
    void *const handle = copy.CliStart();
    EXPECT_EQ(copy.GetServerCount(handle), 3UL);
    copy.CliStop(handle);
    ASSERT_TRUE(library.Load("libc.so.6")); // lacks every entry
    EXPECT_EQ(library.CliStart, nullptr);

    ASSERT_TRUE(library.Load(path));
    static_cast<DLClass &>(library) = DLClass();
    EXPECT_TRUE(!library.IsLoaded() && library.CliStart == nullptr);
}

TEST(EntryPoints, IgnoreNullHandles)
{
    void *service = nullptr;
    EXPECT_EQ(SrvStart(nullptr), 0);
    EXPECT_EQ(SrvStop(nullptr), 1);
    EXPECT_EQ(SrvStop(&service), 1);
}

} // namespace

int main(int argc, char **argv)
{
    return runTestsInside(argc, argv, UPSCLI_FILE);
}
