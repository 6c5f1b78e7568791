#include "plugin/pelcloud.h"

#include "http/httprequest.h"
#include "logging/qlogger.h"
#include "model/computer.h"
#include "model/devicestatus.h"
#include "plugin/configfile.h"
#include "plugin/constants.h"
#include "plugin/recordbuffers.h"
#include "plugin/timeouts.h"
#include "support/cancellation.h"
#include "support/config.h"
#include "support/jsontext.h"
#include "support/utils.h"

#include <memory>
#include <stdexcept>

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUrl>

namespace {

using QLogger::QLog_Error;
using QLogger::QLog_Info;
using namespace Qt::StringLiterals;

constexpr int DEFAULT_INTERVAL_MS = 10000;

void logInfo(const QString &message)
{
    QLog_Info(Constants::LOG_MODULE_NAME, message);
}

void logError(const QString &message)
{
    QLog_Error(Constants::LOG_MODULE_NAME, message);
}

QString quoted(const char *before, const QString &name)
{
    return QLatin1String(before) + " '"_L1 + name + "'."_L1;
}

struct Emptiness
{
    bool access, refresh, code;

    explicit Emptiness(const GoogleToken &token)
        : access(token.getAccessToken().isEmpty())
        , refresh(token.getRefreshToken().isEmpty())
        , code(token.getDeviceCode().isEmpty())
    {}
};

} // namespace

PelCloudClient::PelCloudClient()
    : m_interval(DEFAULT_INTERVAL_MS)
    , m_logLevel(u"FATAL"_s)
{}

PelCloudClient::~PelCloudClient()
{
    giveUpRun();
    if (waitForRun(Timeouts::RUN_END))
        return;
    GetThread()->Kill();
    waitForRun(Timeouts::CANCELLED);
}

/** False when a run in progress has not ended in time. */
bool PelCloudClient::waitForRun(std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!m_running.try_lock()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        Delay(0);
    }
    m_running.unlock();
    return true;
}

int PelCloudClient::start()
{
    try {
        return loadAndStart();
    } catch (...) {
        RethrowForcedUnwind();
        logError(u"Unknown error loading upscli library."_s);
        return StartFailed;
    }
}

int PelCloudClient::loadAndStart()
{
    const std::string path = GetPelorinPath() + "upscli.so";
    const QString shownPath = QFile::decodeName(path.c_str());

    logInfo(quoted("Loading library", shownPath));
    if (!m_suite.load(path)) {
        logError(quoted("Error loading", shownPath));
        return LibraryNotLoaded;
    }
    logInfo(quoted("Starting library", shownPath));
    if (!m_suite.start()) {
        logError(quoted("Error starting", shownPath));
        return LibraryNotStarted;
    }
    m_auth.resume();
    m_http.resume();
    m_isStopped = false;
    Start(static_cast<unsigned long>(m_interval));
    if (GetThread()->GetSuspended()) {
        stop();
        throw std::runtime_error("no timer thread");
    }
    return Ok;
}

int PelCloudClient::stop()
{
    giveUpRun();
    const bool isStopped = m_suite.stop();
    const std::lock_guard runHasEnded(m_running);
    if (!isStopped)
        throw std::runtime_error("CliStop");
    return 0;
}

/** Lets no run begin, and the one in progress end at its next step. */
void PelCloudClient::giveUpRun()
{
    Stop();
    m_isStopped = true;
    m_auth.cancel();
    m_http.cancel();
}

void PelCloudClient::setInterval(int ms)
{
    if (ms > 0)
        m_interval = ms;
}

QString PelCloudClient::getConfigFilename()
{
    return QFile::decodeName(GetPelorinPath().c_str()) + Constants::CONFIG_FILENAME;
}

QJsonObject PelCloudClient::readConfig()
{
    const QString name = getConfigFilename();
    QFile file(name);
    // Only a regular file is opened: a pipe in its place would block the run.
    if (!QFileInfo(name).isFile() || !file.open(QIODevice::ReadOnly)) {
        logError(quoted("Error opening config file", name));
        return {};
    }
    const QByteArray bytes = file.readAll();
    file.close();
    if (bytes.isEmpty()) {
        logError(quoted("Error reading config file", name));
        return {};
    }
    return QJsonDocument::fromJson(bytes).object();
}

int PelCloudClient::readConfigFromFile()
{
    const QJsonObject object = readConfig();
    if (object.isEmpty())
        return ConfigFailed;
    m_auth.setToken(GoogleToken(object));
    m_logLevel = object.value("log"_L1).toString();
    if (m_logLevel.isEmpty())
        m_logLevel = u"FATAL"_s;
    return Ok;
}

int PelCloudClient::writeConfig(const QJsonObject &object)
{
    const QString name = getConfigFilename();
    switch (writeConfigFile(name, object)) {
    case ConfigWriting::Done:
        return Ok;
    case ConfigWriting::NotOpened:
        logError(quoted("Error opening (to write) config file", name));
        break;
    case ConfigWriting::NotWritten:
        logError(quoted("Error writing config file", name));
        break;
    }
    return ConfigFailed;
}

int PelCloudClient::writeConfigToFile()
{
    QJsonObject object = m_auth.getToken().toJson();
    object.insert("log"_L1, m_logLevel);
    return writeConfig(object);
}

