#include "devkit/cloud/faults.h"
#include "devkit/cloud/oauth.h"
#include "devkit/cloud/reports.h"
#include "devkit/cloud/socket.h"
#include "model/unitstate.h"
#include "tests/support/localcloud.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>

#include <QJsonArray>

namespace {

using namespace localcloud;
using namespace std::chrono_literals;

QJsonObject object(std::string_view text)
{
    return QJsonDocument::fromJson(QByteArray(text.data(), static_cast<int>(text.size()))).object();
}

TEST(Faults, BefallTheRequestsThatTheRuleNames)
{
    const struct
    {
        const char *rule;
        const char *hits; // of six requests; null where the rule is refused
    } rows[] = {
        { "api:500", "xxxxxx" },
        { "api:500:every=3", "--x--x" },
        { "api:401:nth=2", "-x----" },
        { "api:bad-json:share=0", "------" },
        { "api:silence:seconds=2:share=1", "xxxxxx" },
        { "api:slow:nth=6:seconds=0.5", "-----x" },
        { "token:reset", "------" },
        { "token:slow_down", "------" },
        { "api:slow_down", nullptr },
        { "page:500", nullptr },
        { "api:502", nullptr },
        { "api", nullptr },
        { "", nullptr },
        { "api:500:every=0", nullptr },
        { "api:500:every=x", nullptr },
        { "api:500:nth=-1", nullptr },
        { "api:500:share=1.1", nullptr },
        { "api:500:nth=1:every=2", nullptr },
        { "api:500:seconds=1", nullptr },
        { "api:slow:seconds=601", nullptr },
        { "api:500:often", nullptr },
    };
    for (const auto &row : rows) {
        std::string error;
        const auto rule = parseFaultRule(row.rule, error);
        ASSERT_EQ(rule.has_value(), row.hits != nullptr) << row.rule;
        EXPECT_EQ(error.empty(), rule.has_value()) << row.rule;
        if (!rule)
            continue;
        FaultPlan plan;
        plan.setRules({ *rule });
        std::string hits;
        for (int i = 0; i < 6; ++i)
            hits += plan.next(FaultTarget::Api) ? 'x' : '-';
        EXPECT_EQ(hits, row.hits) << row.rule;
    }
}

TEST(Faults, AShareIsAboutThatMuch)
{
    std::string error;
    FaultPlan plan;
    plan.setRules({ *parseFaultRule("token:500:share=0.1", error) });
    int hits = 0;
    for (int i = 0; i < 10000; ++i)
        hits += plan.next(FaultTarget::Token) ? 1 : 0;
    EXPECT_NEAR(hits, 1000, 200);
}

constexpr const char *SEED = R"({
    "clients": [{"client_id": "c1", "client_secret": "s1"}, {"client_id": "c2", "client_secret": "s2"}],
    "device_codes": [{"device_code": "d1", "user_code": "abcd-efgh", "client_id": "c1"}],
    "refresh_tokens": [{"refresh_token": "r1", "client_id": "c1"}],
    "access_tokens": [{"access_token": "a1"}]})";

