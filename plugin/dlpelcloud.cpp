#include "plugin/dlpelcloud.h"

#include "plugin/constants.h"
#include "support/config.h"

#include <QFile>
#include <QJsonObject>
#include <QStringList>
#include <QtGlobal>

namespace {

using QLogger::LogLevel;
using QLogger::QLog_Error;
using QLogger::QLog_Info;

QString installationPath()
{
    return QFile::decodeName(GetPelorinPath().c_str());
}

/** Runs `action`; should it throw, runs `report`, and whatever that throws goes no further. */
template <class Action, class Report>
void guarded(Action action, Report report) noexcept
{
    try {
        action();
    } catch (...) {
        try {
            report();
        } catch (...) {
            return; // not even a message is to be had
        }
    }
}

} // namespace

PelCloudService::PelCloudService()
{
    guarded([this] { setUpLog(); },
            [] { qCritical("Unknown error in PelCloudService constructor."); });
}

void PelCloudService::setUpLog()
{
    const QJsonValue level = m_client.readConfig().value(QLatin1String("log"));
    if (!level.isNull() && !level.isUndefined())
        m_logLevel = QLogger::logLevelFromText(level.toString());
    m_logger = QLogger::QLoggerManager::getInstance();

    const QStringList modules{ Constants::LOG_MODULE_NAME };
    const QString path = installationPath() + Constants::LOG_FILENAME;
    // Only the first level takes effect: a module that has a destination keeps it.
    for (int value = static_cast<int>(m_logLevel); value <= static_cast<int>(LogLevel::Fatal);
         ++value)
        m_logger->addDestination(path, modules, static_cast<LogLevel>(value));
}

PelCloudService::~PelCloudService()
{
    guarded(
            [this] {
                m_client.prepareForExit();
                QLogger::QLoggerManager::getInstance()->closeLogger();
            },
            [] { qCritical("Unknown error in PelCloudService destructor."); });
}

void PelCloudService::start()
{
    guarded(
            [this] {
                const QString &module = Constants::LOG_MODULE_NAME;
                QLog_Info(module, QLatin1String("Service started in '") + installationPath()
                                          + QLatin1String("'."));
                if (const int result = m_client.start(); result != 0)
                    QLog_Error(module,
                               QLatin1String("Start service error: ") + QString::number(result));
                else
                    QLog_Info(module, QStringLiteral("Start service: OK."));
            },
            [] {
                QLog_Error(Constants::LOG_MODULE_NAME,
                           QStringLiteral("Unknown error starting service."));
            });
}

void PelCloudService::stop()
{
    guarded(
            [this] {
                m_client.stop();
                QLog_Info(Constants::LOG_MODULE_NAME, QStringLiteral("Stopping service."));
            },
            [] {
                QLog_Error(Constants::LOG_MODULE_NAME,
                           QStringLiteral("Unknown error stopping service."));
            });
}

QLogger::QLoggerManager *PelCloudService::getLogger()
{
    return m_logger;
}

const QLogger::QLoggerManager *PelCloudService::getLogger() const
{
    return m_logger;
}
