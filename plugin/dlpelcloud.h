#ifndef PELCLOUD_PLUGIN_DLPELCLOUD_H
#define PELCLOUD_PLUGIN_DLPELCLOUD_H

#include "logging/qlogger.h"
#include "plugin/pelcloud.h"

/**
 * What the suite's service manager knows of this plug-in. Both are called on the host's thread,
 * and no exception leaves them.
 */
extern "C" {

/**
 * Creates a service in `*handle` and starts it. 1, also when the client could not start, which is
 * only logged; 0, and nothing done, when `handle` is null.
 */
__attribute__((visibility("default"))) int SrvStart(void **handle);

/**
 * Stops and destroys the service in `*handle`, which ends the process with exit status 0. Always
 * 1, should it return: there was nothing to stop.
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
    /** Ends the process with exit status 0, after a short wait for a run in progress. */
    virtual ~PelCloudService();
    PelCloudService(const PelCloudService &) = delete;
    PelCloudService &operator=(const PelCloudService &) = delete;

    /** Starts the client and logs the outcome. */
    virtual void start();
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