TEST(OAuth, GrantsFollowTheClock)
{
    const OAuthServer::Form device{ { "client_id", "c1" },
                                    { "client_secret", "s1" },
                                    { "code", "d1" },
                                    { "grant_type", "http://oauth.net/grant_type/device/1.0" } };
    const auto with = [](OAuthServer::Form form, const char *name, const char *value) {
        form[name] = value;
        return form;
    };
    const OAuthServer::Form refresh =
            with(with(device, "grant_type", "refresh_token"), "refresh_token", "r1");
    const OAuthServer::Form other = with(with(device, "client_id", "c2"), "client_secret", "s2");
    const struct
    {
        const char *name;
        std::optional<int> approveAfter;
        struct Step
        {
            std::chrono::seconds pause;
            std::variant<OAuthServer::Form, bool> action; // a token request or a decision
            std::string answer; // error word, "tokens" (with a refresh token), "token"; yes or no
        };
        std::vector<Step> steps;
    } rows[] = {
        { "a person approves",
          {},
          { { 0s, device, "authorization_pending" },
            { 4s, device, "slow_down" },
            { 5s, device, "authorization_pending" },
            { 0s, true, "yes" },
            { 0s, false, "no" },
            { 5s, device, "tokens" },
            { 5s, device, "invalid_grant" } } },
        { "a person denies",
          {},
          { { 0s, false, "yes" }, { 0s, device, "access_denied" }, { 9s, true, "no" } } },
        { "nobody decides",
          {},
          { { 1799s, device, "authorization_pending" },
            { 1s, device, "expired_token" },
            { 0s, true, "no" } } },
        { "approved by itself",
          2,
          { { 0s, device, "authorization_pending" },
            { 1s, device, "slow_down" },
            { 5s, device, "authorization_pending" },
            { 5s, device, "tokens" } } },
        { "approved at once", 0, { { 0s, device, "tokens" } } },
        { "refresh", {}, { { 99999s, refresh, "token" }, { 0s, refresh, "token" } } },
        { "refused",
          0,
          { { 0s, {}, "invalid_client" },
            { 0s, with(device, "client_secret", "s2"), "invalid_client" },
            { 0s, with(device, "client_id", ""), "invalid_client" },
            { 0s, with(device, "code", "d2"), "invalid_grant" },
            { 0s, with(refresh, "refresh_token", ""), "invalid_grant" },
            { 0s, with(device, "grant_type", "password"), "unsupported_grant_type" },
            { 0s, with(device, "grant_type", ""), "invalid_request" },
            { 0s, other, "invalid_grant" },
            { 0s, with(with(other, "grant_type", "refresh_token"), "refresh_token", "r1"),
              "invalid_grant" } } },
    };
    for (const auto &row : rows) {
        OAuthServer::TimePoint now{};
        OAuthSettings settings;
        settings.approveAfter = row.approveAfter;
        OAuthServer server(settings, [&now] { return now; });
        ASSERT_EQ(server.seed(object(SEED)), "");
        for (std::size_t i = 0; i < row.steps.size(); ++i) {
            const auto &step = row.steps[i];
            now += step.pause;
            std::string answer;
            if (const bool *const decision = std::get_if<bool>(&step.action)) {
                answer = server.decide(" ABCD EfGh", *decision) ? "yes" : "no";
            } else {
                const OAuthReply reply = server.token(std::get<OAuthServer::Form>(step.action));
                const std::string token = reply.body["access_token"].toString().toStdString();
                answer = reply.body["error"].toString().toStdString();
                if (reply.status == 200)
                    answer = reply.body.contains("refresh_token") ? "tokens" : "token";
                EXPECT_EQ(server.isValid(token), reply.status == 200) << row.name << ", step " << i;
            }
            EXPECT_EQ(answer, step.answer) << row.name << ", step " << i;
        }
    }
}

TEST(OAuth, AccessTokensExpireAndSeedsAreChecked)
{
    OAuthServer::TimePoint now{};
    OAuthServer server({}, [&now] { return now; });
    ASSERT_EQ(server.seed(object(SEED)), "");
    now += 3599s;
    EXPECT_TRUE(server.isValid("a1"));
    EXPECT_FALSE(server.isValid(""));
    now += 1s;
    EXPECT_FALSE(server.isValid("a1"));

    const OAuthReply device = server.authorizeDevice({ { "client_id", "c1" } });
    EXPECT_EQ(server.waitingDevices(), 1U); // the seeded one has gone by
    EXPECT_TRUE(server.decide(device.body["user_code"].toString().toStdString(), true));
    EXPECT_EQ(server.authorizeDevice({ { "client_id", "c3" } }).status, 401);
    for (const char *const seed :
         { R"({"clients": [{}]})", R"({"device_codes": [{"device_code": "d"}]})",
           R"({"refresh_tokens": [{"refresh_token": "r", "client_id": "c9"}]})",
           R"({"access_tokens": [1]})" })
        EXPECT_NE(server.seed(object(seed)), "") << seed;
}

