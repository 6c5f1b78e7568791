#include "devkit/cloud/httpserver.h"

#include <httplib.h>

#include <algorithm>
#include <array>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <thread>

#include <openssl/err.h>

namespace localcloud {

namespace {

constexpr std::size_t THREADS = 64;
constexpr std::size_t MAX_BODY = std::size_t{ 8 } << 20U;
constexpr std::size_t MAX_KEPT_HEAD = 65536;
constexpr std::size_t KEEP_ALIVE_MAX = 1000;     // only announced, not enforced
constexpr std::chrono::seconds IDLE_LIMIT{ 60 }; // of a kept connection
constexpr std::chrono::seconds TRANSFER_LIMIT{ 30 };

struct SslDeleter
{
    void operator()(SSL *ssl) const { SSL_free(ssl); }
};

/** The header lines of a request's head, unchanged. */
HeaderList parseHeaders(std::string_view head)
{
    HeaderList headers;
    while (!head.empty()) {
        const std::size_t end = std::min(head.find("\r\n"), head.size());
        const std::string_view line = head.substr(0, end);
        head.remove_prefix(std::min(end + 2, head.size()));
        const std::size_t colon = line.find(':');
        if (colon == line.npos)
            continue; // the request line
        const std::size_t value = std::min(line.find_first_not_of(" \t", colon + 1), line.size());
        headers.emplace_back(line.substr(0, colon), line.substr(value));
    }
    return headers;
}

/**
 * A client's connection, as a stream for the HTTP library. The library writes an answer in pieces; this
 * class buffers them and sends the complete answer at once. It keeps the bytes of a request's head,
 * since the library does not keep the order of the headers.
 */
class Connection : public httplib::Stream
{
public:
    Connection(FileDescriptor socket, SSL_CTX *tls, const Network &network, const StopSignal &stop)
        : m_socket(std::move(socket))
        , m_network(network)
        , m_stop(stop)
    {
        prepareConnection(m_socket.get());
        if (tls) {
            m_ssl.reset(SSL_new(tls));
            SSL_set_fd(m_ssl.get(), m_socket.get());
        }
    }

    /** False if the TLS handshake fails. */
    bool open()
    {
        const int roundTrips = m_ssl ? 2 : 1;
        return pauseFor(roundTrips * m_network.roundTrip, m_socket.get(), m_stop)
               && (!m_ssl || retry([this] { return SSL_accept(m_ssl.get()); }) > 0);
    }

    /** Waits for the first bytes of the next request. */
    bool waitForRequest()
    {
        m_head.clear();
        m_pending.clear();
        return m_next < m_input.size() || fill(IDLE_LIMIT);
    }

    [[nodiscard]] const std::string &head() const { return m_head; }

    /** Sends the answer as `delivery` says. False if the connection must be closed. */
    bool deliver(Delivery delivery, std::chrono::milliseconds delay)
    {
        if (delivery == Delivery::Reset) {
            m_ssl.reset();
            resetOnClose(m_socket.get());
            return false;
        }
        return pauseFor(delay, m_socket.get(), m_stop) && delivery == Delivery::Usual && flush();
    }

    void close()
    {
        if (m_ssl)
            SSL_shutdown(m_ssl.get());
        m_ssl.reset();
    }