int PelCloudClient::login()
{
    if (!m_auth.isAuthTokenExpired())
        return Ok;

    Emptiness empty(m_auth.getToken());
    if (empty.access && empty.refresh && empty.code) {
        if (const int result = readConfigFromFile(); result != Ok)
            return result;
        empty = Emptiness(m_auth.getToken());
    }
    if (empty.code && empty.refresh && empty.access)
        return SignInFailed; // nothing to sign in with

    if (empty.refresh && empty.access) {
        if (const int result = getGoogleTokenByCode(); result != Ok) {
            logFailure(u"Error getting Google token by device code."_s);
            return result;
        }
        if (!m_auth.getToken().getRefreshToken().isEmpty()) {
            if (const int result = writeConfigToFile(); result != Ok)
                return result;
        }
    }
    if (m_auth.isAuthTokenExpired()) {
        if (const int result = getGoogleAccessToken(); result != Ok) {
            logFailure(u"Error getting Google access token by refresh token."_s);
            return result;
        }
    }
    return Ok;
}

int PelCloudClient::getGoogleTokenByCode()
{
    return m_auth.getTokenByAuthCode() == GoogleAuth::Ok ? Ok : SignInFailed;
}

int PelCloudClient::getGoogleAccessToken()
{
    return m_auth.getTokenByRefreshToken() == GoogleAuth::Ok ? Ok : SignInFailed;
}

int PelCloudClient::postDataFromComputer(const Computer &computer)
{
    if (const int result = login(); result != Ok) {
        report({ "PUT", {}, 0, result, 0, "" });
        return result;
    }
    const GoogleToken &token = m_auth.getToken();
    QJsonObject body = computer.toJson();
    body.insert("id"_L1, token.getComputerId());
    body.remove("name"_L1);
    return send("PUT", &HttpClient::put,
                Constants::COMPUTER_URI_PATTERN.arg(token.getHomeURI(), token.getComputerId()),
                ToJsonText(body));
}

int PelCloudClient::postDataFromDevice(const char *deviceId, const DeviceStatus &status)
{
    if (const int result = login(); result != Ok) {
        report({ "POST", {}, 0, result, 0, "" });
        return result;
    }
    const GoogleToken &token = m_auth.getToken();
    return send("POST", &HttpClient::post,
                Constants::DEVICE_URI_PATTERN.arg(token.getHomeURI(), token.getComputerId(),
                                                  QString::fromLatin1(deviceId)),
                ToJsonText(status.toJson()));
}

int PelCloudClient::send(const char *method, Exchange exchange, const QString &uri,
                         const QByteArray &body)
{
    HttpRequest request{ QUrl(uri) };
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("Authorization",
                         "Bearer " + m_auth.getToken().getAccessToken().toLatin1());
    const std::unique_ptr<QByteArray> answer((m_http.*exchange)(request, body));
    const QString message = "HTTP "_L1 + QLatin1String(method) + ' '_L1 + request.url();
    const int result = answer == nullptr ? RequestFailed : Ok;
    if (result == Ok)
        logInfo(message + " OK."_L1);
    else
        logFailure(message + " error."_L1);
    report({ method, request.url(), body.size(), result, m_http.lastStatus(), m_http.lastError() });
    return result;
}

/** Logs a failure, unless it is a request that a stop gave up. */
void PelCloudClient::logFailure(const QString &message) const
{
    if (!m_isStopped)
        logError(message);
}

void PelCloudClient::report(const Report &report)
{
    if (report.result == Ok || !m_isStopped)
        onReport(report);
}

void PelCloudClient::onReport([[maybe_unused]] const Report &report) {}

void PelCloudClient::OnTimer()
{
    const std::lock_guard running(m_running);
    if (m_isStopped)
        return;
    try {
        run();
    } catch (...) {
        RethrowForcedUnwind();
        logError(u"Unknown error in polling cycle."_s);
    }
}

void PelCloudClient::adjustLogLevel()
{
    using QLogger::QLoggerManager;
    if (auto *const writer =
                QLoggerManager::getInstance()->getLogWriter(Constants::LOG_MODULE_NAME))
        writer->setLogLevel(QLogger::logLevelFromText(m_logLevel));
}

void PelCloudClient::run()
{
    Computer computer;
    DeviceStatus status; // one for all units, so that samples add up within a run
    RecordBuffers buffers;

    if (readConfigFromFile() == Ok)
        adjustLogLevel();

    const unsigned long count = m_suite.count();
    for (unsigned long index = 0; index < count; ++index) {
        if (!m_isStopped)
            reportComputer(index, buffers, computer);
        if (!m_isStopped)
            reportDevice(index, buffers, status);
    }
}

void PelCloudClient::reportComputer(unsigned long index, RecordBuffers &buffers, Computer &computer)
{
    logInfo(u"UPSSrvGetVersionInfo..."_s);
    if (!m_suite.readVersion(index, buffers))
        return;
    buffers.translateVersion(computer);
    logInfo(u"postDataFromComputer..."_s);
    logInfo("Computer: Os: "_L1 + computer.getOs() + ", Ver: "_L1 + computer.getVer());
    postDataFromComputer(computer);
}

void PelCloudClient::reportDevice(unsigned long index, RecordBuffers &buffers, DeviceStatus &status)
{
    logInfo("UPSSrvGetState("_L1 + QString::number(index) + ")..."_L1);
    if (!m_suite.readState(index, buffers))
        return;
    buffers.translateState(status);
    logInfo(u"postDataFromDevice..."_s);
    logInfo("Device: Name: "_L1 + status.getVars().getName() + ", Fam: "_L1
            + QString::number(status.getVars().getFamily()) + ", Mod: "_L1
            + QString::number(status.getVars().getModel()));
    postDataFromDevice(UIntToStr(index, 3, '0').c_str(), status);
}
