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
 * A synchronous HTTP/1.1 client. It owns one connection, which it keeps open from request to
 * request; after a failed request the next one opens a new connection.
 *
 * get(), post() and put() wait for the answer and return its body, possibly empty, in a new byte
 * array that the caller owns, whatever the status: redirects are not followed. Null means that the
 * request cannot be sent or has no complete answer (name, connection, TLS, transfer, memory);
 * nothing is logged. Only a request that finds its kept connection closed is sent again. The body
 * is sent with the head, without waiting for a go-ahead from the server.
 *
 * A request fails if connecting takes 30 seconds, if less than a byte a second moves for 30
 * seconds, if it takes five minutes in all, or if the answer exceeds MAX_ANSWER or MAX_HEAD.
 * Certificates of servers and of https: proxies are verified only in a build with
 * PELCLOUD_VERIFY_TLS (see docs/security.md). libcurl reads the proxies from the environment.
 *
 * Different clients may be used by different threads at once; one client is for one thread at a
 * time. The process's signal handlers are neither changed nor run: SIGPIPE is blocked.
 */
class HttpClient
{
public:
    static constexpr std::size_t MAX_ANSWER = 64U << 20U; // bytes
    static constexpr std::size_t MAX_HEAD = 1U << 20U;

    HttpClient();
    ~HttpClient();
    HttpClient(const HttpClient &) = delete;
    HttpClient &operator=(const HttpClient &) = delete;

    [[nodiscard]] QByteArray *get(const HttpRequest &request);
    [[nodiscard]] QByteArray *post(const HttpRequest &request, const QByteArray &data);
    [[nodiscard]] QByteArray *put(const HttpRequest &request, const QByteArray &data);
    /** Sends nothing and returns null: the cloud has no DELETE requests. */
    QByteArray *del(const HttpRequest &request);

    /** Whether server certificates are verified. */
    [[nodiscard]] static bool verifiesTls() noexcept;

    /** HTTP status of the last answer, 200 for example; 0 if there was none. */
    [[nodiscard]] long lastStatus() const { return m_lastStatus; }
    /** Why the last request returned null, in libcurl's words; empty if it did not. */
    [[nodiscard]] const char *lastError() const;

    /** Makes the request in progress, and every later one, return null at once. For any thread. */
    void cancel() noexcept;
    /** Ends the effect of cancel(); by the owner, while no request runs. */
    void resume() noexcept { m_cancelled = false; }

    /** The rest of a body to send; user data of reader() and rewinder(). */
    struct UploadSource
    {
        const char *next = nullptr;
        std::size_t left = 0;
        const char *begin = nullptr; // of the whole body
    };

    struct Free
    {
        void operator()(char *bytes) const noexcept { std::free(bytes); }
    };
    /** The response so far; user data of writer() and headCounter(). */
    struct ResponseBuffer
    {
        // From malloc(), with a NUL behind the last byte. The room is the next power of two.
        std::unique_ptr<char, Free> bytes;
        std::size_t size = 0; // without the NUL
        std::size_t head = 0; // bytes of headers, which are not kept
    };

    // libcurl's callbacks; those for data get `size` x `nmemb` bytes at `ptr`.

    /** Copies the next bytes of the upload source; 0 at its end. */
    static std::size_t reader(void *ptr, std::size_t size, std::size_t nmemb,
                              void *userdata) noexcept;
    /** Rewinds the upload source, so that libcurl can send it again on another connection. */
    static int rewinder(void *userdata, curl_off_t offset, int origin) noexcept;
    /** Appends to the response; 0 without memory or beyond MAX_ANSWER, the response unchanged. */
    static std::size_t writer(void *ptr, std::size_t size, std::size_t nmemb,
                              void *userdata) noexcept;
    /** Counts a line of the response's head; 0 beyond MAX_HEAD. */
    static std::size_t headCounter(void *ptr, std::size_t size, std::size_t nmemb,
                                   void *userdata) noexcept;

    /**
     * Makes a list of the request's own headers, "name: value" each, that the caller frees. On
     * failure it is null: CURLE_OUT_OF_MEMORY, or CURLE_BAD_FUNCTION_ARGUMENT if a name or value
     * has a line break or a NUL, since the rest of it would be a header of its own or be lost.
     */
    static CURLcode setHeaders(curl_slist **list, const HttpRequest &request);

private:
    friend struct HttpClientProbe; // tests shorten the timeout
    struct Method;

    /** A reference to libcurl's global state. */
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
    CURLcode prepare();
    CURLcode transfer(const Method &method, const HttpRequest &request, const QByteArray &data);
    CURLcode perform();

    std::int64_t m_timeout = 30000; // milliseconds
    UploadSource m_upload;
    ResponseBuffer m_response; // empty between requests
    Library m_library;
    std::unique_ptr<CURLM, CleanupTransfers> m_transfers; // keeps the connection
    std::unique_ptr<CURL, Cleanup> m_handle;              // null: the next request makes one
    std::atomic<bool> m_cancelled = false;
    CURLcode m_lastResult = CURLE_OK;
    char m_errorText[CURL_ERROR_SIZE] = ""; // libcurl's, of the last request
    long m_lastStatus = 0;
};

#endif
