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

/** What lives in memory only, and the refresh token. */
QString state(const GoogleToken &token)
{
    return QStringList{ token.getAccessToken(), token.getTokenType(),
                        QString::number(token.getExpiresIn()),
                        QString::number(token.getExpiresAt()), token.getRefreshToken() }
            .join('|');
}

TEST(GoogleToken, KeepsWhatTheFileHolds)
{
    const QJsonArray rows = goldenRows("token_file.json");
    for (const QJsonValue row : rows) {
        const GoogleToken token(row[0].toObject());
        EXPECT_EQ(token.toJson(), row[1].toObject());
        EXPECT_EQ(state(token), "||0|0|" + row[1]["rtk"].toString());
        EXPECT_TRUE(token.isAuthTokenExpired());
    }
    GoogleToken token;
    token.setComputerId("1");
    token.setClientId("2");
    token.setClientSecret("3");
    token.setDeviceCode("4");
    token.setInterval(5);
    token.setRefreshToken("6");
    token.setHomeURI("7");
    EXPECT_EQ(token.toJson(), rows[0][1].toObject());
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

/** The items of a form, as a decoder that takes a "+" for a blank understands them. */
QStringList decoded(const std::string &form)
{
    QStringList result;
    for (const QByteArray &item : QByteArray(form.c_str()).replace('+', ' ').split('&'))
        result << QByteArray::fromPercentEncoding(item);
    return result;
}

TEST(GoogleAuth, AppliesAnswers)
{
    const QJsonArray rows = goldenRows("token_answers.json");
    const LoopbackServer server([&](int socket, const LoopbackServer::Request &request) {
        const int index = std::stoi(request.path.substr(request.path.find('?') + 1));
        const QJsonValue text = rows[index][0];
        const char *const status = index % 2 == 0 ? "200 OK" : "400 Bad Request";
        return text.isString()
               && LoopbackServer::reply(socket, text.toString().toStdString(), status);
    });
    EXPECT_EQ(GoogleAuth::GOOGLE_OAUTH2_GET_TOKEN, "https://www.googleapis.com/oauth2/v4/token");
    GoogleTokenProbe::setClock(1700000000);
    const QString id = "s3cr3t b&c=d%e+f/g\"h'%41;\u00e9\u20ac", secret = "%2B" + id,
                  code = id + "+";
    GoogleAuth auth;
    for (int i = 0; i < 2 * rows.size(); ++i) {
        const QJsonValue row = rows[i / 2];
        const QString url = server.url("/oauth2/v4/token?" + QString::number(i / 2)).toString();
        GoogleAuth::GOOGLE_OAUTH2_GET_TOKEN = url;
        GoogleToken token(QJsonObject{
                { "cid", id }, { "csec", secret }, { "code", code }, { "rtk", "s3cr3tR" } });
        token.setAccessToken("s3cr3tA");
        token.setTokenType("oldT");
        token.setExpiresIn(9);
        auth.setToken(token);
        QStringList form{ "client_id=" + id, "client_secret=" + secret };
        if (i % 2 == 0) {
            EXPECT_EQ(auth.getTokenByAuthCode(), row[1].toInt(-1)) << i;
            form << "code=" + code << "grant_type=http://oauth.net/grant_type/device/1.0";
        } else {
            EXPECT_EQ(auth.getTokenByRefreshToken(), row[1].toInt(-1)) << i;
            form << "refresh_token=s3cr3tR"
                 << "grant_type=refresh_token";
        }
        EXPECT_EQ(state(auth.getToken()), row[2].toString()) << i;
        EXPECT_EQ(decoded(server.last().body), form);
        EXPECT_NE(server.last().head.find("\r\nAccept: application/json\r\nContent-Type: "
                                          "application/x-www-form-urlencoded\r\n"),
                  std::string::npos);
    }
    auth.setToken(GoogleToken());
    EXPECT_EQ(auth.getTokenByRefreshToken(), GoogleAuth::NoResponse);
    EXPECT_EQ(server.last().body,
              "client_id=&client_secret=&refresh_token=&grant_type=refresh_token");
}

} // namespace
