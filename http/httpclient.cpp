#include "http/httpclient.h"

#include "http/httprequest.h"
#include "support/version.h"

#include <algorithm>
#include <concepts>
#include <csignal>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>

#include <QByteArray>
#include <QString>

namespace {

constexpr bool VERIFY_TLS = PELCLOUD_VERIFY_TLS;
constexpr char USER_AGENT[] = "pelcloud/" PELCLOUD_VERSION;

// Slower than this, in bytes a second, a transfer stands still.
constexpr long STANDSTILL = 1;

// A transfer as a whole may take this many times what it may stand still.
constexpr long PATIENCE_WITH_TRICKLE = 10;

// Not every libcurl guards its own count of users.
std::mutex libraryMutex;

struct FreeHeaders
{
    void operator()(curl_slist *list) const noexcept { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeHeaders>;

/** Sets options of a handle one after the other; after one has failed, no further one. */
class Options
{
public:
    explicit Options(CURL *handle)
        : m_handle(handle)
    {}
    // libcurl takes its arguments untyped and reads a long where it wants a number.
    template <class Value>
    requires(!std::integral<Value> || sizeof(Value) == sizeof(long)) Options &set(CURLoption option,
                                                                                  Value value)
    {
        if (m_result == CURLE_OK)
            m_result = curl_easy_setopt(m_handle, option, value);
        return *this;
    }
    [[nodiscard]] CURLcode result() const { return m_result; }

private:
    CURL *m_handle;
    CURLcode m_result = CURLE_OK;
};

/**
 * Keeps a SIGPIPE that the calling thread earns while this lives from being delivered. Writing to
 * a connection that the peer has closed raises it, inside the TLS library at least; libcurl itself
 * could only change the handler of the whole process, which is not ours.
 */
class SigPipeShield
{
public:
    SigPipeShield()
    {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        m_wasPending = isPending();
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_previous);
    }
    ~SigPipeShield()
    {
        constexpr timespec AT_ONCE{};
        if (!m_wasPending && isPending())
            sigtimedwait(&m_pipe, nullptr, &AT_ONCE);
        pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
    }
    SigPipeShield(const SigPipeShield &) = delete;
    SigPipeShield &operator=(const SigPipeShield &) = delete;

private:
    static bool isPending()
    {
        sigset_t pending;
        sigemptyset(&pending);
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) == 1;
    }

    sigset_t m_pipe{};
    sigset_t m_previous{};
    bool m_wasPending = false;
};

} // namespace

struct HttpClient::Method
{
    enum class Body { None, Fields, Upload };

    long upload;
    CURLoption option;
    Body body;
};

void *(*HttpClient::s_reallocate)(void *, std::size_t) = std::realloc;

HttpClient::Library::Library()
{
    const std::lock_guard lock(libraryMutex);
    m_isUsable = curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK;
}

HttpClient::Library::~Library()
{
    const std::lock_guard lock(libraryMutex);
    if (m_isUsable)
        curl_global_cleanup();
}

HttpClient::HttpClient()
    : m_transfers(m_library.isUsable() ? curl_multi_init() : nullptr)
    , m_handle(m_transfers ? curl_easy_init() : nullptr)
{
    if (!m_handle)
        return;
    const CURLcode result = Options(m_handle.get())
                                    .set(CURLOPT_SSL_VERIFYPEER, VERIFY_TLS ? 1L : 0L)
                                    .set(CURLOPT_SSL_VERIFYHOST, VERIFY_TLS ? 2L : 0L)
                                    .set(CURLOPT_WRITEFUNCTION, &writer)
                                    .set(CURLOPT_WRITEDATA, &m_response)
                                    .set(CURLOPT_HEADERFUNCTION, &headCounter)
                                    .set(CURLOPT_HEADERDATA, &m_response)
                                    .set(CURLOPT_READFUNCTION, &reader)
                                    .set(CURLOPT_READDATA, &m_upload)
                                    .set(CURLOPT_USERAGENT, USER_AGENT)
                                    .set(CURLOPT_NOSIGNAL, 1L)
                                    .set(CURLOPT_QUICK_EXIT, 1L) // no wait for a name server
                                    .result();
    if (result != CURLE_OK)
        m_handle.reset();
}

