// Whole lives of a real host under valgrind: no invalid access, and nothing lost that more runs make
// more of.

#include "tests/e2e/installation.h"

#include <gtest/gtest.h>

#include <future>

namespace {

constexpr int STATUS_OF_ERRORS = 99;

/** A line for each kind of loss: "definitely lost: 0 bytes in 0 blocks". */
std::vector<std::string> lossesOfALife(int runs)
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
    std::vector<std::string> losses;
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);) {
        for (const char *kind : { "definitely lost:", "indirectly lost:" }) {
            if (const std::size_t at = line.find(kind); at != std::string::npos)
                losses.push_back(line.substr(at));
        }
    }
    return losses;
}

TEST(Valgrind, FindsNothingThatGrows)
{
    auto longer = std::async(std::launch::async, lossesOfALife, 4);
    const std::vector<std::string> losses = lossesOfALife(1);
    EXPECT_EQ(losses.size(), 2U);
    EXPECT_EQ(losses, longer.get());
}

} // namespace
