#include "devkit/cloud/cloud.h"

#include "devkit/cloud/pagefiles.h"
#include "model/unitstate.h"

#include <charconv>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <utility>

#include <QFile>
#include <QJsonDocument>

namespace localcloud {

namespace {

using namespace Qt::StringLiterals;

constexpr const char *COMPUTER_PATH = "/_ah/api/pelorin/v1/mon/([^/]{1,200})";
constexpr const char *DEVICE_PATH = "/_ah/api/pelorin/v1/mon/([^/]{1,200})/device/([0-9]{3})";
constexpr std::string_view BEARER = "Bearer ";
constexpr const char *HTML = "text/html; charset=utf-8";
constexpr const char *JAVASCRIPT = "text/javascript; charset=utf-8";

double now()
{
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(time).count();
}

Answer json(int status, const QJsonObject &object)
{
    Answer answer;
    answer.status = status;
    answer.body = QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
    return answer;
}

/** An error answer of the reporting API. */
Answer apiError(int status, const char *message)
{
    Answer answer =
            json(status,
                 { { u"error"_s, QJsonObject{ { u"code"_s, status },
                                              { u"message"_s, QString::fromUtf8(message) } } } });
    if (status == 401)
        answer.headers.emplace_back("WWW-Authenticate", "Bearer");
    return answer;
}

Answer oauthError(int status, std::string_view word)
{
    return json(status, { { u"error"_s, QString::fromUtf8(word) } });
}

/** A page or one of its files; it may load nothing from other servers. */
Answer file(const char *type, std::string body)
{
    Answer answer;
    answer.type = type;
    answer.body = std::move(body);
    answer.headers.emplace_back("Content-Security-Policy",
                                "default-src 'self'; img-src 'self' data:; form-action 'self'; "
                                "frame-ancestors 'none'");
    answer.headers.emplace_back("Cache-Control", "no-cache");
    return answer;
}

std::uint64_t numberField(const Request &request, const std::string &name)
{
    const std::string value = request.field(name);
    std::uint64_t number = 0;
    std::from_chars(value.data(), value.data() + value.size(), number);
    return number;
}

std::optional<QJsonDocument> parse(const std::string &bytes)
{
    QJsonParseError error;
    const QJsonDocument document =
            QJsonDocument::fromJson(QByteArray::fromStdString(bytes), &error);
    return error.error == QJsonParseError::NoError ? std::optional(document) : std::nullopt;
}

std::string bearerToken(const Request &request)
{
    const std::string value = request.header("Authorization");
    return value.starts_with(BEARER) ? value.substr(BEARER.size()) : std::string();
}

std::chrono::milliseconds milliseconds(double seconds)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::duration<double>(seconds));
}

const char *statusMessage(int status)
{
    switch (status) {
    case 401:
        return "Login Required";
    case 429:
        return "Too Many Requests";
    default:
        return "Backend Error";
    }
}

/** The answer of a request with a fault other than Slow, which only delays the usual answer. */
Answer faultyAnswer(const Fault &fault, FaultTarget target)
{
    Answer answer;
    switch (fault.kind) {
    case FaultKind::Status:
        return target == FaultTarget::Api ? apiError(fault.status, statusMessage(fault.status))
                                          : oauthError(fault.status, "server_error");
    case FaultKind::OAuthError:
        return oauthError(fault.status, fault.word);
    case FaultKind::Reset:
        answer.delivery = Delivery::Reset;
        break;
    case FaultKind::Silence:
    case FaultKind::Hang:
        answer.delivery = Delivery::Silence;
        answer.delay = milliseconds(fault.seconds);
        break;
    case FaultKind::BadJson:
        answer.body = "{\"access_token\": ";
        break;
    case FaultKind::Slow:
        break;
    }
    return answer;
}

/** Replaces or delays the usual answer if there is a fault. */
template <class MakeAnswer>
Answer withFault(const std::optional<Fault> &fault, FaultTarget target, MakeAnswer usual)
{
    if (fault && fault->kind != FaultKind::Slow)
        return faultyAnswer(*fault, target);
    Answer answer = usual();
    if (fault)
        answer.delay = milliseconds(fault->seconds);
    return answer;
}

std::string escaped(const std::string &value)
{
    return QString::fromUtf8(value).toHtmlEscaped().toStdString();
}

