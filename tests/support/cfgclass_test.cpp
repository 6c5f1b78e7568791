#include "support/cfgclass.h"
#include "support/datetext.h"
#include "support/utils.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <locale>
#include <memory>
#include <sstream>
#include <sys/stat.h>

namespace {

using namespace std::string_literals;

using C = CfgClass &;
using Model = std::map<std::string, std::map<std::string, std::string>>;

/** Sections, keys and values, by number. */
Model content(C config)
{
    Model model;
    for (unsigned long s = 0; s < config.GetSectionCount(); ++s) {
        const std::string section = config.GetSectionName(s);
        auto &keys = model[section];
        for (unsigned long i = 0; i < config.GetKeyCount(section); ++i)
            keys[config.GetKeyName(section, i)] = config.ReadStr(section, i, "?"s);
    }
    return model;
}

TEST(Ini, Grammar)
{
    const std::pair<std::string, std::string> rows[] = {
        // text, error code and line and content
        { "", "0 0 " },
        { "[ Net ]\nport=1\n[b]\n[NET]\nPORT=2\nhost=h", "0 0 [B][NET]HOST=h;PORT=1;" },
        { "[s]\na=b=c\nE=\n", "0 0 [S]A=b=c;E=;" },
        { "[s]\na=1\n=x\nx\n[x\na]=1\n[]\nb=[2]\n=\n[c]]\nz=2\n", "7 3 [S]A=1;Z=2;" },
        { ";c\n#k=1\n'k=2\n\n \t\n ;l=1\nk=v ;c\n", "0 0 []K=v ;c;" },
        { "[s] ;c\nk=1", "7 1 []K=1;" },
        { "\t[ a b ] \n  k l \t=  V w \t\n", "0 0 [A B]K L=V w;" },
        { "[ ]\nk=1\n[[a]\nl=2", "0 0 []K=1;[[A]L=2;" },
        { "a=1\n[s]\nb=2\n[ ]\nc=3", "0 0 []A=1;C=3;[S]B=2;" },
        { "[s]\r\nk=v\r\n\r\n;c\r\n", "0 0 [S]K=v;" },
        { "[s]\nk=v\0w\n\0\nx\0=1\nm=2"s, "7 4 [S]K=v;M=2;" },
        { "[gr\xc3\xbcn]\n\xc3\xa4=1\n\xc3\x84=2", "0 0 [GR\xc3\x9cN]\xc3\x84=1;" },
        { "[caf\xe9]\nn\xff=\xfe\n", "0 0 [caf\xe9]n\xff=\xfe;" }, // another encoding
    };
    const TempDir dir;
    std::locale::global(std::locale("de_DE.UTF-8"));
    for (const auto &[text, result] : rows) {
        CfgClass config;
        EXPECT_TRUE(config.Open(written(dir.path + "in.ini", text)));
        std::ostringstream found;
        found << config.GetErrorCode() << ' ' << config.GetErrorLine() << ' ';
        for (const auto &[section, keys] : content(config)) {
            found << '[' << section << ']';
            for (const auto &[key, value] : keys)
                found << key << '=' << value << ';';
        }
        EXPECT_EQ(found.str(), result) << text;
        CfgClass readOnly;
        EXPECT_TRUE(readOnly.OpenReadOnly(dir.path + "in.ini")) << text;
        EXPECT_EQ(content(readOnly), content(config)) << text;
        EXPECT_TRUE(config.SaveAs(dir.path + "out.ini")) << text;
        EXPECT_EQ(contentOf(dir.path + "out.ini") + (text.ends_with('\n') ? "\n" : ""), text);
    }
    std::locale::global(std::locale::classic());
}

TEST(Ini, RewritesOnlyWhatChanged)
{
    const struct
    {
        std::string before;
        bool (*edit)(C);
        std::string after, afterReg = after;
    } rows[] = {
        { "; top\n\n[ Net ]\n \tPort  =1=2 \n#c\n[b]\nx=1\n\n",
          [](C c) { return c.WriteStr("net", "PORT", "a b"); },
          "; top\n\n[ Net ]\nPort = a b\n#c\n[b]\nx=1\n" },
        { "[a]\nx=1\n;c\n[b]\n[A]\nz=1\n;d", [](C c) { return c.WriteStr("a", "New", ""); },
          "[a]\nx=1\n;c\n[b]\n[A]\nz=1\nNEW = \n;d", "[a]\nx=1\n;c\n[b]\n[A]\nz=1\nNew = \n;d" },
        { "k=1\n", [](C c) { return c.WriteStr("New s", "Key", " 2"); }, "k=1\n[NEW S]\nKEY =  2",
          "k=1\n[New s]\nKey =  2" },
        { ";c\nk=1\n[a]", [](C c) { return c.DeleteKey("", "k") && c.WriteStr("", "L", "2"); },
          "L = 2\n;c\n[a]" },
        { "[a]\r\nk=1\r\n", [](C c) { return c.WriteStr("a", "k", "3"); }, "[a]\r\nk = 3" },
        { "[a]\nk=1\n;c\nK=2\nl=3\n[b]\nk=4\n[a]\nk=5", [](C c) { return c.DeleteKey("A", "k"); },
          "[a]\n;c\nl=3\n[b]\nk=4\n[a]" },
        { "[a]\nk=1\n;c\nl=2\n;d",
          [](C c) { return c.DeleteKey("a", "l") && c.WriteStr("a", "M", "3"); },
          "[a]\nk=1\nM = 3\n;c\n;d" },
        { ";t\n[a]\nk=1\n;in\nx\n[b]\n;b\n[A]\nm=[\n[c]\nm=1",
          [](C c) { return c.EraseSection("a"); }, ";t\n[b]\n;b\n[c]\nm=1" },
        { ";t\nk=1\n[b]\n[ ]\n;in", [](C c) { return c.EraseSection(""); }, ";t\n[b]" },
    };
    const TempDir dir;
    for (const auto &row : rows) {
        for (const int kind : { 0, 1, 2, 3 }) {
            std::unique_ptr<CfgClass> config(kind < 2 ? new CfgClass : new RegCfgClass);
            EXPECT_TRUE(config->Open(written(dir.path + "in.ini", row.before)));
            config->SetCached(kind % 2 == 0);
            EXPECT_TRUE(row.edit(*config)) << row.before;
            EXPECT_EQ(contentOf(dir.path + "in.ini") == row.before, kind % 2 == 0);
            config->SetCached(false);
            EXPECT_EQ(contentOf(dir.path + "in.ini"), kind < 2 ? row.after : row.afterReg);
        }
    }
}

TEST(Ini, RefusesWithAnErrorCode)
{
    const struct
    {
        const char *name;
        bool (*run)(C);
        int errors[3]; // with no file, with a file for reading only, with a file
    } rows[] = {
        { "read", [](C c) { return c.ReadStr("s", "k", "?") == "v"; }, { 5, 0, 0 } },
        { "read missing", [](C c) { return c.ReadInt("s", "x", 3) != 3; }, { 5, 1, 1 } },
        { "read beyond", [](C c) { return c.ReadBool("s", 1UL, false); }, { 1, 1, 1 } },
        { "select", [](C c) { return c.SetSection("S"s) && c.KeyExists("k"); }, { 5, 0, 0 } },
        { "save", [](C c) { return c.Flush() && !c.IsFail(); }, { 5, 6, 0 } },
        { "write", [](C c) { return c.WriteStr("s", "k", "v"); }, { 5, 6, 0 } },
        { "write null", [](C c) { return c.WriteStr("s", "k", nullptr); }, { 1, 1, 1 } },
        { "write lines", [](C c) { return c.WriteStr("s", "k", "\n[x]"); }, { 1, 1, 1 } },
        { "write no section", [](C c) { return c.WriteStr("", "k", "v"); }, { 5, 6, 3 } },
        { "write bracket", [](C c) { return c.WriteStr("a]", "k", "v"); }, { 5, 6, 3 } },
        { "write two", [](C c) { return c.WriteStr("new", "k\nl", "v"); }, { 5, 6, 3 } },
        { "delete missing", [](C c) { return c.DeleteKey("s", "x"); }, { 5, 6, 1 } },
        { "save as null", [](C c) { return c.SaveAs(nullptr); }, { 1, 1, 1 } },
        { "full disk", [](C c) { return c.SaveAs("/dev/full"s); }, { 4, 4, 4 } },
    };
    const TempDir dir;
    const std::string file = written(dir.path + "in.ini", "[s]\nk = v");
    const Model loaded = { { "S", { { "K", "v" } } } };
    for (const auto &row : rows) {
        for (const int state : { 0, 1, 2 }) {
            RegCfgClass config;
            ASSERT_EQ(config.SetFileName(state > 0 ? file.c_str() : "", state == 1), state > 0);
            EXPECT_EQ(row.run(config), row.errors[state] == 0) << row.name << state;
            EXPECT_EQ(config.GetErrorCode(), row.errors[state]) << row.name << state;
            EXPECT_EQ(content(config), state > 0 ? loaded : Model()) << row.name << state;
        }
        EXPECT_EQ(contentOf(file), "[s]\nk = v") << row.name;
    }
}

TEST(Ini, FilesThatFail)
{
    const TempDir dir;
    const std::string fifo = dir.path + "fifo", file = written(dir.path + "f", "k=1");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string &name :
         { dir.path, file + "/x", fifo, "/dev/zero"s, std::string(5000, 'x') }) {
        CfgClass config;
        EXPECT_TRUE(config.Open(name) && config.GetErrorCode() == 2) << name;
        EXPECT_EQ(config.GetErrorLine() == 1, name == dir.path) << name;
        EXPECT_FALSE(config.OpenReadOnly(name) || config.GetErrorCode() != 2) << name;
    }

