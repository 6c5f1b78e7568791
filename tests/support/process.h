#ifndef PELCLOUD_TESTS_SUPPORT_PROCESS_H
#define PELCLOUD_TESTS_SUPPORT_PROCESS_H

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <set>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

/**
 * A child process; what it prints on either stream can be read line by line. It ends at the latest
 * with this object. For one thread at a time, except that signal() may come from any.
 */
class Process
{
public:
    /** The child gets this environment, less all proxies, with `variables` ("NAME=value") added. */
    explicit Process(std::vector<std::string> command, const std::string &directory = ".",
                     std::vector<std::string> variables = {})
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        m_output.reset(fdopen(ends[0], "r"));
        for (char **variable = environ; *variable != nullptr; ++variable) {
            if (!isProxy(*variable))
                variables.emplace_back(*variable);
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
        posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
        int error = ETXTBSY;
        // A child of another thread, between its fork and its exec, may hold the program open.
        for (int attempts = 0; error == ETXTBSY && attempts < 1000; ++attempts) {
            error = posix_spawn(&m_id, command.front().c_str(), &actions, nullptr,
                                pointers(command).data(), pointers(variables).data());
            if (error == ETXTBSY)
                usleep(1000);
        }
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        if (error != 0)
            throw std::system_error(error, std::generic_category(), command.front());
    }
    ~Process()
    {
        signal(SIGKILL);
        wait();
    }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    [[nodiscard]] pid_t id() const { return m_id; }

    /** The next line, without its end; empty when there is no more. */
    std::string readLine()
    {
        std::string line;
        for (int c = std::getc(m_output.get()); c != EOF && c != '\n';
             c = std::getc(m_output.get()))
            line += static_cast<char>(c);
        return line;
    }
    /** The rest of what it prints, until it ends. */
    std::string readAll()
    {
        std::string text;
        for (int c = 0; (c = std::getc(m_output.get())) != EOF;)
            text += static_cast<char>(c);
        return text;
    }

    void signal(int number) const
    {
        if (!m_isOver)
            kill(m_id, number);
    }
    /** Waits for its end; its exit status, or the number of the signal that ended it, negative. */
    int wait()
    {
        if (!m_isOver && waitpid(m_id, &m_status, 0) == m_id)
            m_isOver = true;
        return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -WTERMSIG(m_status);
    }

private:
    static bool isProxy(std::string_view variable)
    {
        static const std::set<std::string_view> names{ "http_proxy", "https_proxy", "HTTPS_PROXY",
                                                       "all_proxy",  "ALL_PROXY",   "no_proxy",
                                                       "NO_PROXY" };
        return names.contains(variable.substr(0, variable.find('=')));
    }
    static std::vector<char *> pointers(std::vector<std::string> &words)
    {
        std::vector<char *> list;
        list.reserve(words.size() + 1);
        for (std::string &word : words)
            list.push_back(word.data());
        list.push_back(nullptr);
        return list;
    }

    struct Close
    {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Close> m_output;
    pid_t m_id = 0;
    int m_status = 0;
    bool m_isOver = false;
};

#endif
