#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_COMMANDS_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_COMMANDS_H

#include <cstddef>
#include <optional>
#include <string>

/**
 * The commands, each with its options as the command line gives them. They print to standard output,
 * throw a Problem for what the caller should say on standard error, and return the exit status.
 */
namespace Commands {

struct Status
{
    std::string directory;
    bool isWatching = false;
    double seconds = 2; // between two looks
    bool isJson = false;
};
int run(const Status &options);

struct Explain
{
    std::string directory;
    unsigned long unit = 0;
};
int run(const Explain &options);

struct Enroll
{
    std::string directory;
    std::string home;
    std::string computer;
    std::string client;
    std::string secretFile; // empty: asked for
    std::string authorizationEndpoint;
    std::string scope;
    bool isLeftToPlugin = false; // to wait for the approval
    bool isWithoutQrCode = false;
};
int run(const Enroll &options);

struct Check
{
    std::string directory;
    std::string plugin;
    bool isJson = false;
};
int run(const Check &options);

struct Run
{
    std::string directory;
    bool isOnce = false;
};
int run(const Run &options);

struct Log
{
    std::string directory;
    bool isFollowing = false;
    std::string level = "trace";      // the least that is shown
    std::optional<std::size_t> lines; // the last so many; all without
};
int run(const Log &options);

struct LogLevel
{
    std::string directory;
    std::string level; // empty: shows the one in force
};
int run(const LogLevel &options);

} // namespace Commands

#endif
