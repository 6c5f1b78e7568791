#ifndef PELCLOUD_PLUGIN_PELCLOUD_H
#define PELCLOUD_PLUGIN_PELCLOUD_H

#include "auth/gauth.h"
#include "http/httpclient.h"
#include "plugin/runmonitor.h"
#include "plugin/upsclidl.h"
#include "support/thclass.h"

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
 * the timer's own thread. A stop may come in the middle of a run and does not wait for its
 * requests: the run ends on its own, without calling the library again. All failures are logged
 * and end at most the run in which they happen.
 */
class PelCloudClient : private TmrClass
{
public:
    PelCloudClient();
    /** Ends a run in progress and the timer thread. Does not tell the suite's library to stop. */
    ~PelCloudClient() override;
    PelCloudClient(const PelCloudClient &) = delete;
    PelCloudClient &operator=(const PelCloudClient &) = delete;

    /** 0 when running; 4: no library, 5: the library does not start, 6: anything unexpected. */
    int start();
    /** Stops the timer and the library; good in every state. Always 0. */
    int stop();

    /** Milliseconds between two runs, from the next start() on; values below 1 are ignored. */
    void setInterval(int ms);
    [[nodiscard]] int getInterval() const { return m_interval; }

    /** The path of pelcloud.json in the installation directory, found anew on every call. */
    QString getConfigFilename();
    /** The object in pelcloud.json, or an empty one. */
    QJsonObject readConfig();
    /** Takes token and log level from pelcloud.json. 0, or 2 when there is nothing to take. */
    int readConfigFromFile();
    /** Replaces the contents of pelcloud.json, in place. 0, or 2 when that failed. */
    int writeConfig(const QJsonObject &object);
    /** Writes token and log level to pelcloud.json. 0, or 2 when that failed. */
    int writeConfigToFile();

    /** 0 when an access token that has not expired is held, after a grant where one is needed. */
    int login();
    /** The device grant. 0, or 1 when it failed. */
    int getGoogleTokenByCode();
    /** The refresh grant. 0, or 1 when it failed. */
    int getGoogleAccessToken();

    /** 0 when an answer came, whatever its status; login()'s result, or 3 for no answer. */
    int postDataFromComputer(const Computer &computer);
    int postDataFromDevice(const char *deviceId, const DeviceStatus &status);

    /**
     * To be called once, when the process is about to end: gives up a request in flight and waits
     * a short time until the run has come to where exit() cannot hurt it. No run follows.
     */
    void prepareForExit();

protected:
    /** A request of a run as it ended, for those who watch. */
    struct Report
    {
        const char *method;
        QString url;       // empty when login() failed before
        qsizetype size;    // of the body, in bytes
        int result;        // what postDataFromComputer() or postDataFromDevice() gives
        long status;       // of the answer; 0 without one
        const char *error; // why there is no answer, for a person; empty otherwise
    };
    /** Called on the run's thread after each request, or instead of it when login() failed. */
    virtual void onReport(const Report &report);

    /** One run. An exception in it is logged and goes no further. */
    void OnTimer() override;

    GoogleAuth &auth() { return m_auth; }
    [[nodiscard]] const QString &logLevelText() const { return m_logLevel; }

private:
    /** The library as one run sees it: mapped until the run lets go, whatever a stop does. */
    struct Library
    {
        UpsCliDL entries;
        void *handle = nullptr;
    };

    using Clock = std::chrono::steady_clock;

    int loadAndStart();
    static void stopLibrary(const Library &library);
    Library library();
    void run(Library &suite);
    void reportComputer(const Library &suite, unsigned long index, RecordBuffers &buffers,
                        Computer &computer);
    void reportDevice(const Library &suite, unsigned long index, RecordBuffers &buffers,
                      DeviceStatus &status);
    template <class Result, class... Parameters, class... Arguments>
    Result callLibrary(Result (*entry)(Parameters...), Arguments... arguments);
    void adjustLogLevel();
    using Exchange = QByteArray *(HttpClient::*)(const HttpRequest &, const QByteArray &);
    int send(const char *method, Exchange exchange, const QString &uri, const QByteArray &body);

    int m_interval;
    GoogleAuth m_auth;
    HttpClient m_http;
    UpsCliDL m_upscli;
    void *m_cliHandle = nullptr;
    QString m_logLevel;

    std::mutex m_libraryLock; // guards m_upscli and m_cliHandle between the two threads
    RunMonitor m_monitor;
    Clock::time_point m_stopBegun;
};

#endif
