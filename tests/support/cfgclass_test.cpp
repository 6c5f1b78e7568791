#include "support/cfgclass.h"
#include "support/datetext.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <clocale>
#include <cmath>
#include <ctime>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <sys/stat.h>

namespace {

using namespace std::string_literals;

/** Sections, keys and values, found by number: "[A]K=v;L=w;[B]". */
std::string dump(CfgClass &config)
{
    std::string text;
    for (unsigned long s = 0; s < config.GetSectionCount(); ++s) {
        const std::string section = config.GetSectionName(s);
        text += '[' + section + ']';
        for (unsigned long k = 0; k < config.GetKeyCount(section); ++k)
            text += config.GetKeyName(section, k) + '=' + config.ReadStr(section, k, "?"s) + ';';
    }
    return text;
}

TEST(Ini, Grammar)
{
    const struct
    {
        const char *name;
        std::string text, sections;
        int error;
        std::uint64_t line;
    } rows[] = {
        { "nothing", "", "", 0, 0 },
        { "one section under two spellings, first key wins",
          "[ Net ]\nport=1\n[b]\n[NET]\nPORT=2\nhost=h", "[B][NET]HOST=h;PORT=1;", 0, 0 },
        { "first equals sign divides", "[s]\na=b=c\nE=\n", "[S]A=b=c;E=;", 0, 0 },
        { "bad lines are left out", "[s]\na=1\n=x\nx\n[x\na]=1\n[]\nb=[2]\n=\n[c]]\nz=2\n",
          "[S]A=1;Z=2;", 7, 3 },
        { "comments stand alone", ";c\n#k=1\n'k=2\n\n \t\n ;l=1\nk=v ;c\n", "[]K=v ;c;", 0, 0 },
        { "no comment behind a header", "[s] ;c\nk=1", "[]K=1;", 7, 1 },
        { "blanks around names and values", "\t[ a b ] \n  k l \t=  V w \t\n", "[A B]K L=V w;", 0,
          0 },
        { "odd headers", "[ ]\nk=1\n[[a]\nl=2", "[]K=1;[[A]L=2;", 0, 0 },
        { "keys before, between and after headers", "a=1\n[s]\nb=2\n[ ]\nc=3", "[]A=1;C=3;[S]B=2;",
          0, 0 },
        { "carriage returns", "[s]\r\nk=v\r\n\r\n;c\r\n", "[S]K=v;", 0, 0 },
        { "NULs end a line's text", "[s]\nk=v\0w\n\0\nx\0=1\nm=2"s, "[S]K=v;M=2;", 7, 4 },
        { "not the locale's encoding", "[caf\xc3\xa9]\nn\xff=\xfe\n", "[caf\xc3\xa9]n\xff=\xfe;", 0,
          0 },
    };
    const TempDir dir;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const std::string file = dir.write("in.ini", row.text);
        for (const bool readOnly : { false, true }) {
            CfgClass config;
            EXPECT_TRUE(config.SetFileName(file.c_str(), readOnly));
            EXPECT_EQ(config.GetErrorCode(), row.error);
            EXPECT_EQ(config.GetErrorLine(), row.line);
            EXPECT_EQ(dump(config), row.sections);
            EXPECT_TRUE(config.Close());
        }
        EXPECT_EQ(contentOf(file), row.text);
    }
}

TEST(Ini, NamesFollowTheLocale)
{
    const TempDir dir;
    std::setlocale(LC_ALL, "de_DE.UTF-8");
    CfgClass config;
    EXPECT_TRUE(config.Open(dir.write("in.ini", "[gr\xc3\xbcn]\n\xc3\xa4=1\n\xc3\x84=2")));
    EXPECT_EQ(dump(config), "[GR\xc3\x9cN]\xc3\x84=1;");
    EXPECT_EQ(config.ReadInt("Gr\xc3\xbcn", "\xc3\xa4", 9), 1);
    std::setlocale(LC_ALL, "C");
}

