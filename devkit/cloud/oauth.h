#ifndef PELCLOUD_DEVKIT_CLOUD_OAUTH_H
#define PELCLOUD_DEVKIT_CLOUD_OAUTH_H

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <QJsonObject>

namespace localcloud {

struct OAuthSettings
{
    std::chrono::seconds tokenLife{ 3600 };
    std::chrono::seconds codeLife{ 1800 };
    std::chrono::seconds interval{ 5 }; // between two polls with the same device code
    std::optional<int> approveAfter;    // number of pending answers before automatic approval
    std::string verificationUrl;
};

/** An answer of an endpoint: HTTP status and JSON body. */
struct OAuthReply
{
    int status;
    QJsonObject body;
};

/**
 * The authorization server as a state machine: clients, device codes with their approval, refresh and
 * access tokens. The clock is the caller's. Not safe for concurrent use.
 *
 * A device code is pending until it is approved or denied, or its life ends; once approved it is
 * valid for one token request. All lists are bounded; new entries replace the oldest ones.
 */
class OAuthServer
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Clock = std::function<TimePoint()>;
    using Form = std::map<std::string, std::string>;

    explicit OAuthServer(OAuthSettings settings, Clock clock = std::chrono::steady_clock::now);

    /** The address of the approval page, known once the port is. */
    void setVerificationUrl(std::string url);

    /**
     * Registers the entries of a seed: {"clients": [{"client_id", "client_secret"}],
     * "device_codes": [{"device_code", "client_id", "user_code", "approved"}],
     * "refresh_tokens": [{"refresh_token", "client_id"}], "access_tokens": [{"access_token"}],
     * "token_prefix": the start of all tokens issued from now on}.
     * Every list, "user_code", "approved" and the prefix may be missing. Returns an error, without
     * values of the seed, or an empty text.
     */
    [[nodiscard]] std::string seed(const QJsonObject &seed);

    /** The token endpoint: the device grant and the refresh grant. */
    [[nodiscard]] OAuthReply token(const Form &form);

    /** The device authorization endpoint: a new device code for the form's "client_id". */
    [[nodiscard]] OAuthReply authorizeDevice(const Form &form);

    /**
     * Approves or denies the pending device with this user code, ignoring case, blanks and dashes.
     * False if no device with this code waits.
     */
    bool decide(std::string_view userCode, bool approve);

    /** The number of devices that wait for a decision. */
    [[nodiscard]] std::size_t waitingDevices() const;

    /** Whether this access token was issued here and has not expired. */
    [[nodiscard]] bool isValid(const std::string &accessToken) const;

private:
    enum class Approval { Pending, Approved, Denied };
    struct Device
    {
        std::string clientId;
        std::string userCode; // as compared: capital letters and digits only
        TimePoint expiry;
        std::optional<TimePoint> lastPoll;
        int pendingAnswers = 0;
        Approval approval = Approval::Pending;
    };
    struct AccessToken
    {
        TimePoint expiry;
    };
    struct RefreshToken
    {
        std::string clientId;
        TimePoint expiry; // only to find the oldest
    };

    [[nodiscard]] OAuthReply deviceGrant(const std::string &clientId, const std::string &code);
    [[nodiscard]] OAuthReply pollDevice(Device &device);
    [[nodiscard]] OAuthReply refreshGrant(const std::string &clientId, const std::string &token);
    [[nodiscard]] QJsonObject issueAccessToken();
    [[nodiscard]] std::string newToken() const;
    [[nodiscard]] std::string seedDevice(const QJsonObject &row);

    OAuthSettings m_settings;
    Clock m_clock;
    std::string m_tokenPrefix;
    std::map<std::string, std::string> m_clients; // secret by id
    std::map<std::string, Device> m_devices;      // by device code
    std::map<std::string, RefreshToken> m_refreshTokens;
    std::map<std::string, AccessToken> m_accessTokens;
};

} // namespace localcloud

#endif
