// The shipped plug-in in a real host, with the simulated suite and the local cloud, from start to stop.

#include "tests/e2e/life.h"
#include "tests/golden.h"

namespace {

using namespace Qt::StringLiterals;

const std::string MON = "/_ah/api/pelorin/v1/mon/";
const std::string GATE_HOUSE = "units = 1\ntime-scale = 0.001\n"
                               "[unit *]\nnoise = 0\nsamples = 3\n"
                               "[unit 0]\nname = Gate house\n";

QJsonArray requestsTo(LocalCloud &cloud)
{
    return ask(cloud.address("api") + "/api/requests").json()["requests"_L1].toArray();
}

/** The requests with the status of their answers, without the tunnels that they went through. */
std::string requestLines(LocalCloud &cloud)
{
    std::string lines;
    for (const QJsonValue request : requestsTo(cloud)) {
        if (request["method"_L1] == "CONNECT"_L1)
            continue;
        std::string path = request["path"_L1].toString().toStdString();
        if (path.starts_with(MON))
            path.erase(0, MON.size());
        lines.append(lines.empty() ? "" : ", ")
                .append(request["method"_L1].toString().toStdString())
                .append(" ")
                .append(path == "/oauth2/v4/token" ? "token" : path)
                .append(" ")
                .append(std::to_string(request["status"_L1].toInt()));
    }
    return lines;
}

/** The messages of errors in the log, a line each; addresses begin behind the cloud's. */
std::string errorsIn(Life &life)
{
    std::istringstream log(life.home.log());
    std::string errors;
    for (std::string line; std::getline(log, line);) {
        const std::string message = line.substr(line.find("} ") + 2);
        if (message.starts_with("Error ") || message.find(" error") != std::string::npos)
            errors += replaced(message, life.cloud.address("api") + MON, "") + '\n';
    }
    return errors;
}

TEST(Lives, SendsGoldenBodies)
{
    Life life("units = 2\ntime-scale = 0.001\nos = Linux 6.1.0 x86_64\n"
              "[unit *]\nnoise = 0\nsamples = 3\n"
              "[unit 0]\nname = Gate house\ntimeline = mains 100\n"
              "[unit 1]\nname = Rack \"B\"\nfamily = 3\nmodel = 8\nvoltage = 115\n"
              "power = 999999.9\ntimeline = outage 100\n");
    life.start();
    ASSERT_TRUE(life.home.awaitLog("device/001 OK.", 2));
    life.stop();

    const std::string run = "POST token 200, PUT pc1 200, POST pc1/device/000 200, "
                            "PUT pc1 200, POST pc1/device/001 200";
    EXPECT_EQ(requestLines(life.cloud), run + ", " + run);
    const QJsonArray requests = requestsTo(life.cloud);
    EXPECT_EQ(requests[0]["path"_L1], "www.googleapis.com:443"_L1);
    // libcurl's, then ours, sorted by name.
    const std::string headers = "Host User-Agent Accept Authorization Content-Type Content-Length ";
    const char *const bodies[] = { "wire_token.txt", "wire_computer.json", "wire_unit0.json",
                                   "wire_computer.json", "wire_unit1.json" };
    int compared = 0;
    for (const QJsonValue request : requests) {
        if (request["method"_L1] == "CONNECT"_L1)
            continue;
        const char *const name = bodies[compared++ % 5];
        EXPECT_EQ(QByteArray::fromBase64(request["base64"_L1].toString().toLatin1()).toStdString(),
                  golden(name))
                << name;
        EXPECT_EQ(request["values"_L1]["User-Agent"_L1], "pelcloud/6.3"_L1) << name;
        if (name != bodies[0]) {
            std::string names;
            for (const QJsonValue header : request["headers"_L1].toArray())
                names += header.toString().toStdString() + ' ';
            EXPECT_EQ(names, headers) << name;
        }
    }
    EXPECT_EQ(compared, 10);
    EXPECT_EQ(replaced(life.home.log(), life.cloud.address("api"), "API"), golden("life_info.log"));
}

TEST(Lives, WritesNoFileByDefault)
{
    Life life(GATE_HOUSE);
    life.config.remove("log"_L1);
    life.home.writeConfig(life.config);
    const std::string before = contentOf(life.home.file("pelcloud.json"));
    life.start();
    EXPECT_EQ(life.nextReport(), "POST pc1/000 on mains 100%");
    life.stop();
    EXPECT_FALSE(std::filesystem::exists(life.home.file("pelcloud.log")));
    EXPECT_EQ(contentOf(life.home.file("pelcloud.json")), before);
}

TEST(Lives, SignsInWithDeviceCode)
{
    Life life(GATE_HOUSE, { "--approve-after", "2", "--poll-seconds", "0" });
    life.config["code"_L1] = u"s3cr3t-d"_s;
    life.config.remove("rtk"_L1);
    life.config["note"_L1] = u"lost when the file is rewritten"_s;
    life.home.writeConfig(life.config);
    const auto mode = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;
    std::filesystem::permissions(life.home.file("pelcloud.json"), mode);
    life.start();
    ASSERT_TRUE(life.home.awaitLog("device/000 OK.", 2));
    life.stop();
    EXPECT_EQ(std::filesystem::status(life.home.file("pelcloud.json")).permissions(), mode);
    EXPECT_EQ(requestLines(life.cloud), "POST token 400, POST token 400, "
                                        "POST token 200, PUT pc1 200, POST pc1/device/000 200, "
                                        "POST token 200, PUT pc1 200, POST pc1/device/000 200");
    EXPECT_EQ(errorsIn(life), "Error getting Google token by device code.\n"
                              "Error getting Google token by device code.\n");

    QJsonObject written = life.home.config();
    const QString token = written.take("rtk"_L1).toString();
    EXPECT_TRUE(!token.isEmpty() && token != "s3cr3t-r"_L1);
    life.config.remove("note"_L1);
    life.config["interval"_L1] = written["interval"_L1];
    EXPECT_EQ(written, life.config);
}

TEST(Lives, FollowsConfiguration)
{
    Life life(GATE_HOUSE);
    life.start();
    ASSERT_TRUE(life.home.awaitLog("device/000 OK.", 1));
    life.config["cpid"_L1] = u"pc2"_s;
    life.home.writeConfig(life.config);
    ASSERT_TRUE(life.home.awaitLog("device/000 OK.", 2));
    std::filesystem::remove(life.home.file("pelcloud.json"));
    ASSERT_TRUE(life.home.awaitLog("device/000 OK.", 3));
    life.config["cpid"_L1] = u"pc3"_s;
    life.home.writeConfig(life.config);
    ASSERT_TRUE(life.home.awaitLog("device/000 OK.", 4));
    life.stop();
    EXPECT_EQ(requestLines(life.cloud), "POST token 200, PUT pc1 200, POST pc1/device/000 200, "
                                        "POST token 200, PUT pc2 200, POST pc2/device/000 200, "
                                        "PUT pc2 200, POST pc2/device/000 200, "
                                        "POST token 200, PUT pc3 200, POST pc3/device/000 200");
    EXPECT_EQ(errorsIn(life), "Error opening config file 'HOME/pelcloud.json'.\n");
}

/** Secrets go into requests and pelcloud.json only. */
TEST(Lives, KeepsSecrets)
{
    Life life(GATE_HOUSE,
              { "--fault", "token:500:nth=1", "--fault", "token:bad-json:nth=3", "--fault",
                "api:reset:nth=2", "--fault", "api:bad-json:nth=3" },
              R"({ "clients": [{ "client_id": "c1", "client_secret": "s3cr3t-client" }],
                   "device_codes": [{ "device_code": "s3cr3t-code", "client_id": "c1",
                                      "approved": true }],
                   "token_prefix": "s3cr3t-issued-" })");
    life.config.remove("rtk"_L1);
    life.config["code"_L1] = u"s3cr3t-code"_s;
    life.config["csec"_L1] = u"s3cr3t-client"_s;
    life.config["log"_L1] = u"trace"_s;
    life.home.writeConfig(life.config);
    life.start();
    const std::string process = "/proc/" + std::to_string(life.host->id());
    ASSERT_TRUE(life.home.awaitLog("UPSSrvGetState(0)", 3));
    std::string shown = contentOf(process + "/cmdline") + contentOf(process + "/environ");
    QJsonObject config = life.home.config();
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
    EXPECT_TRUE(config.take("rtk"_L1).toString().startsWith("s3cr3t-issued-"_L1));
    EXPECT_TRUE(config.take("csec"_L1) == "s3cr3t-client"_L1
                && config.take("code"_L1) == "s3cr3t-code"_L1);
    EXPECT_FALSE(QJsonDocument(config).toJson().contains("s3cr3t"));
}