/** The approval page with a message and the code that was typed or is part of the link. */
Answer approvalPage(const char *message, const std::string &kind, const std::string &userCode)
{
    QString page = QString::fromUtf8(APPROVE_HTML);
    page.replace("{{message}}"_L1, QLatin1String(message));
    page.replace("{{kind}}"_L1, QString::fromUtf8(kind));
    page.replace("{{user_code}}"_L1, QString::fromUtf8(escaped(userCode)));
    return file(HTML, page.toStdString());
}

std::string chartLibrary()
{
    QFile library(QString::fromUtf8(PELCLOUD_CHART_LIBRARY));
    return library.open(QIODevice::ReadOnly) ? library.readAll().toStdString() : std::string();
}

/** Requests of the page and of tests, which are not logged. */
bool isOwnRequest(const std::string &target)
{
    return target == "/" || target.starts_with("/?") || target.starts_with("/api/")
           || target.starts_with("/page/");
}

} // namespace

Cloud::Cloud(const ReportLimits &limits, const OAuthSettings &oauth, Announce announce)
    : m_limits(limits)
    , m_reports(limits)
    , m_oauth(oauth)
    , m_announce(std::move(announce))
{}

std::string Cloud::seed(const QJsonObject &seed)
{
    const std::lock_guard lock(m_mutex);
    return m_oauth.seed(seed);
}

void Cloud::setVerificationUrl(const std::string &url)
{
    const std::lock_guard lock(m_mutex);
    m_oauth.setVerificationUrl(url);
}

void Cloud::setFaults(std::vector<FaultRule> rules)
{
    const std::lock_guard lock(m_mutex);
    m_faults.setRules(std::move(rules));
}

void Cloud::serveApi(HttpServer &server)
{
    server.route("PUT", COMPUTER_PATH,
                 [this](const Request &request) { return takeReport(request, {}); });
    server.route("POST", DEVICE_PATH, [this](const Request &request) {
        return takeReport(request, request.captures[1]);
    });

    server.route("GET", "/api/state", [this](const Request &request) { return state(request); });
    server.route("GET", "/api/reports",
                 [this](const Request &request) { return reports(request); });
    server.route("GET", "/api/requests",
                 [this](const Request &request) { return requests(request); });
    server.route("GET", "/api/body", [this](const Request &request) { return body(request); });
    server.route("GET", "/api/history",
                 [this](const Request &request) { return history(request); });
    server.route("GET", "/api/faults", [this](const Request &) { return faults(); });
    server.route("POST", "/api/faults",
                 [this](const Request &request) { return changeFaults(request); });

    server.route("GET", "/", [](const Request &) { return file(HTML, std::string(INDEX_HTML)); });
    server.route("GET", "/page/page.js",
                 [](const Request &) { return file(JAVASCRIPT, std::string(PAGE_JS)); });
    server.route("GET", "/page/chart.js", [library = chartLibrary()](const Request &) {
        Answer answer = file(JAVASCRIPT, library);
        answer.status = library.empty() ? 404 : 200;
        return answer;
    });
    serveApproval(server);
}

void Cloud::serveOAuth(HttpServer &server)
{
    server.route("POST", "/oauth2/v4/token",
                 [this](const Request &request) { return token(request); });
    server.route("POST", "/o/oauth2/device/code", [this](const Request &request) {
        const std::lock_guard lock(m_mutex);
        const OAuthReply reply = m_oauth.authorizeDevice(request.fields);
        return json(reply.status, reply.body);
    });
    serveApproval(server);
}

void Cloud::serveApproval(HttpServer &server)
{
    server.route("GET", "/page/style.css", [](const Request &) {
        return file("text/css; charset=utf-8", std::string(STYLE_CSS));
    });
    server.route("GET", "/device", [](const Request &request) {
        return approvalPage("Type the code that the device shows.", "question",
                            request.field("user_code"));
    });
    server.route("POST", "/device", [this](const Request &request) { return decide(request); });
    server.setObserver([this](const Request &request, int status) { observe(request, status); });
}

void Cloud::noteConnect(const std::string &target)
{
    Request request;
    request.method = "CONNECT";
    request.target = target;
    observe(request, 200);
}

void Cloud::observe(const Request &request, int status)
{
    if (isOwnRequest(request.target))
        return;
    const std::lock_guard lock(m_mutex);
    m_requests.add(request, status, now());
}

