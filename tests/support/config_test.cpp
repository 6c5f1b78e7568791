#include "support/config.h"
#include "support/utils.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::string_literals;

std::string programDirectory()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string() + '/';
}

TEST(FileNames, Parts)
{
    const struct
    {
        const char *name, *directory, *delimited;
    } rows[] = {
        { nullptr, "", "" },     { "", "", "" },
        { "/", "/", "/" },       { "/a/b.c", "/a/", "/a/b.c/" },
        { "/a/", "/a/", "/a/" }, { "a", "", "a/" },
    };
    for (const auto &row : rows) {
        EXPECT_EQ(ExtractFilePath(row.name), row.directory);
        EXPECT_EQ(IncludePathDelimiter(row.name), row.delimited);
    }
}

TEST(FileNames, RunningProgram)
{
    EXPECT_EQ(ExtractFilePath(GetExeName(false)), programDirectory());
    EXPECT_EQ(programDirectory() + GetExeName(true), GetExeName(false));

    const TempDir dir;
    const std::string program = dir.write("program", "");
    const struct
    {
        const char *name;
        std::string exe, cwd, cmdline, found;
    } rows[] = {
        { "link", program, "/w", "/x\0y"s, program },
        { "replaced program", program + " (deleted)", "/w", "./x\0y\0"s, "/w/x" },
        { "replaced, started by its path", "/nowhere", "/w", "/y/x\0z"s, "/y/x" },
        { "nothing but the argument", "", "", "x", "" },
        { "no argument", "", "/w", "\0x"s, "" },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const std::string process = dir.path(row.name);
        std::filesystem::create_directory(process);
        for (const auto &[link, target] : { std::pair("/exe", row.exe), { "/cwd", row.cwd } }) {
            if (!target.empty())
                std::filesystem::create_symlink(target, process + link);
        }
        EXPECT_FALSE(dir.write(row.name + "/cmdline"s, row.cmdline).empty());
        EXPECT_EQ(Internal::ExeNameFrom(process), row.found);
    }
}

TEST(InstallationPath, Chain)
{
    const TempDir dir;
    const struct
    {
        const char *text;
        std::string path;
    } rows[] = {
        { "[PELORIN]\nPATH=/opt/p", "/opt/p/" },
        { "# x\n[pelorin]\r\nPath = /opt/p/\r\n", "/opt/p/" },
        { "PATH=/a\n[OTHER]\nPATH=/b\n", programDirectory() },
        { "[PELORIN]\nPATH=\n", programDirectory() },
        { "\x7f\x45LF\0[", programDirectory() },
    };
    for (const auto &row : rows) {
        const std::string file = dir.write("pelorin.conf", row.text);
        EXPECT_EQ(Internal::PelorinPathFrom(file.c_str()), row.path) << row.text;
        EXPECT_EQ(contentOf(file), row.text);
    }
    EXPECT_EQ(Internal::PelorinPathFrom(dir.path("missing").c_str()), programDirectory());
    EXPECT_EQ(Internal::PelorinPathFrom(dir.path().c_str()), programDirectory());
    EXPECT_FALSE(std::filesystem::exists(dir.path("missing")));
}

TEST(InstallationPath, IsReadFromEtc)
{
    constexpr int NO_NAMESPACE = 77;
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may lay another /etc over the real one";
    const TempDir dir;
    const std::string file = dir.write("pelorin.conf", "[PELORIN]\nPATH=/opt/p");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (unshare(CLONE_NEWNS) != 0
            || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
            || mount(dir.path().c_str(), "/etc", nullptr, MS_BIND, nullptr) != 0)
            _exit(NO_NAMESPACE);
        _exit(GetPelorinPath() == "/opt/p/" ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == NO_NAMESPACE)
        GTEST_SKIP() << "no private mount namespace is to be had here";
    EXPECT_EQ(status, 0) << file;
}

TEST(FileMacros, Expand)
{
    const std::string installed = GetPelorinPath();
    const struct
    {
        const char *name, *base;
        std::string expanded;
    } rows[] = {
        { "//LOGEVTFILE//", "/data/", "/data/logevt.kmv" },
        { "//LOGHISTHORA//", "/data/", "/data/loghora.kmv" },
        { "//LOGHISTDIA//", "/data/", "/data/logdia.kmv" },
        { "//LOGHISTMES//", "/data/", "/data/logmes.kmv" },
        { "//UPSPOWEROFFFILE//", "/data/", "/data/poweroff.kmv" },
        { "//UPSPOWERONFILE//", "/data/", "/data/poweron.kmv" },
        { "//LOGDOCSAVE//", "/data/", installed + "logsave.kmv" },
        { "//LOGDOCCLOSE//", "/data/", installed + "logclose.kmv" },
        { "//UPSSRVCFG//", "/data/", "/data/upssrv.cfg" },
        { "//UPSCLICFG//", "/data/", installed + "upscli.cfg" },
        { "//USBHIDCFG//", "/data/", installed + "usbhid.cfg" },
        { "//LOGEVTFILE//", "0", installed + "0/logevt.kmv" },
        { "//LOGEVTFILE//", "+2", installed + "+2/logevt.kmv" },
        { "//LOGEVTFILE//", "/data", "/datalogevt.kmv" },
        { "//LOGEVTFILE//", "-1", "-1logevt.kmv" },
        { "//LOGEVTFILE//", "abc", "abclogevt.kmv" },
        { "//LOGEVTFILE//", "", "logevt.kmv" },
        { "//LOGEVTFILE//x", "0", "//LOGEVTFILE//x" },
        { "//logevtfile//", "0", "//logevtfile//" },
        { "x//BASEDIR//y", "0", "x//BASEDIR//y" },
        { "//BASEDIR//bin/tool", "0", installed + "bin/tool" },
        { "//UPSCONFIGDIR//upsmon.cfg", "3", installed + "3/upsmon.cfg" },
        { "//UPSCONFIGDIR//", "b", "b" },
        { "//LOGEVTFILE//", "//BASEDIR//d/", installed + "d/logevt.kmv" },
        { "plain", "0", "plain" },
        { nullptr, "0", "" },
        { "//LOGEVTFILE//", nullptr, "" },
    };
    for (const auto &row : rows)
        EXPECT_EQ(ParseMacroFileName(row.name, row.base), row.expanded) << row.expanded;
}

} // namespace
