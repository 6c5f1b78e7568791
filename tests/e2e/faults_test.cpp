// Faults of the system around the shipped plug-in, for one run of a real host or several. When a fault is
// over, the next run must report as usual.

#include "tests/e2e/life.h"

#include <sys/resource.h>
#include <thread>

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

const std::string REPORT = "POST pc1/000 on mains 100%";

TEST(Faults, CloudSpeaksNoTls)
{
    Life life("units = 1\n");
    const std::string address = life.cloud.address("api");
    life.home.writeConfig(configOfOneClient("https" + address.substr(address.find(':'))));
    life.start({ "NO_PROXY=127.0.0.1" });
    EXPECT_TRUE(life.home.awaitLog("/mon/pc1 error."));
    EXPECT_TRUE(life.home.awaitLog("/mon/pc1/device/000 error."));
    life.home.writeConfig(life.config);
    EXPECT_EQ(life.nextReport(), REPORT);
    life.stop();
}

/** The log cannot be written in the first run. */
void passesWithLog(const std::function<void(const fs::path &)> &spoil)
{
    Life life("units = 1\n");
    const fs::path log = life.home.file("pelcloud.log");
    spoil(log);
    life.start();
    EXPECT_EQ(life.nextReport(), REPORT);
    fs::remove(log);
    EXPECT_EQ(life.nextReport(), REPORT);
    EXPECT_TRUE(life.home.awaitLog("device/000 OK."));
    life.stop();
}

TEST(Faults, DiskOfLogIsFull)
{
    passesWithLog([](const fs::path &log) { fs::create_symlink("/dev/full", log); });
}

TEST(Faults, LogCannotBeOpened)
{
    passesWithLog([](const fs::path &log) { fs::create_directory(log); });
}

TEST(Faults, WorkingDirectoryIsRemoved)
{
    Life life("units = 1\n");
    fs::create_directory(life.home.file("work"));
    life.start({}, "work");
    EXPECT_TRUE(life.home.awaitLog("Start service: OK."));
    fs::remove_all(life.home.file("work"));
    EXPECT_EQ(life.nextReport(), REPORT);
    EXPECT_TRUE(life.home.awaitLog("device/000 OK."));
    life.stop();
}

TEST(Faults, NoFileDescriptorIsLeft)
{
    Life life("units = 1\n");
    life.start();
    EXPECT_EQ(life.nextReport(), REPORT);
    const rlimit none{ 0, 4096 };
    EXPECT_EQ(prlimit(life.host->id(), RLIMIT_NOFILE, &none, nullptr), 0);
    std::this_thread::sleep_for(11s); // a run that can open nothing leaves no trace to wait for
    const rlimit enough{ 1024, 4096 };
    EXPECT_EQ(prlimit(life.host->id(), RLIMIT_NOFILE, &enough, nullptr), 0);
    EXPECT_EQ(life.nextReport(), REPORT);
    life.stop();
}

TEST(Faults, FileOfLibraryIsReplaced)
{
    Life life("units = 1\n");
    life.start();
    EXPECT_EQ(life.nextReport(), REPORT);
    const fs::path library = life.home.file("upscli.so");
    fs::rename(written(library.string() + ".new", "no library"), library);
    EXPECT_EQ(life.nextReport(), REPORT);
    life.stop();
}

/** The library misbehaves in the first run, which reports what it can. */
void passesWithUnit(const std::string &fault)
{
    Life life("units = 1\n[unit 0]\nfault-until = 15\n" + fault);
    life.start();
    const std::string report = life.nextReport();
    EXPECT_TRUE(report.starts_with("POST pc1/000 ") && report != REPORT) << report;
    EXPECT_EQ(life.nextReport(), REPORT);
    EXPECT_TRUE(life.home.awaitLog("device/000 OK.", 2));
    EXPECT_EQ(life.home.countInLog("rror"), 0) << life.home.log();
    life.stop();
}

TEST(Faults, LibraryReturnsGarbage)
{
    passesWithUnit("garbage = yes\nunterminated = yes\n");
}

TEST(Faults, LibraryReturnsExtremes)
{
    passesWithUnit("extreme = yes\n");
}

TEST(Faults, LibraryReturnsNoNumbers)
{
    passesWithUnit("nan = yes\n");
}

#if !PELCLOUD_SANITIZED // a sanitizer's runtime must be loaded first
/** The system's clock is set after the first run. */
void passesWithClock(const std::string &by)
{
    Life life("units = 1\n");
    const auto set = [&life](const std::string &text) {
        written(life.home.file("new-clock"), text);
        fs::rename(life.home.file("new-clock"), life.home.file("clock"));
    };
    set("+0s");
    life.start({ "LD_PRELOAD=" FAKETIME_FILE, "FAKETIME_NO_CACHE=1",
                 "FAKETIME_DONT_FAKE_MONOTONIC=1",
                 "FAKETIME_TIMESTAMP_FILE=" + life.home.file("clock") });
    EXPECT_EQ(life.nextReport(), REPORT);
    set(by);
    if (by[0] == '-') {
        std::this_thread::sleep_for(3s); // no run is due until the clock has caught up
        set("+0s");
    }
    EXPECT_EQ(life.nextReport(), REPORT);
    life.stop();
}

TEST(Faults, ClockIsSetForward)
{
    passesWithClock("+86400s");
}

TEST(Faults, ClockIsSetBack)
{
    passesWithClock("-3600s");
}
#endif

} // namespace
