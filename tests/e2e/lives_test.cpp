// The shipped plug-in in real hosts, with the simulated suite and the local cloud, from the start
// of a life to its end. The first run comes ten seconds after the start, so all lives are lived at
// once.

#include "tests/e2e/installation.h"

#include <gtest/gtest.h>

#include <future>

#include <QJsonArray>

namespace {

const std::string MON = "/_ah/api/pelorin/v1/mon/";
const std::string COMPUTER_OF_GATE_HOUSE = "units = 1\ntime-scale = 0.001\n"
                                           "[unit *]\nnoise = 0\nsamples = 3\n"
                                           "[unit 0]\nname = Gate house\n";

/** One life: an installation and a cloud of its own. */
struct Life
{
    explicit Life(const std::vector<std::string> &options = {},
                  const char *seed = SEED_OF_ONE_CLIENT)
        : cloud(seed, options)
    {}
    /** A configuration that can sign in, reporting at Info. */
    QJsonObject refreshing() { return configOfOneClient(cloud.address("api")); }
    QJsonObject refreshingWith(const char *key, const QJsonValue &value)
    {
        QJsonObject object = refreshing();
        object[QLatin1String(key)] = value;
        return object;
    }

    void start() { host = home.startHost(cloud.address("proxy")); }
    /** Stops the host as the suite does; it must end in the one way that there is. */
    void stop() const
    {
        host->signal(SIGTERM);
        EXPECT_EQ(host->readAll(), "loaded " + home.file("pelcloud.so")
                                           + "\nSrvStart: 1\nreceived SIGTERM\nstopping\n"
                                             "exited by the plug-in during SrvStop, status 0\n");
        EXPECT_EQ(host->wait(), 0);
    }

    QJsonArray requests()
    {
        return ask(cloud.address("api") + "/api/requests").json()["requests"].toArray();
    }
    /** The requests with the status of their answers, less the tunnels that they went through. */
    std::string requestLines()
    {
        std::string lines;
        for (const QJsonValue request : requests()) {
            if (request["method"] == "CONNECT")
                continue;
            std::string path = request["path"].toString().toStdString();
            if (path.starts_with(MON))
                path.erase(0, MON.size());
            lines.append(lines.empty() ? "" : ", ")
                    .append(request["method"].toString().toStdString())
                    .append(" ")
                    .append(path == "/oauth2/v4/token" ? "token" : path)
                    .append(" ")
                    .append(std::to_string(request["status"].toInt()));
        }
        return lines;
    }

    /** The log's messages that tell of an error, a line each. */
    [[nodiscard]] std::string errors() const
    {
        std::istringstream log(home.log());
        std::string errors;
        for (std::string line; std::getline(log, line);) {
            const std::string message = line.substr(line.find("} ") + 2);
            if (message.starts_with("Error ") || message.find(" error") != std::string::npos)
                errors += message + '\n';
        }
        return errors;
    }

    LocalCloud cloud;
    Installation home;
    std::unique_ptr<Process> host;
};

std::string golden(const char *name)
{
    return contentOf(std::string(PELCLOUD_GOLDEN_DIR "/") + name);
}

/** `text` with each `word` replaced. */
std::string replaced(std::string text, const std::string &word, const std::string &by)
{
    for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += by.size())
        text.replace(at, word.size(), by);
    return text;
}

