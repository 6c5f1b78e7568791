#ifndef PELCLOUD_LOGGING_QLOGGER_H
#define PELCLOUD_LOGGING_QLOGGER_H

#include "logging/loglevel.h"
#include "logging/qloggermanager.h"
#include "logging/qloggerwriter.h"

#include <QString>

/**
 * Logging functions for the rest of the system: a message is written to the log file of its module.
 * Any thread may call them at any time. They never report an error.
 */
namespace QLogger {

/**
 * Writes `message` to the log of `module` if `level` is at least that log's level. A message for a
 * module without a destination is lost.
 */
void QLog_(const QString &module, LogLevel level, const QString &message);

void QLog_Trace(const QString &module, const QString &message);
void QLog_Debug(const QString &module, const QString &message);
void QLog_Info(const QString &module, const QString &message);
void QLog_Warning(const QString &module, const QString &message);
void QLog_Error(const QString &module, const QString &message);
void QLog_Fatal(const QString &module, const QString &message);

} // namespace QLogger

#endif
