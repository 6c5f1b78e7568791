#ifndef PELCLOUD_TESTS_E2E_LIFE_H
#define PELCLOUD_TESTS_E2E_LIFE_H

#include "tests/e2e/installation.h"

#include <gtest/gtest.h>

/** A host with the plug-in, in an installation of its own, that reports to a local cloud of its own. */
struct Life
{
    /** The configuration has what a sign-in needs, and the log level Info. */
    explicit Life(const std::string &scenario, const std::vector<std::string> &cloudOptions = {},
                  const char *seed = SEED_OF_ONE_CLIENT)
        : cloud(seed, cloudOptions)
    {
        home.writeScenario(scenario);
        home.writeConfig(config);
    }

    void start(std::vector<std::string> variables = {}, const std::string &directory = "")
    {
        host = home.startHost(cloud.address("proxy"), std::move(variables), directory);
    }
    /** Stops the host as the suite does; the plug-in must end it in order. */
    void stop() const
    {
        host->signal(SIGTERM);
        EXPECT_EQ(host->readAll(), "loaded " + home.file("pelcloud.so")
                                           + "\nSrvStart: 1\nreceived SIGTERM\nstopping\n"
                                             "exited by the plug-in during SrvStop, status 0\n");
        EXPECT_EQ(host->wait(), 0);
    }
    /** Waits for a report of a unit; what the cloud prints about it. */
    std::string nextReport()
    {
        std::string line = cloud.readLine();
        while (line.starts_with("PUT "))
            line = cloud.readLine();
        return line;
    }

    LocalCloud cloud;
    QJsonObject config = configOfOneClient(cloud.address("api"));
    Installation home;
    std::unique_ptr<Process> host;
};

#endif
