// Built once for each setting of PELCLOUD_VERIFY_TLS.
#include "devkit/cloud/httpserver.h"
#include "http/httpclient.h"
#include "http/httprequest.h"

#include <gtest/gtest.h>

#include <QUrl>

#include <dlfcn.h>
#include <openssl/pem.h>

static curl_blob g_authority{ nullptr, 0, CURL_BLOB_COPY };

/** Called instead of libcurl's: trusts the authority, if there is one. */
extern "C" CURLMcode curl_multi_add_handle(CURLM *transfers, CURL *handle)
{
    for (const CURLoption option : { CURLOPT_CAINFO_BLOB, CURLOPT_PROXY_CAINFO_BLOB })
        curl_easy_setopt(handle, option, g_authority.len != 0 ? &g_authority : nullptr);
    static const auto real = reinterpret_cast<decltype(&curl_multi_add_handle)>(
            dlsym(RTLD_NEXT, "curl_multi_add_handle"));
    return real(transfers, handle);
}

namespace {

TEST(Tls, VerifiesPeersWhenConfigured)
{
    localcloud::SslContext context = localcloud::makeServerContext(); // not for other.localhost
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> pem(BIO_new(BIO_s_mem()), BIO_free_all);
    PEM_write_bio_X509(pem.get(), SSL_CTX_get0_certificate(context.get()));
    const long size = BIO_get_mem_data(pem.get(), &g_authority.data);
    localcloud::StopSignal stop;
    localcloud::HttpServer server(stop, std::move(context));
    server.route("GET", ".*", [](const auto &) { return localcloud::Answer{ .body = "ok" }; });
    const std::string port = ":" + std::to_string(server.start(0));
    for (unsigned row = 0; row < 8; ++row) {
        const bool isGenuine = row & 1U, isTrusted = row & 2U, isProxy = row & 4U;
        const std::string peer =
                (isGenuine ? "https://127.0.0.1" : "https://other.localhost") + port;
        ::setenv("http_proxy", peer.c_str(), 1); // NOLINT(concurrency-mt-unsafe)
        g_authority.len = isTrusted ? static_cast<std::size_t>(size) : 0;
        HttpClient client;
        const QUrl url(isProxy ? "http://far-away.invalid/" : peer.c_str());
        const std::unique_ptr<QByteArray> answer(client.get(url));
        const bool isGood = (isGenuine && isTrusted) || !PELCLOUD_VERIFY_TLS;
        EXPECT_EQ(answer ? *answer : "null", isGood ? "ok" : "null") << row << client.lastError();
    }
    stop.raise();
}

} // namespace
