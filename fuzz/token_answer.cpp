// Answers of a token endpoint, applied to a token that holds something in every field.

#include "auth/gauth.h"
#include "fuzz/check.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <algorithm>
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

/** What is known of `held` after `answer`, where its member `key` has a place. */
QString text(const QJsonObject &answer, const char *key, const QString &held)
{
    return answer.contains(QLatin1String(key)) ? answer[key].toString() : held;
}

int saturated(double value)
{
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(std::clamp<double>(value, Limits::min(), Limits::max()));
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

    QJsonObject answer = QJsonDocument::fromJson(bytes).object();
    FUZZ_CHECK(result == expectedResult(answer));
    if (result != GoogleAuth::Ok)
        answer = {}; // changes nothing
    FUZZ_CHECK(token.getAccessToken() == text(answer, "access_token", held.getAccessToken()));
    FUZZ_CHECK(token.getTokenType() == text(answer, "token_type", held.getTokenType()));
    QJsonObject kept = held.toJson();
    kept["rtk"] = text(answer, "refresh_token", held.getRefreshToken());
    FUZZ_CHECK(token.toJson() == kept);

    int seconds = held.getExpiresIn();
    int at = held.getExpiresAt();
    if (answer.contains("expires_in")) {
        seconds = saturated(answer["expires_in"].toDouble());
        at = saturated(static_cast<double>(token.getCurrentTimeInSec()) + seconds);
    }
    FUZZ_CHECK(token.getExpiresIn() == seconds && token.getExpiresAt() == at);
    FUZZ_CHECK(token.isAuthTokenExpired() == (at == 0 || token.getCurrentTimeInSec() >= at));
    return 0;
}
