// Built once for each setting of PELCLOUD_VERIFY_TLS.
#include "devkit/cloud/httpserver.h"
#include "http/httpclient.h"
#include "http/httprequest.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QUrl>

#include <openssl/pem.h>

struct HttpClientProbe
{
    static CURL *handle(HttpClient &client) { return client.m_handle.get(); }
};

namespace {

TEST(Tls, VerifiesPeersWhenConfigured)
{
    localcloud::SslContext context = localcloud::makeServerContext(); // not for other.localhost
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> pem(BIO_new(BIO_s_mem()), BIO_free_all);
    PEM_write_bio_X509(pem.get(), SSL_CTX_get0_certificate(context.get()));
    curl_blob authority{ nullptr, 0, CURL_BLOB_COPY };
    authority.len = static_cast<std::size_t>(BIO_get_mem_data(pem.get(), &authority.data));
    localcloud::StopSignal stop;
    localcloud::HttpServer server(stop, std::move(context));
    server.route("GET", ".*", [](const auto &) { return localcloud::Answer{ .body = "ok" }; });
    const std::string port = ":" + std::to_string(server.start(0));
    for (unsigned row = 0; row < 8; ++row) {
        const bool isGenuine = row & 1U, isTrusted = row & 2U, isProxy = row & 4U;
        const std::string peer =
                (isGenuine ? "https://127.0.0.1" : "https://other.localhost") + port;
        ::setenv("http_proxy", peer.c_str(), 1); // NOLINT(concurrency-mt-unsafe)
        HttpClient client;
        for (const CURLoption option : { CURLOPT_CAINFO_BLOB, CURLOPT_PROXY_CAINFO_BLOB }) {
            if (isTrusted)
                curl_easy_setopt(HttpClientProbe::handle(client), option, &authority);
        }
        const QUrl url(isProxy ? "http://far-away.invalid/" : peer.c_str());
        const std::unique_ptr<QByteArray> answer(client.get(url));
        const bool isGood = (isGenuine && isTrusted) || !PELCLOUD_VERIFY_TLS;
        EXPECT_EQ(answer ? *answer : "null", isGood ? "ok" : "null") << row << client.lastError();
    }
    stop.raise();
}

} // namespace
