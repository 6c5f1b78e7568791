// A local replacement of the cloud: accepts the plug-in's reports, signs devices in, tunnels requests
// to itself and shows the reports on a page.

#include "devkit/cloud/certificate.h"
#include "devkit/cloud/cloud.h"
#include "devkit/cloud/httpserver.h"
#include "devkit/cloud/proxy.h"
#include "devkit/cloud/socket.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include <QFile>
#include <QJsonDocument>

namespace {

using namespace localcloud;

struct Options
{
    std::uint16_t port = 0;
    std::uint16_t tlsPort = 0;
    std::uint16_t proxyPort = 0;
    std::string seedFile;
    std::vector<std::string> faults;
    ReportLimits limits;
    std::int64_t tokenSeconds = 3600;
    std::int64_t codeSeconds = 1800;
    std::int64_t pollSeconds = 5;
    std::optional<int> approveAfter;
    bool isWithoutContinue = false;
    unsigned roundTripMs = 0;
    bool isQuiet = false;
};

void declareOptions(CLI::App &app, Options &options)
{
    app.add_option("--port", options.port, "Port of the API and the page (0: any free one)");
    app.add_option("--tls-port", options.tlsPort, "Port of the token endpoint (0: any free one)");
    app.add_option("--proxy-port", options.proxyPort, "Port of the proxy (0: any free one)");
    app.add_option("--seed", options.seedFile, "JSON file with clients, device codes and tokens")
            ->check(CLI::ExistingFile);
    app.add_option("--fault", options.faults,
                   "Make a fault, for example api:500:every=3; repeatable");
    app.add_option("--keep", options.limits.reportsPerSource, "Reports kept of each unit")
            ->check(CLI::Range(1, 10000))
            ->capture_default_str();
    app.add_option("--expect-seconds", options.limits.secondsBetweenReports,
                   "Seconds between two reports of a unit")
            ->check(CLI::Range(0.001, 86400.0))
            ->capture_default_str();
    app.add_option("--token-seconds", options.tokenSeconds, "Life of an access token")
            ->check(CLI::Range(0, 1 << 30))
            ->capture_default_str();
    app.add_option("--code-seconds", options.codeSeconds, "Life of a device code")
            ->check(CLI::Range(0, 1 << 30))
            ->capture_default_str();
    app.add_option("--poll-seconds", options.pollSeconds, "Seconds between two polls of a device")
            ->check(CLI::Range(0, 3600))
            ->capture_default_str();
    app.add_option("--approve-after", options.approveAfter,
                   "Approve devices automatically after this number of pending answers")
            ->check(CLI::Range(0, 1 << 30));
    app.add_option("--round-trip-ms", options.roundTripMs,
                   "Simulated round-trip time of the network, in milliseconds")
            ->check(CLI::Range(0, 10000))
            ->capture_default_str();
    app.add_flag("--no-continue", options.isWithoutContinue, "Never send 100 Continue");
    app.add_flag("--quiet", options.isQuiet, "Do not print a line for each report");
}

OAuthSettings oauthSettings(const Options &options)
{
    OAuthSettings settings;
    settings.tokenLife = std::chrono::seconds(options.tokenSeconds);
    settings.codeLife = std::chrono::seconds(options.codeSeconds);
    settings.interval = std::chrono::seconds(options.pollSeconds);
    settings.approveAfter = options.approveAfter;
    return settings;
}

void print(const std::string &line)
{
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

std::vector<FaultRule> faultRules(const std::vector<std::string> &texts)
{
    std::vector<FaultRule> rules;
    for (const std::string &text : texts) {
        std::string error;
        const std::optional<FaultRule> rule = parseFaultRule(text, error);
        if (!rule)
            throw std::runtime_error(error);
        rules.push_back(*rule);
    }
    return rules;
}

void readSeed(Cloud &cloud, const std::string &path)
{
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("cannot read " + path);
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    if (!document.isObject())
        throw std::runtime_error(path + " holds no JSON object");
    if (const std::string error = cloud.seed(document.object()); !error.empty())
        throw std::runtime_error(path + ": " + error);
}

/** Serves until one of the blocked signals arrives. */
void serve(const Options &options, const sigset_t &endingSignals)
{
    Cloud cloud(options.limits, oauthSettings(options), [&options](const std::string &line) {
        if (!options.isQuiet)
            print(line);
    });
    cloud.setFaults(faultRules(options.faults));
    if (!options.seedFile.empty())
        readSeed(cloud, options.seedFile);

    StopSignal stop;
    const Network network{ !options.isWithoutContinue,
                           std::chrono::milliseconds(options.roundTripMs) };
    HttpServer api(stop, nullptr, network);
    HttpServer oauth(stop, makeServerContext(), network);
    cloud.serveApi(api);
    cloud.serveOAuth(oauth);
    const std::string address = "http://127.0.0.1:" + std::to_string(api.start(options.port));
    const std::uint16_t tlsPort = oauth.start(options.tlsPort);
    const ConnectProxy proxy(
            options.proxyPort, tlsPort, stop,
            [&cloud](const std::string &target) { cloud.noteConnect(target); }, network.roundTrip);
    cloud.setVerificationUrl(address + "/device");

    print("api " + address);
    print("oauth https://127.0.0.1:" + std::to_string(tlsPort));
    print("proxy http://127.0.0.1:" + std::to_string(proxy.port()));
    print("page " + address + "/");

    int signal = 0;
    sigwait(&endingSignals, &signal);
    stop.raise();
}

/** Reads the options and serves; returns the exit status. */
int run(int argc, char **argv)
{
    Options options;
    CLI::App app("A local cloud for the PelCloud plug-in: API, sign-in, proxy and a page");
    declareOptions(app, options);
    CLI11_PARSE(app, argc, argv);

    // Blocked before the first thread starts, so that only sigwait() gets them.
    sigset_t endingSignals;
    sigemptyset(&endingSignals);
    sigaddset(&endingSignals, SIGINT);
    sigaddset(&endingSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endingSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    serve(options, endingSignals);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "pelcloud-localcloud: %s\n", error.what());
    } catch (...) {
        std::fputs("pelcloud-localcloud: unknown error\n", stderr);
    }
    return 1;
}
