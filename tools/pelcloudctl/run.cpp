#include "logging/qlogger.h"
#include "plugin/dlpelcloud.h"
#include "plugin/pelcloud.h"
#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/httpwords.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/logfile.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/suite.h"
#include "tools/pelcloudctl/terminal.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <memory>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <QJsonObject>

namespace {

using Terminal::Colour;

/** The client for a single run, which the caller makes. */
class OneRun : public PelCloudClient
{
public:
    OneRun() { setInterval(std::numeric_limits<int>::max()); } // the timer's own run never comes
    using PelCloudClient::auth;

    void run() { OnTimer(); }

    int sent = 0;
    int failed = 0;

protected:
    void onReport(const Report &report) override
    {
        const bool isGood = isSuccess(report.status);
        ++(isGood ? sent : failed);
        std::string line = report.method;
        if (report.url.isEmpty()) {
            line += " not sent: " + reasonWords(report.result);
        } else {
            line.append(" ").append(Terminal::printable(
                    QString::fromStdString(withoutPassword(report.url.toStdString()))));
            line += ", " + std::to_string(report.size) + " bytes: ";
            line += report.status != 0 ? statusWords(report.status)
                                       : std::string("no answer: ") + report.error;
        }
        Terminal::print(Terminal::painted(isGood ? Colour::Plain : Colour::Red, line) + "\n");
    }

private:
    /** Why there is no access token. */
    std::string reasonWords(int result)
    {
        constexpr int NO_CONFIG = 2;
        if (result == NO_CONFIG)
            return "pelcloud.json cannot be read or written";
        const GoogleToken &token = auth().getToken();
        if (token.getRefreshToken().isEmpty() && token.getDeviceCode().isEmpty())
            return "there is nothing to sign in with, see 'pelcloudctl enroll'";
        if (auth().lastStatus() == 0)
            return std::string("no answer to the sign-in: ") + auth().lastFailure();
        if (auth().lastError() == QLatin1String("authorization_pending"))
            return "the device code has not been approved yet";
        return "the sign-in was refused: " + Terminal::printable(auth().lastError()) + ", status "
               + std::to_string(auth().lastStatus());
    }
};

int runOnce(const Installation &installation)
{
    static_cast<void>(readConfiguration(installation.config())); // says what is wrong with it
    OneRun client;
    if (const int result = client.start(); result != 0)
        throw Problem(result == 4 ? "the suite's library does not load"
                                  : "the suite's library does not start",
                      "See what 'pelcloudctl check' finds.");
    client.run();
    client.stop();
    if (client.sent + client.failed == 0)
        throw Problem("nothing was sent: the suite watches no UPS, or knows nothing of it",
                      "See what 'pelcloudctl status' shows.");
    const std::string summary = std::to_string(client.sent) + " of "
                                + std::to_string(client.sent + client.failed)
                                + " reports were taken\n";
    Terminal::print(summary);
    return client.failed == 0 ? 0 : 1;
}

LogFollower *g_follower = nullptr; // exit() ends the plug-in, and with it this command

void showLines()
{
    try {
        g_follower->read([](std::string_view line) {
            const bool isFailure = levelOfLine(line) == QLogger::LogLevel::Error;
            Terminal::print(Terminal::painted(isFailure ? Colour::Red : Colour::Plain,
                                              Terminal::printable(line))
                            + "\n");
        });
    } catch (const Problem &) {
        return; // nobody reads any more; the plug-in goes on
    }
}

bool isSilent(const Installation &installation)
{
    try {
        const QJsonValue level = readConfiguration(installation.config())[QLatin1String("log")];
        return QLogger::logLevelFromText(level.toString()) == QLogger::LogLevel::Fatal;
    } catch (const Problem &) {
        return false; // the log tells
    }
}

int runOn(const Installation &installation)
{
    static_cast<void>(Suite(installation)); // says what is wrong with it, which the log may not
    // Blocked before the plug-in has threads, which inherit that.
    sigset_t endings;
    sigemptyset(&endings);
    sigaddset(&endings, SIGINT);
    sigaddset(&endings, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endings, nullptr);
    const int ending = signalfd(-1, &endings, SFD_CLOEXEC);

    // The log manager makes a directory "logs" in the working directory, wherever that is.
    if (chdir(installation.directory.c_str()) != 0)
        throw Problem("cannot enter " + installation.directory + ": " + errorWords(errno));
    LogFollower follower(installation.log(), LogFollower::From::End);
    g_follower = &follower;
    Terminal::print("Reporting every ten seconds from " + installation.directory
                    + "; Ctrl-C ends.\n");
    if (isSilent(installation))
        Terminal::print("The log is silent; 'pelcloudctl log-level info' lets it tell.\n");
    void *service = nullptr;
    SrvStart(&service);
    std::atexit(showLines); // what the plug-in says while it stops
    pollfd sources[] = { { ending, POLLIN, 0 }, { follower.descriptor(), POLLIN, 0 } };
    while (poll(sources, 2, -1) >= 0 && sources[0].revents == 0)
        showLines();
    SrvStop(&service); // exits
    return 0;
}

} // namespace

int Commands::run(const Run &options)
{
    const Installation installation = findInstallation(options.directory);
    return options.isOnce ? runOnce(installation) : runOn(installation);
}