using Edit = std::function<bool(CfgClass &)>;

TEST(Ini, RewritesOnlyWhatChanged)
{
    const struct
    {
        const char *name;
        std::string before;
        Edit edit;
        std::string after, afterReg; // the latter only where it differs
    } rows[] = {
        { "changed value",
          "; top\n\n[ Net ]\n \tPort  =1=2 \n#c\n[b]\nx=1\n\n",
          [](auto &c) { return c.WriteStr("net", "PORT", "a b"); },
          "; top\n\n[ Net ]\nPort = a b\n#c\n[b]\nx=1\n",
          {} },
        { "new key behind the last one", "[a]\nx=1\n;c\n[b]\nx=1\n[A]\nz=1\n;d",
          [](auto &c) { return c.WriteInt("a", "New", -5); },
          "[a]\nx=1\n;c\n[b]\nx=1\n[A]\nz=1\nNEW = -5\n;d",
          "[a]\nx=1\n;c\n[b]\nx=1\n[A]\nz=1\nNew = -5\n;d" },
        { "new key below its header",
          "[b]\n[a]\n;c\n",
          [](auto &c) { return c.WriteBool("b", "K", true) && c.WriteUInt("b", "L", ULONG_MAX); },
          "[b]\nK = 1\nL = 18446744073709551615\n[a]\n;c",
          {} },
        { "new section at the end", "k=1\n",
          [](auto &c) { return c.WriteFloat("New s", "Key", 2.0, 5, 2); },
          "k=1\n[NEW S]\nKEY =   2.0", "k=1\n[New s]\nKey =   2.0" },
        { "new key before all headers",
          ";c\nk=1\n[a]",
          [](auto &c) { return c.DeleteKey("", "k") && c.WriteStr("", "L", ""); },
          "L = \n;c\n[a]",
          {} },
        { "line ends of other lines stay",
          "[a]\r\nk=1\r\nl=2\r\n",
          [](auto &c) { return c.WriteStr("a", "k", "3"); },
          "[a]\r\nk = 3\nl=2\r",
          {} },
        { "deleted key does not come back",
          "[a]\nk=1\n;c\nK=2\nl=3\n[b]\nk=4\n[a]\nk=5",
          [](auto &c) { return c.DeleteKey("A", "k"); },
          "[a]\n;c\nl=3\n[b]\nk=4\n[a]",
          {} },
        { "the key before a deleted last one is the last",
          "[a]\nk=1\n;c\nl=2\n;d",
          [](auto &c) { return c.DeleteKey("a", "l") && c.WriteStr("a", "M", "3"); },
          "[a]\nk=1\nM = 3\n;c\n;d",
          {} },
        { "erased section",
          ";t\n[a]\nk=1\n;in\njunk\n[b]\n;b\nl=1\n[A]\nk=2\nm=[\n[c]\nm=1",
          [](auto &c) { return c.EraseSection("a"); },
          ";t\n[b]\n;b\nl=1\n[c]\nm=1",
          {} },
        { "erased keys without header",
          ";t\nk=1\nK=2\n[b]\nl=1\n[ ]\nm=1\n;in",
          [](auto &c) { return c.EraseSection(""); },
          ";t\n[b]\nl=1",
          {} },
        { "erased and made again", "[a]\nk=1\n[b]",
          [](auto &c) { return c.EraseSection("a") && c.WriteStr("a", "L", "2"); },
          "[b]\n[A]\nL = 2", "[b]\n[a]\nL = 2" },
    };
    const TempDir dir;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const std::string file = dir.path("in.ini");
        for (const bool cached : { false, true }) {
            CfgClass config;
            RegCfgClass regConfig;
            for (CfgClass *const c : { &config, static_cast<CfgClass *>(&regConfig) }) {
                const bool isReg = c != &config && !row.afterReg.empty();
                EXPECT_TRUE(c->Open(dir.write("in.ini", row.before)));
                c->SetCached(cached);
                EXPECT_TRUE(row.edit(*c));
                EXPECT_EQ(c->GetErrorCode(), 0);
                if (cached) {
                    EXPECT_EQ(contentOf(file), row.before);
                    c->SetCached(false);
                }
                EXPECT_EQ(contentOf(file), isReg ? row.afterReg : row.after);
            }
        }
    }
}

