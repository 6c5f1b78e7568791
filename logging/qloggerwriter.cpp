#include "logging/qloggerwriter.h"

#include "logging/qloggermanager.h"
#include "support/cancellation.h"
#include "support/utils.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringConverter>

#include <exception>
#include <mutex>
#include <string>

using namespace Qt::StringLiterals;

namespace QLogger {

namespace {

constexpr qint64 LARGEST_SIZE_KEPT = 1048575; // bytes; one more is 1 MiB

/**
 * One lock for all writers, since two of them may share a file. Never destroyed: other threads may
 * log while exit() runs.
 */
std::mutex &writeLock()
{
    static auto &lock = *new std::mutex;
    return lock;
}

/** Does not seek in devices: opening for append seeks, and Qt then warns on stderr. */
class LogFile : public QFile
{
public:
    using QFile::QFile;
    bool seek(qint64 offset) override { return isSequential() || QFile::seek(offset); }
};

/** Called for every message, although nothing here writes to the directory. */
void createLogsDirectory()
{
    const QString name = u"logs"_s;
    if (!QFile::exists(name))
        QDir().mkdir(name);
}

/** "31-12-2024 23:59:59.999". QDateTime would parse a format for each line. */
QString timeStamp(const QDateTime &at)
{
    const QDate date = at.date();
    const QTime time = at.time();
    const struct
    {
        int value;
        unsigned int width;
        const char *after;
    } parts[] = {
        { date.day(), 2, "-" },  { date.month(), 2, "-" },  { date.year(), 4, " " },
        { time.hour(), 2, ":" }, { time.minute(), 2, ":" }, { time.second(), 2, "." },
        { time.msec(), 3, "" },
    };
    std::string text;
    for (const auto &part : parts)
        text.append(IntToStr(part.value, part.width, '0')).append(part.after);
    return QString::fromStdString(text);
}

/** Moves a full log file and returns its new name; empty when it is not full or did not move. */
QString rotate(const QString &fileDestination)
{
    if (QFileInfo(fileDestination).size() <= LARGEST_SIZE_KEPT)
        return {};
    const QString target = rotatedName(fileDestination, QDateTime::currentDateTime());
    return QFile::rename(fileDestination, target) ? target : QString();
}

} // namespace

QString rotatedName(const QString &fileDestination, const QDateTime &at)
{
    // Without any "." the index is -1, and left() takes everything.
    const QString base = fileDestination.left(fileDestination.lastIndexOf(u'.'));
    return base + u"_%1__%2.log"_s.arg(at.toString(u"dd_MM_yy"_s), at.toString(u"hh_mm_ss"_s));
}

QLoggerWriter::QLoggerWriter(const QString &fileDestination, LogLevel level)
    : m_fileDestination(fileDestination)
    , m_level(level)
{}

void QLoggerWriter::write(const QString &module, const QString &message)
{
    const CancellationHold hold;
    const std::lock_guard guard(writeLock());
    try {
        createLogsDirectory();
        if (!m_fileDestination.isEmpty()) // not a file name; Qt would warn about it
            append(module, message);
    } catch (const std::exception &) {
        // Out of memory. Callers log from their own exception handlers: the message is lost.
    }
}

void QLoggerWriter::append(const QString &module, const QString &message) const
{
    const QString previous = rotate(m_fileDestination);
    LogFile file(m_fileDestination);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Append | QIODevice::Text))
        return;

    const QString now = timeStamp(QDateTime::currentDateTime());
    QString text;
    if (!previous.isEmpty())
        text = u"%1 - Previous log %2\n"_s.arg(now, previous);
    text += u"[%1] [%2] {%3} %4\n"_s.arg(now, QLoggerManager::levelToText(getLogLevel()), module,
                                         message);
    // Both lines in one write. Not through QTextStream, which crashes when it runs out of memory
    // while it attaches to the file; the encoding is the same.
    QStringEncoder encoder(QStringEncoder::Utf8);
    file.write(encoder(text));
}

} // namespace QLogger