TEST(UnitState, TheMostUrgentFlagNamesIt)
{
    const struct
    {
        const char *report;
        const char *state; // key, level, notes
    } rows[] = {
        { R"({})", "on-mains good" },
        { R"({"status": {"connected": 1, "syncInput": 1}})", "on-mains good" },
        { R"({"status": {"connected": 0, "opBattery": 1}})", "disconnected critical; On battery" },
        { R"({"status": {"opBattery": 1, "noVInput": 1}})",
          "on-battery warning; No input voltage" },
        { R"({"status": {"opBattery": 1, "lowBattery": 1}})", "battery-low critical; On battery" },
        { R"({"status": {"lowBattery": 1}})", "on-mains good; Battery low" },
        { R"({"status": {"opBattery": 1, "opCheckup": 1}})", "battery-test notice; On battery" },
        { R"({"status": {"opBattery": 1}, "failures": {"overLoad": 1, "fan": 1}})",
          "overload critical; Fan fault; On battery" },
        { R"({"status": [], "failures": {"overTemp": "1", "tiristor": 1}})",
          "thyristor-fault critical" },
    };
    for (const auto &row : rows) {
        const UnitState state = unitStateOf(object(row.report));
        std::string text = std::string(state.key) + " " + std::string(levelName(state.level));
        for (const std::string_view note : state.notes)
            text += "; " + std::string(note);
        EXPECT_EQ(text, row.state) << row.report;
    }
    EXPECT_EQ(summaryOf(object(R"({"caps": {"hasCBattery": 1}, "vars": {"cBattery": 86.6},
                                   "status": {"opBattery": 1}})")),
              "on battery 87%");
    EXPECT_EQ(loadOf(object(R"({"vars": {"pOutput": 350, "nominalPOutput": 1400}})")), 25);
    EXPECT_LT(loadOf(object(R"({"vars": {"pOutput": 350, "nominalPOutput": 0}})")), 0);
}

TEST(Reports, CountsWhatIsMissing)
{
    const struct
    {
        double seconds;
        unsigned missed;
    } rows[] = { { -5, 0 }, { 0, 0 },  { 10, 0 }, { 14.9, 0 },
                 { 15, 1 }, { 20, 1 }, { 25, 2 }, { 3600, 359 } };
    for (const auto &row : rows)
        EXPECT_EQ(missedReports(row.seconds, 10), row.missed) << row.seconds;

    Reports reports;
    for (const double time : { 100.0, 110.0, 130.0 })
        ASSERT_TRUE(reports.add("pc", "000", "{}", {}, time));
    const QJsonObject unit = reports.computers(3, 160).at(0)["units"][0].toObject();
    EXPECT_EQ(unit["missed"].toInt(), 1 + 2);
    EXPECT_EQ(unit["overdue"].toInt(), 2);
    EXPECT_FALSE(unit.contains("body")); // not newer than number 3
    EXPECT_TRUE(reports.computers(2, 160).at(0)["units"][0].toObject().contains("body"));
}

TEST(Reports, RemembersNoMoreThanItMay)
{
    ReportLimits limits;
    limits.computers = 2;
    limits.unitsPerComputer = 2;
    limits.reportsPerSource = 3;
    limits.historyPerUnit = 4;
    Reports reports(limits);
    for (int i = 1; i <= 6; ++i)
        ASSERT_TRUE(reports.add("a", "000", std::to_string(i), {}, i));
    EXPECT_TRUE(reports.add("a", "001", "x", {}, 7) && reports.add("b", "", "y", {}, 8));
    EXPECT_FALSE(reports.add("a", "002", "", {}, 9) || reports.add("c", "", "", {}, 9));
    EXPECT_EQ(reports.reportsAfter(0).size(), 3 + 2);
    EXPECT_EQ(reports.reportsAfter(5).at(0)["number"].toInt(), 6);
    EXPECT_EQ(reports.history("a", "000").size(), 4);
    EXPECT_EQ(reports.latestBody("a", "000"), "6");
    EXPECT_EQ(reports.latestBody("b", "000"), std::nullopt);
}

constexpr const char *BEARER = "Authorization: Bearer a1";
constexpr const char *REFRESH =
        "client_id=c1&client_secret=s1&refresh_token=r1&grant_type=refresh_token";