TEST(Ini, RefusesWithAnErrorCode)
{
    const struct
    {
        const char *name;
        Edit edit;
        std::array<int, 3> errors; // with no file, with a file for reading only, with a file
    } rows[] = {
        { "read", [](auto &c) { return c.ReadStr("s", "k", "?") == "v"; }, { 5, 0, 0 } },
        { "read missing", [](auto &c) { return c.ReadInt("s", "x", 3) != 3; }, { 5, 1, 1 } },
        { "read in missing", [](auto &c) { return c.ReadInt("x", "k", 3) != 3; }, { 5, 1, 1 } },
        { "read null",
          [](auto &c) { return !c.ReadStr(nullptr, "k", nullptr).empty(); },
          { 1, 1, 1 } },
        { "read empty key", [](auto &c) { return c.ReadStr("s", "", "?") != "?"; }, { 1, 1, 1 } },
        { "read beyond", [](auto &c) { return c.ReadBool("s", 1UL, false); }, { 1, 1, 1 } },
        { "key exists", [](auto &c) { return c.KeyExists("S", "K"); }, { 5, 0, 0 } },
        { "section exists", [](auto &c) { return c.SectionExists("S"); }, { 5, 0, 0 } },
        { "no section exists", [](auto &c) { return c.SectionExists(""); }, { 5, 1, 1 } },
        { "select", [](auto &c) { return c.SetSection("S"s) && c.KeyExists("k"); }, { 5, 0, 0 } },
        { "select null", [](auto &c) { return c.SetSection(nullptr); }, { 1, 1, 1 } },
        { "count", [](auto &c) { return c.GetKeyCount("s") == 1; }, { 1, 0, 0 } },
        { "name", [](auto &c) { return c.GetSectionName(0) == "S"; }, { 1, 0, 0 } },
        { "save",
          [](auto &c) {
              c.Flush();
              return !c.IsFail();
          },
          { 5, 6, 0 } },
        { "write", [](auto &c) { return c.WriteStr("s", "k", "v"); }, { 5, 6, 0 } },
        { "write null", [](auto &c) { return c.WriteStr("s", "k", nullptr); }, { 1, 1, 1 } },
        { "write two lines", [](auto &c) { return c.WriteStr("s", "k", "\n[x]"); }, { 1, 1, 1 } },
        { "write no section", [](auto &c) { return c.WriteStr("", "k", "v"); }, { 5, 6, 3 } },
        { "write bracket", [](auto &c) { return c.WriteStr("a]", "k", "v"); }, { 5, 6, 3 } },
        { "write comment", [](auto &c) { return c.WriteStr("new", ";k", "v"); }, { 5, 6, 3 } },
        { "write blank", [](auto &c) { return c.WriteStr("s", " k", "v"); }, { 5, 6, 3 } },
        { "write time",
          [](auto &c) { return c.WriteDateTime("s", "k", "yy", LONG_MAX); },
          { 1, 1, 1 } },
        { "delete missing", [](auto &c) { return c.DeleteKey("s", "x"); }, { 5, 6, 1 } },
        { "delete beyond", [](auto &c) { return c.DeleteKey(7UL); }, { 1, 1, 1 } },
        { "erase missing", [](auto &c) { return c.EraseSection("x"); }, { 5, 6, 1 } },
        { "open nothing", [](auto &c) { return c.Open(""); }, { 1, 1, 1 } },
        { "rename to nothing", [](auto &c) { return c.Rename(nullptr); }, { 1, 1, 1 } },
        { "save as nothing", [](auto &c) { return c.SaveAs(""s); }, { 4, 4, 4 } },
        { "save on a full disk", [](auto &c) { return c.SaveAs("/dev/full"); }, { 5, 6, 4 } },
    };
    const TempDir dir;
    for (const auto &row : rows) {
        for (std::size_t state = 0; state < row.errors.size(); ++state) {
            SCOPED_TRACE(row.name + (" in state " + std::to_string(state)));
            const std::string file = dir.write("in.ini", "[s]\nk = v");
            CfgClass config;
            ASSERT_EQ(config.SetFileName(state > 0 ? file.c_str() : "", state == 1), state > 0);
            EXPECT_EQ(row.edit(config), row.errors[state] == 0);
            EXPECT_EQ(config.GetErrorCode(), row.errors[state]);
            EXPECT_EQ(config.GetFileName(), state > 0 ? file : "");
            EXPECT_EQ(dump(config), state > 0 ? "[S]K=v;" : "");
            EXPECT_TRUE(config.Close());
            EXPECT_EQ(contentOf(file), "[s]\nk = v");
        }
    }
    EXPECT_FALSE(RegCfgClass().SaveAs(nullptr));
    RegCfgClass config;
    EXPECT_TRUE(!config.SaveAs(nullptr) && config.GetErrorCode() == 1);
}

