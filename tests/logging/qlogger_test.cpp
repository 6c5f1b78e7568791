#include "logging/qlogger.h"

#include <gtest/gtest.h>

#include <QDateTime>

#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

namespace {

using namespace QLogger;
namespace fs = std::filesystem;

const auto LOGS = { QLog_Trace, QLog_Debug, QLog_Info, QLog_Warning, QLog_Error, QLog_Fatal };

struct Log : testing::Test
{
    Log() { fs::current_path(mkdtemp(m_dir.data())); }
    ~Log() override { fs::remove_all(m_dir); }
    std::string m_dir = fs::temp_directory_path() / "pelcloud-log-XXXXXX";
    QLoggerManager *m_manager = QLoggerManager::getInstance();
};

TEST(RotatedName, IsCutAtTheLastDotOfTheWholePath)
{
    const QString date = "_15_11_26__18_14_03.log";
    const QString rows[][2] = {
        { "/opt/x/a.log", "/opt/x/a" }, { "/opt/a", "/opt/a" },       { "/opt/a.b/c", "/opt/a" },
        { "/a.b/c.d.txt", "/a.b/c.d" }, { "/9%1/%2.log", "/9%1/%2" }, { "a.", "a" },
    };
    for (const auto &[path, base] : rows)
        EXPECT_EQ(rotatedName(path, QDateTime({ 2026, 11, 15 }, { 18, 14, 3 })), base + date);
}

TEST_F(Log, RotatesAtOneMebibyteAndIgnoresFaults)
{
    qInstallMessageHandler([](auto, auto &, const QString &text) { FAIL() << text.toStdString(); });
    fs::remove_all(m_dir); // the working directory is gone
    fs::create_directory(m_dir);
    const auto now = QDateTime::currentDateTime();
    for (int i = 0; i < 120; ++i)
        std::ofstream(rotatedName((m_dir + "/taken.log").c_str(), now.addSecs(i)).toStdString());
    // The size before, then the outcome: '+' the file grows, '-' it is rotated, '0' there is no file,
    // on a full disk, in a read-only directory, or with a directory in its place.
    const std::tuple<const char *, std::size_t, char> rows[] = {
        { "below.log", 1048575, '+' }, { "at.log", 1048576, '-' }, { "taken.log", 1048576, '+' },
        { "/dev/full", 0, '0' },       { "/proc/a.log", 0, '0' },  { "/proc/sys", 0, '0' },
    };
    for (const auto &[name, before, outcome] : rows) {
        const auto path = m_dir / fs::path(name);
        std::ofstream(path) << std::string(before, 'x');
        QLoggerWriter(path.c_str(), LogLevel::Info).write("M", "m");
        const auto after = fs::is_regular_file(path) ? fs::file_size(path) : 0;
        EXPECT_EQ(after > before ? '+' : after > 0 ? '-' : '0', outcome) << name;
    }
    QLoggerWriter("", LogLevel::Info).write("M", "m");
}

TEST_F(Log, ThreadsWriteWholeLinesAcrossRotationUntilClosed)
{
    for (const bool added : { true, true, false }) // "A", then "B", then none
        EXPECT_EQ(m_manager->addDestination("t.log", { "A", "B" }, LogLevel::Fatal), added);
    QLog_Fatal("C", "no destination");
    std::ofstream("t.log") << std::string(1000000, '\n');
    for (auto &thread : std::vector<std::jthread>(8)) // joined at the end of the loop
        thread = std::jthread([this] {
            for (int i = 0; i < 1200; ++i) {
                const QString module(i % 2 == 0 ? "A" : "B");
                m_manager->getLogWriter(module)->setLogLevel(LogLevel::Warning);
                LOGS.begin()[i % 6](module, QString::number(i % 6) + " %2 \u00e9");
            }
        });
    EXPECT_TRUE(fs::remove("logs")); // throws unless it is empty
    std::ostringstream all;
    for (const auto &file : fs::directory_iterator("."))
        all << std::ifstream(file.path()).rdbuf();
    const std::string text = all.str(), time = R"((\d\d-\d\d-\d{4} \d\d:\d\d:\d\d\.\d{3}))";
    const std::regex lines("(" + time
                           + " - Previous log t(_\\d\\d){3}_(_\\d\\d){3}\\.log\n\\[\\2|\\[" + time
                           + ")\\] \\[Warning\\] \\{[AB]\\} [345] %2 \u00e9\n");
    EXPECT_EQ(std::regex_replace(text, lines, "").find_first_not_of('\n'), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1000000 + 4800 + 1);
    EXPECT_EXIT(m_manager->closeLogger(), testing::ExitedWithCode(0), "^$");
}

} // namespace
