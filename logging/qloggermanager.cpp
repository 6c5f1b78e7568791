#include "logging/qloggermanager.h"

#include "logging/qloggerwriter.h"

#include <cstddef>
#include <cstdlib>
#include <mutex>

namespace QLogger {

QLoggerManager *QLoggerManager::INSTANCE = nullptr;

QLoggerManager *QLoggerManager::getInstance()
{
    // Never destroyed: other threads may log while exit() runs.
    static auto &instance = *(INSTANCE = new QLoggerManager);
    return &instance;
}

bool QLoggerManager::addDestination(const QString &fileDest, const QStringList &modules,
                                    LogLevel level)
{
    const CancellationHold hold;
    const std::lock_guard guard(m_lock);
    for (const QString &module : modules) {
        if (m_moduleDestinations.contains(module))
            continue;
        m_moduleDestinations.insert(module, new QLoggerWriter(fileDest, level));
        return true;
    }
    return false;
}

QString QLoggerManager::levelToText(const LogLevel &level)
{
    const auto index = static_cast<std::size_t>(level); // a negative value becomes a very large one
    return index < LOG_LEVEL_NAMES.size() ? QString::fromLatin1(LOG_LEVEL_NAMES[index]) : QString();
}

void QLoggerManager::closeLogger()
{
    // Takes no lock: another thread may hold it for long.
    std::exit(0); // NOLINT(concurrency-mt-unsafe): ends the other threads on purpose
}

} // namespace QLogger