TEST(Ini, OpensWhatIsNoFile)
{
    const TempDir dir;
    ASSERT_EQ(mkfifo(dir.path("fifo").c_str(), 0600), 0);
    const struct
    {
        std::string file;
        std::uint64_t line;
    } rows[] = {
        { dir.path("missing"), 0 },
        { dir.path(), 1 },
        { dir.write("file", "k=1") + "/below", 0 },
        { dir.path(std::string(5000, 'x')), 0 },
        { dir.path("fifo"), 0 },
        { "/dev/zero", 0 },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.file.substr(0, 80));
        CfgClass config;
        EXPECT_TRUE(config.Open(row.file));
        EXPECT_EQ(config.GetErrorCode(), 2);
        EXPECT_EQ(config.GetErrorLine(), row.line);
        EXPECT_FALSE(config.OpenReadOnly(row.file));
        EXPECT_EQ(config.GetErrorCode(), 2);
        EXPECT_EQ(config.GetFileName(), "");
    }
}

TEST(Ini, FailedWritesStayInMemory)
{
    const TempDir dir;
    const std::string file = dir.path("new.ini");
    CfgClass config;
    EXPECT_TRUE(config.Open("/dev/full"));
    EXPECT_FALSE(config.WriteStr("s", "k", "v"));
    EXPECT_EQ(config.GetErrorCode(), 2);
    EXPECT_EQ(config.ReadStr("s", "k", "?"), "v");
    EXPECT_FALSE(config.SaveAs(dir.path()));
    EXPECT_EQ(config.GetErrorCode(), 4);
    EXPECT_EQ(config.GetFileName(), "/dev/full");
    EXPECT_TRUE(config.Rename(file.c_str()) && config.Flush()); // still to be saved
    EXPECT_EQ(contentOf(file), "[S]\nK = v");

    std::filesystem::remove(file);
    EXPECT_TRUE(config.Flush() && config.Close()); // nothing to be saved any more
    EXPECT_FALSE(std::filesystem::exists(file));

    auto dying = std::make_unique<CfgClass>();
    EXPECT_TRUE(dying->Open(file));
    dying->SetCached(true);
    EXPECT_TRUE(dying->WriteStr("a", "b", "c"));
    EXPECT_TRUE(dying->SaveAs(dir.path("other.ini")) && dying->WriteStr("a", "b", "d"));
    EXPECT_EQ(contentOf(dir.path("other.ini")), "[A]\nB = c");
    dying.reset();
    EXPECT_EQ(contentOf(dir.path("other.ini")), "[A]\nB = d");
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(Ini, TypedValues)
{
    const struct
    {
        const char *text;
        long integer;
        bool flag; // with the default true
        double real;
    } rows[] = {
        { "2", 2, true, 2 },      { "0", 0, false, 0 },  { "-1", -1, true, -1 },
        { "true", 7, true, 7 },   { "", 7, true, 7 },    { "2,5", 7, true, 2.5 },
        { "1e3", 7, true, 1000 }, { "0x1", 7, true, 7 }, { "1 2", 7, true, 7 },
    };
    const TempDir dir;
    CfgClass config;
    ASSERT_TRUE(config.Open(dir.path("in.ini")));
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_TRUE(config.WriteStr("s", "k", row.text));
        EXPECT_EQ(config.ReadInt("s", "k", 7), row.integer);
        EXPECT_EQ(config.ReadBool("s", "k", true), row.flag);
        EXPECT_EQ(config.ReadFloat("s", "k", 7), row.real);
    }
}

