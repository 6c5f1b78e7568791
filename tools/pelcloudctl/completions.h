#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_COMPLETIONS_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_COMPLETIONS_H

#include <string>

namespace CLI {
class App;
}

/** What lets "bash", "zsh" or "fish" complete the program's commands and options; empty for others. */
[[nodiscard]] std::string completionsFor(const std::string &shell, CLI::App &app);

#endif
