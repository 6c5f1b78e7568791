#include "tools/pelcloudctl/logfile.h"

#include "support/utils.h"
#include "tools/pelcloudctl/problem.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <QDateTime>
#include <QString>

using namespace Qt::StringLiterals;

std::vector<std::string> logFiles(const std::string &log)
{
    const std::filesystem::path path(log);
    const std::string prefix = path.stem().string() + "_";
    std::vector<std::pair<QDateTime, std::string>> rotated;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(path.parent_path(), error)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(prefix) || !name.ends_with(".log"))
            continue;
        // Qt reads a year of two digits as 19xx.
        const QString time =
                QString::fromStdString(name.substr(prefix.size(), name.size() - prefix.size() - 4));
        const QDateTime at = QDateTime::fromString(time, u"dd_MM_yy__hh_mm_ss"_s).addYears(100);
        if (at.isValid())
            rotated.emplace_back(at, entry.path().string());
    }
    std::sort(rotated.begin(), rotated.end());
    std::vector<std::string> files;
    files.reserve(rotated.size() + 1);
    for (auto &[at, name] : rotated)
        files.push_back(std::move(name));
    if (std::filesystem::exists(path, error))
        files.push_back(log);
    return files;
}

QLogger::LogLevel levelOfLine(std::string_view line)
{
    const std::size_t module = line.find("} ");
    const std::string_view message = module == std::string_view::npos ? line : line.substr(module);
    const auto has = [message](std::string_view text) {
        return message.find(text) != std::string_view::npos;
    };
    const bool isNaming = has("} Computer: ") || has("} Device: "); // names may hold any text
    const bool isFailure = !isNaming && (has("Error ") || has(" error"));
    return isFailure ? QLogger::LogLevel::Error : QLogger::LogLevel::Info;
}

std::string levelNames()
{
    const std::vector<std::string> words = QLogger::logLevelWords();
    std::string text = words.front();
    for (std::size_t i = 1; i < words.size(); ++i)
        text.append(i + 1 < words.size() ? ", " : " or ").append(words[i]);
    return text;
}

bool isLevelName(const QString &name)
{
    return QLogger::logLevelNamed(name).has_value();
}

std::string checkLevel(const std::string &name)
{
    return isLevelName(QString::fromStdString(name)) ? "" : "not a log level: " + name;
}

LogFollower::LogFollower(std::string name)
    : m_name(std::move(name))
    , m_events(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    , m_file(open(m_name.c_str(), O_RDONLY | O_CLOEXEC))
{
    const std::string directory = ExtractFilePath(m_name);
    if (m_events < 0
        || inotify_add_watch(m_events, directory.c_str(),
                             IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_CLOSE_WRITE)
                   < 0)
        throw Problem("cannot watch " + directory + ": " + errorWords(errno));
}

LogFollower::~LogFollower()
{
    close(m_events);
    if (m_file >= 0)
        close(m_file);
}

void LogFollower::read(const std::function<void(std::string_view)> &line)
{
    char events[4096];
    while (::read(m_events, events, sizeof events) > 0) // only wake-ups: the files have the news
        continue;
    readLines(line);
    const int current = open(m_name.c_str(), O_RDONLY | O_CLOEXEC);
    if (current < 0)
        return;
    struct stat ours = {};
    struct stat theirs = {};
    const bool isSame = m_file >= 0 && fstat(m_file, &ours) == 0 && fstat(current, &theirs) == 0
                        && ours.st_ino == theirs.st_ino && ours.st_dev == theirs.st_dev
                        && theirs.st_size >= lseek(m_file, 0, SEEK_CUR);
    if (isSame) {
        close(current);
        return;
    }
    readLines(line); // the last ones before the rotation
    if (m_file >= 0)
        close(m_file);
    m_file = current;
    m_rest.clear();
    readLines(line);
}

void LogFollower::readLines(const std::function<void(std::string_view)> &line)
{
    char bytes[65536];
    for (ssize_t count = 0; m_file >= 0 && (count = ::read(m_file, bytes, sizeof bytes)) > 0;) {
        m_rest.append(bytes, static_cast<std::size_t>(count));
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = m_rest.find('\n', begin)) != std::string::npos;
             begin = end + 1)
            line(std::string_view(m_rest).substr(begin, end - begin));
        m_rest.erase(0, begin);
    }
}
