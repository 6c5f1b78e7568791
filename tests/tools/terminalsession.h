#ifndef PELCLOUD_TESTS_TOOLS_TERMINALSESSION_H
#define PELCLOUD_TESTS_TOOLS_TERMINALSESSION_H

#include <chrono>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/** A program on a pseudo-terminal, and a person before it who waits for texts and types. */
class TerminalSession
{
public:
    /** False in a root without pseudo-terminals, such as a bare chroot. */
    static bool isPossible()
    {
        int terminal = -1;
        int other = -1;
        if (openpty(&terminal, &other, nullptr, nullptr, nullptr) != 0)
            return false;
        close(terminal);
        close(other);
        return true;
    }

    /** "NAME=value" words before the program go into its environment. */
    explicit TerminalSession(std::vector<std::string> command)
    {
        command.insert(command.begin(), "/usr/bin/env");
        std::vector<char *> words;
        words.reserve(command.size() + 1);
        for (std::string &word : command)
            words.push_back(word.data());
        words.push_back(nullptr);
        winsize size{ 50, 160, 0, 0 };
        m_id = forkpty(&m_terminal, nullptr, nullptr, &size);
        if (m_id == 0) {
            execv(words[0], words.data());
            _exit(127);
        }
        if (m_id < 0)
            throw std::runtime_error("no terminal");
    }
    ~TerminalSession()
    {
        if (!m_isOver)
            kill(m_id, SIGKILL);
        wait();
        close(m_terminal);
    }
    TerminalSession(const TerminalSession &) = delete;
    TerminalSession &operator=(const TerminalSession &) = delete;

    /** Waits until this has been shown since the last text that was waited for; false in vain. */
    bool expect(const std::string &text)
    {
        std::size_t at = 0;
        while ((at = m_shown.find(text, m_seen)) == std::string::npos) {
            if (!readMore())
                return false;
        }
        m_seen = at + text.size();
        return true;
    }
    void type(const std::string &text) const
    {
        if (write(m_terminal, text.data(), text.size()) < 0)
            throw std::runtime_error("nobody listens");
    }
    /** Reads until the program ends; its exit status, or the signal that ended it, negative. */
    int wait()
    {
        while (!m_isOver && readMore())
            continue;
        if (!m_isOver && waitpid(m_id, &m_status, 0) == m_id)
            m_isOver = true;
        return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -WTERMSIG(m_status);
    }
    [[nodiscard]] const std::string &shown() const { return m_shown; }

private:
    bool readMore()
    {
        constexpr int PATIENCE_MS = 60'000;
        pollfd events{ m_terminal, POLLIN, 0 };
        char bytes[4096];
        const ssize_t count =
                poll(&events, 1, PATIENCE_MS) > 0 ? read(m_terminal, bytes, sizeof bytes) : 0;
        if (count > 0)
            m_shown.append(bytes, static_cast<std::size_t>(count));
        return count > 0;
    }

    int m_terminal = -1;
    pid_t m_id = -1;
    int m_status = 0;
    bool m_isOver = false;
    std::string m_shown;
    std::size_t m_seen = 0;
};

#endif
