// The operator's tool: shows what the plug-in would see and send, enrols a computer, and finds what
// prevents it from reporting.

#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/problem.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <utility>

namespace {

constexpr int STATUS_PROBLEM = 1;
constexpr int STATUS_USAGE = 2;

// In the order of the help.
constexpr void (*COMMANDS[])(Program &) = {
    addStatus, addEnroll, addCheck, addExplain, addRun, addLog, addLogLevel, addCompletions,
};

std::string usageMessage(const CLI::App *parser, const CLI::Error &error)
{
    const std::vector<CLI::App *> commands = parser->get_subcommands();
    const std::vector<std::string> rest = parser->remaining();
    // The library reports only that a command is missing.
    const bool isUnknown = commands.empty() && !rest.empty();
    return "pelcloudctl: "
           + (isUnknown ? "unknown command or option: " + rest.front() : error.what())
           + "\nRun 'pelcloudctl " + (commands.empty() ? "" : commands.front()->get_name() + " ")
           + "--help' for details.\n";
}

} // namespace

Program::Program()
    : m_parser("Manages the plug-in that reports this computer's UPSs to a cloud.", "pelcloudctl")
{
    m_parser.set_version_flag("--version", "pelcloudctl " PELCLOUDCTL_VERSION,
                              "Print the version and exit");
    m_parser.add_option("-C,--directory", m_directory,
                        "Installation directory of the suite (default: from /etc/pelorin.conf)")
            ->type_name("DIR");
    m_parser.require_subcommand(1);
    m_parser.fallthrough();
    m_parser.get_formatter()->label("SUBCOMMAND", "COMMAND");
    m_parser.failure_message(usageMessage);
    m_parser.footer("Exit status: 0 success, 1 problem, 2 wrong usage.\n"
                    "Run 'pelcloudctl COMMAND --help' for details.");
}

int Program::run(int argc, char **argv)
{
    try {
        m_parser.parse(argc, argv);
    } catch (const CLI::ParseError &problem) {
        const bool isHelp = m_parser.exit(problem) == 0;
        if (!std::cout.flush())
            throw Problem("cannot write the output");
        return isHelp ? EXIT_SUCCESS : STATUS_USAGE;
    }
    return m_command();
}

CLI::App *Program::add(const char *name, const char *description, const char *examples,
                       std::function<int()> run)
{
    CLI::App *const command = m_parser.add_subcommand(name, description);
    command->footer(std::string("Examples:\n").append(examples));
    command->callback([this, run = std::move(run)] { m_command = run; });
    return command;
}

std::string checkWholeNumber(const std::string &text)
{
    constexpr std::size_t MAX_DIGITS = 9;
    const bool isGood = !text.empty() && text.size() <= MAX_DIGITS
                        && text.find_first_not_of("0123456789") == std::string::npos;
    return isGood ? "" : "not a whole number: " + text;
}

int main(int argc, char **argv)
{
    try {
        std::signal(SIGPIPE, SIG_DFL); // end when the reader of a pipe has ended
        Program program;
        for (const auto add : COMMANDS)
            add(program);
        return program.run(argc, argv);
    } catch (const Problem &problem) {
        std::fprintf(stderr, "pelcloudctl: %s\n", problem.what());
        if (!problem.remedy().empty())
            std::fprintf(stderr, "%s\n", problem.remedy().c_str());
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "pelcloudctl: %s\n", problem.what());
    }
    return STATUS_PROBLEM;
}