HttpClient::~HttpClient()
{
    const SigPipeShield shield; // connections say good-bye
    m_handle.reset();
    m_transfers.reset();
}

QByteArray *HttpClient::get(const HttpRequest &request)
{
    return exchange({ 0, CURLOPT_HTTPGET, Method::Body::None }, request, {});
}

QByteArray *HttpClient::post(const HttpRequest &request, const QByteArray &data)
{
    return exchange({ 0, CURLOPT_POST, Method::Body::Fields }, request, data);
}

QByteArray *HttpClient::put(const HttpRequest &request, const QByteArray &data)
{
// CURLOPT_UPLOAD alone would do for a libcurl of today.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return exchange({ 1, CURLOPT_PUT, Method::Body::Upload }, request, data);
#pragma GCC diagnostic pop
}

QByteArray *HttpClient::del([[maybe_unused]] const HttpRequest &request)
{
    return nullptr;
}

/** The one place where libcurl's results become ours: a body or null. */
QByteArray *HttpClient::exchange(const Method &method, const HttpRequest &request,
                                 const QByteArray &data)
{
    m_response.bytes.reset(static_cast<char *>(std::calloc(1, 1)));
    m_lastResult = m_handle ? CURLE_OUT_OF_MEMORY : CURLE_FAILED_INIT;
    m_lastStatus = 0;
    QByteArray *body = nullptr;
    if (m_response.bytes && m_handle) {
        try {
            m_lastResult = transfer(method, request, data);
            if (m_lastResult == CURLE_OK)
                body = new QByteArray(m_response.bytes.get(), qsizetype(m_response.size));
        } catch (const std::bad_alloc &) {
            m_lastResult = CURLE_OUT_OF_MEMORY;
        }
    }
    m_response = {};
    return body;
}

CURLcode HttpClient::transfer(const Method &method, const HttpRequest &request,
                              const QByteArray &data)
{
    const QByteArray url = request.url().toLatin1();
    curl_slist *list = nullptr;
    if (!setHeaders(&list, request))
        return CURLE_OUT_OF_MEMORY;
    const HeaderList headers(list);

    Options options(m_handle.get());
    options.set(CURLOPT_UPLOAD, method.upload)
            .set(method.option, 1L)
            .set(CURLOPT_URL, url.constData())
            .set(CURLOPT_HTTPHEADER, headers.get());
    if (method.body == Method::Body::Fields) {
        options.set(CURLOPT_POSTFIELDS, data.constData())
                .set(CURLOPT_POSTFIELDSIZE, static_cast<long>(data.size()));
    } else if (method.body == Method::Body::Upload) {
        m_upload = { data.constData(), static_cast<std::size_t>(data.size()) };
        options.set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(data.size()));
    }
    options.set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(m_timeout))
            .set(CURLOPT_TIMEOUT_MS, PATIENCE_WITH_TRICKLE * static_cast<long>(m_timeout))
            .set(CURLOPT_LOW_SPEED_LIMIT, STANDSTILL)
            .set(CURLOPT_LOW_SPEED_TIME,
                 static_cast<long>(std::max<std::int64_t>(1, m_timeout / 1000)));

    CURLcode result = options.result();
    if (result == CURLE_OK) {
        const SigPipeShield shield;
        result = perform();
    }
    if (result == CURLE_OK && m_handle)
        curl_easy_getinfo(m_handle.get(), CURLINFO_RESPONSE_CODE, &m_lastStatus);

    // Headers and data end with this call; a handle that cannot let go of them is not used again.
    m_upload = {};
    if (!m_handle)
        return result;
    Options letGo(m_handle.get());
    letGo.set(CURLOPT_HTTPHEADER, nullptr).set(CURLOPT_POSTFIELDS, nullptr);
    if (letGo.result() != CURLE_OK)
        m_handle.reset();
    return result;
}

