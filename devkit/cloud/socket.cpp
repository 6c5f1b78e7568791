#include "devkit/cloud/socket.h"

#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace localcloud {

namespace {

constexpr std::chrono::seconds SEND_LIMIT{ 30 };
constexpr int BACKLOG = 64;

[[noreturn]] void fail(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

const sockaddr *general(const sockaddr_in &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

} // namespace

FileDescriptor::FileDescriptor(int fd)
    : m_fd(fd)
{}

FileDescriptor::FileDescriptor(FileDescriptor &&other) noexcept
    : m_fd(std::exchange(other.m_fd, -1))
{}

FileDescriptor &FileDescriptor::operator=(FileDescriptor &&other) noexcept
{
    std::swap(m_fd, other.m_fd);
    return *this;
}

FileDescriptor::~FileDescriptor()
{
    if (m_fd >= 0)
        close(m_fd);
}

StopSignal::StopSignal()
    : m_event(eventfd(0, EFD_CLOEXEC))
{
    if (!m_event.isValid())
        fail("eventfd");
}

void StopSignal::raise()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_event.get(), &one, sizeof one);
}

bool StopSignal::isRaised() const
{
    pollfd event{ m_event.get(), POLLIN, 0 };
    return poll(&event, 1, 0) > 0;
}

Readiness waitFor(int fd, short events, const StopSignal &stop, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        pollfd polled[] = { { fd, events, 0 }, { stop.descriptor(), POLLIN, 0 } };
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
                end - std::chrono::steady_clock::now());
        const int ready = poll(polled, 2, left.count() > 0 ? static_cast<int>(left.count()) : 0);
        if (ready < 0 && errno == EINTR)
            continue;
        if (polled[1].revents != 0)
            return Readiness::Stopped;
        return ready > 0 ? Readiness::Ready : Readiness::TimedOut;
    }
}

bool pauseFor(std::chrono::milliseconds time, int fd, const StopSignal &stop)
{
    return time.count() == 0 || waitFor(fd, POLLRDHUP, stop, time) == Readiness::TimedOut;
}

void prepareConnection(int fd)
{
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

void resetOnClose(int fd)
{
    const linger discard{ 1, 0 };
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
}

bool sendAll(int fd, std::string_view bytes, const StopSignal &stop)
{
    while (!bytes.empty()) {
        const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent >= 0)
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        else if (errno != EINTR
                 && (errno != EAGAIN || waitFor(fd, POLLOUT, stop, SEND_LIMIT) != Readiness::Ready))
            return false;
    }
    return true;
}

FileDescriptor listenOnLoopback(std::uint16_t port)
{
    FileDescriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = loopback(port);
    if (bind(listener.get(), general(address), sizeof address) != 0
        || listen(listener.get(), BACKLOG) != 0)
        fail("cannot listen on 127.0.0.1");
    return listener;
}

std::uint16_t boundPort(const FileDescriptor &socket)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(socket.get(), reinterpret_cast<sockaddr *>(&address), &size);
    return ntohs(address.sin_port);
}

FileDescriptor connectToLoopback(std::uint16_t port)
{
    FileDescriptor connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = loopback(port);
    if (connect(connection.get(), general(address), sizeof address) != 0)
        return FileDescriptor();
    prepareConnection(connection.get());
    return connection;
}

} // namespace localcloud
