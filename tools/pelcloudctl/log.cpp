#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/logfile.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/terminal.h"

#include <cerrno>
#include <deque>
#include <fstream>
#include <memory>
#include <optional>
#include <poll.h>
#include <utility>

#include <QString>

namespace {

using QLogger::LogLevel;

struct Options
{
    bool isFollowing = false;
    std::string level = "trace";      // the minimum
    std::optional<std::size_t> lines; // only the last of them
};

std::string shown(std::string_view line)
{
    using Terminal::Colour;
    const bool isFailure = levelOfLine(line) == LogLevel::Error;
    return Terminal::painted(isFailure ? Colour::Red : Colour::Plain, Terminal::printable(line));
}

/** Prints lines of a minimum level; with a limit only the last ones, in flush(). */
class Printer
{
public:
    Printer(LogLevel minimum, std::optional<std::size_t> limit)
        : m_minimum(minimum)
        , m_limit(limit)
    {}

    void add(std::string_view line)
    {
        if (levelOfLine(line) < m_minimum)
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
    LogLevel m_minimum;
    std::optional<std::size_t> m_limit;
    std::deque<std::string> m_last;
};

void addFile(const std::string &name, Printer &printer)
{
    std::ifstream file(name);
    if (!file)
        throw Problem("cannot read " + name + ": " + errorWords(errno),
                      "Run this as the service manager's account or as root.");
    for (std::string line; std::getline(file, line);)
        printer.add(line);
}

int run(const Installation &installation, const Options &options)
{
    Printer printer(QLogger::logLevelFromText(QString::fromStdString(options.level)),
                    options.lines);
    const std::string log = installation.log();
    std::optional<LogFollower> follower; // reads the newest file too, so that no line is missed
    if (options.isFollowing)
        follower.emplace(log);
    const std::vector<std::string> files = logFiles(log);
    if (files.empty() && !follower)
        throw Problem("file not found: " + log,
                      "Nothing is logged by default; enable it with 'pelcloudctl log-level info'.");
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

} // namespace

void addLog(Program &program)
{
    const auto options = std::make_shared<Options>();
    CLI::App *const command = program.add(
            "log", "Print the plug-in's log, oldest lines first",
            "  pelcloudctl log --follow\n"
            "  pelcloudctl log --level error --lines 20",
            [&program, options] { return run(findInstallation(program.directory()), *options); });
    command->add_flag("-f,--follow", options->isFollowing, "Wait for new lines until interrupted");
    command->add_option("--level", options->level, "Minimum level: " + levelNames())
            ->check(checkLevel)
            ->type_name("LEVEL");
    command->add_option("-n,--lines", options->lines, "Print only the last N lines")
            ->check(checkWholeNumber)
            ->type_name("N");
}
