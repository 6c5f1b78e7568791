// One whole run of the client beside a bare loop of libcurl that sends the same bodies. Both talk
// to a server on the loopback interface that keeps connections alive; what counts is the time that
// the sending thread spends on a processor, in which the server's threads have no part.

#include "bench/allocations.h"
#include "plugin/pelcloud.h"
#include "support/config.h"
#include "tests/support/tempdir.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <httplib.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Body
{
    std::string path;
    std::string bytes;
};

/** Answers token requests with a token and everything else with an empty object. */
class Server
{
public:
    static Server &instance()
    {
        static Server server;
        return server;
    }

    ~Server()
    {
        m_server.stop();
        m_thread.join();
    }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    [[nodiscard]] std::string address() const
    {
        return "http://127.0.0.1:" + std::to_string(m_port);
    }

    /** What `send` sends, without the token requests. To be called by the thread that sends. */
    template <class Send>
    std::vector<Body> bodiesOf(Send send)
    {
        m_isCapturing = true;
        send();
        m_isCapturing = false;
        return std::move(m_bodies);
    }

private:
    Server()
    {
        m_server.set_tcp_nodelay(true);
        m_server.set_keep_alive_max_count(SIZE_MAX);
        m_server.set_keep_alive_timeout(3600);
        m_server.Post("/token", [](const httplib::Request &, httplib::Response &response) {
            response.set_content(R"({"access_token":"token","expires_in":3600})",
                                 "application/json");
        });
        const auto answer = [this](const httplib::Request &request, httplib::Response &response) {
            if (m_isCapturing)
                m_bodies.push_back({ request.path, request.body });
            response.set_content("{}", "application/json");
        };
        m_server.Post(".*", answer);
        m_server.Put(".*", answer);
        m_port = m_server.bind_to_any_port("127.0.0.1");
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
    }

    httplib::Server m_server;
    int m_port = 0;
    std::atomic<bool> m_isCapturing = false;
    std::vector<Body> m_bodies; // the sender waits for each answer: one thread at a time
    std::thread m_thread;
};

/** The client, its timer so slow that runs come only from here. */
class Client : public PelCloudClient
{
public:
    Client(long units, long samples)
    {
        const std::string home = GetPelorinPath();
        GoogleAuth::GOOGLE_OAUTH2_GET_TOKEN =
                QString::fromStdString(Server::instance().address() + "/token");
        written(home + "pelcloud.json", R"({ "home": ")" + Server::instance().address()
                                                + R"(", "cpid": "pc1", "rtk": "token" })");
        m_library.reset(dlopen((home + "upscli.so").c_str(), RTLD_NOW));
        set<unsigned long>("unitCount", static_cast<unsigned long>(units));
        set<int>("sampleCount", static_cast<int>(samples));
        setInterval(INT_MAX);
        m_isStarted = start() == 0;
    }
    ~Client() override { stop(); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    [[nodiscard]] bool isStarted() const { return m_isStarted; }
    using PelCloudClient::OnTimer;

private:
    struct Close
    {
        void operator()(void *library) const { dlclose(library); }
    };

    template <class Value>
    void set(const char *name, Value value)
    {
        if (m_library)
            std::memcpy(dlsym(m_library.get(), name), &value, sizeof value);
    }

    std::unique_ptr<void, Close> m_library;
    bool m_isStarted = false;
};

std::size_t discard(char *, std::size_t, std::size_t size, void *)
{
    return size;
}

struct Upload
{
    const std::string *body;
    std::size_t sent;
};

std::size_t upload(char *to, std::size_t size, std::size_t count, void *userdata)
{
    auto &source = *static_cast<Upload *>(userdata);
    const std::size_t copied = source.body->copy(to, size * count, source.sent);
    source.sent += copied;
    return copied;
}