void sendsTheseBytes()
{
    Life life;
    life.home.writeScenario("units = 2\ntime-scale = 0.001\nos = Linux 6.1.0 x86_64\n"
                            "[unit *]\nnoise = 0\nsamples = 3\n"
                            "[unit 0]\nname = Gate house\ntimeline = mains 100\n"
                            "[unit 1]\nname = Rack \"B\"\nfamily = 3\nmodel = 8\nvoltage = 115\n"
                            "power = 999999.9\ntimeline = outage 100\n");
    life.home.writeConfig(life.refreshing());
    life.start();
    ASSERT_TRUE(life.home.awaitLog("device/001 OK.", 2));
    life.stop();

    const std::string run = "POST token 200, PUT pc1 200, POST pc1/device/000 200, "
                            "PUT pc1 200, POST pc1/device/001 200";
    EXPECT_EQ(life.requestLines(), run + ", " + run);
    const QJsonArray requests = life.requests();
    EXPECT_EQ(requests[0]["path"], "www.googleapis.com:443");
    // Ours in the order of their names. "Expect" is libcurl's, which no longer sends it with a small PUT.
    const std::string headers = "Host User-Agent Accept Authorization Content-Type Content-Length ";
    const char *const bodies[] = { "wire_token.txt", "wire_computer.json", "wire_unit0.json",
                                   "wire_computer.json", "wire_unit1.json" };
    int compared = 0;
    for (const QJsonValue request : requests) {
        if (request["method"] == "CONNECT")
            continue;
        const char *const name = bodies[compared++ % 5];
        EXPECT_EQ(QByteArray::fromBase64(request["base64"].toString().toLatin1()).toStdString(),
                  golden(name))
                << name;
        EXPECT_EQ(request["values"]["User-Agent"], "pelcloud/6.3") << name;
        if (name != bodies[0]) {
            std::string names;
            for (const QJsonValue header : request["headers"].toArray())
                names += header == "Expect" ? "" : header.toString().toStdString() + ' ';
            EXPECT_EQ(names, headers) << name;
        }
    }
    EXPECT_EQ(compared, 10);
    EXPECT_EQ(replaced(life.home.log(), life.cloud.address("api"), "API"), golden("life_info.log"));
}

void worksWithoutALog()
{
    Life life;
    life.home.writeScenario(COMPUTER_OF_GATE_HOUSE);
    QJsonObject config = life.refreshing();
    config.remove("log");
    life.home.writeConfig(config);
    const std::string before = contentOf(life.home.file("pelcloud.json"));
    life.start();
    EXPECT_EQ(life.cloud.readLine(), "PUT pc1");
    EXPECT_EQ(life.cloud.readLine(), "POST pc1/000 on mains 100%");
    life.stop();
    EXPECT_FALSE(std::filesystem::exists(life.home.file("pelcloud.log")));
    EXPECT_EQ(contentOf(life.home.file("pelcloud.json")), before);
}

void signsInWithADeviceCode()
{
    Life life({ "--approve-after", "2", "--poll-seconds", "0" });
    life.home.writeScenario(COMPUTER_OF_GATE_HOUSE);
    QJsonObject config = life.refreshingWith("code", "s3cr3t-d");
    config.remove("rtk");
    config["note"] = "lost when the file is rewritten";
    life.home.writeConfig(config);
    const auto mode = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;
    std::filesystem::permissions(life.home.file("pelcloud.json"), mode);
    life.start();
    ASSERT_TRUE(life.home.awaitLog("device/000 OK.", 2));
    life.stop();
    EXPECT_EQ(std::filesystem::status(life.home.file("pelcloud.json")).permissions(), mode);
    EXPECT_EQ(life.requestLines(), "POST token 400, POST token 400, "
                                   "POST token 200, PUT pc1 200, POST pc1/device/000 200, "
                                   "POST token 200, PUT pc1 200, POST pc1/device/000 200");
    EXPECT_EQ(life.errors(), "Error getting Google token by device code.\n"
                             "Error getting Google token by device code.\n");

    QJsonObject written = life.home.config();
    const QString token = written.take("rtk").toString();
    EXPECT_TRUE(!token.isEmpty() && token != "s3cr3t-r");
    config.remove("note");
    config["interval"] = written["interval"];
    EXPECT_EQ(written, config);
    const QJsonArray requests = life.requests();
    EXPECT_TRUE(requests.last()["path"] == MON.c_str() + QString("pc1/device/000"));
}

