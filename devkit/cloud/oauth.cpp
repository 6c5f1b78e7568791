#include "devkit/cloud/oauth.h"

#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <stdexcept>
#include <utility>

#include <QJsonArray>

namespace localcloud {

namespace {

using namespace Qt::StringLiterals;

constexpr std::string_view DEVICE_GRANT = "http://oauth.net/grant_type/device/1.0";
constexpr std::string_view REFRESH_GRANT = "refresh_token";
constexpr std::size_t MAX_REMEMBERED = 10000;
constexpr std::size_t TOKEN_LENGTH = 40;
constexpr std::size_t USER_CODE_LENGTH = 8;
// No vowels and no digits: no words arise, and no letter looks like a digit.
constexpr std::string_view USER_CODE_LETTERS = "BCDFGHJKLMNPQRSTVWXZ";
constexpr std::string_view TOKEN_LETTERS =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";

std::string randomText(std::string_view letters, std::size_t length)
{
    std::string text;
    while (text.size() < length) {
        unsigned char byte = 0;
        if (RAND_bytes(&byte, 1) != 1)
            throw std::runtime_error("no random bytes");
        if (byte < letters.size() * (256 / letters.size())) // same probability for every letter
            text += letters[byte % letters.size()];
    }
    return text;
}

/** The capital letters and digits of a user code, which people type with blanks and dashes. */
std::string plainUserCode(std::string_view typed)
{
    std::string plain;
    for (const char c : typed) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte))
            plain += static_cast<char>(std::toupper(byte));
    }
    return plain;
}

std::string member(const QJsonObject &row, const char *name)
{
    return row[QLatin1String(name)].toString().toStdString();
}

std::string field(const OAuthServer::Form &form, const char *name)
{
    const auto found = form.find(name);
    return found == form.end() ? std::string() : found->second;
}

OAuthReply refusal(int status, std::string_view word)
{
    return { status, { { u"error"_s, QString::fromUtf8(word) } } };
}

/** Removes the oldest entry if there is no room for one more. */
template <class Entry>
void dropOldest(std::map<std::string, Entry> &entries)
{
    if (entries.size() < MAX_REMEMBERED)
        return;
    entries.erase(std::min_element(entries.begin(), entries.end(), [](auto &left, auto &right) {
        return left.second.expiry < right.second.expiry;
    }));
}

} // namespace

OAuthServer::OAuthServer(OAuthSettings settings, Clock clock)
    : m_settings(std::move(settings))
    , m_clock(std::move(clock))
{}

void OAuthServer::setVerificationUrl(std::string url)
{
    m_settings.verificationUrl = std::move(url);
}

std::string OAuthServer::seed(const QJsonObject &seed)
{
    m_tokenPrefix = member(seed, "token_prefix");
    for (const QJsonValue row : seed[u"clients"_s].toArray()) {
        const std::string id = member(row.toObject(), "client_id");
        if (id.empty())
            return "a client has no client_id";
        m_clients[id] = member(row.toObject(), "client_secret");
    }
    for (const QJsonValue row : seed[u"device_codes"_s].toArray()) {
        if (std::string error = seedDevice(row.toObject()); !error.empty())
            return error;
    }
    for (const QJsonValue row : seed[u"refresh_tokens"_s].toArray()) {
        const std::string token = member(row.toObject(), "refresh_token");
        const std::string client = member(row.toObject(), "client_id");
        if (token.empty() || !m_clients.contains(client))
            return "a refresh token is empty or belongs to none of the clients";
        m_refreshTokens[token] = { client, m_clock() };
    }
    for (const QJsonValue row : seed[u"access_tokens"_s].toArray()) {
        const std::string token = member(row.toObject(), "access_token");
        if (token.empty())
            return "an access token is empty";
        m_accessTokens[token] = { m_clock() + m_settings.tokenLife };
    }
    return {};
}

std::string OAuthServer::seedDevice(const QJsonObject &row)
{
    const std::string code = member(row, "device_code");
    Device device;
    device.clientId = member(row, "client_id");
    device.userCode = plainUserCode(member(row, "user_code"));
    device.expiry = m_clock() + m_settings.codeLife;
    if (row[u"approved"_s].toBool())
        device.approval = Approval::Approved;
    if (code.empty() || !m_clients.contains(device.clientId))
        return "a device code is empty or belongs to none of the clients";
    m_devices[code] = device;
    return {};
}

OAuthReply OAuthServer::token(const Form &form)
{
    const std::string clientId = field(form, "client_id");
    const auto client = m_clients.find(clientId);
    if (client == m_clients.end() || client->second != field(form, "client_secret"))
        return refusal(401, "invalid_client");
    const std::string grant = field(form, "grant_type");
    if (grant == DEVICE_GRANT)
        return deviceGrant(clientId, field(form, "code"));
    if (grant == REFRESH_GRANT)
        return refreshGrant(clientId, field(form, "refresh_token"));
    return refusal(400, grant.empty() ? "invalid_request" : "unsupported_grant_type");
}

