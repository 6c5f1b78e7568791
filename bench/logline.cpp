// One line into the log, and the system calls that it cannot do without.

#include "bench/allocations.h"
#include "logging/qlogger.h"
#include "tests/support/tempdir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include <QStringList>

namespace {

using namespace QLogger;

constexpr std::string_view LINE =
        "[31-12-2024 23:59:59.999] [Info] {PelCloud} HTTP POST "
        "http://127.0.0.1:8080/_ah/api/pelorin/v1/mon/pc1/device/000 OK.\n";
constexpr int LINES = 5000; // the file does not come to the size at which it is moved aside

/** The working directory, as a log finds it from its second line on. */
struct LogDirectory
{
    LogDirectory()
    {
        std::filesystem::current_path(temporary.path);
        std::filesystem::create_directory("logs");
    }
    ~LogDirectory() { std::filesystem::current_path("/"); }
    LogDirectory(const LogDirectory &) = delete;
    LogDirectory &operator=(const LogDirectory &) = delete;

    const TempDir temporary;
    const std::string file = temporary.path + "pelcloud.log";
};

void logLine(benchmark::State &state)
{
    static int number = 0; // a destination stays for good
    const LogDirectory directory;
    const QString module = QStringLiteral("PelCloud%1").arg(++number);
    const QString message = QStringLiteral("HTTP POST http://127.0.0.1:8080/_ah/api/pelorin/v1/mon/"
                                           "pc1/device/000 OK.");
    QLoggerManager::getInstance()->addDestination(QString::fromStdString(directory.file),
                                                  { module }, LogLevel::Info);
    measure(state, [&] { QLog_Info(module, message); });
}

void logBare(benchmark::State &state)
{
    const LogDirectory directory;
    measure(state, [&directory] {
        struct stat status
        {};
        ::stat("logs", &status);
        ::stat(directory.file.c_str(), &status);
        const int file =
                ::open(directory.file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        benchmark::DoNotOptimize(::write(file, LINE.data(), LINE.size()));
        ::close(file);
    });
}

BENCHMARK(logLine)->Iterations(LINES);
BENCHMARK(logBare)->Iterations(LINES);

} // namespace
