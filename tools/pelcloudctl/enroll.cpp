#include "auth/gauth.h"
#include "http/httpclient.h"
#include "http/httprequest.h"
#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/httpwords.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/terminal.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>
#include <unistd.h>

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QUrl>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr seconds SLOWER{ 5 }; // what each request to slow down adds
constexpr seconds SLOWEST{ 60 };
constexpr seconds USUAL_INTERVAL{ 5 };
constexpr seconds USUAL_LIFE{ 1800 };

/** What the server gives a device that wants to be enrolled. */
struct DeviceCode
{
    QString code; // secret
    std::string userCode;
    std::string address;
    seconds interval;
    seconds life;
};

enum class Outcome { Approved, Expired, Refused };

QString text(const QJsonObject &object, std::initializer_list<const char *> keys)
{
    for (const char *const key : keys) {
        if (QString value = object[QLatin1String(key)].toString(); !value.isEmpty())
            return value;
    }
    return {};
}

seconds secondsOf(const QJsonObject &object, const char *key, seconds byDefault)
{
    constexpr double LONGEST = 86400;
    const double value = object[QLatin1String(key)].toDouble(0);
    return value >= 1 ? seconds(static_cast<long>(std::min(value, LONGEST))) : byDefault;
}

/** A server that is busy or out of order, rather than one that refuses. */
bool isPassing(long status)
{
    constexpr long TOO_MANY = 429;
    return status == TOO_MANY || status >= 500;
}

DeviceCode requestCode(const Commands::Enroll &options, const GoogleToken &token)
{
    const auto encoded = [](const QString &value) { return QUrl::toPercentEncoding(value); };
    const QString endpoint = QString::fromStdString(options.authorizationEndpoint);
    HttpRequest request{ QUrl(endpoint) };
    request.setRawHeader("Content-Type", "application/x-www-form-urlencoded");
    request.setRawHeader("Accept", "application/json");
    const QByteArray form = "client_id=" + encoded(token.getClientId())
                            + "&scope=" + encoded(QString::fromStdString(options.scope));
    constexpr int ATTEMPTS = 4;
    HttpClient client;
    for (int attempt = 1;; ++attempt) {
        const std::unique_ptr<QByteArray> answer(client.post(request, form));
        if (answer == nullptr)
            throw Problem("no answer from " + withoutPassword(options.authorizationEndpoint) + ": "
                                  + client.lastError(),
                          "See whether the network and the proxy (HTTPS_PROXY) are right.");
        const QJsonObject object = QJsonDocument::fromJson(*answer).object();
        DeviceCode code{
            text(object, { "device_code" }), Terminal::printable(text(object, { "user_code" })),
            Terminal::printable(text(object, { "verification_url", "verification_uri" })),
            secondsOf(object, "interval", USUAL_INTERVAL),
            secondsOf(object, "expires_in", USUAL_LIFE)
        };
        if (!code.code.isEmpty() && !code.userCode.empty() && !code.address.empty())
            return code;
        const QString error = text(object, { "error" });
        if (!error.isEmpty() && !isPassing(client.lastStatus()))
            throw Problem("the server refuses to enrol this client: " + Terminal::printable(error),
                          "See whether the client identifier is right.");
        if (attempt == ATTEMPTS)
            throw Problem("the server gives no device code; its answer has the status "
                                  + statusWords(client.lastStatus()),
                          "Try again later, or name another address with "
                          "--authorization-endpoint.");
        std::this_thread::sleep_for(seconds(attempt));
    }
}

void show(const DeviceCode &code, const Commands::Enroll &options)
{
    using Terminal::Colour;
    std::string out = "\nOn any computer or telephone, open\n\n    ";
    out.append(Terminal::painted(Colour::Bold, code.address))
            .append("\n\nand enter the code\n\n    ");
    QString wide;
    for (const QChar c : QString::fromStdString(code.userCode))
        wide.append(c).append(u' ');
    wide.chop(1);
    out.append(Terminal::painted(Colour::Bold, wide.toStdString())).append("\n\n    ");
    out.append(Terminal::painted(Colour::Dim, "(" + code.userCode + ")")).append("\n\n");
    if (!options.isWithoutQrCode && Terminal::isTerminal(stdout))
        out.append(Terminal::qrCode(code.address)).append("\n");
    Terminal::print(out);
}

