#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_COMMANDS_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_COMMANDS_H

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

/** The command line, to which each command adds itself. */
class Program
{
public:
    Program();

    /** Parses the command line and runs the command that it names; gives the exit status. */
    int run(int argc, char **argv);

    /**
     * Adds a command, whose options the caller then adds to the result. `run` is called after
     * parsing: it prints to standard output, throws a Problem when it fails, and gives the exit
     * status.
     */
    CLI::App *add(const char *name, const char *description, const char *examples,
                  std::function<int()> run);

    [[nodiscard]] CLI::App &parser() { return m_parser; }
    /** The value of --directory, once the command line is parsed; empty without it. */
    [[nodiscard]] const std::string &directory() const { return m_directory; }

private:
    CLI::App m_parser;
    std::string m_directory;
    std::function<int()> m_command;
};

/** What is wrong with the text of a whole number; empty when nothing is. */
[[nodiscard]] std::string checkWholeNumber(const std::string &text);

// Each command in a file of its own, in the order of the help.
void addStatus(Program &program);
void addEnroll(Program &program);
void addCheck(Program &program);
void addExplain(Program &program);
void addRun(Program &program);
void addLog(Program &program);
void addLogLevel(Program &program);
void addCompletions(Program &program);

#endif