    auto config = std::make_unique<CfgClass>();
    EXPECT_TRUE(config->Open("/dev/full") && !config->WriteStr("s", "k", "v"));
    EXPECT_EQ(config->GetErrorCode(), 2);
    EXPECT_TRUE(config->Rename(file.c_str()) && config->Flush()); // still to be saved
    EXPECT_EQ(contentOf(written(file, contentOf(file) + "x")), "[S]\nK = vx");
    config->SetCached(true);
    EXPECT_TRUE(config->Flush() && contentOf(file) == "[S]\nK = vx"); // nothing to be saved
    EXPECT_TRUE(config->WriteStr("s", "k", "w") && config->SaveAs(dir.path + "other"));
    EXPECT_TRUE(config->WriteStr("s", "k", "y") && contentOf(dir.path + "other") == "[S]\nK = w");
    config.reset();
    EXPECT_EQ(contentOf(dir.path + "other") + contentOf(file), "[S]\nK = y[S]\nK = vx");
}

TEST(Ini, TypesAndShapes)
{
    const TempDir dir;
    CfgClass c;
    ASSERT_TRUE(c.Open(written(dir.path + "in.ini", "[s]\na=\n")) && c.SetSection("s"));
    const std::string s = "s", k = "k", f = "f:ss", v = "f:09";
    EXPECT_TRUE(c.WriteFloat("s", "k", 1, 5, 1) && c.ReadFloat(s, k, 0) == 1);
    EXPECT_TRUE(c.WriteFloat(s, k, 2, 0, 1) && c.ReadFloat("k", 0) == 2);
    EXPECT_TRUE(c.WriteFloat("k", 3, 0, 1) && c.ReadFloat(k, 0) == 3);
    EXPECT_TRUE(c.WriteFloat(k, 4, 0, 1) && c.ReadFloat("s", 1UL, 0) == 4);
    EXPECT_TRUE(c.WriteFloat("s", 1UL, 5, 0, 1) && c.ReadFloat(s, 1UL, 0) == 5);
    EXPECT_TRUE(c.WriteFloat(s, 1UL, 6, 0, 1) && c.ReadFloat(1UL, 0) == 6);
    EXPECT_TRUE(c.WriteFloat(1UL, 7, 6, 2) && c.ReadFloat("s", "k", 0) == 7);
    EXPECT_EQ(contentOf(c.GetFileName()), "[s]\na=\nK =    7.0");
    EXPECT_TRUE(c.WriteStr(1UL, v) && c.ReadStr(1UL, "") == v && c.ReadStr(1UL, k) == v);
    EXPECT_EQ(c.ReadDateTime(s, 1UL, f, 8), StrToDateTimeDef("09", "ss", 9));
    EXPECT_TRUE(c.WriteBool("k", true) && c.ReadStr("k", "") == "1" && c.ReadBool("k", false));
    EXPECT_TRUE(c.WriteInt("k", -5L << 60) && c.ReadInt("k", 7) == -5L << 60);
    EXPECT_TRUE(c.WriteUInt("k", ~0UL) && c.ReadInt("k", 7) == -1 && c.ReadBool("k", false));
    EXPECT_TRUE(c.WriteStr("k", "true") && c.ReadBool("k", true) && !c.ReadBool("k", false));
    EXPECT_TRUE(c.WriteDateTime("k", "-yyyy", 1L << 30) && c.ReadStr("k", "") == "-2004");
    EXPECT_FALSE(c.WriteDateTime("k", "yy", 1L << 60) || c.GetErrorCode() != 1);
    EXPECT_TRUE(c.DeleteKey(0UL) && c.GetKeyCount() == 1 && c.EraseSection() && !c.SectionExists());
    EXPECT_TRUE(!c.SetSection("u") && c.WriteStr("k", "v") && c.ReadStr("u", "k", "") == "v");
    EXPECT_TRUE(c.Close() && c.GetSection().empty());
}