/** What curl_easy_perform() does, except that cancel() ends the wait at once. */
CURLcode HttpClient::perform()
{
    constexpr int LONGEST_WAIT_MS = 1000;
    if (curl_multi_add_handle(m_transfers.get(), m_handle.get()) != CURLM_OK)
        return CURLE_FAILED_INIT;
    CURLMcode state = CURLM_OK;
    int running = 1;
    while (state == CURLM_OK && !m_cancelled) {
        state = curl_multi_perform(m_transfers.get(), &running);
        if (running == 0)
            break;
        if (state == CURLM_OK)
            state = curl_multi_poll(m_transfers.get(), nullptr, 0, LONGEST_WAIT_MS, nullptr);
    }
    int left = 0;
    const CURLMsg *const done = curl_multi_info_read(m_transfers.get(), &left);
    const CURLcode result = done != nullptr ? done->data.result : CURLE_ABORTED_BY_CALLBACK;
    if (curl_multi_remove_handle(m_transfers.get(), m_handle.get()) != CURLM_OK)
        m_handle.reset();
    return result;
}

bool HttpClient::verifiesTls() noexcept
{
    return VERIFY_TLS;
}

const char *HttpClient::lastError() const
{
    return m_lastResult == CURLE_OK ? "" : curl_easy_strerror(m_lastResult);
}

void HttpClient::cancel() noexcept
{
    m_cancelled = true;
    if (m_transfers)
        curl_multi_wakeup(m_transfers.get());
}

std::size_t HttpClient::reader(void *ptr, std::size_t size, std::size_t nmemb,
                               void *userdata) noexcept
{
    auto &source = *static_cast<UploadSource *>(userdata);
    const std::size_t count = std::min(size * nmemb, source.left);
    if (count > 0) {
        std::memcpy(ptr, source.next, count);
        source.next += count;
        source.left -= count;
    }
    return count;
}

std::size_t HttpClient::writer(void *ptr, std::size_t size, std::size_t nmemb,
                               void *userdata) noexcept
{
    auto &buffer = *static_cast<ResponseBuffer *>(userdata);
    const std::size_t room = MAX_ANSWER - std::min(buffer.size, MAX_ANSWER);
    if (nmemb != 0 && size > room / nmemb)
        return 0;
    const std::size_t count = size * nmemb;
    void *grown = s_reallocate(buffer.bytes.get(), buffer.size + count + 1);
    if (grown == nullptr)
        return 0;
    static_cast<void>(buffer.bytes.release()); // went into `grown`
    buffer.bytes.reset(static_cast<char *>(grown));
    if (count > 0)
        std::memcpy(buffer.bytes.get() + buffer.size, ptr, count);
    buffer.size += count;
    buffer.bytes.get()[buffer.size] = '\0';
    return count;
}

std::size_t HttpClient::headCounter(void *, std::size_t size, std::size_t nmemb,
                                    void *userdata) noexcept
{
    auto &buffer = *static_cast<ResponseBuffer *>(userdata);
    const std::size_t count = size * nmemb; // libcurl's lines are short
    buffer.head += count;
    return buffer.head <= MAX_HEAD ? count : 0;
}

bool HttpClient::setHeaders(curl_slist **list, const HttpRequest &request)
{
    *list = nullptr;
    HeaderList headers;
    for (const QByteArray &name : request.rawHeaderList()) {
        const QByteArray line = name + ": " + request.rawHeader(name);
        curl_slist *longer = curl_slist_append(headers.get(), line.constData());
        if (longer == nullptr)
            return false;
        static_cast<void>(headers.release()); // went into `longer`
        headers.reset(longer);
    }
    *list = headers.release();
    return true;
}