OAuthReply OAuthServer::deviceGrant(const std::string &clientId, const std::string &code)
{
    const auto found = m_devices.find(code);
    if (found == m_devices.end() || found->second.clientId != clientId)
        return refusal(400, "invalid_grant");
    OAuthReply polled = pollDevice(found->second);
    if (polled.status != 200)
        return polled;
    m_devices.erase(found);

    dropOldest(m_refreshTokens);
    const std::string refreshToken = newToken();
    m_refreshTokens[refreshToken] = { clientId, m_clock() };
    QJsonObject tokens = issueAccessToken();
    tokens[u"refresh_token"_s] = QString::fromUtf8(refreshToken);
    return { 200, tokens };
}

/** Status 200 if the device gets tokens, else the error answer. */
OAuthReply OAuthServer::pollDevice(Device &device)
{
    const TimePoint now = m_clock();
    if (now >= device.expiry)
        return refusal(400, "expired_token");
    if (device.approval == Approval::Denied)
        return refusal(400, "access_denied");
    const bool isTooFast = device.lastPoll && now - *device.lastPoll < m_settings.interval;
    device.lastPoll = now;
    if (isTooFast)
        return refusal(400, "slow_down");
    if (m_settings.approveAfter && device.pendingAnswers >= *m_settings.approveAfter)
        device.approval = Approval::Approved;
    if (device.approval == Approval::Approved)
        return { 200, {} };
    ++device.pendingAnswers;
    return refusal(400, "authorization_pending");
}

OAuthReply OAuthServer::refreshGrant(const std::string &clientId, const std::string &token)
{
    const auto found = m_refreshTokens.find(token);
    if (found == m_refreshTokens.end() || found->second.clientId != clientId)
        return refusal(400, "invalid_grant");
    return { 200, issueAccessToken() };
}

OAuthReply OAuthServer::authorizeDevice(const Form &form)
{
    const std::string clientId = field(form, "client_id");
    if (!m_clients.contains(clientId))
        return refusal(401, "invalid_client");
    dropOldest(m_devices);
    const std::string code = randomText(TOKEN_LETTERS, TOKEN_LENGTH);
    Device &device = m_devices[code];
    device.clientId = clientId;
    device.userCode = randomText(USER_CODE_LETTERS, USER_CODE_LENGTH);
    device.expiry = m_clock() + m_settings.codeLife;

    constexpr std::size_t HALF = USER_CODE_LENGTH / 2;
    const std::string shown = device.userCode.substr(0, HALF) + '-' + device.userCode.substr(HALF);
    const QString url = QString::fromUtf8(m_settings.verificationUrl);
    const QString completeUrl = url + u"?user_code="_s + QString::fromUtf8(shown);
    return { 200,
             { { u"device_code"_s, QString::fromUtf8(code) },
               { u"user_code"_s, QString::fromUtf8(shown) },
               { u"verification_url"_s, url },
               { u"verification_uri"_s, url },
               { u"verification_uri_complete"_s, completeUrl },
               { u"expires_in"_s, static_cast<qint64>(m_settings.codeLife.count()) },
               { u"interval"_s, static_cast<qint64>(m_settings.interval.count()) } } };
}

bool OAuthServer::decide(std::string_view userCode, bool approve)
{
    const std::string plain = plainUserCode(userCode);
    const TimePoint now = m_clock();
    for (auto &[code, device] : m_devices) {
        if (!plain.empty() && device.userCode == plain && device.approval == Approval::Pending
            && now < device.expiry) {
            device.approval = approve ? Approval::Approved : Approval::Denied;
            return true;
        }
    }
    return false;
}

std::size_t OAuthServer::waitingDevices() const
{
    const TimePoint now = m_clock();
    const auto count = std::count_if(m_devices.begin(), m_devices.end(), [now](const auto &entry) {
        return entry.second.approval == Approval::Pending && now < entry.second.expiry;
    });
    return static_cast<std::size_t>(count);
}

bool OAuthServer::isValid(const std::string &accessToken) const
{
    const auto found = m_accessTokens.find(accessToken);
    return found != m_accessTokens.end() && m_clock() < found->second.expiry;
}

std::string OAuthServer::newToken() const
{
    return m_tokenPrefix + randomText(TOKEN_LETTERS, TOKEN_LENGTH);
}

QJsonObject OAuthServer::issueAccessToken()
{
    dropOldest(m_accessTokens);
    const std::string token = newToken();
    m_accessTokens[token] = { m_clock() + m_settings.tokenLife };
    return { { u"access_token"_s, QString::fromUtf8(token) },
             { u"expires_in"_s, static_cast<qint64>(m_settings.tokenLife.count()) },
             { u"token_type"_s, u"Bearer"_s } };
}

} // namespace localcloud
