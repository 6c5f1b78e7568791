#ifndef PELCLOUD_DEVKIT_CLOUD_PROXY_H
#define PELCLOUD_DEVKIT_CLOUD_PROXY_H

#include "devkit/cloud/socket.h"

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <thread>

namespace localcloud {

/**
 * An HTTP proxy that tunnels every CONNECT, whatever its target, to one port of 127.0.0.1. Any other
 * request is answered 405. A reset on one side of a tunnel becomes a reset on the other. Each
 * connection has a thread of its own; all end when the stop signal is raised.
 */
class ConnectProxy
{
public:
    /** Called with the target of each CONNECT, in the connection's thread. */
    using Observer = std::function<void(const std::string &target)>;

    /** Listens at once; port 0 lets the kernel choose. Throws std::system_error. */
    ConnectProxy(std::uint16_t port, std::uint16_t destination, const StopSignal &stop,
                 Observer observer, std::chrono::milliseconds roundTrip = {});
    ConnectProxy(const ConnectProxy &) = delete;
    ConnectProxy &operator=(const ConnectProxy &) = delete;

    /** Waits for all threads: the stop signal must have been raised. */
    ~ConnectProxy();

    [[nodiscard]] std::uint16_t port() const;

private:
    struct Tunnel
    {
        std::atomic<bool> isOver{ false };
        std::jthread thread;
    };

    void acceptAll();
    void serve(FileDescriptor client) const;

    const StopSignal &m_stop;
    std::uint16_t m_destination;
    Observer m_observer;
    std::chrono::milliseconds m_roundTrip; // delays a connect
    FileDescriptor m_listener;
    std::list<Tunnel> m_tunnels; // of the accepting thread
    std::jthread m_acceptor;
};

} // namespace localcloud

#endif