/** One libcurl handle with nothing but what a request needs. */
class BareLoop
{
public:
    BareLoop()
    {
        m_headers = curl_slist_append(m_headers, "Authorization: Bearer token");
        m_headers = curl_slist_append(m_headers, "Content-Type: application/json");
        m_headers =
                curl_slist_append(m_headers, "Expect:"); // as the client, no wait for a go-ahead
        curl_easy_setopt(m_curl, CURLOPT_HTTPHEADER, m_headers);
        curl_easy_setopt(m_curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(m_curl, CURLOPT_WRITEFUNCTION, discard);
        curl_easy_setopt(m_curl, CURLOPT_READFUNCTION, upload);
    }
    ~BareLoop()
    {
        curl_easy_cleanup(m_curl);
        curl_slist_free_all(m_headers);
    }
    BareLoop(const BareLoop &) = delete;
    BareLoop &operator=(const BareLoop &) = delete;

    bool send(const Body &body)
    {
        Upload source{ &body.bytes, 0 };
        const std::string url = Server::instance().address() + body.path;
        curl_easy_setopt(m_curl, CURLOPT_URL, url.c_str());
        if (body.path.find("/device/") == std::string::npos) {
            curl_easy_setopt(m_curl, CURLOPT_UPLOAD, 1L);
            curl_easy_setopt(m_curl, CURLOPT_READDATA, &source);
            curl_easy_setopt(m_curl, CURLOPT_INFILESIZE_LARGE,
                             static_cast<curl_off_t>(body.bytes.size()));
        } else {
            curl_easy_setopt(m_curl, CURLOPT_UPLOAD, 0L);
            curl_easy_setopt(m_curl, CURLOPT_POST, 1L);
            curl_easy_setopt(m_curl, CURLOPT_POSTFIELDS, body.bytes.data());
            curl_easy_setopt(m_curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.bytes.size()));
        }
        return curl_easy_perform(m_curl) == CURLE_OK;
    }

private:
    CURL *m_curl = curl_easy_init();
    curl_slist *m_headers = nullptr;
};

std::vector<Body> bodiesOfRun(Client &client)
{
    return Server::instance().bodiesOf([&client] { client.OnTimer(); });
}

double bytesOf(const std::vector<Body> &bodies)
{
    double bytes = 0;
    for (const Body &body : bodies)
        bytes += static_cast<double>(body.bytes.size());
    return bytes;
}

/** Microseconds of a processor that the calling thread spends in `work`. */
template <class Work>
double microsecondsOf(Work work)
{
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
    };
    const double start = now();
    work();
    return now() - start;
}

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/** Run and bare loop in turn, since nothing else on a busy machine compares: medians of each. */
void wholeRun(benchmark::State &state)
{
    Client client(state.range(0), state.range(1));
    const std::vector<Body> bodies = bodiesOfRun(client);
    if (bodies.size() != 2 * static_cast<std::size_t>(state.range(0))) {
        state.SkipWithError("the run did not report every unit");
        return;
    }
    BareLoop loop;
    const auto sendBare = [&] {
        for (const Body &body : bodies) {
            if (!loop.send(body))
                state.SkipWithError("a body was not sent");
        }
    };
    countAllocations(state, [&client] { client.OnTimer(); });
    sendBare();

    std::vector<double> run;
    std::vector<double> bare;
    std::vector<double> ratio;
    for ([[maybe_unused]] auto _ : state) {
        run.push_back(microsecondsOf([&client] { client.OnTimer(); }));
        bare.push_back(microsecondsOf(sendBare));
        ratio.push_back(run.back() / bare.back());
    }
    state.counters["bytes"] = bytesOf(bodies);
    state.counters["run_us"] = medianOf(run);
    state.counters["bare_us"] = medianOf(bare);
    state.counters["ratio"] = medianOf(ratio);
}

BENCHMARK(wholeRun)->Args({ 1, 0 })->Args({ 20, 0 })->Args({ 200, 0 });
BENCHMARK(wholeRun)->Args({ 20, 64 })->Args({ 200, 64 })->Unit(benchmark::kMillisecond);

} // namespace
