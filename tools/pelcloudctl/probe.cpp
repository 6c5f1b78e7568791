#include "tools/pelcloudctl/probe.h"

#include "http/httpclient.h"

#include <curl/curl.h>

#include <cstring>
#include <memory>
#include <string_view>

namespace {

constexpr long TIMEOUT = 15; // seconds

using Handle = std::unique_ptr<CURL, void (*)(CURL *)>;
using Headers = std::unique_ptr<curl_slist, void (*)(curl_slist *)>;

std::size_t readHeader(char *bytes, std::size_t, std::size_t size, void *answer)
{
    constexpr std::string_view NAME = "date:";
    if (size > NAME.size() && strncasecmp(bytes, NAME.data(), NAME.size()) == 0) {
        const std::string value(bytes + NAME.size(), size - NAME.size());
        const std::time_t date = curl_getdate(value.c_str(), nullptr);
        if (date >= 0)
            static_cast<Answer *>(answer)->date = date;
    }
    return size;
}

std::size_t ignore(char *, std::size_t, std::size_t size, void *)
{
    return size;
}

std::string expiryOf(CURL *handle)
{
    constexpr std::string_view NAME = "Expire date:";
    curl_certinfo *certificates = nullptr;
    if (curl_easy_getinfo(handle, CURLINFO_CERTINFO, &certificates) != CURLE_OK
        || certificates == nullptr || certificates->num_of_certs == 0)
        return "an unknown date";
    for (const curl_slist *line = certificates->certinfo[0]; line != nullptr; line = line->next) {
        const std::string_view text = line->data;
        if (text.starts_with(NAME))
            return std::string(text.substr(NAME.size()));
    }
    return "an unknown date";
}

CURLcode ask(const std::string &url, const std::string &accessToken, bool isVerifying,
             Answer &answer)
{
    const Handle handle(curl_easy_init(), curl_easy_cleanup);
    Headers headers(nullptr, curl_slist_free_all);
    if (!accessToken.empty())
        headers.reset(curl_slist_append(nullptr, ("Authorization: Bearer " + accessToken).c_str()));
    char words[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT, TIMEOUT);
    curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_ERRORBUFFER, words);
    curl_easy_setopt(handle.get(), CURLOPT_CERTINFO, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_SSL_VERIFYPEER, isVerifying ? 1L : 0L);
    curl_easy_setopt(handle.get(), CURLOPT_SSL_VERIFYHOST, isVerifying ? 2L : 0L);
    // As the plug-in does; `isVerifying` is about the server only.
    curl_easy_setopt(handle.get(), CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle.get(), CURLOPT_PROXY_SSL_VERIFYPEER,
                     HttpClient::verifiesTls() ? 1L : 0L);
    curl_easy_setopt(handle.get(), CURLOPT_PROXY_SSL_VERIFYHOST,
                     HttpClient::verifiesTls() ? 2L : 0L);
    curl_easy_setopt(handle.get(), CURLOPT_HEADERFUNCTION, readHeader);
    curl_easy_setopt(handle.get(), CURLOPT_HEADERDATA, &answer);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, ignore);
    const CURLcode result = curl_easy_perform(handle.get());
    if (result == CURLE_OK) {
        curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &answer.status);
        answer.expiry = expiryOf(handle.get());
    }
    answer.failure = result == CURLE_OK ? ""
                     : words[0] != '\0' ? words
                                        : curl_easy_strerror(result);
    return result;
}

} // namespace

Answer probe(const std::string &url, const std::string &accessToken)
{
    Answer answer;
    answer.isTls = url.starts_with("https:");
    const CURLcode result = ask(url, accessToken, true, answer);
    answer.isTrusted = answer.isTls && result == CURLE_OK;
    // CURLE_SSL_CACERT_BADFILE: the system has no certificates of authorities.
    if (result == CURLE_PEER_FAILED_VERIFICATION || result == CURLE_SSL_CACERT_BADFILE) {
        answer.certificateFailure = answer.failure;
        // The token goes to this server only in a build whose plug-in sends it there too.
        static_cast<void>(ask(url, HttpClient::verifiesTls() ? "" : accessToken, false, answer));
    }
    return answer;
}
