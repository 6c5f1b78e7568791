#ifndef PELCLOUD_LOGGING_QLOGGER_H
#define PELCLOUD_LOGGING_QLOGGER_H

#include "logging/loglevel.h"
#include "logging/qloggermanager.h"
#include "logging/qloggerwriter.h"

#include <QString>

/**
 * Logging as the rest of the system uses it: a message goes to the file of its module. May be
 * called from any thread at any time; never reports an error.
 */
namespace QLogger {

/**
 * Writes `message` into the log of `module` if `level` is at least that log's own level. A message
 * for a module without a destination is lost.
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
