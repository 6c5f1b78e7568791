#include "auth/gauth.h"
#include "http/httpclient.h"
#include "http/httprequest.h"
#include "plugin/constants.h"
#include "plugin/upsclidl.h"
#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/httpwords.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/logfile.h"
#include "tools/pelcloudctl/probe.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/suite.h"
#include "tools/pelcloudctl/terminal.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QUrl>

namespace {

using Terminal::Colour;

enum class Verdict { Ok, Warning, Problem };

struct Finding
{
    Verdict verdict;
    std::string subject;
    std::string text;
    std::string remedy;
};

const char *wordOf(Verdict verdict)
{
    return verdict == Verdict::Ok ? "ok" : verdict == Verdict::Warning ? "warning" : "problem";
}

/** Whether what goes there stays within this computer. */
bool isLoopback(const std::string &url)
{
    const QString host = QUrl(QString::fromStdString(url)).host();
    return host == QLatin1String("localhost") || host == QLatin1String("::1")
           || host.startsWith(QLatin1String("127."));
}

/** The address of the computer's reports, as the plug-in asks for it. */
std::string pathOf(const GoogleToken &token)
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

/** Looks at one thing after the other and changes nothing. */
class Doctor
{
public:
    explicit Doctor(const Commands::Check &options)
        : m_options(options)
    {}

    const std::vector<Finding> &examine()
    {
        if (examineInstallation()) {
            examineConfiguration();
            examineSuite();
            examineLog();
        }
        examinePlugin();
        if (!m_config.isEmpty()) {
            examineProxy();
            examineToken();
            examineCloud();
        }
        return m_findings;
    }

private:
    void add(Verdict verdict, const char *subject, const std::string &text,
             const std::string &remedy = {})
    {
        m_findings.push_back(
                { verdict, subject, Terminal::printable(std::string_view(text)), remedy });
    }
    void add(const char *subject, const Problem &problem)
    {
        add(Verdict::Problem, subject, problem.what(), problem.remedy());
    }

    bool examineInstallation()
    {
        try {
            m_installation = findInstallation(m_options.directory);
        } catch (const Problem &problem) {
            add("installation", problem);
            return false;
        }
        add(Verdict::Ok, "installation",
            m_installation.directory + ", from " + m_installation.origin);
        return true;
    }

    void examineConfiguration()
    {
        const std::string name = m_installation.config();
        try {
            m_config = readConfiguration(name);
        } catch (const Problem &problem) {
            add("pelcloud.json", problem);
            return;
        }
        const std::size_t before = m_findings.size();
        struct stat status = {};
        if (stat(name.c_str(), &status) == 0 && (status.st_mode & 077U) != 0)
            add(Verdict::Warning, "pelcloud.json",
                "other accounts may read it, and it holds secrets", "chmod 600 " + name);
        if (access(name.c_str(), W_OK) != 0)
            add(Verdict::Warning, "pelcloud.json",
                "this account may not write it, as the plug-in must when a device code is approved",
                "See that the service manager's account owns it.");
        examineKeys();
        if (m_findings.size() == before)
            add(Verdict::Ok, "pelcloud.json", name);
    }

    void examineKeys()
    {
        const auto isMissing = [this](const char *key) {
            return m_config.value(QLatin1String(key)).toString().isEmpty();
        };
        constexpr const char *REMEDY = "Run 'pelcloudctl enroll'.";
        for (const char *const key : { "home", "cpid", "cid", "csec" }) {
            if (isMissing(key))
                add(Verdict::Problem, "pelcloud.json", std::string("\"") + key + "\" is missing",
                    REMEDY);
        }
        if (isMissing("code") && isMissing("rtk"))
            add(Verdict::Problem, "pelcloud.json",
                "there is neither \"rtk\" nor \"code\" to sign in with", REMEDY);
        QSet<QString> known{ QStringLiteral("log") };
        const QJsonObject fields = GoogleToken().toJson();
        for (auto field = fields.begin(); field != fields.end(); ++field)
            known.insert(field.key());
        for (auto field = m_config.begin(); field != m_config.end(); ++field) {
            if (!known.contains(field.key()))
                add(Verdict::Warning, "pelcloud.json",
                    "the key \"" + Terminal::printable(field.key())
                            + "\" is not known and is lost when the plug-in writes the file",
                    "Remove it.");
        }
    }

    void examineSuite()
    {
        try {
            Suite suite(m_installation);
            const unsigned long count = suite.count();
            if (count == 0)
                add(Verdict::Warning, "suite", "the library starts, and watches no UPS",
                    "See whether the suite is connected to its UPSs.");
            else
                add(Verdict::Ok, "suite",
                    m_installation.library() + " watches " + std::to_string(count) + " UPS"
                            + (count == 1 ? "" : "s"));
        } catch (const Problem &problem) {
            add("suite", problem);
        }
    }

