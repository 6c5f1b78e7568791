#include "auth/gauth.h"
#include "http/httpclient.h"
#include "http/httprequest.h"
#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/httpwords.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/terminal.h"

#include <algorithm>
#include <cerrno>
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

using namespace Qt::StringLiterals;
using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr seconds DEFAULT_INTERVAL{ 5 };
constexpr seconds BACKOFF{ 5 }; // added to the interval after each failure
constexpr seconds MAX_INTERVAL{ 60 };
constexpr seconds DEFAULT_LIFETIME{ 1800 };

struct Options
{
    std::string home;
    std::string computer;
    std::string client;
    std::string secretFile; // empty: ask for the secret
    std::string authorizationEndpoint = "https://accounts.google.com/o/oauth2/device/code";
    std::string scope = "email";
    bool isLeftToPlugin = false; // the plug-in waits for the approval
    bool isWithoutQrCode = false;
};

/** The server's answer to a request for enrolment. */
struct DeviceCode
{
    QString code; // secret
    std::string userCode;
    std::string address;
    seconds interval;
    seconds lifetime;
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
    constexpr double MAX_SECONDS = 86400;
    const double value = object[QLatin1String(key)].toDouble(0);
    return value >= 1 ? seconds(static_cast<long>(std::min(value, MAX_SECONDS))) : byDefault;
}

DeviceCode requestCode(const Options &options, const GoogleToken &token)
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
                          "Check the network and the proxy (HTTPS_PROXY).");
        const QJsonObject object = QJsonDocument::fromJson(*answer).object();
        DeviceCode code{
            text(object, { "device_code" }), Terminal::printable(text(object, { "user_code" })),
            Terminal::printable(text(object, { "verification_url", "verification_uri" })),
            secondsOf(object, "interval", DEFAULT_INTERVAL),
            secondsOf(object, "expires_in", DEFAULT_LIFETIME)
        };
        if (!code.code.isEmpty() && !code.userCode.empty() && !code.address.empty())
            return code;
        const QString error = text(object, { "error" });
        if (!error.isEmpty() && !isTransient(client.lastStatus()))
            throw Problem("request for a device code refused: " + Terminal::printable(error),
                          "Check the client identifier.");
        if (attempt == ATTEMPTS)
            throw Problem("no device code in the answer; status "
                                  + statusWords(client.lastStatus()),
                          "Try again later, or give another address with "
                          "--authorization-endpoint.");
        std::this_thread::sleep_for(seconds(attempt));
    }
}

