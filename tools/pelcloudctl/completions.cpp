#include "tools/pelcloudctl/completions.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <string_view>

namespace {

using Describe = std::function<std::string(const CLI::Option &, const std::string &name)>;

bool isShown(const CLI::App *command)
{
    return !command->get_group().empty();
}

/** What `describe` says of each long option of the command and of the program. */
std::string optionsOf(const CLI::App &app, const CLI::App &command, const Describe &describe)
{
    std::string text;
    for (const CLI::App *const owner : { &command, &app }) {
        for (const CLI::Option *const option : owner->get_options()) {
            // The program's version is no matter of a command, and its help is the command's own.
            const bool isOurs = owner == &command
                                || option->get_lnames() == std::vector<std::string>{ "directory" };
            if (isOurs && !option->get_lnames().empty())
                text += describe(*option, option->get_lnames().front());
        }
    }
    return text;
}

bool takesValue(const CLI::Option &option)
{
    return option.get_expected_min() > 0;
}

std::string bash(CLI::App &app)
{
    std::string commands;
    std::string cases;
    for (const CLI::App *const command : app.get_subcommands(isShown)) {
        commands.append(commands.empty() ? "" : " ").append(command->get_name());
        cases.append("    ").append(command->get_name()).append(") words=\"");
        cases.append(optionsOf(app, *command, [](const CLI::Option &, const std::string &name) {
            return "--" + name + " ";
        }));
        cases.append("\" ;;\n");
    }
    return "# bash completion for pelcloudctl\n"
           "_pelcloudctl() {\n"
           "  local current=${COMP_WORDS[COMP_CWORD]} command= before= word words\n"
           "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
           "    case $before:$word in -C:* | --directory:* | *:-*) ;; *) command=$word; break ;; "
           "esac\n"
           "    before=$word\n"
           "  done\n"
           "  case $command in\n"
           "    '') words=\"--help --version "
           + commands + "\" ;;\n" + cases
           + "    *) words= ;;\n"
             "  esac\n"
             "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
             "}\n"
             "complete -o default -F _pelcloudctl pelcloudctl\n";
}

std::string quoted(std::string text)
{
    for (char &c : text) {
        if (std::string_view("'[]:").find(c) != std::string_view::npos)
            c = ' ';
    }
    return text;
}

std::string zsh(CLI::App &app)
{
    std::string commands;
    std::string cases;
    for (const CLI::App *const command : app.get_subcommands(isShown)) {
        commands.append("    '").append(command->get_name()).append(":");
        commands.append(quoted(command->get_description())).append("'\n");
        cases.append("  ").append(command->get_name()).append(")\n    _arguments \\\n");
        cases.append(
                optionsOf(app, *command, [](const CLI::Option &option, const std::string &name) {
                    return "      '--" + name + "[" + quoted(option.get_description()) + "]"
                           + (takesValue(option) ? ":value:_default" : "") + "' \\\n";
                }));
        cases.append("      '*:file:_default'\n    ;;\n");
    }
    return "#compdef pelcloudctl\n"
           "local -a commands\n"
           "if (( CURRENT == 2 )); then\n"
           "  commands=(\n"
           + commands
           + "  )\n"
             "  _describe command commands\n"
             "  return\n"
             "fi\n"
             "case $words[2] in\n"
           + cases + "esac\n";
}

std::string fish(CLI::App &app)
{
    std::string text = "# fish completion for pelcloudctl\n";
    for (const CLI::App *const command : app.get_subcommands(isShown)) {
        const std::string &name = command->get_name();
        text.append("complete -c pelcloudctl -n __fish_use_subcommand -f -a ").append(name);
        text.append(" -d '").append(quoted(command->get_description())).append("'\n");
        text += optionsOf(app, *command,
                          [&name](const CLI::Option &option, const std::string &own) {
                              std::string line = "complete -c pelcloudctl -n "
                                                 "'__fish_seen_subcommand_from ";
                              line.append(name).append("' -l ").append(own);
                              line.append(takesValue(option) ? " -r -d '" : " -f -d '");
                              return line.append(quoted(option.get_description())).append("'\n");
                          });
    }
    return text;
}

} // namespace

std::string completionsFor(const std::string &shell, CLI::App &app)
{
    const bool isBash = shell == "bash";
    const bool isZsh = shell == "zsh";
    return isBash ? bash(app) : isZsh ? zsh(app) : shell == "fish" ? fish(app) : "";
}
