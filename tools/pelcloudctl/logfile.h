#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_LOGFILE_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_LOGFILE_H

#include "logging/loglevel.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

/** The log's files: those that were moved aside when they were full, the oldest first, then its own. */
[[nodiscard]] std::vector<std::string> logFiles(const std::string &log);

/**
 * The level that a line's message was written at, which the line does not show: it shows that of the
 * log. The plug-in tells of failures at Error and of everything else at Info.
 */
[[nodiscard]] QLogger::LogLevel levelOfLine(std::string_view line);

/** The level of this name, in any case; a Problem when there is none. */
[[nodiscard]] QLogger::LogLevel levelNamed(const std::string &name);

/** Reads what is added to a file, also after it was moved aside and begun anew. */
class LogFollower
{
public:
    enum class From { Beginning, End }; // of the file as it is now

    LogFollower(std::string name, From from);
    ~LogFollower();
    LogFollower(const LogFollower &) = delete;
    LogFollower &operator=(const LogFollower &) = delete;

    /** Readable when something may have been added. */
    [[nodiscard]] int descriptor() const { return m_events; }
    /** The whole lines that were added since, without their ends. */
    void read(const std::function<void(std::string_view)> &line);

private:
    void readOn(const std::function<void(std::string_view)> &line);

    std::string m_name;
    int m_events;
    int m_file;
    std::string m_rest; // of a line whose end has not come
};

#endif
