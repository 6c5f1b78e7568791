// The operator's tool: shows what the plug-in would see and send, makes a computer ready for it, and
// finds what keeps it from reporting.

#include "logging/loglevel.h"
#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/completions.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/terminal.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>

namespace {

constexpr int STATUS_PROBLEM = 1;
constexpr int STATUS_USAGE = 2;

constexpr char AUTHORIZATION_ENDPOINT[] = "https://accounts.google.com/o/oauth2/device/code";
constexpr char SCOPE[] = "email";
const std::string LEVELS = CLI::detail::join(QLogger::logLevelWords(), ", ");
const CLI::IsMember isLevel(QLogger::logLevelWords(), CLI::ignore_case);
constexpr double SHORTEST_WATCH = 0.1; // seconds
constexpr double LONGEST_WATCH = 3600;

// A validator's answer is what is wrong, or nothing.

std::string isCount(const std::string &text)
{
    constexpr std::size_t MOST_DIGITS = 9;
    const bool isGood = !text.empty() && text.size() <= MOST_DIGITS
                        && text.find_first_not_of("0123456789") == std::string::npos;
    return isGood ? "" : text + " is no whole number";
}

std::string isNumber(const std::string &text)
{
    return std::isfinite(std::strtod(text.c_str(), nullptr)) ? "" : text + " is no number";
}

/** All commands with their options, and the one that the command line names. */
class Program
{
public:
    Program()
    {
        m_app.set_version_flag("--version", "pelcloudctl " PELCLOUDCTL_VERSION);
        m_app.add_option("-C,--directory", m_directory,
                         "The suite's installation directory; without it, the one that "
                         "/etc/pelorin.conf names")
                ->type_name("DIR");
        m_app.require_subcommand(1);
        m_app.fallthrough();
        m_app.footer(
                "Exit status: 0 all is well, 1 there is a problem, 2 the command line is wrong.\n"
                "'pelcloudctl COMMAND --help' tells of one command.");
        addStatus();
        addEnroll();
        addCheck();
        addExplain();
        addRun();
        addLog();
        addCompletions();
    }

    int run(int argc, char **argv)
    {
        try {
            m_app.parse(argc, argv);
        } catch (const CLI::ParseError &problem) {
            const bool isHelp = m_app.exit(problem) == 0;
            if (!std::cout.flush())
                throw Problem("cannot write the output");
            return isHelp ? EXIT_SUCCESS : STATUS_USAGE;
        }
        return m_command();
    }

private:
    CLI::App *add(const char *name, const char *description, const char *examples)
    {
        CLI::App *const command = m_app.add_subcommand(name, description);
        command->footer(std::string("Examples:\n").append(examples));
        return command;
    }

    template <class Options>
    void onParsed(CLI::App *command, Options &options)
    {
        command->callback([this, &options] {
            options.directory = m_directory;
            m_command = [&options] { return Commands::run(options); };
        });
    }

    void addStatus()
    {
        CLI::App *const command =
                add("status", "Show what the suite says of every UPS now",
                    "  pelcloudctl status --watch\n"
                    "  pelcloudctl status --json | jq '.devices[].vars.cBattery'");
        command->add_flag("-w,--watch", m_status.isWatching, "Look again and again until Ctrl-C");
        command->add_option("--interval", m_status.seconds, "Seconds between two looks")
                ->check(CLI::Validator(isNumber, "SECONDS"))
                ->check(CLI::Range(SHORTEST_WATCH, LONGEST_WATCH))
                ->capture_default_str();
        command->add_flag("--json", m_status.isJson, "Print the objects that the cloud would get");
        onParsed(command, m_status);
    }

    void addEnroll()
    {
        CLI::App *const command = add("enroll", "Make this computer ready to report to a cloud",
                                      "  pelcloudctl enroll\n"
                                      "  pelcloudctl enroll --home https://monitoring.example "
                                      "--computer gatehouse-pc \\\n"
                                      "      --client 1234.apps --secret-file ./secret");
        const auto option = [command](const char *name, std::string &value, const char *type,
                                      const char *description) {
            return command->add_option(name, value, description)->type_name(type);
        };
        m_enroll.authorizationEndpoint = AUTHORIZATION_ENDPOINT;
        m_enroll.scope = SCOPE;
        option("--home", m_enroll.home, "URL", "The cloud's address; without it, asked for");
        option("--computer", m_enroll.computer, "ID",
               "This computer's identifier in the cloud; without it, asked for");
        option("--client", m_enroll.client, "ID", "OAuth client identifier; without it, asked for");
        option("--secret-file", m_enroll.secretFile, "FILE",
               "A file whose first line is the client secret; without it, asked for")
                ->check(CLI::ExistingFile);
        option("--authorization-endpoint", m_enroll.authorizationEndpoint, "URL",
               "Where a device asks to be enrolled")
                ->capture_default_str();
        option("--scope", m_enroll.scope, "WORDS", "What the enrolment asks for")
                ->capture_default_str();
        command->add_flag("--no-wait", m_enroll.isLeftToPlugin,
                          "Write the device code at once; the plug-in waits for the approval");
        command->add_flag("--no-qr", m_enroll.isWithoutQrCode, "Show no QR code");
        onParsed(command, m_enroll);
    }

