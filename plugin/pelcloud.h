#ifndef PELCLOUD_PLUGIN_PELCLOUD_H
#define PELCLOUD_PLUGIN_PELCLOUD_H

#include "auth/gauth.h"
#include "http/httpclient.h"
#include "plugin/suitelibrary.h"
#include "support/thclass.h"

#include <atomic>
#include <chrono>
#include <mutex>

#include <QJsonObject>
#include <QString>

class Computer;
class DeviceStatus;
class HttpRequest;
struct RecordBuffers;

/**
 * The cloud reporting client: every interval it reads its configuration, asks the suite's client
 * library for the computer's and every UPS's state and sends them to the cloud.
 *
 * start(), stop() and destruction belong to one thread, the host's; everything of a run happens on
 * the timer's own thread. All failures are logged and end at most the run in which they happen.
 */
class PelCloudClient : private TmrClass
{
public:
    /** What the operations below return. */
    enum Result {
        Ok = 0,
        SignInFailed = 1,
        ConfigFailed = 2, // pelcloud.json has nothing to read, or cannot be written
        RequestFailed = 3,
        LibraryNotLoaded = 4,
        LibraryNotStarted = 5,
        StartFailed = 6,
    };

    PelCloudClient();
    /** Ends a run in progress and the timer thread. Unloads the suite's library, without CliStop. */
    ~PelCloudClient() override;
    PelCloudClient(const PelCloudClient &) = delete;
    PelCloudClient &operator=(const PelCloudClient &) = delete;

    /** Ok when running, LibraryNotLoaded, LibraryNotStarted, or StartFailed for anything else. */
    int start();
    /**
     * Stops the timer, gives up requests in flight, stops and unloads the library, and waits for
     * the end of a run in progress; works in every state. Always 0. Throws std::runtime_error, at
     * the end, when CliStop does. Not to be called within a run.
     */
    int stop();
    /** Whether the suite's library is in memory, where exit() runs its destructors. */
    [[nodiscard]] bool isLibraryMapped() const { return m_suite.isMapped(); }

    /**
     * One run, also without start(); none after stop(), until the next start(). An exception is
     * logged and goes no further. Any thread; runs take turns.
     */
    void OnTimer() override;

    /** Milliseconds between two runs, from the next start() on; values below 1 are ignored. */
    void setInterval(int ms);
    [[nodiscard]] int getInterval() const { return m_interval; }

    /** The path of pelcloud.json in the installation directory, computed on every call. */
    QString getConfigFilename();
    /** The object in pelcloud.json, or an empty one. */
    QJsonObject readConfig();
    /** Takes token and log level from pelcloud.json. Ok, or ConfigFailed when it has none. */
    int readConfigFromFile();
    /** Replaces the contents of pelcloud.json, in place. Ok or ConfigFailed. */
    int writeConfig(const QJsonObject &object);
    /** Writes token and log level to pelcloud.json. Ok or ConfigFailed. */
    int writeConfigToFile();

    /**
     * Ok when an access token that has not expired is held, after a grant where one is needed;
     * SignInFailed or ConfigFailed otherwise.
     */
    int login();
    /** The device grant. Ok or SignInFailed. */
    int getGoogleTokenByCode();
    /** The refresh grant. Ok or SignInFailed. */
    int getGoogleAccessToken();

    /** Ok when an answer came, whatever its status; login()'s result, or RequestFailed. */
    int postDataFromComputer(const Computer &computer);
    int postDataFromDevice(const char *deviceId, const DeviceStatus &status);

protected:
    /** A request of a run and its outcome, for observers. */
    struct Report
    {
        const char *method;
        QString url;       // empty when login() failed before
        qsizetype size;    // of the body, in bytes
        int result;        // of postDataFromComputer() or postDataFromDevice()
        long status;       // of the answer; 0 without one
        const char *error; // why there is no answer, for a person; empty otherwise
    };
    /**
     * Called on the run's thread after each request, or instead of it when login() failed; not for
     * requests that a stop gave up.
     */
    virtual void onReport(const Report &report);

    GoogleAuth &auth() { return m_auth; }
    [[nodiscard]] const QString &logLevelText() const { return m_logLevel; }

private:
    int loadAndStart();
    void giveUpRun();
    bool waitForRun(std::chrono::milliseconds timeout);
    void run();
    void reportComputer(unsigned long index, RecordBuffers &buffers, Computer &computer);
    void reportDevice(unsigned long index, RecordBuffers &buffers, DeviceStatus &status);
    void adjustLogLevel();
    void logFailure(const QString &message) const;
    void report(const Report &report);
    using Exchange = QByteArray *(HttpClient::*)(const HttpRequest &, const QByteArray &);
    int send(const char *method, Exchange exchange, const QString &uri, const QByteArray &body);

    int m_interval;
    GoogleAuth m_auth;
    HttpClient m_http;
    SuiteLibrary m_suite;
    QString m_logLevel;

    std::mutex m_running; // held by a run
    std::atomic<bool> m_isStopped = false;
};

#endif
