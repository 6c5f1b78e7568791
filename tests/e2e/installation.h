#ifndef PELCLOUD_TESTS_E2E_INSTALLATION_H
#define PELCLOUD_TESTS_E2E_INSTALLATION_H

#include "tests/support/localcloud.h"

#include <chrono>
#include <functional>
#include <poll.h>
#include <regex>
#include <sys/inotify.h>
#include <tuple>

#include <QFile>

/** `text` with each `word` replaced. */
inline std::string replaced(std::string text, const std::string &word, const std::string &by)
{
    for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += by.size())
        text.replace(at, word.size(), by);
    return text;
}

/** An installation directory with the real plug-in, the simulated suite and a host to load it. */
class Installation
{
public:
    /** `suite` takes the place of the suite's library. */
    explicit Installation(const std::string &suite = UPSCLI_FILE)
    {
        // QFile closes its files on exec: no other child may keep the host's program open.
        const std::pair<std::string, std::string> files[] = { { PLUGIN_FILE, "pelcloud.so" },
                                                              { suite, "upscli.so" },
                                                              { PELHOST_FILE, "pelhost" } };
        for (const auto &[from, to] : files)
            QFile::copy(QString::fromStdString(from), QString::fromStdString(file(to)));
        inotify_add_watch(m_events, m_directory.path.c_str(),
                          IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE);
    }
    ~Installation() { close(m_events); }
    Installation(const Installation &) = delete;
    Installation &operator=(const Installation &) = delete;

    [[nodiscard]] std::string file(const std::string &name) const
    {
        return m_directory.path + name;
    }

    void writeScenario(const std::string &text) const { written(file("scenario.ini"), text); }
    /** In one step, since a run may be reading it. */
    void writeConfig(const std::string &text) const
    {
        written(file("new"), text);
        std::filesystem::rename(file("new"), file("pelcloud.json"));
    }
    void writeConfig(const QJsonObject &object) const
    {
        writeConfig(QJsonDocument(object).toJson().toStdString());
    }
    [[nodiscard]] QJsonObject config() const
    {
        return QJsonDocument::fromJson(QByteArray::fromStdString(contentOf(file("pelcloud.json"))))
                .object();
    }

    /** Starts the host in a directory below; its token requests go through the proxy. */
    std::unique_ptr<Process> startHost(const std::string &proxy,
                                       std::vector<std::string> variables = {},
                                       const std::string &directory = "",
                                       const std::vector<std::string> &options = {}) const
    {
        variables.push_back("HTTPS_PROXY=" + proxy);
        std::vector command{ file("pelhost"), file("pelcloud.so") };
        command.insert(command.end(), options.begin(), options.end());
        return std::make_unique<Process>(command, file(directory), variables);
    }

    /** The log, with the times and the directory masked. */
    [[nodiscard]] std::string log() const
    {
        static const std::regex time(R"(\[\d\d-\d\d-\d{4} \d\d:\d\d:\d\d\.\d{3}\])");
        const std::string text = contentOf(file("pelcloud.log"));
        return replaced(std::regex_replace(text, time, "[TIME]"), m_directory.path, "HOME/");
    }
    /** How often `text` occurs in the log. */
    [[nodiscard]] int countInLog(const std::string &text) const
    {
        const std::string all = log();
        int count = 0;
        for (std::size_t at = 0; (at = all.find(text, at)) != std::string::npos; ++at)
            ++count;
        return count;
    }
    [[nodiscard]] bool awaitLog(const std::string &text, int count = 1) const
    {
        return await([&] { return countInLog(text) >= count; });
    }

    /** Waits for a condition, which is checked whenever a file changes; false after the timeout. */
    [[nodiscard]] bool await(const std::function<bool()> &condition,
                             std::chrono::seconds timeout = std::chrono::seconds(120)) const
    {
        using Clock = std::chrono::steady_clock;
        const Clock::time_point deadline = Clock::now() + timeout;
        while (!condition()) {
            auto left =
                    std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (m_events < 0) // the kernel limits how many may watch at once
                left = std::min(left, std::chrono::milliseconds(500));
            pollfd events{ m_events, POLLIN, 0 };
            char names[4096];
            if (left.count() <= 0 || poll(&events, 1, static_cast<int>(left.count())) < 0)
                return false;
            if (events.revents != 0 && read(m_events, names, sizeof names) < 0)
                return false;
        }
        return true;
    }

private:
    TempDir m_directory;
    int m_events = inotify_init1(IN_CLOEXEC);
};

#endif