void hasNothingToReport()
{
    Life life;
    life.home.writeScenario("count-zero = yes\n");
    life.home.writeConfig(life.refreshing());
    life.start();
    EXPECT_TRUE(life.home.awaitConfigRead(3)); // by the start and by two runs
    life.stop();
    EXPECT_EQ(life.requestLines(), "");
    EXPECT_EQ(life.errors(), "");
}

void followsTheConfiguration()
{
    Life life;
    life.home.writeScenario(COMPUTER_OF_GATE_HOUSE);
    life.home.writeConfig(life.refreshing());
    life.start();
    ASSERT_TRUE(life.home.awaitLog("device/000 OK.", 1));
    life.home.writeConfig(life.refreshingWith("cpid", "pc2"));
    ASSERT_TRUE(life.home.awaitLog("device/000 OK.", 2));
    life.home.writeConfig("{ \"home\": ");
    ASSERT_TRUE(life.home.awaitLog("device/000 OK.", 3));
    std::filesystem::remove(life.home.file("pelcloud.json"));
    ASSERT_TRUE(life.home.awaitLog("device/000 OK.", 4));
    life.home.writeConfig(life.refreshingWith("cpid", "pc3"));
    ASSERT_TRUE(life.home.awaitLog("device/000 OK.", 5));
    life.stop();
    EXPECT_EQ(life.requestLines(), "POST token 200, PUT pc1 200, POST pc1/device/000 200, "
                                   "POST token 200, PUT pc2 200, POST pc2/device/000 200, "
                                   "PUT pc2 200, POST pc2/device/000 200, "
                                   "PUT pc2 200, POST pc2/device/000 200, "
                                   "POST token 200, PUT pc3 200, POST pc3/device/000 200");
    EXPECT_EQ(life.errors(), "Error opening config file 'HOME/pelcloud.json'.\n");
}

void changesItsLogLevel()
{
    Life life({ "--fault", "api:reset" });
    life.home.writeScenario(COMPUTER_OF_GATE_HOUSE);
    life.home.writeConfig(life.refreshing());
    life.start();
    ASSERT_TRUE(life.home.awaitLog("device/000 error.", 1));
    life.home.writeConfig(life.refreshingWith("log", "Error"));
    ASSERT_TRUE(life.home.awaitLog("device/000 error.", 2));
    life.home.writeConfig(life.refreshingWith("log", "fatal"));
    EXPECT_TRUE(life.home.awaitConfigRead(1));
    life.home.writeConfig(life.refreshingWith("log", "TRACE"));
    ASSERT_TRUE(life.home.awaitLog("device/000 error.", 3));
    life.stop();
    const std::string log =
            replaced(life.home.log(), life.cloud.address("api") + "/_ah/api/pelorin/v1/mon/", "");
    // The first bracketed word after the time is the log's own level, not the message's.
    const std::string put = "HTTP PUT pc1 error.\n";
    const std::string post = "HTTP POST pc1/device/000 error.\n";
    const std::string error = "[TIME] [Error] {PelCloud} ";
    const std::string trace = "[TIME] [Trace] {PelCloud} ";
    const std::string all = trace + "UPSSrvGetVersionInfo...\n" + trace
                            + "postDataFromComputer...\n" + trace
                            + "Computer: Os: Linux 6.1.0 x86_64, Ver: 6.3.0\n" + trace + put + trace
                            + "UPSSrvGetState(0)...\n" + trace + "postDataFromDevice...\n" + trace
                            + "Device: Name: Gate house, Fam: 10, Mod: 2\n" + trace + post;
    EXPECT_NE(
            log.find("{PelCloud} " + post + error + put + error + post + all + trace + "Stopping"),
            std::string::npos)
            << log;
}

