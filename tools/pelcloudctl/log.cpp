#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/logfile.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/terminal.h"

#include <cerrno>
#include <deque>
#include <fstream>
#include <optional>
#include <poll.h>
#include <utility>

#include <QJsonObject>

namespace {

using QLogger::LogLevel;

std::string shown(std::string_view line)
{
    using Terminal::Colour;
    const bool isFailure = levelOfLine(line) == LogLevel::Error;
    return Terminal::painted(isFailure ? Colour::Red : Colour::Plain, Terminal::printable(line));
}

/** Shows the lines that matter enough; with a limit, only the last so many until flush(). */
class Printer
{
public:
    Printer(LogLevel least, std::optional<std::size_t> limit)
        : m_least(least)
        , m_limit(limit)
    {}

    void add(std::string_view line)
    {
        if (levelOfLine(line) < m_least)
            return;
        if (!m_limit) {
            Terminal::print(shown(line).append("\n"));
            return;
        }
        m_last.emplace_back(line);
        if (m_last.size() > *m_limit)
            m_last.pop_front();
    }
    void flush()
    {
        m_limit.reset();
        for (const std::string &line : std::exchange(m_last, {}))
            add(line);
    }

private:
    LogLevel m_least;
    std::optional<std::size_t> m_limit;
    std::deque<std::string> m_last;
};

void addFile(const std::string &name, Printer &printer)
{
    std::ifstream file(name);
    if (!file)
        throw Problem("cannot read " + name + ": " + errorWords(errno),
                      "Run this as the account that the service manager runs as, or as root.");
    for (std::string line; std::getline(file, line);)
        printer.add(line);
}

} // namespace

int Commands::run(const Log &options)
{
    Printer printer(levelNamed(options.level), options.lines);
    const Installation installation = findInstallation(options.directory);
    const std::string log = installation.log();
    std::optional<LogFollower> follower; // it reads the newest file, so that no line is missed
    if (options.isFollowing)
        follower.emplace(log, LogFollower::From::Beginning);
    const std::vector<std::string> files = logFiles(log);
    if (files.empty() && !follower)
        throw Problem("there is no " + log,
                      "The log is silent unless told otherwise: pelcloudctl log-level info");
    for (const std::string &name : files) {
        if (name != log || !follower)
            addFile(name, printer);
    }
    const auto add = [&printer](std::string_view line) { printer.add(line); };
    if (follower)
        follower->read(add);
    printer.flush();
    while (follower) {
        pollfd events{ follower->descriptor(), POLLIN, 0 };
        poll(&events, 1, -1);
        follower->read(add);
    }
    return 0;
}

int Commands::run(const LogLevel &options)
{
    const Installation installation = findInstallation(options.directory);
    if (options.level.empty()) {
        const QString text =
                readConfiguration(installation.config())[QLatin1String("log")].toString();
        Terminal::print(text.isEmpty() ? "fatal\n" : Terminal::printable(text.toLower()) + "\n");
        return 0;
    }
    static_cast<void>(levelNamed(options.level));
    changeConfiguration(installation.config(), "log", options.level);
    Terminal::print("The log's level is " + options.level + ", from the plug-in's next run on.\n");
    return 0;
}