TEST(Lives, StartsWithoutLibrary)
{
    Life life(GATE_HOUSE);
    std::filesystem::remove(life.home.file("upscli.so"));
    life.start();
    EXPECT_TRUE(life.home.awaitLog("Start service error: 4\n"));
    life.stop();
    EXPECT_EQ(errorsIn(life), "Error loading 'HOME/upscli.so'.\nStart service error: 4\n");
}

struct RunCase
{
    const char *name;
    std::string scenario;
    std::string requests;        // of the first run
    const char *fault = nullptr; // of the cloud, in the first run; the second one is good
    const char *errors = "";
};

using Runs = testing::TestWithParam<RunCase>;

TEST_P(Runs, SendWhatTheyCan)
{
    const RunCase &run = GetParam();
    std::string requests = run.requests;
    std::vector<std::string> options;
    if (run.fault != nullptr) {
        requests += ", POST token 200, PUT pc1 200, POST pc1/device/000 200";
        options = { "--fault", run.fault };
    }
    Life life(run.scenario, options);
    life.start();
    const std::string lastDevice = requests.substr(requests.rfind("device/"), 10);
    ASSERT_TRUE(life.home.awaitLog(lastDevice + " OK.", run.fault != nullptr ? 2 : 1));
    life.stop();
    EXPECT_EQ(requestLines(life.cloud), requests);
    EXPECT_EQ(errorsIn(life), run.errors);
}