TEST(Ini, EveryShapeReachesTheSameKey)
{
    const TempDir dir;
    CfgClass c;
    ASSERT_TRUE(c.Open(dir.write("in.ini", "[s]\na=\nk=\n[t]")));
    ASSERT_TRUE(c.SetSection("s"));
    const std::string s = "s", k = "k", f = "ss:nn", x = "x", empty;
    const Edit writes[] = {
        [&](auto &) { return c.WriteDateTime("s", "k", "ss:nn", 61); },
        [&](auto &) { return c.WriteDateTime(s, k, f, 61); },
        [&](auto &) { return c.WriteDateTime("k", "ss:nn", 61); },
        [&](auto &) { return c.WriteDateTime(k, f, 61); },
        [&](auto &) { return c.WriteDateTime("s", 1UL, "ss:nn", 61); },
        [&](auto &) { return c.WriteDateTime(s, 1UL, f, 61); },
        [&](auto &) { return c.WriteDateTime(1UL, "ss:nn", 61); },
    };
    for (const Edit &write : writes) {
        EXPECT_TRUE(write(c));
        EXPECT_EQ(dump(c), "[S]A=;K=01:01;[T]");
        EXPECT_EQ(c.ReadDateTime("s", "k", "ss:nn", 9), c.ReadDateTime(s, k, f, 8));
        EXPECT_EQ(c.ReadDateTime("k", "ss:nn", 9), c.ReadDateTime(k, f, 8));
        EXPECT_EQ(c.ReadDateTime("s", 1UL, "ss:nn", 9), c.ReadDateTime(s, 1UL, f, 8));
        EXPECT_EQ(c.ReadDateTime(1UL, "ss:nn", 9), c.ReadDateTime("s", "k", "ss:nn", 8));
        EXPECT_EQ(c.ReadStr(1UL, "x") + c.ReadStr(1UL, x) + c.ReadStr(k, x), "01:0101:0101:01");
        EXPECT_TRUE(c.WriteStr(1UL, empty) && c.KeyExists(k) && c.KeyExists(s, k));
    }
    EXPECT_TRUE(c.DeleteKey(0UL) && c.SectionExists() && c.GetKeyCount() == 1);
    EXPECT_TRUE(c.EraseSection() && !c.SectionExists(s) && c.GetSection() == s);
    EXPECT_FALSE(c.SetSection("u")); // not there yet, but selected
    EXPECT_TRUE(c.WriteStr("k", "v"));
    EXPECT_EQ(dump(c), "[T][U]K=v;");
}

