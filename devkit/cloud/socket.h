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

/** Tells every thread that waits in waitFor() to end; once raised it stays so. Safe from any thread. */
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

/** Waits until one of poll()'s `events` (or an error) is there on `fd`. */
[[nodiscard]] Readiness waitFor(int fd, short events, const StopSignal &stop,
                                std::chrono::milliseconds limit);

/** Makes a connected socket non-blocking and switches the delay of small writes off. */
void prepareConnection(int fd);

/** Makes the coming close send a reset. */
void resetOnClose(int fd);

/** Sends all of `bytes` over a non-blocking socket, in one write where the kernel takes it so. */
[[nodiscard]] bool sendAll(int fd, std::string_view bytes, const StopSignal &stop);

/** A listening socket on 127.0.0.1; port 0 lets the kernel choose. Throws std::system_error. */
[[nodiscard]] FileDescriptor listenOnLoopback(std::uint16_t port);

/** The port that a socket is bound to. */
[[nodiscard]] std::uint16_t boundPort(const FileDescriptor &socket);

/** A connection to a port of 127.0.0.1; invalid when nobody listens. */
[[nodiscard]] FileDescriptor connectToLoopback(std::uint16_t port);

} // namespace localcloud

#endif
