#include "plugin/pelcloud.h"
#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/httpwords.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/suite.h"
#include "tools/pelcloudctl/terminal.h"

#include <csignal>
#include <limits>
#include <memory>

#include <QJsonObject>

namespace {

using namespace Qt::StringLiterals;
using Terminal::Colour;

/** The plug-in's client, which prints each report and the answer. */
class PrintingClient : public PelCloudClient
{
public:
    void OnTimer() override
    {
        accepted = failed = 0;
        PelCloudClient::OnTimer();
        if (accepted + failed == 0)
            print(Colour::Red, "nothing to send: the suite watches no UPS or gives no data; run "
                               "'pelcloudctl status'");
    }

    // Reports of the last run.
    int accepted = 0;
    int failed = 0;

protected:
    void onReport(const Report &report) override
    {
        const bool isGood = isSuccess(report.status);
        ++(isGood ? accepted : failed);
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
        print(isGood ? Colour::Plain : Colour::Red, line);
    }

private:
    static void print(Colour colour, const std::string &line)
    {
        try {
            Terminal::print(Terminal::painted(colour, line) + "\n");
        } catch (const Problem &) {
            return; // a full disk must not end the run
        }
    }

    /** Why there is no access token. */
    std::string reasonWords(int result)
    {
        if (result == ConfigFailed)
            return "cannot read or write pelcloud.json";
        const GoogleToken &token = auth().getToken();
        if (token.getRefreshToken().isEmpty() && token.getDeviceCode().isEmpty())
            return "not enrolled; run 'pelcloudctl enroll'";
        if (auth().lastStatus() == 0)
            return std::string("no answer to the sign-in: ") + auth().lastFailure();
        if (auth().lastError() == "authorization_pending"_L1)
            return "the device code is not approved yet";
        return "sign-in refused: " + Terminal::printable(auth().lastError()) + ", status "
               + std::to_string(auth().lastStatus());
    }
};

void start(PelCloudClient &client, const Installation &installation)
{
    static_cast<void>(readConfiguration(installation.config())); // throws if it is unusable
    if (client.start() == 0)
        return;
    static_cast<void>(Suite(installation)); // throws the reason
    throw Problem("the suite's library does not start", "Run 'pelcloudctl check'.");
}

int runOnce(const Installation &installation)
{
    PrintingClient client;
    client.setInterval(std::numeric_limits<int>::max()); // no run on the timer
    start(client, installation);
    client.OnTimer();
    client.stop();
    Terminal::print(std::to_string(client.accepted) + " of "
                    + std::to_string(client.accepted + client.failed) + " reports accepted\n");
    return client.accepted > 0 && client.failed == 0 ? 0 : 1;
}

int runUntilSignal(const Installation &installation)
{
    // Blocked before there are threads, which inherit the mask.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    PrintingClient client;
    start(client, installation);
    Terminal::print("Reporting every ten seconds; press Ctrl-C to stop.\n");
    int signal = 0;
    sigwait(&stopSignals, &signal);
    pthread_sigmask(SIG_UNBLOCK, &stopSignals, nullptr); // a second one ends the program at once
    Terminal::print(Terminal::isTerminal(stdout) ? "\n" : ""); // after the terminal's "^C"
    client.stop();
    return 0;
}

} // namespace

void addRun(Program &program)
{
    const auto isOnce = std::make_shared<bool>(false);
    CLI::App *const command =
            program.add("run", "Send reports until interrupted, and print how the server answers",
                        "  pelcloudctl run --once\n"
                        "  pelcloudctl run",
                        [&program, isOnce] {
                            const Installation installation = findInstallation(program.directory());
                            return *isOnce ? runOnce(installation) : runUntilSignal(installation);
                        });
    command->add_flag("--once", *isOnce, "Send one report of the computer and each UPS, then exit");
}
