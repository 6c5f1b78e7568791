// A real host under valgrind, from start to stop: no invalid access, and no leak that grows with the number of runs.

#include "tests/e2e/installation.h"

#include <gtest/gtest.h>

#include <future>

namespace {

constexpr int STATUS_OF_ERRORS = 99;

/** The leaks of a host, a line for each kind: "definitely lost: 0 bytes in 0 blocks". */
std::vector<std::string> leaksAfter(int runs)
{
    LocalCloud cloud;
    const Installation home;
    home.writeScenario("units = 2\n[unit *]\nsamples = 8\n");
    home.writeConfig(configOfOneClient(cloud.address("api")));
    Process host({ VALGRIND_PROGRAM, "--error-exitcode=" + std::to_string(STATUS_OF_ERRORS),
                   "--leak-check=full", "--errors-for-leak-kinds=none", "--num-callers=30",
                   "--log-file=" + home.file("valgrind.log"), home.file("pelhost"),
                   home.file("pelcloud.so") },
                 home.file(""), { "HTTPS_PROXY=" + cloud.address("proxy") });
    EXPECT_TRUE(home.awaitLog("device/001 OK.", runs)) << home.log();
    host.signal(SIGTERM);
    const int status = host.wait();
    const std::string report = contentOf(home.file("valgrind.log"));
    EXPECT_EQ(status, 0) << report;
    EXPECT_NE(report.find("ERROR SUMMARY: 0 errors"), std::string::npos) << report;
    std::vector<std::string> leaks;
    const std::regex leak("(definitely|indirectly) lost: .*");
    for (std::sregex_iterator at(report.begin(), report.end(), leak), end; at != end; ++at)
        leaks.push_back(at->str());
    return leaks;
}

TEST(Valgrind, FindsNoErrorAndNoGrowingLeak)
{
    auto longer = std::async(std::launch::async, leaksAfter, 4);
    const std::vector<std::string> leaks = leaksAfter(1);
    EXPECT_EQ(leaks.size(), 2U);
    EXPECT_EQ(leaks, longer.get());
}

} // namespace
