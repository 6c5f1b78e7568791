#ifndef PELCLOUD_TESTS_SUPPORT_LOOPBACKSERVER_H
#define PELCLOUD_TESTS_SUPPORT_LOOPBACKSERVER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <future>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include <QString>
#include <QUrl>

/**
 * A web server on 127.0.0.1 for tests, for up to THREADS connections at once. It
 * must outlive its clients: its end waits for theirs. Creating one takes the proxy variables out of
 * the environment, for what goes to a proxy does not arrive here.
 */
class LoopbackServer
{
public:
    static constexpr std::size_t THREADS = 96;
    struct Request
    {
        std::string head; // from its first line to the blank one
        std::string path;
        std::string body;
    };
    /** Answers a request on `socket`; returns whether the connection goes on. */
    using Handler = std::function<bool(int socket, const Request &request)>;

    /** Without a handler, connections are refused; without a port, the kernel chooses one. */
    explicit LoopbackServer(Handler handler = nullptr, std::uint16_t port = 0)
        : m_handler(std::move(handler))
    {
        for (const char *name : { "http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                  "ALL_PROXY", "no_proxy", "NO_PROXY" })
            ::unsetenv(name); // NOLINT(concurrency-mt-unsafe): no other thread reads it yet
        m_address.sin_port = htons(port);
        auto *const address = reinterpret_cast<sockaddr *>(&m_address);
        socklen_t size = sizeof m_address;
        m_isBound = ::bind(m_listener, address, size) == 0
                    && ::getsockname(m_listener, address, &size) == 0;
        if (!m_isBound || !m_handler || ::listen(m_listener, SOMAXCONN) != 0)
            return;
        for (auto &thread : m_threads)
            thread = std::async(std::launch::async, [this] { serve(); });
    }
    ~LoopbackServer()
    {
        ::shutdown(m_listener, SHUT_RDWR);
        m_threads.clear(); // waits
        ::close(m_listener);
    }
    LoopbackServer(const LoopbackServer &) = delete;
    LoopbackServer &operator=(const LoopbackServer &) = delete;

    /** False when the port is taken. */
    [[nodiscard]] bool isBound() const { return m_isBound; }
    [[nodiscard]] std::string host() const
    {
        return "127.0.0.1:" + std::to_string(ntohs(m_address.sin_port));
    }
    [[nodiscard]] QUrl url(const QString &path, const QString &scheme = "http") const
    {
        return scheme + "://" + QString::fromStdString(host()) + path;
    }
    /** All connections so far. */
    [[nodiscard]] int connections() const { return m_connections; }
    /** The request that came last, from whatever connection. */
    [[nodiscard]] Request last() const
    {
        const std::lock_guard lock(m_mutex);
        return m_last;
    }

    static bool send(int socket, const std::string &bytes)
    {
        return ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL)
               == static_cast<ssize_t>(bytes.size());
    }
    /** An answer that holds `body`. */
    static bool reply(int socket, const std::string &body, const std::string &status = "200 OK")
    {
        return send(socket, "HTTP/1.1 " + status + "\r\nContent-Length: "
                                    + std::to_string(body.size()) + "\r\n\r\n" + body);
    }

private:
    void serve()
    {
        for (int socket = 0; (socket = ::accept(m_listener, nullptr, nullptr)) >= 0;) {
            ++m_connections;
            Request request;
            while (receive(socket, request)) {
                {
                    const std::lock_guard lock(m_mutex);
                    m_last = request;
                }
                if (!m_handler(socket, request))
                    break;
            }
            ::close(socket);
        }
    }

    static bool receive(int socket, Request &request)
    {
        constexpr std::string_view LENGTH = "\r\nContent-Length: ";
        request = {};
        for (char c = 0; !request.head.ends_with("\r\n\r\n"); request.head += c) {
            if (::recv(socket, &c, 1, 0) != 1)
                return false;
        }
        const auto path = request.head.find(' ') + 1;
        request.path = request.head.substr(path, request.head.find(' ', path) - path);
        const auto length = request.head.find(LENGTH);
        if (length == std::string::npos)
            return true;
        request.body.resize(std::stoul(request.head.substr(length + LENGTH.size())));
        if (request.head.find("\r\nExpect: 100-continue\r\n") != std::string::npos)
            send(socket, "HTTP/1.1 100 Continue\r\n\r\n");
        const auto size = static_cast<ssize_t>(request.body.size());
        return size == 0
               || ::recv(socket, request.body.data(), request.body.size(), MSG_WAITALL) == size;
    }

    Handler m_handler;
    int m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in m_address{ AF_INET, 0, { htonl(INADDR_LOOPBACK) }, {} };
    bool m_isBound = false;
    std::atomic<int> m_connections = 0;
    mutable std::mutex m_mutex;
    Request m_last;
    std::vector<std::future<void>> m_threads{ THREADS };
};

#endif
