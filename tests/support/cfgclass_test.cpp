#include "support/cfgclass.h"
#include "support/datetext.h"
#include "support/utils.h"
#include "tests/golden.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <locale>
#include <memory>
#include <sstream>
#include <sys/stat.h>

namespace {

using namespace std::string_literals;

using Model = std::map<std::string, std::map<std::string, std::string>>;

/** Sections, keys and values, found by number. */
Model content(CfgClass &config)
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

/** Golden texts have one character per byte. */
std::string bytes(const QJsonValue &value)
{
    return value.toString().toLatin1().toStdString();
}

/**
 * An operation of a golden file: its name and arguments, of which null stands for a null pointer.
 */
bool run(CfgClass &config, const QJsonValue &operation)
{
    const std::string name = bytes(operation[0]), first = bytes(operation[1]),
                      second = bytes(operation[2]), third = bytes(operation[3]);
    const auto given = [&operation](qsizetype index, const std::string &text) {
        return operation[index].isString() ? text.c_str() : nullptr;
    };
    if (name == "write")
        return config.WriteStr(given(1, first), given(2, second), given(3, third));
    if (name == "delete")
        return config.DeleteKey(first, second);
    if (name == "erase")
        return config.EraseSection(first);
    if (name == "read")
        return config.ReadStr(given(1, first), given(2, second), "?") != "?";
    if (name == "readNumber")
        return config.ReadBool(first, 1UL, false);
    if (name == "select")
        return config.SetSection(first) && config.KeyExists(second);
    return name == "saveAs" ? config.SaveAs(given(1, first)) : config.Flush() && !config.IsFail();
}

TEST(Ini, ReadsTheGrammar)
{
    const TempDir dir;
    std::locale::global(std::locale("de_DE.UTF-8"));
    for (const QJsonValue row : goldenRows("ini_texts.json")) {
        const std::string text = bytes(row["text"]);
        CfgClass config;
        EXPECT_TRUE(config.Open(written(dir.path + "in.ini", text)));
        std::ostringstream found;
        found << config.GetErrorCode() << ' ' << config.GetErrorLine() << ' ';
        for (const auto &[section, keys] : content(config)) {
            found << '[' << section << ']';
            for (const auto &[key, value] : keys)
                found << key << '=' << value << ';';
        }
        EXPECT_EQ(found.str(), bytes(row["content"])) << text;
        CfgClass readOnly;
        EXPECT_TRUE(readOnly.OpenReadOnly(dir.path + "in.ini")) << text;
        EXPECT_EQ(content(readOnly), content(config)) << text;
        EXPECT_TRUE(config.SaveAs(dir.path + "out.ini")) << text;
        EXPECT_EQ(contentOf(dir.path + "out.ini") + (text.ends_with('\n') ? "\n" : ""), text);
    }
    std::locale::global(std::locale::classic());
}

TEST(Ini, RewritesOnlyChangedLines)
{
    const TempDir dir;
    for (const QJsonValue row : goldenRows("ini_edits.json")) {
        const std::string before = bytes(row["before"]);
        for (const int kind : { 0, 1, 2, 3 }) {
            const bool isReg = kind < 2, isCached = kind % 2 == 0;
            std::unique_ptr<CfgClass> config(isReg ? new RegCfgClass : new CfgClass);
            EXPECT_TRUE(config->Open(written(dir.path + "in.ini", before)));
            config->SetCached(isCached);
            for (const QJsonValue edit : row["edits"].toArray())
                EXPECT_TRUE(run(*config, edit)) << before;
            EXPECT_EQ(contentOf(dir.path + "in.ini") == before, isCached);
            config->SetCached(false);
            const bool isOther = isReg && row["afterReg"].isString();
            EXPECT_EQ(contentOf(dir.path + "in.ini"), bytes(row[isOther ? "afterReg" : "after"]));
        }
    }
}

TEST(Ini, ReportsErrorCodes)
{
    const TempDir dir;
    const std::string file = written(dir.path + "in.ini", "[s]\nk = v");
    for (const QJsonValue row : goldenRows("ini_errors.json")) {
        for (const char *const state : { "withoutFile", "readOnly", "readWrite" }) {
            const bool hasFile = state != "withoutFile"s;
            RegCfgClass config;
            config.SetFileName(hasFile ? file.c_str() : "", state == "readOnly"s);
            const int error = row[state].toInt();
            EXPECT_EQ(run(config, row["operation"]), error == 0) << bytes(row["operation"][0]);
            EXPECT_EQ(config.GetErrorCode(), error) << bytes(row["operation"][0]) << state;
            EXPECT_EQ(content(config).size(), hasFile ? 1 : 0);
            EXPECT_EQ(config.ReadStr("s", "k", "v"), "v");
        }
        EXPECT_EQ(contentOf(file), "[s]\nk = v");
    }
}

TEST(Ini, ReportsFilesThatFail)
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

TEST(Ini, HasAllTypesAndOverloads)
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

TEST(DateText, ReadsAndWritesFormats)
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1); // NOLINT(concurrency-mt-unsafe): one thread
    constexpr long NO_TIME = -99;
    for (const QJsonValue row : goldenRows("times.json")) {
        const std::string text = bytes(row["text"]), format = bytes(row["format"]);
        const long time = row["time"].toInteger(NO_TIME);
        EXPECT_EQ(StrToDateTimeDef(text.c_str(), format.c_str(), NO_TIME), time) << text;
        EXPECT_TRUE(time == NO_TIME || DateTimeToStr(time, format.c_str()) == text) << text;
    }
    EXPECT_EQ(StrToDateTimeDef("1", nullptr, NO_TIME), NO_TIME);
    EXPECT_EQ(DateTimeToStr(1L << 60, "yy"), "");
}

TEST(Ini, LoadsLargeFilesInLinearTime)
{
    const TempDir dir;
    std::string text = "[s]\nlong=" + std::string(10'000'000, '=');
    for (int i = 0; i < 200'000; ++i)
        text += "\nk" + std::to_string(i) + "=1\nsame=x";
    CfgClass config;
    ASSERT_TRUE(config.Open(written(dir.path + "in.ini", text)));
    EXPECT_EQ(config.GetKeyCount("s"), 200'002);
    EXPECT_EQ(config.ReadStr("s", "k199999", ""), "1");
}

} // namespace