Answer Cloud::takeReport(const Request &request, const std::string &device)
{
    const std::string &computer = request.captures[0];
    const std::optional<QJsonDocument> report = parse(request.body);
    const std::lock_guard lock(m_mutex);
    const auto fault = m_faults.next(FaultTarget::Api, request.isOnKeptConnection);
    return withFault(fault, FaultTarget::Api, [&] {
        if (!m_oauth.isValid(bearerToken(request)))
            return apiError(401, statusMessage(401));
        if (!report || !report->isObject())
            return apiError(400, "The body is no JSON object");
        if (!m_reports.add(computer, device, request.body, report->object(), now()))
            return apiError(507, "Too many computers or devices");
        std::string line = request.method + " " + computer;
        if (!device.empty())
            line += "/" + device + " " + summaryOf(report->object());
        m_announce(line);
        return json(200, {});
    });
}

Answer Cloud::token(const Request &request)
{
    const std::lock_guard lock(m_mutex);
    const auto fault = m_faults.next(FaultTarget::Token, request.isOnKeptConnection);
    return withFault(fault, FaultTarget::Token, [&] {
        const OAuthReply reply = m_oauth.token(request.fields);
        Answer answer = json(reply.status, reply.body);
        answer.headers.emplace_back("Cache-Control", "no-store");
        return answer;
    });
}

Answer Cloud::decide(const Request &request)
{
    const std::string userCode = request.field("user_code");
    const bool isApproved = request.field("decision") == "approve";
    const std::lock_guard lock(m_mutex);
    if (!m_oauth.decide(userCode, isApproved)) {
        Answer answer =
                approvalPage("No device waits with this code. Is it typed as the device shows it?",
                             "problem", userCode);
        answer.status = 404;
        return answer;
    }
    return isApproved ? approvalPage("Approved. The device signs in with its next try.", "done", {})
                      : approvalPage("Denied. The device will not get in.", "done", {});
}

Answer Cloud::state(const Request &request)
{
    const std::lock_guard lock(m_mutex);
    const double time = now();
    return json(200,
                { { u"now"_s, time },
                  { u"number"_s, static_cast<qint64>(m_reports.sequence()) },
                  { u"requests"_s, static_cast<qint64>(m_requests.sequence()) },
                  { u"secondsBetween"_s, m_limits.secondsBetweenReports },
                  { u"waiting"_s, static_cast<qint64>(m_oauth.waitingDevices()) },
                  { u"computers"_s, m_reports.computers(numberField(request, "since"), time) } });
}

Answer Cloud::reports(const Request &request)
{
    const std::lock_guard lock(m_mutex);
    return json(200, { { u"number"_s, static_cast<qint64>(m_reports.sequence()) },
                       { u"reports"_s, m_reports.reportsAfter(numberField(request, "since")) } });
}

Answer Cloud::requests(const Request &request)
{
    const std::lock_guard lock(m_mutex);
    return json(200,
                { { u"number"_s, static_cast<qint64>(m_requests.sequence()) },
                  { u"requests"_s, m_requests.requestsAfter(numberField(request, "since")) } });
}

Answer Cloud::body(const Request &request)
{
    const std::lock_guard lock(m_mutex);
    const auto bytes = m_reports.latestBody(request.field("computer"), request.field("device"));
    Answer answer;
    answer.status = bytes ? 200 : 404;
    answer.body = bytes.value_or("");
    return answer;
}

Answer Cloud::history(const Request &request)
{
    const std::lock_guard lock(m_mutex);
    return json(200, { { u"rows"_s,
                         m_reports.history(request.field("computer"), request.field("device")) } });
}

Answer Cloud::faults()
{
    const std::lock_guard lock(m_mutex);
    QJsonArray rules;
    for (std::size_t i = 0; i < m_faults.rules().size(); ++i)
        rules.append(QJsonObject{ { u"rule"_s, QString::fromUtf8(m_faults.rules()[i].text) },
                                  { u"seen"_s, static_cast<qint64>(m_faults.seen(i)) } });
    return json(200, { { u"faults"_s, rules } });
}

Answer Cloud::changeFaults(const Request &request)
{
    const std::optional<QJsonDocument> document = parse(request.body);
    const QJsonValue list = document ? (*document)[u"faults"_s] : QJsonValue();
    if (!list.isArray())
        return oauthError(400, "the body is no object with a list \"faults\"");
    std::vector<FaultRule> rules;
    for (const QJsonValue item : list.toArray()) {
        std::string error;
        const std::optional<FaultRule> rule = parseFaultRule(item.toString().toStdString(), error);
        if (!rule)
            return oauthError(400, error);
        rules.push_back(*rule);
    }
    setFaults(std::move(rules));
    return faults();
}

} // namespace localcloud
