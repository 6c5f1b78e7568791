#include "plugin/pelcloud.h"

#include "http/httprequest.h"
#include "logging/qlogger.h"
#include "model/computer.h"
#include "model/devicestatus.h"
#include "model/pel6trans.h"
#include "plugin/configfile.h"
#include "plugin/constants.h"
#include "plugin/loglevels.h"
#include "plugin/recordbuffers.h"
#include "support/config.h"
#include "support/jsontext.h"
#include "support/utils.h"

#include <algorithm>
#include <exception>
#include <future>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUrl>

namespace {

using QLogger::QLog_Error;
using QLogger::QLog_Info;
using namespace std::chrono_literals;

constexpr int DEFAULT_INTERVAL_MS = 10000;

constexpr int LIBRARY_NOT_LOADED = 4;
constexpr int LIBRARY_NOT_STARTED = 5;
constexpr int START_FAILED = 6;
constexpr int NOTHING_TO_SIGN_IN_WITH = 1;
constexpr int GRANT_FAILED = 1;
constexpr int CONFIG_FAILED = 2;
constexpr int REQUEST_FAILED = 3;

// Together they keep a stop within one second, whatever the library and the network do.
constexpr auto PATIENCE_WITH_CALL = PELCLOUD_SLOWNESS * 200ms;
constexpr auto PATIENCE_WITH_CLISTOP = PELCLOUD_SLOWNESS * 300ms;
constexpr auto PATIENCE_WITH_REQUEST = PELCLOUD_SLOWNESS * 350ms;
constexpr auto PATIENCE_WITH_BUSY_MACHINE = PELCLOUD_SLOWNESS * 700ms;
/** A run that will not end is cancelled when its client is destroyed. */
constexpr auto PATIENCE_OF_DESTRUCTOR = 10000ms;
constexpr auto PATIENCE_WITH_CANCELLED = 1000ms;

void logInfo(const QString &message)
{
    QLog_Info(Constants::LOG_MODULE_NAME, message);
}

void logError(const QString &message)
{
    QLog_Error(Constants::LOG_MODULE_NAME, message);
}

/** In a handler: lets the end of the whole thread go on, which comes without an exception. */
void rethrowEndOfThread()
{
    if (std::current_exception() == nullptr)
        throw;
}

QString quoted(const char *before, const QString &name)
{
    return QLatin1String(before) + QLatin1String(" '") + name + QLatin1String("'.");
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
    , m_logLevel(QStringLiteral("FATAL"))
{}

PelCloudClient::~PelCloudClient()
{
    Stop();
    m_monitor.closeLibrary(0ms);
    m_auth.cancel();
    m_http.cancel();
    if (!m_monitor.waitForEnd(PATIENCE_OF_DESTRUCTOR)) {
        GetThread()->Kill();
        m_monitor.waitForEnd(PATIENCE_WITH_CANCELLED);
    }
}

int PelCloudClient::start()
{
    try {
        return loadAndStart();
    } catch (...) {
        rethrowEndOfThread();
        logError(QStringLiteral("Unknown error loading upscli library."));
        return START_FAILED;
    }
}

int PelCloudClient::loadAndStart()
{
    const std::string path = GetPelorinPath() + "upscli.so";
    const QString shownPath = QFile::decodeName(path.c_str());

    const std::lock_guard lock(m_libraryLock);
    logInfo(quoted("Loading library", shownPath));
    if (!m_upscli.Load(path)) {
        logError(quoted("Error loading", shownPath));
        return LIBRARY_NOT_LOADED;
    }
    logInfo(quoted("Starting library", shownPath));
    m_cliHandle = m_upscli.CliStart == nullptr ? nullptr : m_upscli.CliStart();
    if (m_cliHandle == nullptr) {
        logError(quoted("Error starting", shownPath));
        return LIBRARY_NOT_STARTED;
    }
    m_monitor.openLibrary();
    Start(static_cast<unsigned long>(m_interval));
    return 0;
}

int PelCloudClient::stop()
{
    m_stopBegun = Clock::now();
    Stop();
    m_monitor.closeLibrary(PATIENCE_WITH_CALL);

    const std::lock_guard lock(m_libraryLock);
    if (!m_upscli.IsLoaded())
        return 0;
    if (m_cliHandle != nullptr) {
        logInfo(QStringLiteral("Stopping upscli library."));
        stopLibrary({ m_upscli, m_cliHandle });
        m_cliHandle = nullptr;
    }
    logInfo(QStringLiteral("Unloading upscli library."));
    m_upscli.Unload();
    return 0;
}

/**
 * Calls CliStop with a bound on the time it takes: a thread of its own makes the call, and keeps
 * the library mapped until the call has returned, however late that is. An exception of the
 * library's must not leave that thread, for it is made of the library's code: another takes its
 * place here.
 */
void PelCloudClient::stopLibrary(const Library &library)
{
    if (library.entries.CliStop == nullptr)
        return;
    auto outcome = std::make_shared<std::promise<bool>>();
    std::future<bool> returned = outcome->get_future();
    auto call = [own = library, outcome]() mutable {
        bool succeeded = true;
        try {
            own.entries.CliStop(own.handle);
        } catch (...) {
            rethrowEndOfThread();
            succeeded = false;
        }
        own = {}; // before the answer, so that in time it is the client that unloads
        outcome->set_value(succeeded);
    };
    try {
        std::thread(call).detach();
    } catch (const std::system_error &) {
        call(); // no thread to be had: better without a bound than not at all
    }
    if (returned.wait_for(PATIENCE_WITH_CLISTOP) == std::future_status::ready && !returned.get())
        throw std::runtime_error("CliStop");
}

void PelCloudClient::prepareForExit()
{
    m_auth.cancel();
    m_http.cancel();
    // What the library left of its time goes to a request that a busy machine is slow to give up, less
    // a share for the handlers of the host.
    const auto spent = duration_cast<std::chrono::milliseconds>(Clock::now() - m_stopBegun);
    m_monitor.rest(std::max(PATIENCE_WITH_REQUEST, PATIENCE_WITH_BUSY_MACHINE - spent));
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
    // Only a regular file is opened: a pipe in its place would hold the run for ever.
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
        return CONFIG_FAILED;
    m_auth.setToken(GoogleToken(object));
    m_logLevel = object.value(QLatin1String("log")).toString();
    if (m_logLevel.isEmpty())
        m_logLevel = QStringLiteral("FATAL");
    return 0;
}

int PelCloudClient::writeConfig(const QJsonObject &object)
{
    const QString name = getConfigFilename();
    switch (writeConfigFile(name, object)) {
    case ConfigWriting::Done:
        return 0;
    case ConfigWriting::NotOpened:
        logError(quoted("Error opening (to write) config file", name));
        break;
    case ConfigWriting::NotWritten:
        logError(quoted("Error writing config file", name));
        break;
    }
    return CONFIG_FAILED;
}

int PelCloudClient::writeConfigToFile()
{
    QJsonObject object = m_auth.getToken().toJson();
    object.insert(QLatin1String("log"), m_logLevel);
    return writeConfig(object);
}

int PelCloudClient::login()
{
    if (!m_auth.isAuthTokenExpired())
        return 0;

    Emptiness empty(m_auth.getToken());
    if (empty.access && empty.refresh && empty.code) {
        if (const int result = readConfigFromFile(); result != 0)
            return result;
        empty = Emptiness(m_auth.getToken());
    }
    if (empty.code && empty.refresh && empty.access)
        return NOTHING_TO_SIGN_IN_WITH;

    if (empty.refresh && empty.access) {
        if (const int result = getGoogleTokenByCode(); result != 0) {
            logError(QStringLiteral("Error getting Google token by device code."));
            return result;
        }
        if (!m_auth.getToken().getRefreshToken().isEmpty()) {
            if (const int result = writeConfigToFile(); result != 0)
                return result;
        }
    }
    if (m_auth.isAuthTokenExpired()) {
        if (const int result = getGoogleAccessToken(); result != 0) {
            logError(QStringLiteral("Error getting Google access token by refresh token."));
            return result;
        }
    }
    return 0;
}

int PelCloudClient::getGoogleTokenByCode()
{
    return m_auth.getTokenByAuthCode() == 0 ? 0 : GRANT_FAILED;
}

int PelCloudClient::getGoogleAccessToken()
{
    return m_auth.getTokenByRefreshToken() == 0 ? 0 : GRANT_FAILED;
}

int PelCloudClient::postDataFromComputer(const Computer &computer)
{
    if (const int result = login(); result != 0) {
        onReport({ "PUT", {}, 0, result, 0, "" });
        return result;
    }
    const GoogleToken &token = m_auth.getToken();
    QJsonObject body = computer.toJson();
    body.insert(QLatin1String("id"), token.getComputerId());
    body.remove(QLatin1String("name"));
    return send("PUT", &HttpClient::put,
                Constants::COMPUTER_URI_PATTERN.arg(token.getHomeURI(), token.getComputerId()),
                ToJsonText(body));
}

int PelCloudClient::postDataFromDevice(const char *deviceId, const DeviceStatus &status)
{
    if (const int result = login(); result != 0) {
        onReport({ "POST", {}, 0, result, 0, "" });
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
    const QString message =
            QLatin1String("HTTP ") + QLatin1String(method) + QLatin1Char(' ') + request.url();
    if (answer == nullptr)
        logError(message + QLatin1String(" error."));
    else
        logInfo(message + QLatin1String(" OK."));
    const int result = answer == nullptr ? REQUEST_FAILED : 0;
    onReport({ method, request.url(), body.size(), result, m_http.lastStatus(),
               m_http.lastError() });
    return result;
}

void PelCloudClient::onReport([[maybe_unused]] const Report &report) {}

PelCloudClient::Library PelCloudClient::library()
{
    const std::lock_guard lock(m_libraryLock);
    return { m_upscli, m_cliHandle };
}

void PelCloudClient::OnTimer()
{
    if (!m_monitor.begin())
        return;
    const RunScope scope(m_monitor);
    Library suite; // until after the handler: what the library throws is made of its code
    try {
        run(suite);
    } catch (...) {
        rethrowEndOfThread();
        logError(QStringLiteral("Unknown error in polling cycle."));
    }
}

void PelCloudClient::adjustLogLevel()
{
    using QLogger::QLoggerManager;
    if (auto *const writer =
                QLoggerManager::getInstance()->getLogWriter(Constants::LOG_MODULE_NAME))
        writer->setLogLevel(LogLevelFromText(m_logLevel));
}

void PelCloudClient::run(Library &suite)
{
    Computer computer;
    DeviceStatus status; // one for all units, so that samples add up within a run
    RecordBuffers buffers;

    if (readConfigFromFile() == 0)
        adjustLogLevel();

    suite = library();
    const unsigned long count =
            std::min(callLibrary(suite.entries.GetServerCount, suite.handle), MAX_UNITS);
    for (unsigned long index = 0; index < count && m_monitor.goesOn(); ++index) {
        reportComputer(suite, index, buffers, computer);
        reportDevice(suite, index, buffers, status);
    }
}

/**
 * Calls an entry of the suite's library. Gives 0, which is failure to all of them, without a call
 * where the library lacks the entry or is being stopped.
 */
template <class Result, class... Parameters, class... Arguments>
Result PelCloudClient::callLibrary(Result (*entry)(Parameters...), Arguments... arguments)
{
    if (entry == nullptr || !m_monitor.enterLibrary())
        return 0;
    const LibraryCall call(m_monitor);
    return entry(arguments...);
}

void PelCloudClient::reportComputer(const Library &suite, unsigned long index,
                                    RecordBuffers &buffers, Computer &computer)
{
    logInfo(QStringLiteral("UPSSrvGetVersionInfo..."));
    if (callLibrary(suite.entries.UPSSrvGetVersionInfo, suite.handle, index, buffers.version.get())
        == 0)
        return;
    Pel6Translator::translate(computer, buffers.version.get());
    logInfo(QStringLiteral("postDataFromComputer..."));
    logInfo(QLatin1String("Computer: Os: ") + computer.getOs() + QLatin1String(", Ver: ")
            + computer.getVer());
    postDataFromComputer(computer);
}

void PelCloudClient::reportDevice(const Library &suite, unsigned long index, RecordBuffers &buffers,
                                  DeviceStatus &status)
{
    logInfo(QLatin1String("UPSSrvGetState(") + QString::number(index) + QLatin1String(")..."));
    // The library takes state before failures, the translator failures before state.
    if (callLibrary(suite.entries.UPSSrvGetState, suite.handle, index, buffers.capabilities.get(),
                    buffers.variables.get(), buffers.stateFlags.get(), buffers.failureFlags.get(),
                    buffers.cause.get(), buffers.counter.get(), buffers.fullDischarge.get())
        == 0)
        return;
    Pel6Translator::translate(status, buffers.capabilities.get(), buffers.failureFlags.get(),
                              buffers.stateFlags.get(), buffers.variables.get(),
                              buffers.cause.get(), buffers.counter.get(),
                              buffers.fullDischarge.get());
    logInfo(QStringLiteral("postDataFromDevice..."));
    logInfo(QLatin1String("Device: Name: ") + status.getVars().getName() + QLatin1String(", Fam: ")
            + QString::number(status.getVars().getFamily()) + QLatin1String(", Mod: ")
            + QString::number(status.getVars().getModel()));
    postDataFromDevice(UIntToStr(index, 3, '0').c_str(), status);
}
