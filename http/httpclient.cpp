#include "http/httpclient.h"

#include "http/httprequest.h"
#include "support/version.h"

#include <algorithm>
#include <bit>
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

constexpr long MIN_SPEED = 1; // bytes a second

// The timeout of a whole request, in timeouts of a stalled one.
constexpr long TOTAL_TIMEOUT_FACTOR = 10;

// libcurl's own reference count is not thread-safe in every build.
std::mutex libraryMutex;

struct FreeHeaders
{
    void operator()(curl_slist *list) const noexcept { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeHeaders>;

bool append(HeaderList &list, const char *line)
{
    curl_slist *const longer = curl_slist_append(list.get(), line);
    if (longer == nullptr)
        return false;
    static_cast<void>(list.release()); // is part of `longer`
    list.reset(longer);
    return true;
}

/** Sets options in order; stops at the first failure. */
class Options
{
public:
    explicit Options(CURL *handle)
        : m_handle(handle)
    {}
    // curl_easy_setopt() is variadic and reads every number as a long.
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
 * Blocks SIGPIPE raised by the calling thread in this scope. The TLS library raises it when it
 * writes to a connection that the peer has closed; libcurl would have to change the handler of the
 * whole process, which belongs to the host.
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
        constexpr timespec NO_WAIT{};
        if (!m_wasPending && isPending())
            sigtimedwait(&m_pipe, nullptr, &NO_WAIT);
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
{
    // A new connection replaces the one before, which may be dead.
    if (m_transfers && curl_multi_setopt(m_transfers.get(), CURLMOPT_MAXCONNECTS, 1L) != CURLM_OK)
        m_transfers.reset();
}

HttpClient::~HttpClient()
{
    const SigPipeShield shield; // TLS connections send a last message
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
// Newer versions of libcurl need CURLOPT_UPLOAD only.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return exchange({ 1, CURLOPT_PUT, Method::Body::Upload }, request, data);
#pragma GCC diagnostic pop
}

QByteArray *HttpClient::del([[maybe_unused]] const HttpRequest &request)
{
    return nullptr;
}

/** Turns libcurl's result into a body or null. */
QByteArray *HttpClient::exchange(const Method &method, const HttpRequest &request,
                                 const QByteArray &data)
{
    m_response.bytes.reset(static_cast<char *>(std::calloc(1, 1)));
    m_lastStatus = 0;
    m_errorText[0] = '\0';
    CURLcode result = m_transfers ? CURLE_OUT_OF_MEMORY : CURLE_FAILED_INIT;
    QByteArray *body = nullptr;
    if (m_response.bytes && m_transfers) {
        try {
            result = transfer(method, request, data);
            if (result == CURLE_OK)
                body = new QByteArray(m_response.bytes.get(), qsizetype(m_response.size));
        } catch (const std::bad_alloc &) {
            result = CURLE_OUT_OF_MEMORY;
        }
    }
    m_response = {};
    m_lastResult = result;
    return body;
}

/** Makes a handle, unless there is one, and sets the options that all requests share. */
CURLcode HttpClient::prepare()
{
    if (m_handle)
        return CURLE_OK;
    m_handle.reset(curl_easy_init());
    if (!m_handle)
        return CURLE_OUT_OF_MEMORY;
    const CURLcode result =
            Options(m_handle.get())
                    .set(CURLOPT_SSL_VERIFYPEER, VERIFY_TLS ? 1L : 0L)
                    .set(CURLOPT_SSL_VERIFYHOST, VERIFY_TLS ? 2L : 0L)
                    .set(CURLOPT_WRITEFUNCTION, &writer)
                    .set(CURLOPT_WRITEDATA, &m_response)
                    .set(CURLOPT_HEADERFUNCTION, &headCounter)
                    .set(CURLOPT_HEADERDATA, &m_response)
                    .set(CURLOPT_READFUNCTION, &reader)
                    .set(CURLOPT_READDATA, &m_upload)
                    .set(CURLOPT_SEEKFUNCTION, &rewinder)
                    .set(CURLOPT_SEEKDATA, &m_upload)
                    .set(CURLOPT_ERRORBUFFER, m_errorText)
                    .set(CURLOPT_USERAGENT, USER_AGENT)
                    .set(CURLOPT_NOSIGNAL, 1L)
                    .set(CURLOPT_QUICK_EXIT, 1L) // no wait for a name server
                    .set(CURLOPT_PROXY_SSL_VERIFYPEER, VERIFY_TLS ? 1L : 0L)
                    .set(CURLOPT_PROXY_SSL_VERIFYHOST, VERIFY_TLS ? 2L : 0L)
                    .set(CURLOPT_TCP_KEEPALIVE, 1L)
                    // One request at a time gains nothing by HTTP/2, whose
                    // connections stay in use after a request has timed out.
                    .set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1))
                    .result();
    if (result != CURLE_OK)
        m_handle.reset();
    return result;
}

CURLcode HttpClient::transfer(const Method &method, const HttpRequest &request,
                              const QByteArray &data)
{
    const QByteArray url = request.url().toLatin1();
    curl_slist *list = nullptr;
    if (const CURLcode refusal = setHeaders(&list, request); refusal != CURLE_OK) {
        if (refusal == CURLE_BAD_FUNCTION_ARGUMENT)
            std::strcpy(m_errorText, "Header with a line break or NUL");
        return refusal;
    }
    HeaderList headers(list);
    if (!append(headers, "Expect:")) // stops libcurl from asking for a go-ahead
        return CURLE_OUT_OF_MEMORY;
    if (const CURLcode failure = prepare(); failure != CURLE_OK)
        return failure;

    Options options(m_handle.get());
    options.set(CURLOPT_UPLOAD, method.upload)
            .set(method.option, 1L)
            .set(CURLOPT_URL, url.constData())
            .set(CURLOPT_HTTPHEADER, headers.get())
            .set(CURLOPT_FRESH_CONNECT, m_lastResult == CURLE_OK ? 0L : 1L);
    if (method.body == Method::Body::Fields) {
        options.set(CURLOPT_POSTFIELDS, data.constData())
                .set(CURLOPT_POSTFIELDSIZE, static_cast<long>(data.size()));
    } else if (method.body == Method::Body::Upload) {
        m_upload = { data.constData(), static_cast<std::size_t>(data.size()), data.constData() };
        options.set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(data.size()));
    }
    options.set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(m_timeout))
            .set(CURLOPT_TIMEOUT_MS, TOTAL_TIMEOUT_FACTOR * static_cast<long>(m_timeout))
            .set(CURLOPT_LOW_SPEED_LIMIT, MIN_SPEED)
            .set(CURLOPT_LOW_SPEED_TIME,
                 static_cast<long>(std::max<std::int64_t>(1, m_timeout / 1000)));

    const SigPipeShield shield;
    const CURLcode result = options.result() == CURLE_OK ? perform() : options.result();
    long connects = 0;
    curl_easy_getinfo(m_handle.get(), CURLINFO_NUM_CONNECTS, &connects);
    if (result == CURLE_OK)
        curl_easy_getinfo(m_handle.get(), CURLINFO_RESPONSE_CODE, &m_lastStatus);

    // Headers and data end with this call; a handle that still refers to them is not used again.
    // Neither is one that has failed or may have sent a request twice: libcurl 7.88 counts the latter
    // over a handle's whole life and fails the sixth time.
    m_upload = {};
    Options reset(m_handle.get());
    reset.set(CURLOPT_HTTPHEADER, nullptr).set(CURLOPT_POSTFIELDS, nullptr);
    if (result != CURLE_OK || connects > 0 || reset.result() != CURLE_OK)
        m_handle.reset();
    return result;
}

