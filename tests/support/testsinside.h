#ifndef PELCLOUD_TESTS_SUPPORT_TESTSINSIDE_H
#define PELCLOUD_TESTS_SUPPORT_TESTSINSIDE_H

#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/**
 * Runs all tests of this program from an installation directory of their own, in which `suite` is
 * upscli.so: the program copies itself there first, for the installation directory is that of the
 * running program.
 */
inline int runTestsInside(int argc, char **argv, const std::string &suite)
{
    constexpr const char *INSIDE = "PELCLOUD_TEST_IS_INSIDE";
    const bool isInside = std::getenv(INSIDE) != nullptr; // NOLINT(concurrency-mt-unsafe)
    std::vector<char *> arguments(argv, argv + argc + 1); // before GoogleTest takes its own out
    testing::InitGoogleTest(&argc, argv);
    if (isInside || testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();
    if (std::filesystem::exists("/etc/pelorin.conf")) {
        std::puts("A suite is installed here (/etc/pelorin.conf); its files are not for tests.");
        return 1;
    }
    const TempDir directory;
    const std::string program = directory.path + "test";
    std::filesystem::copy_file("/proc/self/exe", program);
    std::filesystem::copy_file(suite, directory.path + "upscli.so");
    ::setenv(INSIDE, "yes", 1); // NOLINT(concurrency-mt-unsafe): the only thread
    pid_t child = 0;
    int status = 0;
    if (posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments.data(), environ) != 0
        || waitpid(child, &status, 0) != child)
        return 1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

#endif
