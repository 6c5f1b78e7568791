#ifndef PELCLOUD_DEVKIT_CLOUD_SOCKET_H
#define PELCLOUD_DEVKIT_CLOUD_SOCKET_H

#include <chrono>
#include <cstdint>
#include <string_view>

namespace localcloud {

/** Owns a file descriptor. */
class FileDescriptor
{
public:
    explicit FileDescriptor(int fd = -1);
    FileDescriptor(FileDescriptor &&other) noexcept;
    FileDescriptor &operator=(FileDescriptor &&other) noexcept;
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor();

    [[nodiscard]] int get() const { return m_fd; }
    [[nodiscard]] bool isValid() const { return m_fd >= 0; }

private:
    int m_fd;
};

/** Ends every wait in waitFor(), now and later. Safe from any thread. */
class StopSignal
{
public:
    StopSignal();
    void raise();
    [[nodiscard]] bool isRaised() const;
    [[nodiscard]] int descriptor() const { return m_event.get(); }

private:
    FileDescriptor m_event;
};

enum class Readiness { Ready, TimedOut, Stopped };

/** Waits for one of poll()'s `events`, or an error, on `fd`. */
[[nodiscard]] Readiness waitFor(int fd, short events, const StopSignal &stop,
                                std::chrono::milliseconds limit);

/** Waits for `time`; false as soon as the peer closes the connection or the signal is raised. */
[[nodiscard]] bool pauseFor(std::chrono::milliseconds time, int fd, const StopSignal &stop);

/** Makes a connected socket non-blocking and disables Nagle's delay. */
void prepareConnection(int fd);

/** Makes close() send a reset. */
void resetOnClose(int fd);

/** Sends `bytes` over a non-blocking socket, in one write if the kernel accepts that. */
[[nodiscard]] bool sendAll(int fd, std::string_view bytes, const StopSignal &stop);

/** A listening socket on 127.0.0.1; port 0 lets the kernel choose. Throws std::system_error. */
[[nodiscard]] FileDescriptor listenOnLoopback(std::uint16_t port);

/** The port that a socket is bound to. */
[[nodiscard]] std::uint16_t boundPort(const FileDescriptor &socket);

/** A connection to a port of 127.0.0.1; invalid if it is refused. */
[[nodiscard]] FileDescriptor connectToLoopback(std::uint16_t port);

} // namespace localcloud

#endif
