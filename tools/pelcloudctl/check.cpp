#include "tools/pelcloudctl/checks.h"
#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/terminal.h"

#include <memory>

#include <QJsonObject>

namespace {

struct Options
{
    std::string plugin = PELCLOUD_PLUGIN_FILE;
    bool isJson = false;
};

/** The configuration, for the checks of the network; empty when there is none. */
QJsonObject checkInstallation(Findings &findings, const std::string &directory)
{
    Installation installation;
    try {
        installation = findInstallation(directory);
    } catch (const Problem &problem) {
        findings.add("installation", problem);
        return {};
    }
    findings.add(Verdict::Ok, "installation",
                 installation.directory + " (from " + installation.origin + ")");
    QJsonObject config = checkConfiguration(findings, installation);
    checkSuite(findings, installation);
    checkLog(findings, installation, config);
    return config;
}

int run(const std::string &directory, const Options &options)
{
    Findings findings;
    const QJsonObject config = checkInstallation(findings, directory);
    checkPlugin(findings, options.plugin);
    if (!config.isEmpty())
        checkNetwork(findings, config);
    Terminal::print(options.isJson ? findings.json() : findings.text());
    return findings.isGood() ? 0 : 1;
}

} // namespace

void addCheck(Program &program)
{
    const auto options = std::make_shared<Options>();
    CLI::App *const command =
            program.add("check", "Find what prevents this computer from reporting",
                        "  pelcloudctl check\n"
                        "  pelcloudctl check --json | jq '.findings[].remedy'",
                        [&program, options] { return run(program.directory(), *options); });
    command->add_option("--plugin", options->plugin,
                        "Path of the plug-in (default: " PELCLOUD_PLUGIN_FILE ")")
            ->type_name("FILE");
    command->add_flag("--json", options->isJson, "Print the findings as JSON");
}