TEST(DateText, Formats)
{
    // NOLINTBEGIN(concurrency-mt-unsafe): this program has one thread
    const char *const FULL = "hh:nn:ss dd.mm.yyyy";
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    EXPECT_EQ(StrToDateTimeDef("d 15-07-68 12", "d dd-mm-yy hh", -99), 3109572000); // summer time
    EXPECT_EQ(DateTimeToStr(-1, "d dd-mm-yy"), "d 01-01-70");
    for (const char *const text :
         { "", "01", "01/2", "01/20 ", "1/2020", "13/20", "00/20", "01-20" })
        EXPECT_EQ(StrToDateTimeDef(text, "mm/yy", -99), -99) << text;
    for (const char *const text : { "01.02", "28.29" }) // one field with two values
        EXPECT_EQ(StrToDateTimeDef(text, "dd.dd", -99), -99) << text;
    EXPECT_EQ(StrToDateTimeDef("1", nullptr, -99), -99);
    setenv("TZ", "CET-1", 1);
    EXPECT_EQ(StrToDateTimeDef("23:59:60 31.12.1969", FULL, -99), -99);
    EXPECT_EQ(StrToDateTimeDef("00:59:59 01.01.1970", FULL, -99), -1);
    EXPECT_EQ(DateTimeToStr(951782400, FULL), "01:00:00 29.02.2000");
    // NOLINTEND(concurrency-mt-unsafe)
}

} // namespace