    // Called by the library.
    using httplib::Stream::write;
    bool is_readable() const override { return true; }
    bool is_writable() const override { return true; }
    ssize_t read(char *buffer, size_t size) override
    {
        // If the library reads on after writing, that is an interim answer; the client waits for it.
        if (m_next == m_input.size() && (!flush() || !fill(TRANSFER_LIMIT)))
            return -1;
        const std::string_view got = std::string_view(m_input).substr(m_next, size);
        std::copy(got.begin(), got.end(), buffer);
        m_next += got.size();
        keepHead(got);
        return static_cast<ssize_t>(got.size());
    }
    ssize_t write(const char *bytes, size_t size) override
    {
        const std::string_view added(bytes, size);
        if (m_network.sendsContinue || !added.starts_with("HTTP/1.1 100 "))
            m_pending += added;
        return static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string &ip, int &port) const override
    {
        ip = "127.0.0.1";
        port = 0;
    }
    void get_local_ip_and_port(std::string &ip, int &port) const override
    {
        get_remote_ip_and_port(ip, port);
    }
    socket_t socket() const override { return m_socket.get(); }

private:
    /** Waits for bytes and stores them for read(). */
    bool fill(std::chrono::milliseconds limit)
    {
        std::array<char, 16384> buffer;
        const int room = static_cast<int>(buffer.size());
        ssize_t got = 0;
        if (m_ssl) {
            got = retry([&] { return SSL_read(m_ssl.get(), buffer.data(), room); }, limit);
        } else if (waitFor(m_socket.get(), POLLIN, m_stop, limit) == Readiness::Ready) {
            got = recv(m_socket.get(), buffer.data(), buffer.size(), 0);
        }
        m_next = 0;
        m_input.assign(buffer.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
        return got > 0;
    }

    bool flush()
    {
        const std::string bytes = std::exchange(m_pending, {});
        if (bytes.empty())
            return true;
        if (!pauseFor(m_network.roundTrip, m_socket.get(), m_stop))
            return false;
        if (!m_ssl)
            return sendAll(m_socket.get(), bytes, m_stop);
        const int size = static_cast<int>(bytes.size());
        return retry([&] { return SSL_write(m_ssl.get(), bytes.data(), size); }) == size;
    }

    /** Repeats a TLS operation while it has to wait for the socket. */
    template <class Operation>
    int retry(Operation operation, std::chrono::milliseconds limit = TRANSFER_LIMIT)
    {
        for (;;) {
            ERR_clear_error();
            const int result = operation();
            const int error = result > 0 ? SSL_ERROR_NONE : SSL_get_error(m_ssl.get(), result);
            if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE)
                return result;
            const short event = error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT;
            if (waitFor(m_socket.get(), event, m_stop, limit) != Readiness::Ready)
                return -1;
        }
    }

    void keepHead(std::string_view bytes)
    {
        if (m_head.size() < MAX_KEPT_HEAD && !m_head.ends_with("\r\n\r\n"))
            m_head += bytes;
    }

    FileDescriptor m_socket;
    const Network &m_network;
    const StopSignal &m_stop;
    std::unique_ptr<SSL, SslDeleter> m_ssl;
    std::string m_input;
    std::size_t m_next = 0;
    std::string m_pending;
    std::string m_head;
};

/** State of one request, shared by the connection's loop and the handler. */
struct Exchange
{
    const Connection *connection = nullptr;
    bool isOnKeptConnection = false;
    std::optional<Request> request;
    Delivery delivery = Delivery::Usual;
    std::chrono::milliseconds delay{ 0 };
};

// Handlers get the library's requests only; a connection stays on its thread.
thread_local Exchange *t_exchange = nullptr;

Request takeRequest(const httplib::Request &from)
{
    Request request;
    request.method = from.method;
    request.target = from.target;
    request.headers = parseHeaders(t_exchange->connection->head());
    request.body = from.body;
    request.isOnKeptConnection = t_exchange->isOnKeptConnection;
    request.fields.insert(from.params.begin(), from.params.end());
    for (std::size_t i = 1; i < from.matches.size(); ++i)
        request.captures.push_back(from.matches[i].str());
    return request;
}

/** "Sun, 06 Nov 1994 08:49:37 GMT" */
std::string httpDate(std::time_t time)
{
    std::tm utc{};
    gmtime_r(&time, &utc);
    char text[64];
    return { text, std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &utc) };
}

void answer(const HttpServer::Handler &handler, const httplib::Request &from,
            httplib::Response &response)
{
    t_exchange->request = takeRequest(from);
    const Answer answer = handler(*t_exchange->request);
    t_exchange->delivery = answer.delivery;
    t_exchange->delay = answer.delay;
    response.status = answer.status;
    for (const auto &[name, value] : answer.headers)
        response.set_header(name, value);
    response.set_content(answer.body, answer.type);
}

void setListenerOptions(socket_t socket)
{
    // Without the library's default SO_REUSEPORT: a second server could bind the same port.
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

} // namespace

std::string Request::header(std::string_view name) const
{
    for (const auto &[key, value] : headers) {
        if (key.size() == name.size() && strncasecmp(key.data(), name.data(), name.size()) == 0)
            return value;
    }
    return {};
}

std::string Request::field(const std::string &name) const
{
    const auto found = fields.find(name);
    return found == fields.end() ? std::string() : found->second;
}

/** The library's server with our own connections. */
class HttpServer::Listener : public httplib::Server
{
public:
    Listener(const StopSignal &stop, SslContext tls, Network network)
        : m_stop(stop)
        , m_tls(std::move(tls))
        , m_network(network)
    {
        new_task_queue = [] { return new httplib::ThreadPool(THREADS); };
        set_socket_options(setListenerOptions);
        set_keep_alive_timeout(IDLE_LIMIT.count());
        set_keep_alive_max_count(KEEP_ALIVE_MAX);
        set_payload_max_length(MAX_BODY);
        set_post_routing_handler([](const httplib::Request &, httplib::Response &response) {
            response.set_header("Date", httpDate(std::time(nullptr)));
        });
        set_logger([this](const httplib::Request &request, const httplib::Response &response) {
            observe(request, response);
        });
    }

