#include "devkit/cloud/proxy.h"

#include <array>
#include <cerrno>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace localcloud {

namespace {

constexpr std::chrono::hours TUNNEL_LIMIT{ 1 };
constexpr std::chrono::seconds HEAD_LIMIT{ 30 };
constexpr std::size_t MAX_HEAD = 16384;
constexpr std::size_t MAX_TUNNELS = 256;
constexpr std::string_view ESTABLISHED = "HTTP/1.1 200 Connection established\r\n\r\n";
constexpr std::string_view NOT_A_TUNNEL =
        "HTTP/1.1 405 Method Not Allowed\r\nAllow: CONNECT\r\nContent-Length: 0\r\n"
        "Connection: close\r\n\r\n";

/** The head of the first request, and the bytes that arrived after it. */
struct Opening
{
    std::string head;
    std::string rest;
};

std::optional<Opening> readOpening(int client, const StopSignal &stop)
{
    constexpr std::string_view HEAD_END = "\r\n\r\n";
    std::string bytes;
    std::array<char, 4096> buffer;
    while (bytes.size() < MAX_HEAD) {
        if (waitFor(client, POLLIN, stop, HEAD_LIMIT) != Readiness::Ready)
            return std::nullopt;
        const ssize_t got = recv(client, buffer.data(), buffer.size(), 0);
        if (got <= 0)
            return std::nullopt;
        bytes.append(buffer.data(), static_cast<std::size_t>(got));
        const std::size_t end = bytes.find(HEAD_END);
        if (end != bytes.npos)
            return Opening{ bytes.substr(0, end), bytes.substr(end + HEAD_END.size()) };
    }
    return std::nullopt;
}

/** The target of a CONNECT; nothing for other requests. */
std::optional<std::string> connectTarget(const std::string &head)
{
    constexpr std::string_view METHOD = "CONNECT ";
    if (!head.starts_with(METHOD))
        return std::nullopt;
    return head.substr(METHOD.size(), head.find_first_of(" \r", METHOD.size()) - METHOD.size());
}

enum class Flow { Open, Ended, Broken };

/** Forwards the available bytes from one side to the other. */
Flow pump(int from, int to, const StopSignal &stop)
{
    std::array<char, 16384> buffer;
    const ssize_t got = recv(from, buffer.data(), buffer.size(), 0);
    if (got > 0) {
        const std::string_view bytes(buffer.data(), static_cast<std::size_t>(got));
        return sendAll(to, bytes, stop) ? Flow::Open : Flow::Broken;
    }
    if (got == 0) {
        shutdown(to, SHUT_WR);
        return Flow::Ended;
    }
    return errno == EAGAIN || errno == EINTR ? Flow::Open : Flow::Broken;
}

/** Forwards bytes both ways until both sides have ended or one breaks. */
void relay(int client, int server, const StopSignal &stop)
{
    std::array<pollfd, 3> polled{
        { { client, POLLIN, 0 }, { server, POLLIN, 0 }, { stop.descriptor(), POLLIN, 0 } }
    };
    constexpr auto LIMIT = std::chrono::milliseconds(TUNNEL_LIMIT).count();
    while (polled[0].fd >= 0 || polled[1].fd >= 0) {
        const int ready = poll(polled.data(), polled.size(), static_cast<int>(LIMIT));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0 || polled[2].revents != 0)
            return;
        for (std::size_t i = 0; i < 2; ++i) {
            if (polled[i].revents == 0)
                continue;
            const Flow flow = pump(i == 0 ? client : server, i == 0 ? server : client, stop);
            if (flow == Flow::Broken) {
                resetOnClose(client);
                resetOnClose(server);
                return;
            }
            if (flow == Flow::Ended)
                polled[i].fd = -1;
        }
    }
}

} // namespace

ConnectProxy::ConnectProxy(std::uint16_t port, std::uint16_t destination, const StopSignal &stop,
                           Observer observer, std::chrono::milliseconds roundTrip)
    : m_stop(stop)
    , m_destination(destination)
    , m_observer(std::move(observer))
    , m_roundTrip(roundTrip)
    , m_listener(listenOnLoopback(port))
    , m_acceptor([this] { acceptAll(); })
{}

ConnectProxy::~ConnectProxy() = default;

std::uint16_t ConnectProxy::port() const
{
    return boundPort(m_listener);
}

void ConnectProxy::acceptAll()
{
    while (waitFor(m_listener.get(), POLLIN, m_stop, TUNNEL_LIMIT) != Readiness::Stopped) {
        m_tunnels.remove_if([](const Tunnel &tunnel) { return tunnel.isOver.load(); });
        FileDescriptor client(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client.isValid() || m_tunnels.size() >= MAX_TUNNELS)
            continue;
        Tunnel &tunnel = m_tunnels.emplace_back();
        tunnel.thread = std::jthread([this, &tunnel, socket = std::move(client)]() mutable {
            serve(std::move(socket));
            tunnel.isOver = true;
        });
    }
}

void ConnectProxy::serve(FileDescriptor client) const
{
    prepareConnection(client.get());
    if (!pauseFor(m_roundTrip, client.get(), m_stop))
        return;
    const std::optional<Opening> opening = readOpening(client.get(), m_stop);
    if (!opening)
        return;
    const std::optional<std::string> target = connectTarget(opening->head);
    if (!target) {
        [[maybe_unused]] const bool isSent = sendAll(client.get(), NOT_A_TUNNEL, m_stop);
        return;
    }
    m_observer(*target);
    const FileDescriptor server = connectToLoopback(m_destination);
    if (server.isValid() && sendAll(client.get(), ESTABLISHED, m_stop)
        && sendAll(server.get(), opening->rest, m_stop))
        relay(client.get(), server.get(), m_stop);
}

} // namespace localcloud
