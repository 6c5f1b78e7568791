#include "support/config.h"
#include "support/utils.h"
#include "tests/golden.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace std::string_literals;

TEST(FileNames, RunningProgram)
{
    EXPECT_EQ(GetExeName(false), std::filesystem::read_symlink("/proc/self/exe").string());
    EXPECT_EQ(ExtractFilePath(GetExeName(false)) + GetExeName(true), GetExeName(false));
    const TempDir dir;
    const std::string rows[][3] = {
        { dir.path, "x", dir.path },
        { "/gone (deleted)", "./x\0y\0"s, "/w/x" },
        { "/gone", "/y/x\0z"s, "/y/x" },
        { "/gone", "\0x"s, "" },
    };
    std::filesystem::create_symlink("/w", dir.path + "cwd");
    for (const auto &[exe, commandLine, found] : rows) {
        std::filesystem::create_symlink(exe, dir.path + "exe");
        written(dir.path + "cmdline", commandLine);
        EXPECT_EQ(Internal::ExeNameFrom(dir.path), found);
        std::filesystem::remove(dir.path + "exe");
    }
}

TEST(InstallationPath, Chain)
{
    const TempDir dir;
    const std::string fallback = ExtractFilePath(GetExeName(false));
    const std::pair<const char *, std::string> rows[] = {
        { "[PELORIN]\nPATH=/opt/p", "/opt/p/" },
        { "# x\n[pelorin]\r\nPath = /opt/p/\r\n", "/opt/p/" },
        { "PATH=/a\n[OTHER]\nPATH=/b\n", fallback },
        { "[PELORIN]\nPATH=\n", fallback },
    };
    for (const auto &[text, path] : rows)
        EXPECT_EQ(Internal::PelorinPathFrom(written(dir.path + "conf", text).c_str()), path);
    EXPECT_EQ(Internal::PelorinPathFrom((dir.path + "missing").c_str()), fallback);
}

TEST(FileMacros, Expand)
{
    std::istringstream rows(golden("filemacros.txt"));
    int count = 0;
    for (std::string name, base, expanded; rows >> name >> base >> expanded; ++count) {
        if (expanded.starts_with("<installed>"))
            expanded.replace(0, 11, GetPelorinPath());
        EXPECT_EQ(ParseMacroFileName(name.c_str(), base.c_str()), expanded);
    }
    EXPECT_EQ(count, 30);
    EXPECT_EQ(ParseMacroFileName(nullptr, "0") + ParseMacroFileName("x", nullptr), "");
}

} // namespace
