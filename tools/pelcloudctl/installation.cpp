#include "tools/pelcloudctl/installation.h"

#include "plugin/configfile.h"
#include "plugin/constants.h"
#include "support/cfgclass.h"
#include "support/config.h"
#include "support/utils.h"
#include "tools/pelcloudctl/problem.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

namespace {

constexpr const char *ENROL_HINT = "Run 'pelcloudctl enroll'.";

bool exists(const std::string &name)
{
    std::error_code error;
    return std::filesystem::exists(name, error);
}

QString decoded(const std::string &name)
{
    return QFile::decodeName(name.c_str());
}

/** All bytes of a regular file; a Problem when that fails. */
QByteArray contentOf(const std::string &name)
{
    struct stat status = {};
    if (stat(name.c_str(), &status) != 0) {
        const int error = errno;
        throw Problem("cannot read " + name + ": " + errorWords(error),
                      error == ENOENT ? ENROL_HINT : "");
    }
    if (!S_ISREG(status.st_mode))
        throw Problem("cannot read " + name + ": not a regular file", "Remove or rename it.");
    QFile file(decoded(name));
    if (!file.open(QIODevice::ReadOnly))
        throw Problem("cannot read " + name + ": " + file.errorString().toStdString(),
                      "Run this as the service manager's account or as root.");
    return file.readAll();
}

QJsonObject parsed(const std::string &name, const QByteArray &bytes)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (bytes.isEmpty())
        throw Problem("cannot read " + name + ": empty file", ENROL_HINT);
    if (error.error != QJsonParseError::NoError) {
        const auto line = bytes.left(error.offset).count('\n') + 1;
        throw Problem("cannot read " + name + ": invalid JSON in line " + std::to_string(line)
                              + ": " + error.errorString().toStdString(),
                      "Correct the file, or remove it and run 'pelcloudctl enroll'.");
    }
    if (!document.isObject())
        throw Problem("cannot read " + name + ": not a JSON object", ENROL_HINT);
    return document.object();
}

/** A new file in the directory of another one, which commit() replaces; removed without that. */
class Replacement
{
public:
    explicit Replacement(const std::string &name)
        : m_target(resolved(name))
        , m_name(m_target + ".XXXXXX")
        , m_file(mkostemp(m_name.data(), O_CLOEXEC))
    {
        if (m_file < 0)
            throw Problem("cannot create a file in " + ExtractFilePath(m_target) + ": "
                                  + errorWords(errno),
                          "Run this as root, or as the owner of the directory.");
        struct stat status = {};
        if (stat(m_target.c_str(), &status) != 0)
            return;
        m_mode = status.st_mode & 07777U;
        // Only root may change the owner; without that, the new file's owner must be right already.
        const bool isOurs = status.st_uid == geteuid()
                            && (status.st_gid == getegid() || (status.st_mode & 070U) == 0);
        if (fchown(m_file, status.st_uid, status.st_gid) != 0 && !isOurs) {
            const int error = errno;
            remove();
            throw Problem("cannot keep the owner of " + m_target + ": " + errorWords(error),
                          "Run this as root, or as the owner of the file.");
        }
    }
    ~Replacement()
    {
        if (m_file >= 0)
            remove();
    }
    Replacement(const Replacement &) = delete;
    Replacement &operator=(const Replacement &) = delete;

    [[nodiscard]] const std::string &name() const { return m_name; }

    void keepMode()
    {
        if (m_mode)
            fchmod(m_file, *m_mode);
    }
    void write(const QByteArray &bytes)
    {
        for (qsizetype done = 0; done < bytes.size();) {
            const ssize_t count = ::write(m_file, bytes.constData() + done,
                                          static_cast<std::size_t>(bytes.size() - done));
            if (count < 0)
                fail();
            done += count;
        }
        sync();
    }
    void sync()
    {
        if (fsync(m_file) != 0)
            fail();
    }
    /** Replaces the other file; the bytes must be on the disk. */
    void commit()
    {
        if (rename(m_name.c_str(), m_target.c_str()) != 0)
            fail();
        close(std::exchange(m_file, -1));
        const std::string directory = ExtractFilePath(m_target);
        if (const int parent = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            parent >= 0) {
            fsync(parent);
            close(parent);
        }
    }
    [[noreturn]] void fail(int error = errno) const
    {
        throw Problem("cannot write " + m_target + ": " + errorWords(error) + "; it is unchanged",
                      "Check that the disk is not full and the directory is writable.");
    }

private:
    /** The file that the name leads to: a symbolic link stays one. */
    static std::string resolved(const std::string &name)
    {
        std::error_code error;
        const auto path = std::filesystem::canonical(name, error);
        return error ? name : path.string();
    }
    void remove()
    {
        unlink(m_name.c_str());
        close(m_file);
    }

    std::string m_target;
    std::string m_name;
    int m_file;
    std::optional<mode_t> m_mode;
};

} // namespace

std::string Installation::config() const
{
    return directory + Constants::CONFIG_FILENAME.toStdString();
}

std::string Installation::log() const
{
    return directory + Constants::LOG_FILENAME.toStdString();
}

std::string Installation::library() const
{
    return directory + "upscli.so";
}

Installation findInstallation(const std::string &option)
{
    Installation found;
    if (!option.empty()) {
        const std::string path = std::filesystem::absolute(option).lexically_normal();
        found = { IncludePathDelimiter(path), "--directory" };
        SetPelorinPath(path);
    } else {
        RegCfgClass suite;
        suite.SetFileName("/etc/pelorin.conf", false);
        suite.SetSection("PELORIN");
        const bool isNamed = !suite.ReadStr("PATH", "").empty();
        found = { GetPelorinPath(), isNamed ? "/etc/pelorin.conf" : "the program's directory" };
        if (!isNamed && !exists(found.library()) && !exists(found.config()))
            throw Problem("unknown installation directory: no PATH in /etc/pelorin.conf",
                          "Give the suite's directory with --directory.");
    }
    std::error_code error;
    if (!std::filesystem::is_directory(found.directory, error))
        throw Problem("not a directory: " + found.directory + " (from " + found.origin + ")",
                      "Give the suite's directory with --directory.");
    return found;
}

QJsonObject readConfiguration(const std::string &name)
{
    return parsed(name, contentOf(name));
}

void replaceConfiguration(const std::string &name, const QJsonObject &object)
{
    Replacement file(name);
    errno = 0;
    if (writeConfigFile(decoded(file.name()), object) != ConfigWriting::Done)
        file.fail(errno != 0 ? errno : ENOSPC);
    file.sync();
    file.commit();
}

void checkReplaceable(const std::string &name)
{
    const Replacement probe(name);
}

void changeConfiguration(const std::string &name, const char *key, const QString &value)
{
    constexpr int ATTEMPTS = 10;
    for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
        const QByteArray before = contentOf(name);
        QJsonObject object = parsed(name, before);
        object.insert(QLatin1String(key), value);
        Replacement file(name);
        file.keepMode();
        // Not with WriteConfigFile(), which rounds the numbers of other keys.
        file.write(QJsonDocument(object).toJson());
        if (contentOf(name) == before) { // else the plug-in has just stored a new token
            file.commit();
            return;
        }
    }
    throw Problem("cannot write " + name + ": another program keeps changing it", "Try again.");
}
