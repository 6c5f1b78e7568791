#ifndef PELCLOUD_DEVKIT_CLOUD_HTTPSERVER_H
#define PELCLOUD_DEVKIT_CLOUD_HTTPSERVER_H

#include "devkit/cloud/certificate.h"
#include "devkit/cloud/socket.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace localcloud {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

struct Request
{
    std::string method;
    std::string target; // as it came, with the query
    HeaderList headers; // in the order in which they came
    std::string body;
    std::map<std::string, std::string> fields; // of the query and of a form, decoded
    std::vector<std::string> captures;         // what the route's groups matched

    /** The value of the first header of this name, letter case aside; empty when there is none. */
    [[nodiscard]] std::string header(std::string_view name) const;

    /** A field of the query or the form; empty when there is none. */
    [[nodiscard]] std::string field(const std::string &name) const;
};

/** What becomes of an answer on its way out. */
enum class Delivery { Usual, Reset, Silence };

struct Answer
{
    int status = 200;
    std::string type = "application/json";
    std::string body{};
    HeaderList headers{};
    Delivery delivery = Delivery::Usual;
    std::chrono::milliseconds delay{ 0 }; // before a usual answer, or the length of a silence
};

/**
 * An HTTP server on 127.0.0.1, over TLS when it is given a context. An answer leaves in one write (over
 * TLS in one record, up to 16 KiB) with Nagle's delay off. Handlers run in the connections' threads, of
 * which there is a bounded number. Raising the stop signal ends every wait, however far a connection
 * has come.
 */
class HttpServer
{
public:
    using Handler = std::function<Answer(const Request &)>;
    /** Gets each request with its answer's status (0: none is sent) before the answer leaves. */
    using Observer = std::function<void(const Request &, int status)>;

    explicit HttpServer(const StopSignal &stop, SslContext tls = nullptr);
    HttpServer(const HttpServer &) = delete;
    HttpServer &operator=(const HttpServer &) = delete;

    /** Waits for all threads: the stop signal must have been raised. */
    ~HttpServer();

    /** Before start(): lets `handler` answer GET, PUT or POST for paths that match a regular expression. */
    void route(const std::string &method, const std::string &pattern, Handler handler);

    /** Before start(). */
    void setObserver(Observer observer);

    /** Listens on `port`, 0 for one that the kernel chooses; the port. Throws std::runtime_error. */
    std::uint16_t start(std::uint16_t port);

private:
    class Listener;
    std::unique_ptr<Listener> m_listener;
};

} // namespace localcloud

#endif
