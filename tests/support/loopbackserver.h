#ifndef PELCLOUD_TESTS_SUPPORT_LOOPBACKSERVER_H
#define PELCLOUD_TESTS_SUPPORT_LOOPBACKSERVER_H

#include <atomic>
#include <cstddef>
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
 * A web server on 127.0.0.1 for tests, for up to 96 connections at once. It must outlive its
 * clients: its destructor waits for them. The constructor removes the proxy variables from the
 * environment, since requests to a proxy would not arrive here.
 */
class LoopbackServer
{
public:
    struct Request
    {
        std::string head{}; // from its first line to the blank one
        std::string path{};
        std::string body{};
        int number = 0; // on its connection, from 1
    };
    /** Answers a request on `socket`; returns whether the connection goes on. */
    using Handler = std::function<bool(int socket, const Request &request)>;

    /** Without a handler, connections are refused. */
    explicit LoopbackServer(Handler handler = nullptr)
        : m_handler(std::move(handler))
    {
        for (const char *name : { "http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                  "ALL_PROXY", "no_proxy", "NO_PROXY" })
            ::unsetenv(name); // NOLINT(concurrency-mt-unsafe): no other thread reads it yet
        auto *const address = reinterpret_cast<sockaddr *>(&m_address);
        socklen_t size = sizeof m_address;
        if (::bind(m_listener, address, size) != 0 || ::getsockname(m_listener, address, &size) != 0
            || !m_handler || ::listen(m_listener, SOMAXCONN) != 0)
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
        request = { .number = request.number + 1 };
        for (char c = 0; !request.head.ends_with("\r\n\r\n"); request.head += c) {
            if (::recv(socket, &c, 1, 0) != 1)
                return false;
        }
        const auto path = request.head.find(' ') + 1;
        request.path = request.head.substr(path, request.head.find(' ', path) - path);
        const auto length = request.head.find(LENGTH);
        if (length != std::string::npos)
            request.body.resize(std::stoul(request.head.substr(length + LENGTH.size())));
        const std::size_t size = request.body.size();
        return size == 0 || ::recv(socket, request.body.data(), size, MSG_WAITALL) == ssize_t(size);
    }

    Handler m_handler;
    int m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in m_address{ AF_INET, 0, { htonl(INADDR_LOOPBACK) }, {} };
    std::atomic<int> m_connections = 0;
    mutable std::mutex m_mutex;
    Request m_last;
    std::vector<std::future<void>> m_threads{ 96 };
};

#endif