/** Secrets go into requests and pelcloud.json, and nowhere else. */
void keepsItsSecrets()
{
    Life life({ "--fault", "token:500:nth=1", "--fault", "token:bad-json:nth=3", "--fault",
                "api:reset:nth=2", "--fault", "api:bad-json:nth=3" },
              R"({ "clients": [{ "client_id": "c1", "client_secret": "s3cr3t-client" }],
                   "device_codes": [{ "device_code": "s3cr3t-code", "client_id": "c1",
                                      "approved": true }],
                   "token_prefix": "s3cr3t-issued-" })");
    life.home.writeScenario(COMPUTER_OF_GATE_HOUSE);
    QJsonObject config = life.refreshingWith("code", "s3cr3t-code");
    config.remove("rtk");
    config["csec"] = "s3cr3t-client";
    config["log"] = "trace";
    life.home.writeConfig(config);
    life.start();
    const std::string process = "/proc/" + std::to_string(life.host->id());
    ASSERT_TRUE(life.home.awaitLog("UPSSrvGetState(0)", 3));
    std::string shown = contentOf(process + "/cmdline") + contentOf(process + "/environ");
    config = life.home.config();
    life.home.writeConfig("{ \"csec\": \"s3cr3t-client");
    ASSERT_TRUE(life.home.awaitLog("UPSSrvGetState(0)", 4));
    life.home.writeConfig(config);
    ASSERT_TRUE(life.home.awaitLog("UPSSrvGetState(0)", 5));
    life.stop();

    for (const auto &file : std::filesystem::recursive_directory_iterator(life.home.file(""))) {
        if (file.is_regular_file() && file.path().filename() != "pelcloud.json")
            shown += contentOf(file.path());
    }
    EXPECT_EQ(shown.find("s3cr3t"), std::string::npos);
    EXPECT_GT(life.home.countInLog("[Trace]"), 20);

    config = life.home.config();
    EXPECT_TRUE(config.take("rtk").toString().startsWith("s3cr3t-issued-"));
    EXPECT_TRUE(config.take("csec") == "s3cr3t-client" && config.take("code") == "s3cr3t-code");
    EXPECT_FALSE(QJsonDocument(config).toJson().contains("s3cr3t"));
}

void cannotStart()
{
    const std::pair<const char *, std::string> rows[] = {
        { nullptr, "Error loading 'HOME/upscli.so'.\nStart service error: 4\n" },
        { "cli-start-fails = yes\n", "Error starting 'HOME/upscli.so'.\nStart service error: 5\n" },
    };
    for (const auto &[scenario, errors] : rows) {
        Life life;
        if (scenario != nullptr)
            life.home.writeScenario(scenario);
        else
            std::filesystem::remove(life.home.file("upscli.so"));
        life.home.writeConfig(life.refreshing());
        life.start();
        EXPECT_TRUE(life.home.awaitLog("Start service error: "));
        life.stop();
        EXPECT_EQ(life.errors(), errors);
    }
}

/** Lives of two runs each, of which something befalls the first or both. */
struct TwoRuns
{
    const char *name;
    std::string scenario;
    std::vector<std::string> options; // of the cloud
    std::string path;                 // added to the home address
    std::string lastLine;             // of a run, in the log
    std::string requests;
    std::string errors;
};

void livesThrough(const TwoRuns &row)
{
    Life life(row.options);
    life.home.writeScenario(row.scenario);
    life.home.writeConfig(life.refreshingWith(
            "home", QString::fromStdString(life.cloud.address("api") + row.path)));
    life.start();
    ASSERT_TRUE(life.home.awaitLog(row.lastLine, 2));
    life.stop();
    EXPECT_EQ(life.requestLines(), row.requests);
    EXPECT_EQ(replaced(life.errors(), life.cloud.address("api") + MON, ""), row.errors);
}

