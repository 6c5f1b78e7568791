#include "support/config.h"

#include "support/cfgclass.h"
#include "support/utils.h"

#include <string_view>

namespace {

constexpr const char *CONFIG_FILE = "/etc/pelorin.conf";

enum class Directory {
    BASE,    // of one UPS
    PELORIN, // the installation path
};

// Logs of events, history and power and the server's configuration belong to one UPS; logs of
// documents, the client's and the USB configuration belong to the installation.
constexpr struct
{
    std::string_view macro;
    Directory directory;
    const char *fileName;
} FILE_MACROS[] = {
    { "//LOGEVTFILE//", Directory::BASE, "logevt.kmv" },
    { "//LOGHISTHORA//", Directory::BASE, "loghora.kmv" },
    { "//LOGHISTDIA//", Directory::BASE, "logdia.kmv" },
    { "//LOGHISTMES//", Directory::BASE, "logmes.kmv" },
    { "//UPSPOWEROFFFILE//", Directory::BASE, "poweroff.kmv" },
    { "//UPSPOWERONFILE//", Directory::BASE, "poweron.kmv" },
    { "//LOGDOCSAVE//", Directory::PELORIN, "logsave.kmv" },
    { "//LOGDOCCLOSE//", Directory::PELORIN, "logclose.kmv" },
    { "//UPSSRVCFG//", Directory::BASE, "upssrv.cfg" },
    { "//UPSCLICFG//", Directory::PELORIN, "upscli.cfg" },
    { "//USBHIDCFG//", Directory::PELORIN, "usbhid.cfg" },
};

constexpr std::string_view PELORIN_PREFIX = "//BASEDIR//";
constexpr std::string_view BASE_PREFIX = "//UPSCONFIGDIR//";

/** Set by SetPelorinPath(). Never destroyed, because threads may read it until the process ends. */
std::string &pathOverride()
{
    static auto &path = *new std::string;
    return path;
}

std::string baseDirectory(const char *base)
{
    const bool isNumber = StrToIntDef(base, -1) >= 0;
    return isNumber ? IncludePathDelimiter(GetPelorinPath() + base) : base;
}

} // namespace

std::string GetPelorinPath()
{
    if (!pathOverride().empty())
        return pathOverride();
    return Internal::PelorinPathFrom(CONFIG_FILE);
}

void SetPelorinPath(const std::string &path)
{
    pathOverride() = path.empty() ? path : IncludePathDelimiter(path);
}

std::string ParseMacroFileName(const char *name, const char *base)
{
    if (name == nullptr || base == nullptr)
        return {};

    std::string result = name;
    const std::string directory = baseDirectory(base);
    for (const auto &row : FILE_MACROS) {
        if (result == row.macro)
            result = (row.directory == Directory::BASE ? directory : GetPelorinPath())
                     + row.fileName;
    }
    if (result.starts_with(PELORIN_PREFIX))
        result.replace(0, PELORIN_PREFIX.size(), GetPelorinPath());
    if (result.starts_with(BASE_PREFIX))
        result.replace(0, BASE_PREFIX.size(), directory);
    return result;
}

std::string Internal::PelorinPathFrom(const char *configFile)
{
    RegCfgClass config;
    config.SetFileName(configFile, false);
    config.SetSection("PELORIN");
    std::string path = config.ReadStr("PATH", "");
    if (path.empty())
        path = ExtractFilePath(GetExeName(false));
    return IncludePathDelimiter(path);
}