TEST(DateText, Formats)
{
    constexpr long DEF = -99;
    const struct
    {
        const char *format, *text;
        long time;
    } rows[] = {
        { "dd/mm/yyyy hh:nn:ss", "29/02/2024 23:59:58", 1709251198 },
        { "yyyymmddhhnnss", "19691231235959", -1 },
        { "yyyy", "1970", 0 },
        { "dd.mm.yy d m", "01.01.69 d m", -31536000 },
        { "yy", "68", 3092601600 },
        { "dd/mm/yyyy", "29/02/2023", DEF },
        { "dd/mm/yyyy", "00/01/2023", DEF },
        { "mm", "13", DEF },
        { "mm", "1", DEF },
        { "mm", "+1", DEF },
        { "mm", "01 ", DEF },
        { "hh", "24", DEF },
        { "nn:ss", "10-10", DEF },
        { "nn", "60", DEF },
        { "ss", "60", DEF },
        { "", "", DEF },
        { "DD", "01", DEF },
        { nullptr, "1", DEF },
        { "yy", nullptr, DEF },
    };
    setenv("TZ", "UTC0", 1);
    tzset();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text == nullptr ? "null" : row.text);
        EXPECT_EQ(StrToDateTimeDef(row.text, row.format, DEF), row.time);
        if (row.time != DEF) {
            EXPECT_EQ(DateTimeToStr(row.time, row.format), row.text);
        }
    }

    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    std::mt19937_64 random(5);
    for (int i = 0; i < 5000; ++i) {
        const long time = static_cast<long>(random() % 8'000'000'000) - 2'000'000'000;
        std::tm local{};
        std::array<char, 32> expected{};
        std::strftime(expected.data(), expected.size(), "%H:%M:%S %d.%m.%Y %y",
                      localtime_r(&time, &local));
        const std::string text = DateTimeToStr(time, "hh:nn:ss dd.mm.yyyy yy");
        ASSERT_EQ(text, expected.data());
        const long back = StrToDateTimeDef(text.substr(0, 19).c_str(), "hh:nn:ss dd.mm.yyyy", DEF);
        ASSERT_EQ(std::abs(back - time) % 3600, 0) << text;
        ASSERT_EQ(DateTimeToStr(back, "hh:nn:ss dd.mm.yyyy"), text.substr(0, 19));
    }
    EXPECT_EQ(StrToDateTimeDef("15/07/2024 12", "dd/mm/yyyy hh", DEF), 1721037600); // summer time
    unsetenv("TZ");
    tzset();
}

/** Sections, keys and values as a simple-minded reader and editor sees them. */
using Model = std::map<std::string, std::map<std::string, std::string>>;

std::string dump(const Model &model)
{
    std::string text;
    for (const auto &[section, keys] : model) {
        text += '[' + section + ']';
        for (const auto &[key, value] : keys)
            text.append(key).append("=").append(value).append(";");
    }
    return text;
}

template <class Map>
std::string nameAt(const Map &map, std::size_t index)
{
    return index < map.size() ? std::next(map.begin(), static_cast<long>(index))->first : "";
}