std::vector<TwoRuns> twoRuns()
{
    const std::string two = "units = 2\n[unit *]\nsamples = 0\n[unit 0]\n";
    const std::string &one = COMPUTER_OF_GATE_HOUSE;
    const std::string last = "device/000 OK.";
    const std::string good = "POST token 200, PUT pc1 200, POST pc1/device/000 200";
    const std::string refused = "Error getting Google access token by refresh token.\n";
    std::string thirteen = "POST token 200";
    for (const char *unit : { "000", "001", "002", "003", "004", "005", "006", "007", "008", "009",
                              "010", "011", "012" })
        thirteen.append(", PUT pc1 200, POST pc1/device/").append(unit).append(" 200");
    const std::string noVersion = "POST token 200, POST pc1/device/000 200, PUT pc1 200, "
                                  "POST pc1/device/001 200";
    const std::string noState = "POST token 200, PUT pc1 200, PUT pc1 200, POST pc1/device/001 200";
    const std::string nowhere = "POST token 200, PUT /none/_ah/api/pelorin/v1/mon/pc1 404, "
                                "POST /none/_ah/api/pelorin/v1/mon/pc1/device/000 404";
    const std::string second = "PUT pc1 200, POST pc1/device/000 200";
    return {
        { "thirteen units", "units = 13\n", {}, "", "012 OK.", thirteen + ", " + thirteen, "" },
        { "version call fails",
          two + "version-fails = yes\n",
          {},
          "",
          "001 OK.",
          noVersion + ", " + noVersion,
          "" },
        { "state call fails",
          two + "state-fails = yes\n",
          {},
          "",
          "001 OK.",
          noState + ", " + noState,
          "" },
        { "404", one, {}, "/none", last, nowhere + ", " + nowhere, "" },
        { "401",
          one,
          { "--fault", "api:401:nth=1" },
          "",
          last,
          "POST token 200, PUT pc1 401, POST pc1/device/000 200, " + good,
          "" },
        { "500",
          one,
          { "--fault", "api:500:nth=2" },
          "",
          last,
          "POST token 200, PUT pc1 200, POST pc1/device/000 500, " + good,
          "" },
        { "reset",
          one,
          { "--fault", "api:reset:nth=1" },
          "",
          last,
          "POST token 200, PUT pc1 0, POST pc1/device/000 200, " + good,
          "HTTP PUT pc1 error.\n" },
        { "silence",
          one,
          { "--fault", "api:silence:nth=1" },
          "",
          last,
          "POST token 200, PUT pc1 0, POST pc1/device/000 200, " + good,
          "HTTP PUT pc1 error.\n" },
        { "token 500",
          one,
          { "--fault", "token:500:nth=1" },
          "",
          last,
          "POST token 500, POST token 200, POST pc1/device/000 200, " + good,
          refused },
        { "token reset",
          one,
          { "--fault", "token:reset:nth=1" },
          "",
          last,
          "POST token 0, POST token 200, POST pc1/device/000 200, " + good,
          refused },
        { "token no JSON",
          one,
          { "--fault", "token:bad-json:nth=1" },
          "",
          last,
          "POST token 200, PUT pc1 401, POST token 200, POST pc1/device/000 200, " + good,
          "" },
    };
}

TEST(Lives, AllAtOnce)
{
    std::vector<std::pair<std::string, std::function<void()>>> lives{
        { "sends these bytes", sendsTheseBytes },
        { "works without a log", worksWithoutALog },
        { "signs in with a device code", signsInWithADeviceCode },
        { "has nothing to report", hasNothingToReport },
        { "follows the configuration", followsTheConfiguration },
        { "changes its log level", changesItsLogLevel },
        { "keeps its secrets", keepsItsSecrets },
        { "cannot start", cannotStart },
    };
    for (const TwoRuns &row : twoRuns())
        lives.emplace_back(row.name, [row] { livesThrough(row); });
    std::vector<std::future<void>> ends;
    ends.reserve(lives.size());
    for (const auto &life : lives)
        ends.push_back(std::async(std::launch::async, [&life] {
            SCOPED_TRACE(life.first);
            life.second();
        }));
    for (std::future<void> &end : ends)
        end.get();
}

} // namespace