/** Shows what is left, in place, until it is time to ask again or the code's life is over. */
void countDown(Clock::time_point next, Clock::time_point end)
{
    const bool isShown = Terminal::isTerminal(stdout);
    for (;;) {
        const Clock::time_point now = Clock::now();
        if (now >= next || now >= end)
            break;
        if (isShown) {
            const auto left = std::chrono::ceil<seconds>(end - now).count();
            char line[64];
            std::snprintf(line, sizeof line, "\r\033[KWaiting for approval, %ld:%02ld left ",
                          static_cast<long>(left / 60), static_cast<long>(left % 60));
            Terminal::print(line);
        }
        std::this_thread::sleep_until(std::min({ next, end, now + seconds(1) }));
    }
    Terminal::print(isShown ? "\r\033[K" : "");
}

/** Asks until the person has decided; what the server gave is in `auth` when it is Approved. */
Outcome await(GoogleAuth &auth, const DeviceCode &code)
{
    const Clock::time_point end = Clock::now() + code.life;
    seconds interval = code.interval;
    const auto slowDown = [&interval] { interval = std::min(interval + SLOWER, SLOWEST); };
    for (;;) {
        countDown(Clock::now() + interval, end);
        if (Clock::now() >= end)
            return Outcome::Expired;
        const int result = auth.getTokenByAuthCode();
        if (result == GoogleAuth::Ok && !auth.getToken().getRefreshToken().isEmpty())
            return Outcome::Approved;
        if (result == GoogleAuth::ExpiredToken)
            return Outcome::Expired;
        if (result == GoogleAuth::OtherError && auth.lastError() == QLatin1String("access_denied"))
            return Outcome::Refused;
        if (result == GoogleAuth::Ok && !auth.getToken().getAccessToken().isEmpty())
            throw Problem("the server gives a token that cannot be renewed",
                          "The client must be one for devices: see where it was registered.");
        if (result == GoogleAuth::OtherError && !isPassing(auth.lastStatus()))
            throw Problem("the server refuses: " + Terminal::printable(auth.lastError()),
                          "See whether client identifier and client secret belong together.");
        // Asking more seldom is right for all that passes: no answer, a busy server, no JSON.
        if (result != GoogleAuth::AuthorizationPending)
            slowDown();
    }
}

std::string lifeWords(seconds life)
{
    constexpr seconds SHORT{ 120 };
    return life < SHORT ? std::to_string(life.count()) + " seconds"
                        : std::to_string(life.count() / 60) + " minutes";
}

