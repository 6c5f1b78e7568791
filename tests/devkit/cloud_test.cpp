// What the local cloud refuses, and which requests its faults hit.

#include "devkit/cloud/faults.h"
#include "model/unitstate.h"
#include "tests/support/localcloud.h"

#include <gtest/gtest.h>

#include <QJsonArray>

namespace {

using namespace localcloud;
using namespace Qt::StringLiterals;

QJsonObject object(std::string_view text)
{
    return QJsonDocument::fromJson(QByteArray(text.data(), static_cast<int>(text.size()))).object();
}

TEST(CloudFaults, HitRequestsOfTheirRule)
{
    const std::pair<const char *, std::string> rows[] = {
        { "api:500", "xxxxxx" },           { "api:500:every=3", "--x--x" },
        { "api:500:nth=2", "-x----" },     { "api:500:share=0", "------" },
        { "token:500:share=1", "------" }, { "api:slow:seconds=1:share=1", "xxxxxx" },
    };
    for (const auto &[rule, expected] : rows) {
        std::string error, hits;
        FaultPlan plan;
        plan.setRules({ parseFaultRule(rule, error).value() });
        for (int i = 0; i < 6; ++i)
            hits += plan.next(FaultTarget::Api) ? 'x' : '-';
        EXPECT_EQ(hits, expected) << rule;
    }
}

constexpr const char *SEED = R"({
    "clients": [{"client_id": "c1", "client_secret": "s1"}, {"client_id": "c2", "client_secret": "s2"}],
    "device_codes": [{"device_code": "d1", "client_id": "c1", "approved": true}],
    "refresh_tokens": [{"refresh_token": "r1", "client_id": "c1"}],
    "access_tokens": [{"access_token": "a1"}]})";

TEST(UnitState, IsNamedAfterMostSevereFlag)
{
    const struct
    {
        const char *report;
        const char *state; // key, level, notes
    } rows[] = {
        { R"({})", "on-mains good" },
        { R"({"status": {"connected": 1, "syncInput": 1}})", "on-mains good" },
        { R"({"status": {"connected": 0, "opBattery": 1}})", "disconnected critical; On battery" },
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
}

TEST(LocalCloud, RefusesWrongReports)
{
    LocalCloud cloud(SEED);
    const struct
    {
        const char *path;
        const char *header;
        const char *body;
        long status;
    } rows[] = {
        { "pc1", "authorization: Bearer a1", "{}", 200 },
        { "pc2", nullptr, "{}", 401 },
        { "pc2", "Authorization: Bearer a2", "{}", 401 },
        { "pc2", "Authorization: Basic a1", "{}", 401 },
        { "pc2", "Authorization: Bearer a1", "[1]", 400 },
        { "pc2", "Authorization: Bearer a1", "{\"a\": }", 400 },
        { "pc2/device/000", "Authorization: Bearer a1", "{}", 404 }, // takes a POST
    };
    const std::string api = cloud.address("api");
    for (const auto &row : rows)
        EXPECT_EQ(ask(api + "/_ah/api/pelorin/v1/mon/" + row.path, "PUT", row.body, row.header)
                          .status,
                  row.status)
                << row.path << " " << row.body;
    EXPECT_EQ(ask(api + "/api/state").json()["computers"_L1].toArray().size(), 1);
}

} // namespace
