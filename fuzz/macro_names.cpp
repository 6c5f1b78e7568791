// Symbolic file names, against the table of the suite's macros written down a second time.

#include "fuzz/check.h"
#include "fuzz/texts.h"
#include "support/config.h"
#include "support/utils.h"

#include <cstdint>
#include <map>
#include <string>

namespace {

struct File
{
    bool isOfUnit;
    const char *name;
};

const std::map<std::string, File> FILES = {
    { "//LOGEVTFILE//", { true, "logevt.kmv" } },
    { "//LOGHISTHORA//", { true, "loghora.kmv" } },
    { "//LOGHISTDIA//", { true, "logdia.kmv" } },
    { "//LOGHISTMES//", { true, "logmes.kmv" } },
    { "//UPSPOWEROFFFILE//", { true, "poweroff.kmv" } },
    { "//UPSPOWERONFILE//", { true, "poweron.kmv" } },
    { "//LOGDOCSAVE//", { false, "logsave.kmv" } },
    { "//LOGDOCCLOSE//", { false, "logclose.kmv" } },
    { "//UPSSRVCFG//", { true, "upssrv.cfg" } },
    { "//UPSCLICFG//", { false, "upscli.cfg" } },
    { "//USBHIDCFG//", { false, "usbhid.cfg" } },
};

/** `name` with `replacement` for `prefix`, if it begins with that. */
std::string replaced(const std::string &name, const std::string &prefix,
                     const std::string &replacement)
{
    return name.rfind(prefix, 0) == 0 ? replacement + name.substr(prefix.size()) : name;
}

std::string expected(const std::string &name, const std::string &base)
{
    const std::string installed = GetPelorinPath();
    const std::string unit = StrToIntDef(base, -1) >= 0 ? installed + base + "/" : base;
    std::string result = name;
    if (const auto file = FILES.find(name); file != FILES.end())
        result = (file->second.isOfUnit ? unit : installed) + file->second.name;
    return replaced(replaced(result, "//BASEDIR//", installed), "//UPSCONFIGDIR//", unit);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // The base, a line feed, the name; each up to a NUL.
    const std::string bytes(data, data + size);
    const std::size_t end = bytes.find('\n');
    const std::string base = upToNul(bytes.substr(0, end));
    const std::string name = end == bytes.npos ? "" : upToNul(bytes.substr(end + 1));

    FUZZ_CHECK(ParseMacroFileName(name.c_str(), base.c_str()) == expected(name, base));
    FUZZ_CHECK(ParseMacroFileName(nullptr, base.c_str()).empty());
    FUZZ_CHECK(ParseMacroFileName(name.c_str(), nullptr).empty());
    return 0;
}