    void examinePlugin()
    {
        const std::string name = m_options.plugin;
        std::error_code error;
        if (!std::filesystem::exists(name, error)) {
            add(Verdict::Warning, "plug-in", "there is no " + name,
                "Install it, or say where it is with --plugin.");
            return;
        }
        DLClass plugin;
        if (!plugin.Load(name))
            add(Verdict::Problem, "plug-in", "it does not load: " + plugin.GetLastErrorStr(),
                "See what it lacks: ldd " + name);
        else if (plugin.GetSymbol("SrvStart") == nullptr || plugin.GetSymbol("SrvStop") == nullptr)
            add(Verdict::Problem, "plug-in", name + " lacks SrvStart or SrvStop",
                "Install it anew.");
        else
            add(Verdict::Ok, "plug-in", name + " loads");
    }

    void examineProxy()
    {
        const std::optional<Variable> exceptions = firstSet({ "no_proxy", "NO_PROXY" });
        const auto examine = [&](const char *scheme, std::initializer_list<const char *> names) {
            const std::optional<Variable> proxy = firstSet(names);
            if (!proxy)
                return;
            std::string text = std::string(scheme) + " goes through "
                               + withoutPassword(proxy->value) + " (" + proxy->name
                               + ", of this shell; the plug-in has its host's)";
            if (exceptions)
                text.append(", except to ").append(exceptions->value);
            add(Verdict::Ok, "proxy", text);
        };
        examine("https", { "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY" });
        examine("http", { "http_proxy", "all_proxy", "ALL_PROXY" });
    }

    void examineToken()
    {
        GoogleAuth auth;
        auth.setToken(GoogleToken(m_config));
        const std::string endpoint = GoogleAuth::GOOGLE_OAUTH2_GET_TOKEN.toStdString();
        examineServer("token server", endpoint);
        if (auth.getToken().getRefreshToken().isEmpty()) {
            if (!auth.getToken().getDeviceCode().isEmpty())
                add(Verdict::Warning, "token",
                    "there is a device code and no refresh token yet; trying the code would use it "
                    "up",
                    "Approve the code; the plug-in then signs in by itself.");
            return;
        }
        const int result = auth.getTokenByRefreshToken();
        m_accessToken = auth.getToken().getAccessToken();
        if (result == GoogleAuth::NoResponse)
            add(Verdict::Problem, "token", std::string("no answer: ") + auth.lastFailure(),
                "See whether the network and the proxy are right.");
        else if (auth.lastError() == QLatin1String("invalid_grant"))
            add(Verdict::Problem, "token", "the enrolment is no longer valid (invalid_grant)",
                "Run 'pelcloudctl enroll'.");
        else if (result != GoogleAuth::Ok)
            add(Verdict::Problem, "token",
                "refused: " + Terminal::printable(auth.lastError()) + ", status "
                        + statusWords(auth.lastStatus()),
                "See whether \"cid\" and \"csec\" belong together, or run 'pelcloudctl enroll'.");
        else if (m_accessToken.isEmpty())
            add(Verdict::Problem, "token",
                "the answer holds no access token; its status is " + statusWords(auth.lastStatus()),
                "Try again later.");
        else
            add(Verdict::Ok, "token",
                "granted, for " + std::to_string(auth.getToken().getExpiresIn()) + " seconds");
    }

    void examineCloud()
    {
        const GoogleToken token(m_config);
        if (token.getHomeURI().isEmpty())
            return;
        const Answer answer = examineServer("cloud", pathOf(token), m_accessToken);
        if (answer.status == 0)
            return;
        constexpr long ONLY_REPORTS = 405; // a server that knows the address and no GET is fine
        const bool isFine = isSuccess(answer.status) || answer.status == ONLY_REPORTS;
        add(isFine ? Verdict::Ok : Verdict::Warning, "cloud",
            "it answers a question for this computer with " + statusWords(answer.status),
            isFine ? ""
                   : "The plug-in does not look at it; see 'pelcloudctl run --once' for its "
                     "reports.");
    }

