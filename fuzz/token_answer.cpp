// Answers of a token endpoint, applied to a token that holds something in every field.

#include "auth/gauth.h"
#include "fuzz/check.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

struct GoogleTokenProbe
{
    static void setClock(qint64 msecs)
    {
        s_msecs = msecs;
        GoogleToken::s_currentMSecs = [] { return s_msecs; };
    }
    static inline qint64 s_msecs = 0;
};

namespace {

using Limits = std::numeric_limits<int>;

GoogleToken heldToken()
{
    GoogleToken token(QJsonObject{ { "home", "h" },
                                   { "cpid", "p" },
                                   { "cid", "i" },
                                   { "csec", "s" },
                                   { "code", "c" },
                                   { "rtk", "r" },
                                   { "interval", 5 } });
    token.setAccessToken("a");
    token.setTokenType("t");
    GoogleTokenProbe::setClock(1000);
    token.setExpiresIn(9);
    return token;
}

void checkSame(const GoogleToken &token, const GoogleToken &held)
{
    FUZZ_CHECK(token.toJson() == held.toJson());
    FUZZ_CHECK(token.getAccessToken() == held.getAccessToken());
    FUZZ_CHECK(token.getTokenType() == held.getTokenType());
    FUZZ_CHECK(token.getExpiresIn() == held.getExpiresIn());
    FUZZ_CHECK(token.getExpiresAt() == held.getExpiresAt());
}

int expectedResult(const QJsonObject &answer)
{
    if (!answer.contains("error"))
        return GoogleAuth::Ok;
    const QString word = answer["error"].toString();
    return word == "authorization_pending" ? 2
           : word == "slow_down"           ? 3
           : word == "expired_token"       ? 4
                                           : 5;
}

void checkText(const QString &text, const QJsonObject &answer, const char *key, const QString &held)
{
    FUZZ_CHECK(text == (answer.contains(QLatin1String(key)) ? answer[key].toString() : held));
}

void checkApplied(const GoogleToken &token, const QJsonObject &answer, const GoogleToken &held)
{
    checkText(token.getAccessToken(), answer, "access_token", held.getAccessToken());
    checkText(token.getTokenType(), answer, "token_type", held.getTokenType());
    checkText(token.getRefreshToken(), answer, "refresh_token", held.getRefreshToken());

    GoogleToken others = token; // all but these stay
    others.setRefreshToken(held.getRefreshToken());
    FUZZ_CHECK(others.toJson() == held.toJson());

    if (!answer.contains("expires_in")) {
        FUZZ_CHECK(token.getExpiresIn() == held.getExpiresIn());
        FUZZ_CHECK(token.getExpiresAt() == held.getExpiresAt());
        return;
    }
    const double seconds = std::clamp<double>(std::trunc(answer["expires_in"].toDouble()),
                                              Limits::min(), Limits::max());
    FUZZ_CHECK(token.getExpiresIn() == seconds);
    const double at =
            std::clamp<double>(token.getCurrentTimeInSec() + seconds, Limits::min(), Limits::max());
    FUZZ_CHECK(token.getExpiresAt() == at);
    const bool isExpired = at == 0 || token.getCurrentTimeInSec() >= at;
    FUZZ_CHECK(token.isAuthTokenExpired() == isExpired);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // The clock's 40 bits of milliseconds, then the answer; both sides of 2038.
    constexpr std::size_t CLOCK_BYTES = 5;
    qint64 clock = 0;
    std::memcpy(&clock, data, std::min(size, CLOCK_BYTES));
    const std::size_t used = std::min(size, CLOCK_BYTES);
    const QByteArray bytes(reinterpret_cast<const char *>(data) + used,
                           static_cast<qsizetype>(size - used));

    const GoogleToken held = heldToken();
    GoogleTokenProbe::setClock(clock << 2);
    GoogleToken token = held;
    const int result = Internal::ApplyTokenAnswer(token, bytes);

    const QJsonObject answer = QJsonDocument::fromJson(bytes).object();
    FUZZ_CHECK(result == expectedResult(answer));
    if (result == GoogleAuth::Ok)
        checkApplied(token, answer, held);
    else
        checkSame(token, held);
    return 0;
}