/** What curl_easy_perform() does, except that cancel() ends the wait at once. */
CURLcode HttpClient::perform()
{
    constexpr int MAX_WAIT_MS = 1000;
    if (curl_multi_add_handle(m_transfers.get(), m_handle.get()) != CURLM_OK)
        return CURLE_FAILED_INIT;
    CURLMcode state = CURLM_OK;
    int running = 1;
    while (state == CURLM_OK && !m_cancelled) {
        state = curl_multi_perform(m_transfers.get(), &running);
        if (running == 0)
            break;
        if (state == CURLM_OK)
            state = curl_multi_poll(m_transfers.get(), nullptr, 0, MAX_WAIT_MS, nullptr);
    }
    int left = 0;
    const CURLMsg *const done = curl_multi_info_read(m_transfers.get(), &left);
    const CURLcode result = done != nullptr ? done->data.result : CURLE_ABORTED_BY_CALLBACK;
    if (curl_multi_remove_handle(m_transfers.get(), m_handle.get()) != CURLM_OK)
        return CURLE_FAILED_INIT;
    return result;
}

bool HttpClient::verifiesTls() noexcept
{
    return VERIFY_TLS;
}

const char *HttpClient::lastError() const
{
    if (m_lastResult == CURLE_OK)
        return "";
    return m_errorText[0] != '\0' ? m_errorText : curl_easy_strerror(m_lastResult);
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

int HttpClient::rewinder(void *userdata, curl_off_t offset, int origin) noexcept
{
    if (offset != 0 || origin != SEEK_SET)
        return CURL_SEEKFUNC_CANTSEEK;
    auto &source = *static_cast<UploadSource *>(userdata);
    source.left += static_cast<std::size_t>(source.next - source.begin);
    source.next = source.begin;
    return CURL_SEEKFUNC_OK;
}

std::size_t HttpClient::writer(void *ptr, std::size_t size, std::size_t nmemb,
                               void *userdata) noexcept
{
    auto &buffer = *static_cast<ResponseBuffer *>(userdata);
    const std::size_t allowed = MAX_ANSWER - std::min(buffer.size, MAX_ANSWER);
    if (nmemb != 0 && size > allowed / nmemb)
        return 0;
    const std::size_t count = size * nmemb;
    // Doubles the room: a long answer is not copied for each of its pieces.
    const std::size_t room = std::bit_ceil(buffer.size + count + 1);
    if (!buffer.bytes || room != std::bit_ceil(buffer.size + 1)) {
        void *const grown = std::realloc(buffer.bytes.get(), room);
        if (grown == nullptr)
            return 0;
        static_cast<void>(buffer.bytes.release()); // is now `grown`
        buffer.bytes.reset(static_cast<char *>(grown));
    }
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

CURLcode HttpClient::setHeaders(curl_slist **list, const HttpRequest &request)
{
    *list = nullptr;
    HeaderList headers;
    for (const QByteArray &name : request.rawHeaderList()) {
        const QByteArray line = name + ": " + request.rawHeader(name);
        if (line.contains('\r') || line.contains('\n') || line.contains('\0'))
            return CURLE_BAD_FUNCTION_ARGUMENT;
        if (!append(headers, line.constData()))
            return CURLE_OUT_OF_MEMORY;
    }
    *list = headers.release();
    return CURLE_OK;
}
