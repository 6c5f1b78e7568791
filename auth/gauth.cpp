#include "auth/gauth.h"

#include "http/httprequest.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <initializer_list>
#include <limits>
#include <memory>

#include <QByteArray>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QUrl>

namespace {

using namespace Qt::StringLiterals;

constexpr char DEVICE_GRANT_TYPE[] = "http://oauth.net/grant_type/device/1.0";
constexpr char REFRESH_GRANT_TYPE[] = "refresh_token";
constexpr auto INTERVAL = "interval"_L1;

/** Truncated toward zero and clamped to 32 bits; 0 for NaN. */
int saturated(double value)
{
    using Limits = std::numeric_limits<int>;
    if (std::isnan(value))
        return 0;
    return static_cast<int>(std::clamp<double>(value, Limits::min(), Limits::max()));
}

struct FormField
{
    const char *name;
    QString value;
};

// Not percent-encoded in a query. "+" and ";" are encoded, since some decoders read them as a blank
// and as the end of a field.
constexpr char PLAIN_IN_QUERIES[] = "!$'()*,:@/?";

QByteArray formBody(std::initializer_list<FormField> fields)
{
    QByteArray body;
    for (const FormField &field : fields) {
        if (!body.isEmpty())
            body += '&';
        body += field.name;
        body += '=';
        body += QUrl::toPercentEncoding(field.value, PLAIN_IN_QUERIES);
    }
    return body;
}

int errorResult(const QString &word)
{
    constexpr struct
    {
        QLatin1String word;
        GoogleAuth::Result result;
    } ROWS[] = {
        { "authorization_pending"_L1, GoogleAuth::AuthorizationPending },
        { "slow_down"_L1, GoogleAuth::SlowDown },
        { "expired_token"_L1, GoogleAuth::ExpiredToken },
    };
    for (const auto &row : ROWS) {
        if (word == row.word)
            return row.result;
    }
    return GoogleAuth::OtherError;
}

/** Copies the members of an answer into the token; other fields stay as they are. */
void apply(GoogleToken &token, const QJsonObject &answer)
{
    constexpr struct
    {
        QLatin1String key;
        void (GoogleToken::*set)(const QString &);
    } ROWS[] = {
        { "access_token"_L1, &GoogleToken::setAccessToken },
        { "token_type"_L1, &GoogleToken::setTokenType },
        { "refresh_token"_L1, &GoogleToken::setRefreshToken },
    };
    for (const auto &row : ROWS) {
        if (answer.contains(row.key))
            (token.*row.set)(answer[row.key].toString());
    }
    constexpr auto EXPIRES_IN = "expires_in"_L1;
    if (answer.contains(EXPIRES_IN))
        token.setExpiresIn(saturated(answer[EXPIRES_IN].toDouble()));
}

/**
 * The Result that `answer` stands for. Ok stores its members in `token`; an error stores its word
 * in `error`.
 */
int applyAnswer(GoogleToken &token, const QByteArray &answer, QString &error)
{
    const QJsonObject members = QJsonDocument::fromJson(answer).object();
    const auto found = members.find("error"_L1);
    if (found != members.end()) {
        error = found->toString();
        return errorResult(error);
    }
    GoogleToken changed = token; // out of memory changes nothing
    apply(changed, members);
    token = changed;
    return GoogleAuth::Ok;
}

} // namespace

/** The persisted texts; the only other persisted field is the interval. */
struct GoogleToken::Table
{
    struct Row
    {
        QLatin1String key;
        QString GoogleToken::*field;
    };
    static constexpr Row TEXTS[] = {
        { "home"_L1, &GoogleToken::m_homeURI },    { "cpid"_L1, &GoogleToken::m_computerId },
        { "cid"_L1, &GoogleToken::m_clientId },    { "csec"_L1, &GoogleToken::m_clientSecret },
        { "code"_L1, &GoogleToken::m_deviceCode }, { "rtk"_L1, &GoogleToken::m_refreshToken },
    };
};

qint64 (*GoogleToken::s_currentMSecs)() = QDateTime::currentMSecsSinceEpoch;

GoogleToken::GoogleToken(const QJsonObject &json)
    : m_interval(saturated(json[INTERVAL].toDouble()))
{
    for (const auto &row : Table::TEXTS)
        this->*row.field = json[row.key].toString();
}

GoogleToken::~GoogleToken() = default;

QJsonObject GoogleToken::toJson() const
{
    QJsonObject json;
    for (const auto &row : Table::TEXTS)
        json.insert(row.key, this->*row.field);
    json.insert(INTERVAL, m_interval);
    return json;
}

bool GoogleToken::isAuthTokenExpired() const
{
    return m_expiresAt == 0 || getCurrentTimeInSec() >= m_expiresAt;
}

int GoogleToken::getCurrentTimeInSec() const
{
    return static_cast<int>(s_currentMSecs() / 1000); // wraps in 2038
}

void GoogleToken::setExpiresIn(int seconds)
{
    m_expiresIn = seconds;
    m_expiresAt = saturated(static_cast<double>(getCurrentTimeInSec()) + seconds);
}

// Never destroyed: a thread may still request tokens while the process runs its destructors.
QString &GoogleAuth::GOOGLE_OAUTH2_GET_TOKEN =
        *new QString(u"https://www.googleapis.com/oauth2/v4/token"_s);

GoogleAuth::~GoogleAuth() = default;

int GoogleAuth::getTokenByAuthCode()
{
    return requestToken("code", m_token.getDeviceCode(), DEVICE_GRANT_TYPE);
}

int GoogleAuth::getTokenByRefreshToken()
{
    return requestToken("refresh_token", m_token.getRefreshToken(), REFRESH_GRANT_TYPE);
}

int GoogleAuth::requestToken(const char *grantName, const QString &grant, const char *grantType)
try {
    m_lastError.clear();
    HttpRequest request{ QUrl(GOOGLE_OAUTH2_GET_TOKEN) };
    request.setRawHeader("Content-Type", "application/x-www-form-urlencoded");
    request.setRawHeader("Accept", "application/json");
    const QByteArray form = formBody({ { "client_id", m_token.getClientId() },
                                       { "client_secret", m_token.getClientSecret() },
                                       { grantName, grant },
                                       { "grant_type", QLatin1String(grantType) } });
    const std::unique_ptr<QByteArray> body(m_client.post(request, form));
    return body ? applyAnswer(m_token, *body, m_lastError) : NoResponse;
} catch (const std::exception &) {
    return NoResponse; // out of memory; the token is unchanged
}