    ~Listener() override
    {
        if (m_thread.joinable())
            stop();
    }

    std::uint16_t startOn(std::uint16_t port)
    {
        const int bound = port == 0 ? bind_to_any_port(HOST)
                                    : (bind_to_port(HOST, port) ? static_cast<int>(port) : -1);
        if (bound <= 0)
            throw std::runtime_error("cannot listen on 127.0.0.1:" + std::to_string(port));
        m_thread = std::jthread([this] { listen_after_bind(); });
        while (!is_running()) // stop() has no effect before
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return static_cast<std::uint16_t>(bound);
    }

    Observer m_observer;

private:
    static constexpr const char *HOST = "127.0.0.1";

    void observe(const httplib::Request &request, const httplib::Response &response)
    {
        if (!m_observer || !t_exchange)
            return;
        if (!t_exchange->request) // no route matches
            t_exchange->request = takeRequest(request);
        const bool isAnswered = t_exchange->delivery == Delivery::Usual;
        m_observer(*t_exchange->request, isAnswered ? response.status : 0);
    }

    bool process_and_close_socket(socket_t socket) override
    {
        Connection connection(FileDescriptor(socket), m_tls.get(), m_network, m_stop);
        if (!connection.open())
            return false;
        bool isKept = false;
        for (bool isOpen = true; isOpen && connection.waitForRequest(); isKept = true) {
            Exchange exchange;
            exchange.connection = &connection;
            exchange.isOnKeptConnection = isKept;
            t_exchange = &exchange;
            bool isLast = false;
            isOpen = process(*this, connection, isLast);
            t_exchange = nullptr;
            isOpen = connection.deliver(exchange.delivery, exchange.delay) && isOpen && !isLast;
        }
        connection.close();
        return true;
    }

    /** Reads and answers a request; the signature depends on the version of the library. */
    template <class Base>
    static bool process(Base &base, Connection &connection, bool &isLast)
    {
        const auto noSetup = [](httplib::Request &) {};
        if constexpr (requires { base.process_request(connection, false, isLast, noSetup); })
            return base.process_request(connection, false, isLast, noSetup);
        else
            return base.process_request(connection, HOST, 0, HOST, 0, false, isLast, noSetup);
    }

    const StopSignal &m_stop;
    SslContext m_tls;
    Network m_network;
    std::jthread m_thread;
};

HttpServer::HttpServer(const StopSignal &stop, SslContext tls, Network network)
    : m_listener(std::make_unique<Listener>(stop, std::move(tls), network))
{}

HttpServer::~HttpServer() = default;

void HttpServer::route(const std::string &method, const std::string &pattern, Handler handler)
{
    const auto adapted = [handler = std::move(handler)](const httplib::Request &request,
                                                        httplib::Response &response) {
        answer(handler, request, response);
    };
    if (method == "GET")
        m_listener->Get(pattern, adapted);
    else if (method == "PUT")
        m_listener->Put(pattern, adapted);
    else
        m_listener->Post(pattern, adapted);
}

void HttpServer::setObserver(Observer observer)
{
    m_listener->m_observer = std::move(observer);
}

std::uint16_t HttpServer::start(std::uint16_t port)
{
    return m_listener->startOn(port);
}

} // namespace localcloud
