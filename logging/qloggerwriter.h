#ifndef PELCLOUD_LOGGING_QLOGGERWRITER_H
#define PELCLOUD_LOGGING_QLOGGERWRITER_H

#include "logging/loglevel.h"

#include <QObject>
#include <QString>

#include <atomic>

class QDateTime;

namespace QLogger {

/**
 * Appends lines to one log file and rotates the file at 1 MiB. Keeps nothing open or in memory
 * between messages: a line is on disk when write() returns, and other programs may move or remove
 * the file at any time.
 *
 * Any thread may call anything at any time. No operation reports an error; write() throws nothing
 * and loses a message that it cannot write.
 */
class QLoggerWriter : public QObject
{
    Q_OBJECT

public:
    /** `fileDestination` is the log file's path, `level` the minimum that callers should write. */
    QLoggerWriter(const QString &fileDestination, LogLevel level);

    /**
     * Appends the line "[date time] [level] {module} message", with the writer's own level, without
     * comparing levels. First renames a file of 1 MiB to its rotated name; the new file begins with
     * a line that states that name. If the rename fails, the file grows and the next message
     * retries. Creates a directory "logs" in the working directory unless an entry has that name.
     */
    void write(const QString &module, const QString &message);

    /** Takes effect with the next message. */
    void setLogLevel(LogLevel level) { m_level.store(level, std::memory_order_relaxed); }
    [[nodiscard]] LogLevel getLogLevel() const { return m_level.load(std::memory_order_relaxed); }

private:
    void append(const QString &module, const QString &message) const;

    const QString m_fileDestination;
    std::atomic<LogLevel> m_level;
};

/**
 * The name of a log file rotated at the time `at`: "/x/a.log" becomes
 * "/x/a_dd_MM_yy__hh_mm_ss.log". The last "." of the whole path counts, so "/x.y/a" becomes
 * "/x_dd_MM_yy__hh_mm_ss.log"; a path without a "." is kept whole.
 */
[[nodiscard]] QString rotatedName(const QString &fileDestination, const QDateTime &at);

} // namespace QLogger

#endif
