#include "plugin/configfile.h"

#include "support/cancellation.h"
#include "support/jsontext.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QString>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t OWNER_ONLY = S_IRUSR | S_IWUSR;

/** An open file, or -1; closed at the end of the scope. */
struct File
{
    explicit File(int opened)
        : descriptor(opened)
    {}
    ~File()
    {
        if (descriptor >= 0)
            close(descriptor);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    const int descriptor;
};

/** The result of a system call, which is repeated if a signal interrupts it. */
template <typename Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR)
        result = call();
    return result;
}

int opened(const QByteArray &path, int flags)
{
    return uninterrupted([&] { return open(path.constData(), flags | O_CLOEXEC, OWNER_ONLY); });
}

bool writeAt(int file, const QByteArray &bytes, qsizetype offset)
{
    for (qsizetype done = 0; done < bytes.size();) {
        const ssize_t count = uninterrupted([&] {
            return pwrite(file, bytes.constData() + done,
                          static_cast<std::size_t>(bytes.size() - done), offset + done);
        });
        if (count <= 0)
            return false;
        done += count;
    }
    return true;
}

bool resize(int file, qsizetype size)
{
    return uninterrupted([&] { return ftruncate(file, size); }) == 0;
}

bool sync(int file)
{
    return uninterrupted([&] { return fsync(file); }) == 0;
}

bool replaceContents(int file, const QByteArray &text)
{
    struct stat status = {};
    if (fstat(file, &status) != 0)
        return false;
    if (!S_ISREG(status.st_mode))
        return writeAt(file, text, 0);
    // Blanks after the old text are still the same JSON. Once they are on the disk, so is the space
    // for the new text, and overwriting them changes no size, which could reach the disk without it.
    const qsizetype oldSize = status.st_size;
    const qsizetype missing = std::max(text.size() - oldSize, qsizetype{ 0 });
    const bool hasSpace =
            missing == 0 || (writeAt(file, QByteArray(missing, ' '), oldSize) && sync(file));
    if (!hasSpace || !writeAt(file, text.leftJustified(oldSize, ' '), 0)) {
        const int reason = errno;
        resize(file, oldSize);
        errno = reason;
        return false;
    }
    return sync(file) && (text.size() >= oldSize || (resize(file, text.size()) && sync(file)));
}

bool syncDirectoryOf(const QString &name)
{
    // Of the file that a link leads to.
    const QString directory = QFileInfo(QFileInfo(name).canonicalFilePath()).path();
    const File file(opened(QFile::encodeName(directory), O_RDONLY | O_DIRECTORY));
    return file.descriptor >= 0 && sync(file.descriptor);
}

} // namespace

ConfigWriting writeConfigFile(const QString &name, const QJsonObject &object)
{
    const QByteArray text = ToJsonText(object);
    const QByteArray path = QFile::encodeName(name);
    const CancellationHold hold; // between two writes the file is not complete
    constexpr int FLAGS = O_WRONLY | O_NOCTTY | O_NONBLOCK; // a pipe must not block the run
    int descriptor = opened(path, FLAGS);
    const bool isNew = descriptor < 0 && errno == ENOENT;
    if (isNew)
        descriptor = opened(path, FLAGS | O_CREAT);
    const File file(descriptor);
    if (file.descriptor < 0)
        return ConfigWriting::NotOpened;
    const bool isWritten =
            (!isNew || fchmod(file.descriptor, OWNER_ONLY) == 0) // whatever the umask
            && replaceContents(file.descriptor, text) && (!isNew || syncDirectoryOf(name));
    return isWritten ? ConfigWriting::Done : ConfigWriting::NotWritten;
}
