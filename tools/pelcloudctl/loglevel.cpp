#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/logfile.h"
#include "tools/pelcloudctl/terminal.h"

#include <memory>

#include <QJsonObject>
#include <QString>

namespace {

using namespace Qt::StringLiterals;

/** Shows the level in pelcloud.json, or sets it unless `level` is empty. */
int run(const Installation &installation, const std::string &level)
{
    const std::string config = installation.config();
    if (level.empty()) {
        const QString text = readConfiguration(config)["log"_L1].toString().toLower();
        Terminal::print(text.isEmpty() ? "fatal\n" : Terminal::printable(text) + "\n");
        return 0;
    }
    const QString text = QString::fromStdString(level).toLower();
    changeConfiguration(config, "log", text);
    Terminal::print("Log level set to " + text.toStdString()
                    + "; the plug-in uses it from its next run on.\n");
    return 0;
}

} // namespace

void addLogLevel(Program &program)
{
    const auto level = std::make_shared<std::string>();
    CLI::App *const command = program.add(
            "log-level", "Show or set the plug-in's log level",
            "  pelcloudctl log-level\n"
            "  pelcloudctl log-level info",
            [&program, level] { return run(findInstallation(program.directory()), *level); });
    command->add_option("LEVEL", *level, levelNames())->check(checkLevel)->type_name("");
}