TEST(LocalCloud, TakesInReportsAndShowsThem)
{
    LocalCloud cloud(SEED);
    const std::string home = cloud.address("api") + "/_ah/api/pelorin/v1/mon/";
    const char *const body = " {\"caps\": {\"hasCBattery\": 1}, \"status\": {\"opBattery\": 1},\n"
                             "\"vars\": {\"cBattery\": 87, \"name\": \"caf\xc3\xa9\"}}\n";
    const struct
    {
        const char *method;
        const char *path;
        const char *header;
        const char *body;
        long status;
    } rows[] = {
        { "PUT", "pc1", "Authorization: Bearer a1", R"({"id": "pc1"})", 200 },
        { "POST", "pc1/device/000", "authorization: Bearer a1", body, 200 },
        { "PUT", "pc2", nullptr, "{}", 401 },
        { "PUT", "pc2", "Authorization: Bearer a2", "{}", 401 },
        { "PUT", "pc2", "Authorization: Basic a1", "{}", 401 },
        { "PUT", "pc2", BEARER, "[1]", 400 },
        { "PUT", "pc2", BEARER, "", 400 },
        { "POST", "pc2/device/000", BEARER, "{\"a\": }", 400 },
        { "POST", "pc2/device/0000", BEARER, "{}", 404 },
        { "POST", "pc2", BEARER, "{}", 404 },
    };
    for (const auto &row : rows)
        EXPECT_EQ(ask(home + row.path, row.method, row.body, row.header).status, row.status)
                << row.method << " " << row.path << " " << row.body;
    EXPECT_EQ(cloud.readLine(), "PUT pc1");
    EXPECT_EQ(cloud.readLine(), "POST pc1/000 on battery 87%");

    const std::string api = cloud.address("api") + "/api/";
    EXPECT_EQ(ask(api + "body?computer=pc1&device=000").body, body);
    EXPECT_EQ(ask(api + "body?computer=pc2").status, 404);
    const QJsonArray computers = ask(api + "state").json()["computers"].toArray();
    ASSERT_EQ(computers.size(), 1);
    EXPECT_EQ(computers[0]["units"][0]["state"].toString(), "on-battery");
    EXPECT_EQ(ask(api + "reports?since=1").json()["reports"].toArray().size(), 1);

    const QJsonArray requests = ask(api + "requests?since=1").json()["requests"].toArray();
    ASSERT_EQ(static_cast<std::size_t>(requests.size()), std::size(rows) - 1);
    EXPECT_EQ(QByteArray::fromBase64(requests[0]["base64"].toString().toLatin1()), body);
    EXPECT_EQ(requests[0]["path"].toString(), "/_ah/api/pelorin/v1/mon/pc1/device/000");
    EXPECT_EQ(requests[1]["status"].toInt(), 401);
    EXPECT_FALSE(requests[0]["values"].toObject().contains("authorization"));

    for (const char *const file : { "", "page/page.js", "page/style.css", "page/chart.js" })
        EXPECT_GT(ask(cloud.address("page") + file).body.size(), 1000U) << file;
    EXPECT_EQ(cloud.end(SIGTERM), 0);
}

TEST(LocalCloud, SignsADeviceInThroughTheProxy)
{
    LocalCloud cloud(SEED);
    const std::string proxy = cloud.address("proxy");
    const std::string far = "https://far-away.invalid";
    const auto token = [&](const char *form) {
        return ask(far + "/oauth2/v4/token", "POST", form, nullptr, proxy).json();
    };
    const char *const poll = "client_id=c1&client_secret=s1&code=d1"
                             "&grant_type=http%3A%2F%2Foauth.net%2Fgrant_type%2Fdevice%2F1.0";
    EXPECT_EQ(token(poll)["error"].toString(), "authorization_pending");
    const std::string page = cloud.address("page") + "device";
    EXPECT_EQ(ask(page, "POST", "user_code=none&decision=approve").status, 404);
    EXPECT_EQ(ask(page + "?user_code=%22%3E%3Cb%3E").body.find("\"><b>"), std::string::npos);
    EXPECT_EQ(ask(page, "POST", "user_code=abcd+efgh&decision=approve").status, 200);
    EXPECT_EQ(token(poll)["error"].toString(), "slow_down");
    const std::string bearer =
            "Authorization: Bearer " + token(REFRESH)["access_token"].toString().toStdString();
    const std::string computer = cloud.address("api") + "/_ah/api/pelorin/v1/mon/pc1";
    EXPECT_EQ(ask(computer, "PUT", "{}", bearer.c_str()).status, 200);

    const QJsonObject device =
            ask(far + "/o/oauth2/device/code", "POST", "client_id=c2", nullptr, proxy).json();
    EXPECT_EQ(device["verification_url"].toString().toStdString(), page);
    EXPECT_EQ(device["interval"].toInt(), 5);
    EXPECT_EQ(ask("http://127.0.0.1/", "GET", nullptr, nullptr, proxy).status, 405);
    const QJsonArray requests =
            ask(cloud.address("api") + "/api/requests").json()["requests"].toArray();
    EXPECT_EQ(requests[0]["path"].toString(), "far-away.invalid:443");
}

