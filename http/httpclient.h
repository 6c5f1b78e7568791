#ifndef PELCLOUD_HTTP_HTTPCLIENT_H
#define PELCLOUD_HTTP_HTTPCLIENT_H

#include <curl/curl.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

class HttpRequest;
class QByteArray;

/**
 * A synchronous HTTP client. It owns one libcurl handle, whose connections are kept alive and
 * reused by all its requests; nothing else of one request shows in the next.
 *
 * get(), post() and put() wait for the answer and return its body, possibly empty, in a new byte
 * array that the caller owns. The status is not looked at: the page of a 404 or a redirection is a
 * body like any other. Null means that there was no complete answer (name, connection, TLS,
 * transfer or memory); nothing is logged.
 *
 * Connecting takes 30 seconds at most, a transfer that moves less than a byte a second for as long
 * is ended, and so is one that has not come to its end within five minutes or whose answer is
 * longer than MAX_ANSWER, or its head than MAX_HEAD. Unless the build was configured with
 * PELCLOUD_VERIFY_TLS, whoever answers an HTTPS address is believed (see docs/security.md).
 * Proxies come from the environment, as libcurl reads it.
 *
 * Clients may be created, used and destroyed on any threads at once, but one client is for one
 * thread at a time. No signal handler of the process is touched, and none is run by a connection
 * that breaks.
 */
class HttpClient
{
public:
    static constexpr std::size_t MAX_ANSWER = 16U << 20U; // bytes
    static constexpr std::size_t MAX_HEAD = 1U << 20U;

    HttpClient();
    ~HttpClient();
    HttpClient(const HttpClient &) = delete;
    HttpClient &operator=(const HttpClient &) = delete;

    [[nodiscard]] QByteArray *get(const HttpRequest &request);
    [[nodiscard]] QByteArray *post(const HttpRequest &request, const QByteArray &data);
    [[nodiscard]] QByteArray *put(const HttpRequest &request, const QByteArray &data);
    /** Sends nothing and returns null: no service that is in use deletes anything. */
    QByteArray *del(const HttpRequest &request);

    /** Whether this build believes only servers with a good certificate. */
    [[nodiscard]] static bool verifiesTls() noexcept;

    /** The status of the last request's answer, 200 for example; 0 when there was no answer. */
    [[nodiscard]] long lastStatus() const { return m_lastStatus; }
    /** Why the last request gave null, in libcurl's words; empty when it did not. */
    [[nodiscard]] const char *lastError() const;

    /** Ends the request in progress with null, and every later one at once. For any thread. */
    void cancel() noexcept;
    /** Ends the effect of cancel(). By the owner, while no request runs. */
    void resume() noexcept { m_cancelled = false; }

    /** What is still to be sent; reader()'s user data. */
    struct UploadSource
    {
        const char *next = nullptr;
        std::size_t left = 0;
    };

    struct Free
    {
        void operator()(char *bytes) const noexcept { std::free(bytes); }
    };
    /** What has arrived; writer()'s user data. A NUL stands behind the last byte. */
    struct ResponseBuffer
    {
        std::unique_ptr<char, Free> bytes; // from malloc()
        std::size_t size = 0;              // without the NUL
        std::size_t head = 0;              // bytes of headers so far, which are not kept
    };

    // libcurl's callbacks: `size` x `nmemb` bytes at `ptr`, `userdata` as said above.

    /** Hands out the next bytes of the upload source; 0 once it is empty. */
    static std::size_t reader(void *ptr, std::size_t size, std::size_t nmemb,
                              void *userdata) noexcept;
    /** Adds to the response; 0, with the response as it was, when there is no room for it. */
    static std::size_t writer(void *ptr, std::size_t size, std::size_t nmemb,
                              void *userdata) noexcept;
    /** Counts a line of the response's head, with the same user data; 0 when there are too many. */
    static std::size_t headCounter(void *ptr, std::size_t size, std::size_t nmemb,
                                   void *userdata) noexcept;

    /**
     * The request's headers, a "name: value" each, as a new list that the caller frees; null for
     * none. Returns false, with a null list, when there is no memory.
     */
    static bool setHeaders(curl_slist **list, const HttpRequest &request);

private:
    friend struct HttpClientProbe; // tests shorten the time-out and let allocations fail
    struct Method;

    /** One use of libcurl as a whole, which counts them and winds itself up after the last. */
    class Library
    {
    public:
        Library();
        ~Library();
        Library(const Library &) = delete;
        Library &operator=(const Library &) = delete;
        [[nodiscard]] bool isUsable() const { return m_isUsable; }

    private:
        bool m_isUsable;
    };

    struct Cleanup
    {
        void operator()(CURL *handle) const noexcept { curl_easy_cleanup(handle); }
    };
    struct CleanupTransfers
    {
        void operator()(CURLM *transfers) const noexcept { curl_multi_cleanup(transfers); }
    };

    QByteArray *exchange(const Method &method, const HttpRequest &request, const QByteArray &data);
    CURLcode transfer(const Method &method, const HttpRequest &request, const QByteArray &data);
    CURLcode perform();

    static void *(*s_reallocate)(void *, std::size_t);

    std::int64_t m_timeout = 30000; // milliseconds
    UploadSource m_upload;
    ResponseBuffer m_response; // holds something only during a request
    Library m_library;
    std::unique_ptr<CURLM, CleanupTransfers> m_transfers; // holds the connections
    std::unique_ptr<CURL, Cleanup> m_handle;              // null: every request returns null
    std::atomic<bool> m_cancelled = false;
    CURLcode m_lastResult = CURLE_OK;
    long m_lastStatus = 0;
};

#endif
