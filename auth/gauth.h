#ifndef PELCLOUD_AUTH_GAUTH_H
#define PELCLOUD_AUTH_GAUTH_H

#include "http/httpclient.h"

#include <QString>

class QByteArray;
class QJsonObject;

/**
 * The computer's OAuth record. The configuration file keeps identity, credentials and refresh
 * token; the access token and its expiry are in memory only, so a record from the file counts as
 * expired. A plain value: copies are independent. Not safe for use by two threads at once.
 */
class GoogleToken
{
public:
    GoogleToken() = default;
    /** Reads the persisted fields; a key that is absent or of another type gives "" or 0. */
    GoogleToken(const QJsonObject &json);
    GoogleToken(const GoogleToken &) = default;
    GoogleToken &operator=(const GoogleToken &) = default;
    virtual ~GoogleToken();

    /** The persisted fields, all of them. */
    [[nodiscard]] QJsonObject toJson() const;

    /** Whether there is no access token or it has expired. */
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
    /** Seconds between two requests of a device sign-in. */
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
    /** Stores a lifetime that begins now, and the time of expiry. */
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
    // Clamped to 32 bits, while the current time wraps on 2038-01-19: a token that counts as expired
    // too early is renewed, one that never expires is not.
    int m_expiresAt = 0;
    QString m_refreshToken;
    QString m_homeURI;
};

/**
 * Obtains access tokens for its token record. A request is one POST to the token endpoint: no
 * polling, no retry, no exception, no log. One object is for one thread at a time.
 */
class GoogleAuth
{
public:
    /** The token endpoint's address; never destroyed. Assign it only while no request runs. */
    static QString &GOOGLE_OAUTH2_GET_TOKEN;

    /** Result of a request; all but Ok leave the token unchanged. */
    enum Result {
        Ok = 0, // answered without an error; the token has the answer's members, if any
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

    /** Requests an access token with the device code; returns a Result. */
    [[nodiscard]] int getTokenByAuthCode();
    /** Requests an access token with the refresh token; returns a Result. */
    [[nodiscard]] int getTokenByRefreshToken();

    [[nodiscard]] GoogleToken &getToken() { return m_token; }
    [[nodiscard]] const GoogleToken &getToken() const { return m_token; }
    void setToken(const GoogleToken &token) { m_token = token; }
    [[nodiscard]] bool isAuthTokenExpired() const { return m_token.isAuthTokenExpired(); }

    /** The "error" word of the last answer; empty if it had none. */
    [[nodiscard]] const QString &lastError() const { return m_lastError; }
    /** HTTP status of the last answer; 0 if there was none. */
    [[nodiscard]] long lastStatus() const { return m_client.lastStatus(); }
    /** Why there was no answer, in libcurl's words; empty if there was one. */
    [[nodiscard]] const char *lastFailure() const { return m_client.lastError(); }

    /** Ends the request in progress, and every later one, with NoResponse. For any thread. */
    void cancel() noexcept { m_client.cancel(); }
    /** Ends the effect of cancel(); by the owner, while no request runs. */
    void resume() noexcept { m_client.resume(); }

private:
    int requestToken(const char *grantName, const QString &grant, const char *grantType);

    HttpClient m_client;
    GoogleToken m_token;
    QString m_lastError;
};

#endif