TEST(LocalCloud, MakesFaults)
{
    const struct
    {
        const char *fault;
        long status;
        const char *body;
        std::chrono::milliseconds least{};
    } rows[] = {
        { "api:429", 429, R"({"error":{"code":429,"message":"Too Many Requests"}})" },
        { "api:slow:seconds=0.3", 200, "{}", 300ms },
        { "api:bad-json", 200, "{\"access_token\": " },
        { "token:500", 500, R"({"error":"server_error"})" },
        { "token:access_denied", 400, R"({"error":"access_denied"})" },
    };
    LocalCloud cloud(SEED, { "--quiet", "--fault", "api:500:every=2" });
    const std::string computer = cloud.address("api") + "/_ah/api/pelorin/v1/mon/pc1";
    for (const long status : { 200, 500, 200, 500 })
        EXPECT_EQ(ask(computer, "PUT", "{}", BEARER).status, status);
    const std::string control = cloud.address("api") + "/api/faults";
    for (const auto &row : rows) {
        const std::string body = std::string(R"({"faults": [")") + row.fault + R"("]})";
        ASSERT_EQ(ask(control, "POST", body.c_str()).status, 200) << row.fault;
        const auto before = std::chrono::steady_clock::now();
        const Reply reply = row.fault[0] == 't'
                                    ? ask("https://far-away.invalid/oauth2/v4/token", "POST",
                                          REFRESH, nullptr, cloud.address("proxy"))
                                    : ask(computer, "PUT", "{}", BEARER);
        EXPECT_EQ(reply.status, row.status) << row.fault;
        EXPECT_EQ(reply.body, row.body) << row.fault;
        EXPECT_GE(std::chrono::steady_clock::now() - before, row.least) << row.fault;
    }
    EXPECT_EQ(ask(control, "POST", R"({"faults": ["api:502"]})").status, 400);
    EXPECT_EQ(ask(control).json()["faults"][0]["seen"].toInt(), 1);
}

TEST(LocalCloud, AnswersInOneWriteAndEndsWhateverIsOpen)
{
    LocalCloud cloud(SEED, { "--fault", "token:silence" });
    const FileDescriptor client = connectToLoopback(cloud.port("api"));
    fcntl(client.get(), F_SETFL, 0); // blocking
    const std::string request =
            "PUT /_ah/api/pelorin/v1/mon/pc1 HTTP/1.1\r\nZebra: 1\r\nhost: x\r\n"
            "Authorization: Bearer a1\r\nContent-Length: 2\r\n\r\n{}";
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(send(client.get(), request.data(), request.size(), 0),
                  static_cast<ssize_t>(request.size()));
        char answer[4096];
        const ssize_t size = recv(client.get(), answer, sizeof answer, 0);
        const std::string text(answer, size > 0 ? static_cast<std::size_t>(size) : 0);
        ASSERT_TRUE(text.starts_with("HTTP/1.1 200 ") && text.ends_with("\r\n\r\n{}")) << text;
    }
    const QJsonValue first = ask(cloud.address("api") + "/api/requests").json()["requests"][0];
    EXPECT_EQ(first["headers"].toArray(),
              QJsonArray({ "Zebra", "host", "Authorization", "Content-Length" }));

    const FileDescriptor tunnel = connectToLoopback(cloud.port("proxy"));
    const FileDescriptor handshake = connectToLoopback(cloud.port("oauth"));
    EXPECT_EQ(ask(cloud.address("oauth") + "/oauth2/v4/token", "POST", REFRESH, nullptr, "", 200)
                      .code,
              CURLE_OPERATION_TIMEDOUT);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(cloud.end(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - before, 4s); // nothing of it was waited for
}

TEST(LocalCloud, RefusesWhatItCannotUse)
{
    LocalCloud taken(SEED);
    const std::vector<std::string> rows[] = {
        { "--fault", "api:502" },
        { "--port", std::to_string(taken.port("api")) },
        { "--proxy-port", std::to_string(taken.port("proxy")) },
        { "--seed", "/nonexistent" },
        { "--port", "65536" },
    };
    for (const auto &options : rows) {
        LocalCloud cloud(SEED, options);
        ASSERT_EQ(cloud.address("page"), "") << options[0] << " " << options[1];
        EXPECT_GT(cloud.end(0), 0) << options[0] << " " << options[1];
    }
}

} // namespace
