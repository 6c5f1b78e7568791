#include "plugin/dlpelcloud.h"

#include "plugin/constants.h"
#include "plugin/watchdog.h"
#include "support/config.h"

#include <cstdlib>
#include <unistd.h>

#include <QFile>
#include <QJsonObject>
#include <QStringList>
#include <QtGlobal>

namespace {

using QLogger::LogLevel;
using QLogger::QLog_Error;
using QLogger::QLog_Info;
using namespace Qt::StringLiterals;

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
            return; // no memory for a message
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
    const QJsonValue level = m_client.readConfig().value("log"_L1);
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
    guarded([] { QLogger::QLoggerManager::getInstance()->closeLogger(); },
            [] { qCritical("Unknown error in PelCloudService destructor."); });
}

void PelCloudService::start()
{
    guarded(
            [this] {
                const QString &module = Constants::LOG_MODULE_NAME;
                QLog_Info(module, "Service started in '"_L1 + installationPath() + "'."_L1);
                // The watchdog comes first, since it has to outlast the library.
                const int result =
                        Watchdog::start() ? m_client.start() : PelCloudClient::StartFailed;
                if (result != PelCloudClient::Ok)
                    QLog_Error(module, "Start service error: "_L1 + QString::number(result));
                else
                    QLog_Info(module, u"Start service: OK."_s);
            },
            [] { QLog_Error(Constants::LOG_MODULE_NAME, u"Unknown error starting service."_s); });
}

void PelCloudService::stop()
{
    Watchdog::arm();
    guarded(
            [this] {
                m_client.stop();
                QLog_Info(Constants::LOG_MODULE_NAME, u"Stopping service."_s);
                if (!m_client.isLibraryMapped())
                    Watchdog::disarm(); // the host's exit handlers may take their time
            },
            [] {
                QLog_Error(Constants::LOG_MODULE_NAME, u"Unknown error stopping service."_s);
                // The library has not stopped, and exit() would destroy what it may still use.
                _exit(EXIT_SUCCESS);
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
