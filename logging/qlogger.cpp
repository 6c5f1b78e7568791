#include "logging/qlogger.h"

namespace QLogger {

void QLog_(const QString &module, LogLevel level, const QString &message)
{
    QLoggerWriter *writer = QLoggerManager::getInstance()->getLogWriter(module);
    if (writer == nullptr || writer->getLogLevel() > level)
        return;
    writer->write(module, message);
}

void QLog_Trace(const QString &module, const QString &message)
{
    QLog_(module, LogLevel::Trace, message);
}

void QLog_Debug(const QString &module, const QString &message)
{
    QLog_(module, LogLevel::Debug, message);
}

void QLog_Info(const QString &module, const QString &message)
{
    QLog_(module, LogLevel::Info, message);
}

void QLog_Warning(const QString &module, const QString &message)
{
    QLog_(module, LogLevel::Warning, message);
}

void QLog_Error(const QString &module, const QString &message)
{
    QLog_(module, LogLevel::Error, message);
}

void QLog_Fatal(const QString &module, const QString &message)
{
    QLog_(module, LogLevel::Fatal, message);
}

} // namespace QLogger
