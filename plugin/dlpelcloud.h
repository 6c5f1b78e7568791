#ifndef PELCLOUD_PLUGIN_DLPELCLOUD_H
#define PELCLOUD_PLUGIN_DLPELCLOUD_H

#include "logging/qlogger.h"
#include "plugin/pelcloud.h"

/**
 * The entries that the suite's service manager calls, on its own thread. No exception leaves them.
 */
extern "C" {

/**
 * Creates a service in `*handle` and starts it. 1, also when the client could not start, which is
 * only logged; 0, and nothing done, when `handle` is null.
 */
__attribute__((visibility("default"))) int SrvStart(void **handle);

/**
 * Stops and destroys the service in `*handle`, which ends the process with exit status 0. Returns,
 * always 1, only if there is no service, or another thread already stops it.
 */
__attribute__((visibility("default"))) int SrvStop(void **handle);

} // extern "C"

/**
 * The service: the log, set up from the configuration, and the reporting client. The order of the
 * virtual operations is part of the contract.
 */
class PelCloudService
{
public:
    /** Reads the log level and registers the log file. Failures leave a service without a log. */
    PelCloudService();
    /** Ends the process with exit status 0; stop() comes before. */
    virtual ~PelCloudService();
    PelCloudService(const PelCloudService &) = delete;
    PelCloudService &operator=(const PelCloudService &) = delete;

    /** Starts the watchdog and the client, and logs the outcome. */
    virtual void start();
    /**
     * Stops the client under the watchdog, which stays armed while the suite's library is mapped,
     * since exit() then runs the library's destructors. Ends the process with status 0 and without
     * exit handlers when the library throws instead of stopping.
     */
    virtual void stop();
    /** The process-wide log manager; not owned. */
    virtual QLogger::QLoggerManager *getLogger();
    [[nodiscard]] virtual const QLogger::QLoggerManager *getLogger() const;

private:
    void setUpLog();

    PelCloudClient m_client;
    QLogger::QLoggerManager *m_logger = nullptr;
    QLogger::LogLevel m_logLevel = QLogger::LogLevel::Fatal;
};

#endif