std::string hostName()
{
    char name[256] = {};
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

/** The option, or what the person answers, or what the file had. */
QString valueOf(const std::string &option, const char *name, const char *question,
                const std::string &byDefault)
{
    if (!option.empty())
        return QString::fromStdString(option);
    std::string value = byDefault;
    if (Terminal::isTerminal(stdin))
        value = Terminal::ask(question, byDefault);
    if (value.empty())
        throw Problem(std::string(question) + " is missing",
                      std::string("Name it with ") + name + ".");
    return QString::fromStdString(value);
}

QString secretOf(const Commands::Enroll &options, const QString &kept)
{
    if (!options.secretFile.empty()) {
        std::ifstream file(options.secretFile);
        std::string line;
        if (!std::getline(file, line) || line.empty())
            throw Problem("cannot read a client secret from " + options.secretFile,
                          "Its first line must be the secret.");
        if (line.back() == '\r')
            line.pop_back();
        return QString::fromStdString(line);
    }
    if (!Terminal::isTerminal(stdin)) {
        if (kept.isEmpty())
            throw Problem("the client secret is missing",
                          "Name a file that holds it with --secret-file.");
        return kept;
    }
    const std::string answer = Terminal::askSecret(
            kept.isEmpty() ? "Client secret" : "Client secret (nothing keeps the one in the file)");
    if (answer.empty() && kept.isEmpty())
        throw Problem("the client secret is missing", "It came with the client identifier.");
    return answer.empty() ? kept : QString::fromStdString(answer);
}

QString homeAddress(const QString &given)
{
    QString address = given;
    while (address.endsWith(u'/'))
        address.chop(1);
    const QUrl url(address, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty()
        || (url.scheme() != QLatin1String("https") && url.scheme() != QLatin1String("http")))
        throw Problem("\""
                              + Terminal::printable(
                                      QString::fromStdString(withoutPassword(given.toStdString())))
                              + "\" is no home address",
                      "It is like https://monitoring.example.");
    return address;
}

/** What there is already; nothing when there is no file. A file that cannot be read is not replaced. */
QJsonObject earlierConfiguration(const std::string &name)
{
    std::error_code error;
    if (!std::filesystem::exists(name, error) || std::filesystem::is_empty(name, error))
        return {};
    try {
        return readConfiguration(name);
    } catch (const Problem &problem) {
        throw Problem(problem.what(), "Mend it or move it out of the way; then run this again.");
    }
}

GoogleToken newToken(const Commands::Enroll &options, const QJsonObject &earlier)
{
    const GoogleToken old(earlier);
    GoogleToken token;
    token.setHomeURI(homeAddress(valueOf(options.home, "--home", "Home address of the cloud",
                                         old.getHomeURI().toStdString())));
    const std::string id = old.getComputerId().toStdString();
    token.setComputerId(valueOf(options.computer, "--computer", "Identifier of this computer",
                                id.empty() ? hostName() : id));
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9._~-]+$"));
    if (!plain.match(token.getComputerId()).hasMatch()) // it becomes a part of addresses as it is
        throw Problem("\"" + Terminal::printable(token.getComputerId()) + "\" is no identifier",
                      "It is made of letters, digits and . _ ~ -");
    token.setClientId(valueOf(options.client, "--client", "Client identifier",
                              old.getClientId().toStdString()));
    const bool isSameClient = token.getClientId() == old.getClientId();
    token.setClientSecret(secretOf(options, isSameClient ? old.getClientSecret() : QString()));
    return token;
}

void save(const std::string &name, const QJsonObject &earlier, const GoogleToken &token)
{
    QJsonObject object = earlier;
    try {
        object = earlierConfiguration(name); // it may have changed during the wait
    } catch (const Problem &) {
        object = earlier;
    }
    const QJsonObject fields = token.toJson();
    for (auto field = fields.begin(); field != fields.end(); ++field)
        object.insert(field.key(), field.value());
    if (object.value(QLatin1String("log")).toString().isEmpty())
        object.insert(QLatin1String("log"), QLatin1String("fatal"));
    replaceConfiguration(name, object);
}

bool wantsNewCode(const char *why)
{
    if (!Terminal::isTerminal(stdin))
        throw Problem(why, "Run this again for a new code.");
    Terminal::print(std::string(why) + ".\n");
    const std::string answer = Terminal::ask("Get a new code?", "yes");
    return answer.starts_with('y') || answer.starts_with('Y');
}

} // namespace

int Commands::run(const Enroll &options)
{
    const Installation installation = findInstallation(options.directory);
    const std::string file = installation.config();
    const QJsonObject earlier = earlierConfiguration(file);
    const GoogleToken token = newToken(options, earlier);
    checkReplaceable(file); // better now than when a person has approved

    for (;;) {
        const DeviceCode code = requestCode(options, token);
        GoogleAuth auth;
        auth.setToken(token);
        auth.getToken().setDeviceCode(code.code);
        auth.getToken().setInterval(static_cast<int>(code.interval.count()));
        show(code, options);
        if (options.isLeftToPlugin) {
            save(file, earlier, auth.getToken());
            Terminal::print(
                    "Wrote " + file
                    + ". The plug-in signs in once the code is approved, which must be within "
                    + lifeWords(code.life) + ".\n");
            return 0;
        }
        const Outcome outcome = await(auth, code);
        if (outcome == Outcome::Approved) {
            save(file, earlier, auth.getToken());
            Terminal::print(Terminal::painted(Terminal::Colour::Green, "Enrolled.") + " Wrote "
                            + file + "; the plug-in reports within ten seconds.\n");
            return 0;
        }
        if (!wantsNewCode(outcome == Outcome::Expired ? "the code has expired"
                                                      : "the enrolment was refused"))
            return 1;
    }
}
