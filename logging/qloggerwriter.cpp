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

namespace QLogger {

namespace {

constexpr qint64 LARGEST_SIZE_KEPT = 1048575; // bytes; one more is 1 MiB

/**
 * One lock for all writers, since two of them may share a file. Never destroyed: other threads may
 * still be logging while exit() takes the process down.
 */
std::mutex &writeLock()
{
    static auto &lock = *new std::mutex;
    return lock;
}

/** Opening in order to append seeks, of which Qt warns on stderr where the "file" is a device. */
class LogFile : public QFile
{
public:
    using QFile::QFile;
    bool seek(qint64 offset) override { return isSequential() || QFile::seek(offset); }
};

/** Every message sees to it that the directory is there; nothing is ever put into it here. */
void createLogsDirectory()
{
    const QString name = QStringLiteral("logs");
    if (!QFile::exists(name))
        QDir().mkdir(name);
}

/** "31-12-2024 23:59:59.999". QDateTime would work its way through a format for each line. */
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

/** The name under which a full log file now lies; empty when it was not full or did not move. */
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
    return base
           + QStringLiteral("_%1__%2.log")
                     .arg(at.toString(QStringLiteral("dd_MM_yy")),
                          at.toString(QStringLiteral("hh_mm_ss")));
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
        if (!m_fileDestination.isEmpty()) // no file has this name, and Qt would warn of it
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
        text = QStringLiteral("%1 - Previous log %2\n").arg(now, previous);
    text += QStringLiteral("[%1] [%2] {%3} %4\n")
                    .arg(now, QLoggerManager::levelToText(getLogLevel()), module, message);
    // As one piece, which reaches the file in one write. Encoded as a text stream encodes, but without
    // the stream, which does not survive a lack of memory while it connects itself to the file.
    QStringEncoder encoder(QStringEncoder::Utf8);
    file.write(encoder(text));
}

} // namespace QLogger
