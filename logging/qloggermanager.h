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
 * Knows which module logs into which file: one for the whole process, from its first use until the
 * process ends. Destinations are added and never removed. The writers are never deleted, so that a
 * pointer to one stays good. Any thread may call anything at any time.
 */
class QLoggerManager : public QObject
{
public:
    /** The only one; created, without any destination, by the first call. */
    static QLoggerManager *getInstance();

    /**
     * Gives the first of `modules` that has no destination yet a writer of its own for the file
     * `fileDest`, and only that one: several modules take several calls. False, with nothing
     * changed, when each of them had one already.
     */
    bool addDestination(const QString &fileDest, const QStringList &modules, LogLevel level);

    /** The module's writer; null when it has no destination. */
    [[nodiscard]] QLoggerWriter *getLogWriter(const QString &module) const
    {
        const CancellationHold hold;
        const std::lock_guard guard(m_lock);
        return m_moduleDestinations.value(module);
    }

    /** The level's name as log lines show it; empty for a value that is no level. */
    [[nodiscard]] static QString levelToText(const LogLevel &level);

    /**
     * Ends the whole process with exit(0), at once: other threads may be logging and are not waited
     * for.
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
