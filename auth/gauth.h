#ifndef PELCLOUD_AUTH_GAUTH_H
#define PELCLOUD_AUTH_GAUTH_H

#include "http/httpclient.h"

#include <QString>

class QByteArray;
class QJsonObject;

/**
 * What is known about the computer's authorisation. Identity, credentials and refresh token are
 * kept in the configuration file; the access token and its expiry live in memory only, so that a
 * record read from the file always counts as expired.
 * A plain value: copies share nothing that a change would show through. Not safe for use by two
 * threads at once.
 */
class GoogleToken
{
public:
    GoogleToken() = default;
    /** Takes the persisted fields; what is absent or of another JSON type is empty or 0. */
    GoogleToken(const QJsonObject &json);
    GoogleToken(const GoogleToken &) = default;
    GoogleToken &operator=(const GoogleToken &) = default;
    virtual ~GoogleToken();

    /** The persisted fields, all of them. */
    [[nodiscard]] QJsonObject toJson() const;

    /** Whether there is no access token or its last second has come. */
    [[nodiscard]] bool isAuthTokenExpired() const;
    /** Whole seconds since 1970-01-01 UTC, in 32 bits: negative from 2038 on. */
    [[nodiscard]] int getCurrentTimeInSec() const;

    [[nodiscard]] const QString &getComputerId() const { return m_computerId; }
    void setComputerId(const QString &computerId) { m_computerId = computerId; }
    [[nodiscard]] const QString &getClientId() const { return m_clientId; }
    void setClientId(const QString &clientId) { m_clientId = clientId; }
    [[nodiscard]] const QString &getClientSecret() const { return m_clientSecret; }
    void setClientSecret(const QString &clientSecret) { m_clientSecret = clientSecret; }
    [[nodiscard]] const QString &getDeviceCode() const { return m_deviceCode; }
    void setDeviceCode(const QString &deviceCode) { m_deviceCode = deviceCode; }
    /** How long a device sign-in waits between two questions, in seconds. */
    [[nodiscard]] int getInterval() const { return m_interval; }
    void setInterval(int interval) { m_interval = interval; }
    [[nodiscard]] const QString &getAccessToken() const { return m_accessToken; }
    void setAccessToken(const QString &accessToken) { m_accessToken = accessToken; }
    [[nodiscard]] const QString &getTokenType() const { return m_tokenType; }
    void setTokenType(const QString &tokenType) { m_tokenType = tokenType; }
    [[nodiscard]] const QString &getRefreshToken() const { return m_refreshToken; }
    void setRefreshToken(const QString &refreshToken) { m_refreshToken = refreshToken; }
    /** The base address of the cloud's interface. */
    [[nodiscard]] const QString &getHomeURI() const { return m_homeURI; }
    void setHomeURI(const QString &homeURI) { m_homeURI = homeURI; }

    /** The access token's lifetime in seconds, as last received. */
    [[nodiscard]] int getExpiresIn() const { return m_expiresIn; }
    /** When the access token expires, in seconds since 1970-01-01 UTC; 0 when there is none. */
    [[nodiscard]] int getExpiresAt() const { return m_expiresAt; }
    /** Stores a lifetime that begins now, and with it the instant of expiry. */
    void setExpiresIn(int seconds);

private:
    friend struct GoogleTokenProbe; // tests set the clock
    struct Table;

    static qint64 (*s_currentMSecs)();

    QString m_computerId;
    QString m_clientId;
    QString m_clientSecret;
    QString m_deviceCode;
    int m_interval = 0;
    QString m_accessToken;
    QString m_tokenType;
    int m_expiresIn = 0;
    // Compared with the current time, which wraps on 2038-01-19; this stays at the limit of 32 bits
    // instead, for a token that seems to have expired is renewed, but one that never does is not.
    int m_expiresAt = 0;
    QString m_refreshToken;
    QString m_homeURI;
};

/**
 * Obtains access tokens for the record that it holds. Each request is one question to the token
 * endpoint, without waiting or repeating; no exception leaves it, and nothing is logged.
 * One object is for one thread at a time.
 */
class GoogleAuth
{
public:
    /** The token endpoint's address. Assignable while no request runs; it is never destroyed. */
    static QString &GOOGLE_OAUTH2_GET_TOKEN;

    /** What a request results in; all but Ok leave the token as it was. */
    enum Result {
        Ok = 0, // answered; the token has taken what the answer held, which may be nothing
        NoResponse = 1,
        AuthorizationPending = 2,
        SlowDown = 3,
        ExpiredToken = 4,
        OtherError = 5,
    };

    GoogleAuth() = default;
    GoogleAuth(const GoogleAuth &) = delete;
    GoogleAuth &operator=(const GoogleAuth &) = delete;
    virtual ~GoogleAuth();

    /** Trades the token's device code for an access token; returns a Result. */
    [[nodiscard]] int getTokenByAuthCode();
    /** Trades the token's refresh token for an access token; returns a Result. */
    [[nodiscard]] int getTokenByRefreshToken();

    [[nodiscard]] GoogleToken &getToken() { return m_token; }
    [[nodiscard]] const GoogleToken &getToken() const { return m_token; }
    void setToken(const GoogleToken &token) { m_token = token; }
    [[nodiscard]] bool isAuthTokenExpired() const { return m_token.isAuthTokenExpired(); }

    /** The "error" word of the last answer, which OtherError leaves open; empty when it had none. */
    [[nodiscard]] const QString &lastError() const { return m_lastError; }
    /** The HTTP status of the last answer; 0 when there was none. */
    [[nodiscard]] long lastStatus() const { return m_client.lastStatus(); }
    /** Why there was no answer, for a person; empty when there was one. */
    [[nodiscard]] const char *lastFailure() const { return m_client.lastError(); }

    /** Ends the request in progress without an answer, and every later one. For any thread. */
    void cancel() noexcept { m_client.cancel(); }
    /** Ends the effect of cancel(). By the owner, while no request runs. */
    void resume() noexcept { m_client.resume(); }

private:
    int requestToken(const char *grantName, const QString &grant, const char *grantType);

    HttpClient m_client;
    GoogleToken m_token;
    QString m_lastError;
};

namespace Internal {

/**
 * The Result of a request that was answered with `answer`; Ok gives it to `token`, anything else
 * its "error" word to `error`, unless that is null.
 */
[[nodiscard]] int ApplyTokenAnswer(GoogleToken &token, const QByteArray &answer,
                                   QString *error = nullptr);

} // namespace Internal

#endif