    void addCheck()
    {
        CLI::App *const command = add("check", "Find what keeps this computer from reporting",
                                      "  pelcloudctl check\n"
                                      "  pelcloudctl check --json | jq '.findings[].remedy'");
        m_check.plugin = PELCLOUD_PLUGIN_FILE;
        command->add_option("--plugin", m_check.plugin, "Where the plug-in is installed")
                ->type_name("FILE")
                ->capture_default_str();
        command->add_flag("--json", m_check.isJson, "Print the findings for a program");
        onParsed(command, m_check);
    }

    void addExplain()
    {
        CLI::App *const command =
                add("explain", "Show how one UPS's record becomes a report, field by field",
                    "  pelcloudctl explain 1\n"
                    "  pelcloudctl explain | grep Battery");
        // As text, which CLI11 would read as C reads numbers: 010 is the UPS that is called 010.
        command->add_option("UNIT", m_unit, "The UPS's number, from 0 on")
                ->check(CLI::Validator(isCount, "NUMBER"))
                ->capture_default_str();
        command->callback([this] {
            m_explain.directory = m_directory;
            m_explain.unit = std::stoul(m_unit);
            m_command = [this] { return Commands::run(m_explain); };
        });
    }

    void addRun()
    {
        CLI::App *const command = add("run", "Report from here, with the log on the terminal",
                                      "  pelcloudctl run --once\n"
                                      "  pelcloudctl log-level info && pelcloudctl run");
        command->add_flag("--once", m_run.isOnce,
                          "Make a single run, and say what was sent and how the server answered");
        onParsed(command, m_run);
    }

    void addLog()
    {
        CLI::App *const command = add("log", "Read the plug-in's log, the oldest lines first",
                                      "  pelcloudctl log --follow\n"
                                      "  pelcloudctl log --level error --lines 20");
        command->add_flag("-f,--follow", m_log.isFollowing, "Wait for more until Ctrl-C");
        command->add_option("--level", m_log.level, "Only what matters at least so much: " + LEVELS)
                ->type_name("LEVEL")
                ->check(isLevel);
        command->add_option("-n,--lines", m_log.lines, "Only the last so many lines")
                ->check(CLI::Validator(isCount, ""))
                ->type_name("N");
        onParsed(command, m_log);

        CLI::App *const level = add("log-level", "Show or change how much the plug-in logs",
                                    "  pelcloudctl log-level\n"
                                    "  pelcloudctl log-level info");
        level->add_option("LEVEL", m_logLevel.level, LEVELS)->check(isLevel);
        onParsed(level, m_logLevel);
    }

    void addCompletions()
    {
        CLI::App *const command =
                add("completions", "Print what lets a shell complete this program",
                    "  source <(pelcloudctl completions bash)");
        command->add_option("SHELL", m_shell, "bash, zsh or fish")
                ->required()
                ->check(CLI::IsMember({ "bash", "zsh", "fish" }));
        command->callback([this] {
            m_command = [this] {
                Terminal::print(completionsFor(m_shell, m_app));
                return EXIT_SUCCESS;
            };
        });
    }

    CLI::App m_app{ "Looks after the plug-in that reports this computer's UPSs to a cloud.",
                    "pelcloudctl" };
    std::string m_directory;
    Commands::Status m_status;
    Commands::Enroll m_enroll;
    Commands::Check m_check;
    Commands::Explain m_explain;
    Commands::Run m_run;
    Commands::Log m_log;
    Commands::LogLevel m_logLevel;
    std::string m_shell;
    std::string m_unit = "0";
    std::function<int()> m_command;
};

} // namespace

int main(int argc, char **argv)
{
    try {
        std::signal(SIGPIPE, SIG_DFL); // whoever reads us may have had enough
        return Program().run(argc, argv);
    } catch (const Problem &problem) {
        std::fprintf(stderr, "pelcloudctl: %s\n", problem.what());
        if (!problem.remedy().empty())
            std::fprintf(stderr, "%s\n", problem.remedy().c_str());
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "pelcloudctl: %s\n", problem.what());
    }
    return STATUS_PROBLEM;
}
