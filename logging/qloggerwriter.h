#ifndef PELCLOUD_LOGGING_QLOGGERWRITER_H
#define PELCLOUD_LOGGING_QLOGGERWRITER_H

#include "logging/loglevel.h"

#include <QObject>
#include <QString>

#include <atomic>

class QDateTime;

namespace QLogger {

/**
 * Appends lines to one log file and moves the file aside when it has reached 1 MiB. Nothing stays
 * open or in memory between two messages: a line is on disk when write() returns, and the file may
 * be moved or removed from outside at any time.
 *
 * Any thread may call anything at any time. No operation reports an error, and write() throws
 * nothing: a message that cannot be written is lost.
 */
class QLoggerWriter : public QObject
{
    Q_OBJECT

public:
    /** `fileDestination` is the log file's path; `level` the least that the callers should write. */
    QLoggerWriter(const QString &fileDestination, LogLevel level);

    /**
     * Appends the line "[date time] [level] {module} message" whatever the level; the level shown
     * is the writer's own. A file of 1 MiB is first moved to its rotated name, and the new one
     * begins with a line that names it; when it cannot be moved it grows on, and the next message
     * tries again. Creates a directory "logs" in the working directory if that has no such entry.
     */
    void write(const QString &module, const QString &message);

    /** Holds from the next message on. */
    void setLogLevel(LogLevel level) { m_level.store(level, std::memory_order_relaxed); }
    [[nodiscard]] LogLevel getLogLevel() const { return m_level.load(std::memory_order_relaxed); }

private:
    void append(const QString &module, const QString &message) const;

    const QString m_fileDestination;
    std::atomic<LogLevel> m_level;
};

/**
 * Where a log file that has grown full at the time `at` is moved to: "/x/a.log" gives
 * "/x/a_dd_MM_yy__hh_mm_ss.log". It is cut at the last "." of the whole path, so that "/x.y/a"
 * gives "/x_dd_MM_yy__hh_mm_ss.log"; a path without a "." is kept whole.
 */
[[nodiscard]] QString rotatedName(const QString &fileDestination, const QDateTime &at);

} // namespace QLogger

#endif