INSTANTIATE_TEST_SUITE_P(
        Lives, Runs,
        testing::Values(
                RunCase{ "VersionCallFails", "units = 2\n[unit 0]\nversion-fails = yes\n",
                         "POST token 200, POST pc1/device/000 200, PUT pc1 200, "
                         "POST pc1/device/001 200" },
                RunCase{ "StateCallFails", "units = 2\n[unit 0]\nstate-fails = yes\n",
                         "POST token 200, PUT pc1 200, PUT pc1 200, POST pc1/device/001 200" },
                RunCase{ "ServerError", GATE_HOUSE,
                         "POST token 200, PUT pc1 200, POST pc1/device/000 500", "api:500:nth=2" },
                RunCase{ "ServerIsSilent", GATE_HOUSE,
                         "POST token 200, PUT pc1 0, POST pc1/device/000 200", "api:silence:nth=1",
                         "HTTP PUT pc1 error.\n" },
                RunCase{ "TokenServerError", GATE_HOUSE,
                         "POST token 500, POST token 200, POST pc1/device/000 200",
                         "token:500:nth=1",
                         "Error getting Google access token by refresh token.\n" },
                RunCase{ "TokenIsNoJson", GATE_HOUSE,
                         "POST token 200, PUT pc1 401, POST token 200, POST pc1/device/000 200",
                         "token:bad-json:nth=1" }),
        [](const auto &row) { return row.param.name; });

} // namespace
