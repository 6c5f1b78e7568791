#ifndef PELCLOUD_LOGGING_QLOGGERMANAGER_H
#define PELCLOUD_LOGGING_QLOGGERMANAGER_H

#include "logging/loglevel.h"
#include "support/cancellation.h"

#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>

#include <mutex>

namespace QLogger {

class QLoggerWriter;

/**
 * Maps modules to log files. The process has one manager, from first use until the process ends.
 * Destinations are never removed and writers never deleted, so a pointer to a writer stays valid.
 * Any thread may call anything at any time.
 */
class QLoggerManager : public QObject
{
public:
    /** The only manager. The first call creates it, without destinations. */
    static QLoggerManager *getInstance();

    /**
     * Creates a writer to the file `fileDest` for the first of `modules` that has no destination,
     * and for that one only: several modules need several calls. False, with nothing changed, when
     * each already has one.
     */
    bool addDestination(const QString &fileDest, const QStringList &modules, LogLevel level);

    /** The module's writer; null when it has no destination. */
    [[nodiscard]] QLoggerWriter *getLogWriter(const QString &module) const
    {
        const CancellationHold hold;
        const std::lock_guard guard(m_lock);
        return m_moduleDestinations.value(module);
    }

    /** The level's name as in log lines; empty for a value that is not a level. */
    [[nodiscard]] static QString levelToText(const LogLevel &level);

    /**
     * Ends the whole process with exit(0) at once. Does not wait for other threads, which may be
     * logging.
     */
    [[noreturn]] void closeLogger();

private:
    QLoggerManager() = default;
    ~QLoggerManager() override = default;

    static QLoggerManager *INSTANCE; // null until first use

    mutable std::mutex m_lock; // guards the map
    QMap<QString, QLoggerWriter *> m_moduleDestinations;
};

} // namespace QLogger

#endif
