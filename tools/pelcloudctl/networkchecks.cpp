#include "auth/gauth.h"
#include "http/httpclient.h"
#include "http/httprequest.h"
#include "plugin/constants.h"
#include "tools/pelcloudctl/checks.h"
#include "tools/pelcloudctl/httpwords.h"
#include "tools/pelcloudctl/probe.h"
#include "tools/pelcloudctl/terminal.h"

#include <cstdlib>
#include <ctime>
#include <optional>

#include <QJsonObject>
#include <QUrl>

namespace {

using namespace Qt::StringLiterals;

constexpr const char *CHECK_NETWORK = "Check the address, the network and the proxy.";

/** Whether requests to this address stay on this computer. */
bool isLoopback(const std::string &url)
{
    const QString host = QUrl(QString::fromStdString(url)).host();
    return host == "localhost"_L1 || host == "::1"_L1 || host.startsWith("127."_L1);
}

/** The address of the computer's reports, as the plug-in requests it. */
std::string computerAddress(const GoogleToken &token)
{
    const QString uri =
            Constants::COMPUTER_URI_PATTERN.arg(token.getHomeURI(), token.getComputerId());
    return HttpRequest(QUrl(uri)).url().toStdString();
}

struct Variable
{
    const char *name;
    const char *value;
};

/** Of these variables of the environment, the first that is not empty. */
std::optional<Variable> firstSet(std::initializer_list<const char *> names)
{
    for (const char *const name : names) {
        const char *const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
        if (value != nullptr && *value != '\0')
            return Variable{ name, value };
    }
    return std::nullopt;
}

void checkProxy(Findings &findings, const char *scheme, std::initializer_list<const char *> names)
{
    const std::optional<Variable> proxy = firstSet(names);
    if (!proxy)
        return;
    std::string text = std::string(scheme) + " through " + withoutPassword(proxy->value) + " ("
                       + proxy->name + " in this shell; the plug-in uses its host's)";
    if (const auto exceptions = firstSet({ "no_proxy", "NO_PROXY" }))
        text.append(", except to ").append(exceptions->value);
    findings.add(Verdict::Ok, "proxy", text);
}

void checkTls(Findings &findings, const char *subject, const std::string &url, const Answer &answer)
{
    const bool isVerifying = HttpClient::verifiesTls();
    if (!answer.isTls && isLoopback(url))
        findings.add(Verdict::Ok, subject, "no TLS; the server is on this computer");
    else if (!answer.isTls)
        findings.add(Verdict::Warning, subject, "no TLS: anyone on the way can read the token",
                     "Use an https address.");
    else if (answer.isTrusted)
        findings.add(Verdict::Ok, subject, "certificate valid until " + answer.expiry);
    else
        findings.add(isVerifying ? Verdict::Problem : Verdict::Warning, subject,
                     "certificate not trusted: " + answer.certificateFailure,
                     isVerifying ? "Install the authority's certificate."
                                 : "This build accepts any certificate; see security.md.");
}

void checkClock(Findings &findings, std::time_t date)
{
    constexpr std::time_t TOLERANCE = 60; // seconds
    const std::time_t skew = std::time(nullptr) - date;
    const std::string words = std::to_string(std::abs(skew)) + " s "
                              + (skew < 0 ? "behind" : "ahead of") + " the server's clock";
    if (std::abs(skew) > TOLERANCE)
        findings.add(Verdict::Warning, "clock", words, "Run 'timedatectl set-ntp true'.");
    else
        findings.add(Verdict::Ok, "clock", words);
}

/** Whether the server answers, its certificate, and its clock. */
Answer checkServer(Findings &findings, const char *subject, const std::string &url,
                   const QString &token = {})
{
    Answer answer = probe(url, token.toStdString());
    const std::string shown = withoutPassword(url);
    if (answer.status == 0) {
        findings.add(Verdict::Problem, subject, shown + ": no answer: " + answer.failure,
                     CHECK_NETWORK);
        return answer;
    }
    findings.add(Verdict::Ok, subject, shown + " answers");
    checkTls(findings, subject, url, answer);
    if (answer.date)
        checkClock(findings, *answer.date);
    return answer;
}

/** Signs in with the refresh token. Gives the access token, or an empty one. */
QString checkToken(Findings &findings, const GoogleToken &token)
{
    if (token.getRefreshToken().isEmpty()) {
        if (!token.getDeviceCode().isEmpty())
            findings.add(Verdict::Warning, "token",
                         "not checked: there is only a device code, which a sign-in would use up",
                         "Approve the code; the plug-in then signs in.");
        return {};
    }
    GoogleAuth auth;
    auth.setToken(token);
    const int result = auth.getTokenByRefreshToken();
    QString accessToken = auth.getToken().getAccessToken();
    if (result == GoogleAuth::NoResponse)
        findings.add(Verdict::Problem, "token", std::string("no answer: ") + auth.lastFailure(),
                     CHECK_NETWORK);
    else if (auth.lastError() == "invalid_grant"_L1)
        findings.add(Verdict::Problem, "token", "the enrolment has expired or was revoked",
                     "Run 'pelcloudctl enroll'.");
    else if (result != GoogleAuth::Ok)
        findings.add(Verdict::Problem, "token",
                     "sign-in refused: " + Terminal::printable(auth.lastError()) + ", status "
                             + std::to_string(auth.lastStatus()),
                     isTransient(auth.lastStatus())
                             ? "Try again later."
                             : R"(Check "cid" and "csec", or run 'pelcloudctl enroll'.)");
    else if (accessToken.isEmpty())
        findings.add(Verdict::Problem, "token",
                     "no access token in the answer; status " + statusWords(auth.lastStatus()),
                     "Try again later.");
    else
        findings.add(Verdict::Ok, "token",
                     "granted for " + std::to_string(auth.getToken().getExpiresIn()) + " s");
    return accessToken;
}

void checkCloud(Findings &findings, const GoogleToken &token, const QString &accessToken)
{
    if (token.getHomeURI().isEmpty())
        return;
    const long status = checkServer(findings, "cloud", computerAddress(token), accessToken).status;
    if (status == 0)
        return;
    constexpr long METHOD_NOT_ALLOWED = 405; // the address is known, but takes reports only
    const bool isGood = isSuccess(status) || status == METHOD_NOT_ALLOWED;
    findings.add(isGood ? Verdict::Ok : Verdict::Warning, "cloud",
                 "GET for this computer answered " + statusWords(status),
                 isGood ? "" : "Run 'pelcloudctl run --once' to see the answers to reports.");
}

} // namespace

void checkNetwork(Findings &findings, const QJsonObject &config)
{
    checkProxy(findings, "https", { "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY" });
    checkProxy(findings, "http", { "http_proxy", "all_proxy", "ALL_PROXY" });
    const GoogleToken token(config);
    checkServer(findings, "token server", GoogleAuth::GOOGLE_OAUTH2_GET_TOKEN.toStdString());
    checkCloud(findings, token, checkToken(findings, token));
}
