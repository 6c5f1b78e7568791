#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_LOGFILE_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_LOGFILE_H

#include "logging/loglevel.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

class QString;

/** The log's files, oldest first: the rotated ones, then the current one. */
[[nodiscard]] std::vector<std::string> logFiles(const std::string &log);

/**
 * The level of a line's message. The line itself shows the level of the log instead.
 * The plug-in logs failures at Error and everything else at Info.
 */
[[nodiscard]] QLogger::LogLevel levelOfLine(std::string_view line);

/** "fatal, error, warning, info, debug or trace". */
[[nodiscard]] std::string levelNames();

/** Whether it is the name of a level, in upper or lower case. */
[[nodiscard]] bool isLevelName(const QString &name);

/** What is wrong with the name of a level; empty when nothing is. */
[[nodiscard]] std::string checkLevel(const std::string &name);

/** Reads a log file and then what is added to it, also after a rotation. */
class LogFollower
{
public:
    explicit LogFollower(std::string name);
    ~LogFollower();
    LogFollower(const LogFollower &) = delete;
    LogFollower &operator=(const LogFollower &) = delete;

    /** Readable when something may have been added. */
    [[nodiscard]] int descriptor() const { return m_events; }
    /** Calls `line` for each complete line since the last call, without its end. */
    void read(const std::function<void(std::string_view)> &line);

private:
    void readLines(const std::function<void(std::string_view)> &line);

    std::string m_name;
    int m_events;
    int m_file;
    std::string m_rest; // a line whose end is not yet there
};

#endif