    /** Whether a server is there, its certificate, and its clock. */
    Answer examineServer(const char *subject, const std::string &url, const QString &token = {})
    {
        Answer answer = probe(url, token.toStdString());
        const std::string shown = withoutPassword(url);
        if (answer.status == 0) {
            add(Verdict::Problem, subject, shown + ": no answer: " + answer.failure,
                "See whether the address, the network and the proxy are right.");
            return answer;
        }
        add(Verdict::Ok, subject, shown + " answers");
        const bool isVerifying = HttpClient::verifiesTls();
        if (!answer.isTls && isLoopback(url))
            add(Verdict::Ok, subject, "without TLS, within this computer");
        else if (!answer.isTls)
            add(Verdict::Warning, subject, "without TLS, anyone on the way can read the token",
                "Use an address that begins with https.");
        else if (answer.isTrusted)
            add(Verdict::Ok, subject, "its certificate is good until " + answer.expiry);
        else
            add(isVerifying ? Verdict::Problem : Verdict::Warning, subject,
                "its certificate is not to be trusted: " + answer.certificateFailure,
                isVerifying ? "Install the authority's certificate."
                            : "This build believes any server; see security.md.");
        if (answer.date) {
            constexpr std::time_t TOLERABLE = 60; // seconds
            const std::time_t skew = std::time(nullptr) - *answer.date;
            const std::string words = "this computer's clock is " + std::to_string(std::abs(skew))
                                      + " s " + (skew < 0 ? "behind" : "ahead of")
                                      + " the server's";
            if (std::abs(skew) > TOLERABLE)
                add(Verdict::Warning, "clock", words,
                    "Let the system keep its time: timedatectl set-ntp true");
            else
                add(Verdict::Ok, "clock", words);
        }
        return answer;
    }

    void examineLog()
    {
        const std::string name = m_installation.log();
        const QString text = m_config.value(QLatin1String("log")).toString();
        const QLogger::LogLevel level = QLogger::logLevelFromText(text);
        if (!text.isEmpty() && !QLogger::logLevelNamed(text))
            add(Verdict::Warning, "log",
                "\"" + Terminal::printable(text) + "\" is no level, so the log is silent",
                "pelcloudctl log-level info");
        else if (level == QLogger::LogLevel::Fatal)
            add(Verdict::Ok, "log", "silent; 'pelcloudctl log-level info' lets it tell");
        else
            add(Verdict::Ok, "log", "its level is " + Terminal::printable(text.toLower()));
        const bool isThere = access(name.c_str(), F_OK) == 0;
        if (access(isThere ? name.c_str() : m_installation.directory.c_str(), W_OK) != 0)
            add(Verdict::Warning, "log", "this account may not write " + name,
                "See that the service manager's account may.");
        std::uintmax_t size = 0;
        const std::vector<std::string> files = logFiles(name);
        for (const std::string &file : files) {
            std::error_code error;
            const std::uintmax_t own = std::filesystem::file_size(file, error);
            size += error ? 0 : own;
        }
        constexpr std::uintmax_t MUCH = 100U << 20U;
        const std::string words = std::to_string(files.size())
                                  + (files.size() == 1 ? " file, " : " files, ")
                                  + std::to_string(size / 1024) + " KiB in all";
        if (size > MUCH)
            add(Verdict::Warning, "log", words,
                "Remove the oldest of " + m_installation.directory + "pelcloud_*.log.");
        else if (!files.empty())
            add(Verdict::Ok, "log", words);
    }

    const Commands::Check &m_options;
    Installation m_installation;
    QJsonObject m_config;
    QString m_accessToken;
    std::vector<Finding> m_findings;
};

QString qt(const std::string &text)
{
    return QString::fromStdString(text);
}

std::string jsonText(const std::vector<Finding> &findings, bool isGood)
{
    QJsonArray rows;
    for (const Finding &finding : findings) {
        QJsonObject row{ { "verdict", wordOf(finding.verdict) },
                         { "subject", qt(finding.subject) },
                         { "text", qt(finding.text) } };
        if (!finding.remedy.empty())
            row.insert(QLatin1String("remedy"), qt(finding.remedy));
        rows.append(row);
    }
    return QJsonDocument(QJsonObject{ { "ok", isGood }, { "findings", rows } })
            .toJson()
            .toStdString();
}

std::string lines(const std::vector<Finding> &findings)
{
    std::string text;
    for (const Finding &finding : findings) {
        const Colour colour = finding.verdict == Verdict::Ok        ? Colour::Green
                              : finding.verdict == Verdict::Warning ? Colour::Yellow
                                                                    : Colour::Red;
        std::string word = wordOf(finding.verdict);
        const std::string blanks(8 - word.size(), ' ');
        text += Terminal::painted(colour, word) + blanks + finding.subject + ": " + finding.text
                + "\n";
        if (!finding.remedy.empty())
            text += "        " + finding.remedy + "\n";
    }
    return text;
}

} // namespace

int Commands::run(const Check &options)
{
    Doctor doctor(options);
    const std::vector<Finding> &findings = doctor.examine();
    const bool isGood = std::none_of(findings.begin(), findings.end(), [](const Finding &finding) {
        return finding.verdict == Verdict::Problem;
    });
    Terminal::print(options.isJson ? jsonText(findings, isGood) : lines(findings));
    return isGood ? 0 : 1;
}
