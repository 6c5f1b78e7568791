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
    std::string target; // with the query
    HeaderList headers; // in the order of arrival
    std::string body;
    bool isOnKeptConnection = false;           // not the first of its connection
    std::map<std::string, std::string> fields; // of the query and of a form, decoded
    std::vector<std::string> captures;         // of the route's groups

    /** The value of the first header of this name, ignoring case; empty if there is none. */
    [[nodiscard]] std::string header(std::string_view name) const;

    /** A field of the query or the form; empty if there is none. */
    [[nodiscard]] std::string field(const std::string &name) const;
};

/** How an answer is sent. */
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

/** Simulated properties of the network and of proxies. */
struct Network
{
    bool sendsContinue = true;                // in answer to "Expect: 100-continue"
    std::chrono::milliseconds roundTrip{ 0 }; // delays a connect, a TLS handshake, each answer
};

/**
 * An HTTP server on 127.0.0.1, with TLS if it has a context. It sends an answer in one write (with TLS
 * in one record, up to 16 KiB) and without Nagle's delay. Handlers run in the connections' threads,
 * whose number is bounded. Raising the stop signal ends every wait.
 */
class HttpServer
{
public:
    using Handler = std::function<Answer(const Request &)>;
    /** Called with each request and its status (0: no answer) before the answer is sent. */
    using Observer = std::function<void(const Request &, int status)>;

    explicit HttpServer(const StopSignal &stop, SslContext tls = nullptr, Network network = {});
    HttpServer(const HttpServer &) = delete;
    HttpServer &operator=(const HttpServer &) = delete;

    /** Waits for all threads: the stop signal must have been raised. */
    ~HttpServer();

    /** Sets the handler of GET, PUT or POST for paths that match a regular expression; before start(). */
    void route(const std::string &method, const std::string &pattern, Handler handler);

    /** Before start(). */
    void setObserver(Observer observer);

    /** Listens on `port` (0: the kernel chooses) and returns it. Throws std::runtime_error. */
    std::uint16_t start(std::uint16_t port);

private:
    class Listener;
    std::unique_ptr<Listener> m_listener;
};

} // namespace localcloud

#endif
