#ifndef PELCLOUD_TESTS_TOOLS_TERMINALSESSION_H
#define PELCLOUD_TESTS_TOOLS_TERMINALSESSION_H

#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

/** A program on a pseudo-terminal, with a person who reads and types. Ends with this object. */
class TerminalSession
{
public:
    /** Runs a shell's command; throws where there are no pseudo-terminals. */
    explicit TerminalSession(const std::string &command)
    {
        const std::string program = "exec " + command;
        m_id = forkpty(&m_terminal, nullptr, nullptr, nullptr);
        if (m_id == 0) {
            execl("/bin/sh", "sh", "-c", program.c_str(), nullptr);
            _exit(127);
        }
        if (m_id < 0)
            throw std::runtime_error("no pseudo-terminal");
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

    /** Waits for a text behind the last one; false on timeout or when the program ends. */
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
        std::ignore = write(m_terminal, text.data(), text.size());
    }
    /** Reads until the program ends; its exit status, or the signal that ended it, negative. */
    int wait()
    {
        while (readMore())
            continue;
        m_isOver = m_isOver || waitpid(m_id, &m_status, 0) == m_id;
        return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -WTERMSIG(m_status);
    }
    [[nodiscard]] const std::string &shown() const { return m_shown; }

private:
    bool readMore()
    {
        constexpr int TIMEOUT_MS = 60'000;
        pollfd events{ m_terminal, POLLIN, 0 };
        char bytes[4096];
        const ssize_t count =
                poll(&events, 1, TIMEOUT_MS) > 0 ? read(m_terminal, bytes, sizeof bytes) : 0;
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