TEST(Ini, EditsLikeAMap)
{
    const TempDir dir;
    const std::string file = dir.path("in.ini");
    for (unsigned int seed = 0; seed < 300; ++seed) {
        std::mt19937 random(seed);
        const auto pick = [&random](std::size_t below) { return random() % below; };
        const auto name = [&pick] { return std::string(1, "ABCDabcd"[pick(8)]); };
        const auto capital = [](const std::string &n) { return std::string(1, n[0] & ~0x20); };
        Model model;
        std::string text = "; first\n", section;
        for (auto lines = pick(40); lines > 0; --lines) {
            const std::string n = name(), value = std::to_string(random());
            const auto kind = pick(8);
            if (kind < 2) {
                text += " [" + n + " ]\n";
                model[section = capital(n)];
            } else if (kind < 6) {
                text += n + (kind == 2 ? "=" : "\t = ") + value + (kind == 3 ? "\r\n" : "\n");
                model[section].try_emplace(capital(n), value);
            } else {
                text += kind == 6 ? "; c\n" : "junk\n";
            }
        }
        auto config =
                seed % 2 == 0 ? std::make_unique<CfgClass>() : std::make_unique<RegCfgClass>();
        ASSERT_TRUE(config->Open(dir.write("in.ini", text)));
        config->SetCached(seed % 8 != 0);
        for (int edits = 0; edits < 30; ++edits) {
            if (edits % 8 == 0) {
                ASSERT_EQ(dump(*config), dump(model)) << seed << '\n' << text;
            }
            const std::string n = name(), value = std::to_string(random());
            const std::string s = model.contains("") && pick(4) == 0 ? "" : name();
            const std::string upper = s.empty() ? s : capital(s);
            const auto number = pick(5);
            ASSERT_EQ(config->GetSectionName(number), nameAt(model, number));
            ASSERT_EQ(config->GetKeyName(s, number),
                      model.contains(upper) ? nameAt(model[upper], number) : "");
            const auto kind = pick(10);
            if (kind < 5) {
                ASSERT_TRUE(config->WriteStr(s, n, value));
                model[upper][capital(n)] = value;
            } else if (kind < 9) {
                ASSERT_EQ(config->DeleteKey(s, n),
                          model.contains(upper) && model[upper].erase(capital(n)) > 0);
            } else {
                ASSERT_EQ(config->EraseSection(s), model.erase(upper) > 0);
            }
        }
        ASSERT_TRUE(config->Close());
        ASSERT_TRUE(config->Open(file));
        if (!config->SectionExists("") && model.contains("") && model[""].empty())
            model.erase(""); // without a key and a header nothing tells of it
        ASSERT_EQ(dump(*config), dump(model)) << seed << '\n' << text;
        ASSERT_NE(contentOf(file).find("; first"), std::string::npos) << seed;
    }
}

TEST(Ini, SurvivesAnyBytes)
{
    const TempDir dir;
    std::mt19937 random(7);
    const std::string alphabet = "[]=;#' \t\r\n\n\nab\0\xc3\xa4\xff"s;
    for (int i = 0; i < 500; ++i) {
        std::string text(random() % 400, ' ');
        for (char &c : text)
            c = i % 2 == 0 ? alphabet[random() % alphabet.size()] : static_cast<char>(random());
        CfgClass config;
        CfgClass readOnly;
        ASSERT_TRUE(config.Open(dir.write("in.ini", text)));
        ASSERT_TRUE(readOnly.OpenReadOnly(dir.path("in.ini")));
        ASSERT_EQ(dump(config), dump(readOnly)) << text;
        ASSERT_EQ(config.GetErrorLine(), readOnly.GetErrorLine());
        ASSERT_TRUE(config.SaveAs(dir.path("out.ini")));
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        ASSERT_EQ(contentOf(dir.path("out.ini")), text);
    }
}

TEST(Ini, LargeFilesTakeNoQuadraticTime)
{
    constexpr unsigned long KEYS = 200'000;
    const TempDir dir;
    std::ostringstream text;
    text << "[s]\nlong=" << std::string(10'000'000, 'x') << '\n' << std::string(10'000'000, '=');
    for (unsigned long i = 0; i < KEYS; ++i)
        text << "\nk" << i << "=1\nsame=" << i;
    CfgClass config;
    ASSERT_TRUE(config.Open(dir.write("in.ini", text.str())));
    EXPECT_EQ(config.GetErrorLine(), 3U);
    EXPECT_EQ(config.ReadStr("s", "long", "").size(), 10'000'000U);
    EXPECT_EQ(config.GetKeyCount("s"), KEYS + 2);
    config.SetCached(true);
    for (unsigned long i = 0; i < KEYS; ++i)
        ASSERT_TRUE(config.WriteStr("s", i, "2")
                    && config.WriteInt("s", "n" + std::to_string(i), 3));
    for (unsigned long i = config.GetKeyCount("s"); i > 0; --i)
        ASSERT_TRUE(config.DeleteKey("s", config.GetKeyName("s", i - 1)));
    EXPECT_TRUE(config.Close());
    EXPECT_EQ(contentOf(dir.path("in.ini")), "[s]\n" + std::string(10'000'000, '='));
}

} // namespace
