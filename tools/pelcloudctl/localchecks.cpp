#include "auth/gauth.h"
#include "logging/loglevel.h"
#include "plugin/dlclass.h"
#include "tools/pelcloudctl/checks.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/logfile.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/suite.h"
#include "tools/pelcloudctl/terminal.h"

#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include <QJsonObject>
#include <QSet>

namespace {

using namespace Qt::StringLiterals;

void checkFile(Findings &findings, const std::string &name)
{
    struct stat status = {};
    if (stat(name.c_str(), &status) == 0 && (status.st_mode & 077U) != 0)
        findings.add(Verdict::Warning, "pelcloud.json",
                     "other accounts can read it, and it holds secrets",
                     "Run 'chmod 600 " + name + "'.");
    if (access(name.c_str(), W_OK) != 0)
        findings.add(Verdict::Warning, "pelcloud.json",
                     "not writable for this account; the plug-in writes it after a device code is "
                     "approved",
                     "Make the service manager's account its owner.");
}

void checkKeys(Findings &findings, const QJsonObject &config)
{
    const auto isMissing = [&config](const char *key) {
        return config[QLatin1String(key)].toString().isEmpty();
    };
    constexpr const char *REMEDY = "Run 'pelcloudctl enroll'.";
    for (const char *const key : { "home", "cpid", "cid", "csec" }) {
        if (isMissing(key))
            findings.add(Verdict::Problem, "pelcloud.json",
                         std::string("\"") + key + "\" is missing", REMEDY);
    }
    if (isMissing("code") && isMissing("rtk"))
        findings.add(Verdict::Problem, "pelcloud.json",
                     "cannot sign in: \"rtk\" and \"code\" are missing", REMEDY);
    QSet<QString> known{ u"log"_s };
    const QJsonObject fields = GoogleToken().toJson();
    for (auto field = fields.begin(); field != fields.end(); ++field)
        known.insert(field.key());
    for (auto field = config.begin(); field != config.end(); ++field) {
        if (!known.contains(field.key()))
            findings.add(Verdict::Warning, "pelcloud.json",
                         "unknown key \"" + Terminal::printable(field.key())
                                 + "\"; it is lost when the plug-in writes the file",
                         "Remove it.");
    }
}

void checkLogLevel(Findings &findings, const QString &level)
{
    if (!level.isEmpty() && !isLevelName(level))
        findings.add(Verdict::Warning, "log",
                     "unknown level \"" + Terminal::printable(level) + "\"; nothing is logged",
                     "Run 'pelcloudctl log-level info'.");
    else if (QLogger::logLevelFromText(level) == QLogger::LogLevel::Fatal)
        findings.add(Verdict::Ok, "log",
                     "nothing is logged; enable it with 'pelcloudctl log-level info'");
    else
        findings.add(Verdict::Ok, "log", "level " + level.toLower().toStdString());
}

} // namespace

QJsonObject checkConfiguration(Findings &findings, const Installation &installation)
{
    const std::string name = installation.config();
    QJsonObject config;
    try {
        config = readConfiguration(name);
    } catch (const Problem &problem) {
        findings.add("pelcloud.json", problem);
        return {};
    }
    const std::size_t before = findings.count();
    checkFile(findings, name);
    checkKeys(findings, config);
    if (findings.count() == before)
        findings.add(Verdict::Ok, "pelcloud.json", name);
    return config;
}

void checkSuite(Findings &findings, const Installation &installation)
{
    try {
        Suite suite(installation);
        const unsigned long count = suite.count();
        if (count == 0)
            findings.add(Verdict::Warning, "suite", "the library starts, but lists no UPS",
                         "Check that the suite is connected to its UPSs.");
        else
            findings.add(Verdict::Ok, "suite",
                         installation.library() + " lists " + std::to_string(count) + " UPS"
                                 + (count == 1 ? "" : "s"));
    } catch (const Problem &problem) {
        findings.add("suite", problem);
    }
}

void checkLog(Findings &findings, const Installation &installation, const QJsonObject &config)
{
    checkLogLevel(findings, config["log"_L1].toString());
    const std::string name = installation.log();
    const bool exists = access(name.c_str(), F_OK) == 0;
    if (access(exists ? name.c_str() : installation.directory.c_str(), W_OK) != 0)
        findings.add(Verdict::Warning, "log", "not writable for this account: " + name,
                     "Make it writable for the service manager's account.");
    std::uintmax_t size = 0;
    const std::vector<std::string> files = logFiles(name);
    for (const std::string &file : files) {
        std::error_code error;
        const std::uintmax_t own = std::filesystem::file_size(file, error);
        size += error ? 0 : own;
    }
    constexpr std::uintmax_t LARGE = 100U << 20U;
    const std::string words = std::to_string(files.size())
                              + (files.size() == 1 ? " file, " : " files, ")
                              + std::to_string(size / 1024) + " KiB";
    if (size > LARGE)
        findings.add(Verdict::Warning, "log", words,
                     "Remove old files: " + installation.directory + "pelcloud_*.log");
    else if (!files.empty())
        findings.add(Verdict::Ok, "log", words);
}

void checkPlugin(Findings &findings, const std::string &file)
{
    std::error_code error;
    if (!std::filesystem::exists(file, error)) {
        findings.add(Verdict::Warning, "plug-in", "file not found: " + file,
                     "Install it, or give its path with --plugin.");
        return;
    }
    DLClass plugin;
    if (!plugin.Load(std::filesystem::absolute(file))) // a bare name would be searched for
        findings.add(Verdict::Problem, "plug-in", "cannot load it: " + plugin.GetLastErrorStr(),
                     "Find missing libraries with 'ldd " + file + "'.");
    else if (plugin.GetSymbol("SrvStart") == nullptr || plugin.GetSymbol("SrvStop") == nullptr)
        findings.add(Verdict::Problem, "plug-in", "missing in " + file + ": SrvStart or SrvStop",
                     "Install it again.");
    else
        findings.add(Verdict::Ok, "plug-in", file + " loads");
}