void show(const DeviceCode &code, const Options &options)
{
    using Terminal::Colour;
    std::string out = "\nOn any computer or phone, open\n\n    ";
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

/** Shows the time left, on a terminal, until `next` or `end`. */
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

/** Asks until a person has decided or the code has expired. When Approved, `auth` has the token. */
Outcome waitForApproval(GoogleAuth &auth, const DeviceCode &code)
{
    const Clock::time_point end = Clock::now() + code.lifetime;
    seconds interval = code.interval;
    const auto slowDown = [&interval] { interval = std::min(interval + BACKOFF, MAX_INTERVAL); };
    for (;;) {
        countDown(Clock::now() + interval, end);
        if (Clock::now() >= end)
            return Outcome::Expired;
        const int result = auth.getTokenByAuthCode();
        if (result == GoogleAuth::Ok && !auth.getToken().getRefreshToken().isEmpty())
            return Outcome::Approved;
        if (result == GoogleAuth::ExpiredToken)
            return Outcome::Expired;
        if (result == GoogleAuth::OtherError && auth.lastError() == "access_denied"_L1)
            return Outcome::Refused;
        if (result == GoogleAuth::Ok && !auth.getToken().getAccessToken().isEmpty())
            throw Problem("no refresh token in the answer",
                          "Use a client that is registered for devices.");
        if (result == GoogleAuth::OtherError && !isTransient(auth.lastStatus()))
            throw Problem("sign-in refused: " + Terminal::printable(auth.lastError()),
                          "Check the client identifier and the client secret.");
        // Back off after any transient failure: slow_down, no answer, 429 or 5xx, not JSON.
        if (result != GoogleAuth::AuthorizationPending)
            slowDown();
    }
}

std::string lifetimeWords(seconds lifetime)
{
    constexpr seconds SHORT{ 120 };
    return lifetime < SHORT ? std::to_string(lifetime.count()) + " seconds"
                            : std::to_string(lifetime.count() / 60) + " minutes";
}

std::string hostName()
{
    char name[256] = {};
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

/** The option's value, the person's answer to the question, or the default. */
QString valueOf(const std::string &option, const char *name, const char *question,
                const std::string &byDefault)
{
    if (!option.empty())
        return QString::fromStdString(option);
    std::string value = byDefault;
    if (Terminal::isTerminal(stdin))
        value = Terminal::ask(question, byDefault);
    if (value.empty())
        throw Problem(std::string("no value for ") + name,
                      "Give it on the command line, or run this in a terminal.");
    return QString::fromStdString(value);
}

QString secretOf(const Options &options, const QString &current)
{
    if (!options.secretFile.empty()) {
        std::ifstream file(options.secretFile);
        if (!file)
            throw Problem("cannot read " + options.secretFile + ": " + errorWords(errno));
        std::string line;
        if (!std::getline(file, line) || line.empty())
            throw Problem("no client secret in " + options.secretFile,
                          "Its first line must be the secret.");
        if (line.back() == '\r')
            line.pop_back();
        return QString::fromStdString(line);
    }
    if (!Terminal::isTerminal(stdin)) {
        if (current.isEmpty())
            throw Problem("no client secret", "Give a file that holds it with --secret-file.");
        return current;
    }
    const std::string answer =
            Terminal::askSecret(current.isEmpty() ? "Client secret" : "Client secret [unchanged]");
    if (answer.empty() && current.isEmpty())
        throw Problem("no client secret", "It is issued together with the client identifier.");
    return answer.empty() ? current : QString::fromStdString(answer);
}

QString homeAddress(const QString &given)
{
    QString address = given;
    while (address.endsWith(u'/'))
        address.chop(1);
    const QUrl url(address, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty()
        || (url.scheme() != "https"_L1 && url.scheme() != "http"_L1))
        throw Problem("not an http or https address: "
                              + Terminal::printable(
                                      QString::fromStdString(withoutPassword(given.toStdString()))),
                      "A cloud's address looks like https://monitoring.example.");
    return address;
}

/** The object in pelcloud.json; empty without a file. An unreadable file must not be replaced. */
QJsonObject currentConfiguration(const std::string &name)
{
    std::error_code error;
    if (!std::filesystem::exists(name, error) || std::filesystem::is_empty(name, error))
        return {};
    try {
        return readConfiguration(name);
    } catch (const Problem &problem) {
        throw Problem(problem.what(), "Correct or remove the file; then run this again.");
    }
}

GoogleToken newToken(const Options &options, const QJsonObject &earlier)
{
    const GoogleToken old(earlier);
    GoogleToken token;
    token.setHomeURI(homeAddress(valueOf(options.home, "--home", "Address of the cloud",
                                         old.getHomeURI().toStdString())));
    const std::string id = old.getComputerId().toStdString();
    token.setComputerId(valueOf(options.computer, "--computer", "Identifier of this computer",
                                id.empty() ? hostName() : id));
    static const QRegularExpression plain(u"^[A-Za-z0-9._~-]+$"_s);
    if (!plain.match(token.getComputerId()).hasMatch()) // addresses hold it unencoded
        throw Problem("not an identifier: " + Terminal::printable(token.getComputerId()),
                      "Use only letters, digits and . _ ~ -");
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
        object = currentConfiguration(name); // may have changed during the wait
    } catch (const Problem &) {
        object = earlier;
    }
    const QJsonObject fields = token.toJson();
    for (auto field = fields.begin(); field != fields.end(); ++field)
        object.insert(field.key(), field.value());
    if (object["log"_L1].toString().isEmpty())
        object.insert("log"_L1, "fatal"_L1);
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

int run(const Installation &installation, const Options &options)
{
    const std::string file = installation.config();
    const QJsonObject earlier = currentConfiguration(file);
    const GoogleToken token = newToken(options, earlier);
    checkReplaceable(file); // rather now than after a person has approved

    for (;;) {
        const DeviceCode code = requestCode(options, token);
        GoogleAuth auth;
        auth.setToken(token);
        auth.getToken().setDeviceCode(code.code);
        auth.getToken().setInterval(static_cast<int>(code.interval.count()));
        show(code, options);
        if (options.isLeftToPlugin) {
            save(file, earlier, auth.getToken());
            Terminal::print("Wrote " + file + ". Approve the code within "
                            + lifetimeWords(code.lifetime) + "; the plug-in then signs in.\n");
            return 0;
        }
        const Outcome outcome = waitForApproval(auth, code);
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

} // namespace

void addEnroll(Program &program)
{
    const auto options = std::make_shared<Options>();
    CLI::App *const command = program.add(
            "enroll", "Enrol this computer with a cloud",
            "  pelcloudctl enroll\n"
            "  pelcloudctl enroll --home https://monitoring.example --computer gatehouse-pc \\\n"
            "      --client 1234.apps --secret-file ./secret",
            [&program, options] { return run(findInstallation(program.directory()), *options); });
    const auto option = [command](const char *name, std::string &value, const char *type,
                                  const std::string &description) {
        const std::string byDefault = value.empty() ? "ask" : value;
        return command->add_option(name, value, description + " (default: " + byDefault + ")")
                ->type_name(type);
    };
    option("--home", options->home, "URL", "Address of the cloud");
    option("--computer", options->computer, "ID", "Identifier of this computer in the cloud");
    option("--client", options->client, "ID", "OAuth client identifier");
    option("--secret-file", options->secretFile, "FILE",
           "File whose first line is the OAuth client secret")
            ->check(CLI::ExistingFile.description(""));
    option("--authorization-endpoint", options->authorizationEndpoint, "URL",
           "Where to request a device code");
    option("--scope", options->scope, "SCOPES", "OAuth scopes to request");
    command->add_flag("--no-wait", options->isLeftToPlugin,
                      "Write the device code at once; the plug-in waits for the approval");
    command->add_flag("--no-qr", options->isWithoutQrCode, "Show no QR code");
}
