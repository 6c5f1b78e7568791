#include "auth/gauth.h"

#include "tests/golden.h"
#include "tests/support/loopbackserver.h"

#include <gtest/gtest.h>

struct GoogleTokenProbe
{
    static void setClock(qint64 seconds)
    {
        s_msecs = seconds * 1000 + 999;
        GoogleToken::s_currentMSecs = [] { return s_msecs; };
    }
    static inline qint64 s_msecs = 0;
};

namespace {

/** The fields that are in memory only, and the refresh token. */
QString state(const GoogleToken &token)
{
    return QStringList{ token.getAccessToken(), token.getTokenType(),
                        QString::number(token.getExpiresIn()),
                        QString::number(token.getExpiresAt()), token.getRefreshToken() }
            .join('|');
}

TEST(GoogleToken, KeepsWhatTheFileHolds)
{
    for (const QJsonValue row : goldenRows("token_file.json")) {
        const GoogleToken token(row[0].toObject());
        EXPECT_EQ(token.toJson(), row[1].toObject());
        EXPECT_EQ(state(token), "||0|0|" + row[1]["rtk"].toString());
        EXPECT_TRUE(token.isAuthTokenExpired());
    }
}

TEST(GoogleToken, ExpiresAtItsLastSecond)
{
    for (const QJsonValue row : goldenRows("token_expiry.json")) {
        GoogleToken token;
        GoogleTokenProbe::setClock(row["now"].toInteger());
        token.setExpiresIn(row["expiresIn"].toInt());
        EXPECT_EQ(token.getExpiresAt(), row["expiresAt"].toInt());
        EXPECT_EQ(token.isAuthTokenExpired(), row["expired"].toBool()) << token.getExpiresIn();
        for (const int late : { -1, 0 }) {
            GoogleTokenProbe::setClock(static_cast<quint32>(token.getExpiresAt() + late));
            EXPECT_EQ(token.isAuthTokenExpired(), late == 0 || token.getExpiresAt() == 0);
        }
    }
}

TEST(GoogleAuth, AppliesAnswers)
{
    const QString id = "s3cr3t b&c=d%e+f/g\"h'%41;\u00e9\u20ac";
    const std::string encoded = "s3cr3t%20b%26c%3Dd%25e%2Bf/g%22h'%2541%3B%C3%A9%E2%82%AC";
    const QJsonObject stored{
        { "cid", id }, { "csec", "%" + id }, { "code", id + "+" }, { "rtk", "s3cr3tR" }
    };
    const struct
    {
        int (GoogleAuth::*request)();
        std::string form;
    } grants[] = {
        { &GoogleAuth::getTokenByAuthCode,
          "&code=" + encoded + "%2B&grant_type=http://oauth.net/grant_type/device/1.0" },
        { &GoogleAuth::getTokenByRefreshToken, "&refresh_token=s3cr3tR&grant_type=refresh_token" },
    };
    const QJsonArray rows = goldenRows("token_answers.json");
    const LoopbackServer server([&](int socket, const LoopbackServer::Request &request) {
        const QJsonValue text = rows[std::stoi(request.path.substr(1))][0];
        return text.isString() // the status does not matter
               && LoopbackServer::reply(socket, text.toString().toStdString(), "400 Bad Request");
    });
    EXPECT_EQ(GoogleAuth::GOOGLE_OAUTH2_GET_TOKEN, "https://www.googleapis.com/oauth2/v4/token");
    GoogleTokenProbe::setClock(1700000000);
    GoogleAuth auth;
    for (int i = 0; i < rows.size(); ++i) {
        GoogleAuth::GOOGLE_OAUTH2_GET_TOKEN = server.url(QString("/%1").arg(i)).toString();
        for (const auto &grant : grants) {
            GoogleToken token(stored);
            token.setAccessToken("s3cr3tA");
            token.setTokenType("oldT");
            token.setExpiresIn(9);
            auth.setToken(token);
            EXPECT_EQ((auth.*grant.request)(), rows[i][1].toInt(-1)) << i;
            EXPECT_EQ(state(auth.getToken()), rows[i][2].toString()) << i;
            EXPECT_EQ(server.last().body,
                      "client_id=" + encoded + "&client_secret=%25" + encoded + grant.form);
            EXPECT_NE(server.last().head.find("\r\nAccept: application/json\r\nContent-Type: "
                                              "application/x-www-form-urlencoded\r\n"),
                      std::string::npos);
        }
    }
    GoogleAuth::GOOGLE_OAUTH2_GET_TOKEN = server.url("/0").toString();
    auth.setToken(GoogleToken());
    auth.cancel();
    EXPECT_EQ(auth.getTokenByRefreshToken(), GoogleAuth::NoResponse);
    auth.resume();
    EXPECT_EQ(auth.getTokenByRefreshToken(), GoogleAuth::Ok);
    EXPECT_EQ(server.last().body,
              "client_id=&client_secret=&refresh_token=&grant_type=refresh_token");
}

} // namespace
