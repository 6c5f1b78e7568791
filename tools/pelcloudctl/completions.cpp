#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/terminal.h"

#include <memory>
#include <string_view>

namespace {

using Describe = std::function<std::string(const CLI::Option &, const std::string &name)>;

/** The texts that `describe` gives for the long options of the command and for --directory. */
std::string optionsOf(const CLI::App &app, const CLI::App &command, const Describe &describe)
{
    std::string text;
    for (const CLI::App *const owner : { &command, &app }) {
        for (const CLI::Option *const option : owner->get_options()) {
            // Of the program's options, a command takes only this one; it has a help of its own.
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

std::string bash(const CLI::App &app)
{
    std::string commands;
    std::string cases;
    for (const CLI::App *const command : app.get_subcommands({})) {
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

/** The text for a single-quoted word; a backslash goes before each of the `special` characters. */
std::string quoted(const std::string &text, std::string_view special, const char *apostrophe)
{
    std::string result;
    for (const char c : text) {
        if (special.find(c) != std::string_view::npos)
            result += '\\';
        if (c == '\'')
            result += apostrophe;
        else
            result += c;
    }
    return result;
}

std::string zshText(const std::string &text)
{
    return quoted(text, "[]:", R"('\'')");
}

std::string fishText(const std::string &text)
{
    return quoted(text, "", R"(\')");
}

std::string zsh(const CLI::App &app)
{
    std::string commands;
    std::string cases;
    for (const CLI::App *const command : app.get_subcommands({})) {
        commands.append("    '").append(command->get_name()).append(":");
        commands.append(zshText(command->get_description())).append("'\n");
        cases.append("  ").append(command->get_name()).append(")\n    _arguments \\\n");
        cases.append(
                optionsOf(app, *command, [](const CLI::Option &option, const std::string &name) {
                    return "      '--" + name + "[" + zshText(option.get_description()) + "]"
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

std::string fish(const CLI::App &app)
{
    std::string text = "# fish completion for pelcloudctl\n";
    for (const CLI::App *const command : app.get_subcommands({})) {
        const std::string &name = command->get_name();
        text.append("complete -c pelcloudctl -n __fish_use_subcommand -f -a ").append(name);
        text.append(" -d '").append(fishText(command->get_description())).append("'\n");
        text += optionsOf(app, *command,
                          [&name](const CLI::Option &option, const std::string &own) {
                              std::string line = "complete -c pelcloudctl -n "
                                                 "'__fish_seen_subcommand_from ";
                              line.append(name).append("' -l ").append(own);
                              line.append(takesValue(option) ? " -r -d '" : " -f -d '");
                              return line.append(fishText(option.get_description())).append("'\n");
                          });
    }
    return text;
}

int run(const std::string &shell, const CLI::App &app)
{
    Terminal::print(shell == "bash" ? bash(app) : shell == "zsh" ? zsh(app) : fish(app));
    return 0;
}

} // namespace

void addCompletions(Program &program)
{
    const auto shell = std::make_shared<std::string>();
    CLI::App *const command =
            program.add("completions", "Print a shell completion script",
                        "  source <(pelcloudctl completions bash)",
                        [&program, shell] { return run(*shell, program.parser()); });
    command->add_option("SHELL", *shell, "bash, zsh or fish")
            ->required()
            ->check(CLI::IsMember({ "bash", "zsh", "fish" }))
            ->option_text("REQUIRED");
}
