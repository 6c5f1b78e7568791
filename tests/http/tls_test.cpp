// Built once for each setting of PELCLOUD_VERIFY_TLS.
#include "http/httpclient.h"

#include "http/httprequest.h"

#include <gtest/gtest.h>

#include <thread>

#include <QByteArray>
#include <QUrl>

#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

struct HttpClientProbe
{
    static CURLcode trust(HttpClient &client, BIO *pem)
    {
        curl_blob blob{ nullptr, 0, CURL_BLOB_COPY };
        blob.len = static_cast<std::size_t>(BIO_get_mem_data(pem, &blob.data));
        return curl_easy_setopt(client.m_handle.get(), CURLOPT_CAINFO_BLOB, &blob);
    }
};

namespace {

template <class Value, auto Free>
using Owner = std::unique_ptr<Value, std::integral_constant<decltype(Free), Free>>;
using Bio = Owner<BIO, BIO_free_all>;
using Certificate = Owner<X509, X509_free>;
using Key = Owner<EVP_PKEY, EVP_PKEY_free>;

constexpr unsigned char NAME[] = "test";

/** A certificate for the server at `address`, signed by itself. */
Certificate certify(EVP_PKEY *key, const char *address)
{
    Certificate result(X509_new());
    X509_gmtime_adj(X509_getm_notBefore(result.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(result.get()), 3600);
    X509_set_version(result.get(), X509_VERSION_3);
    X509_set_pubkey(result.get(), key);
    X509_NAME *const subject = X509_get_subject_name(result.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, NAME, -1, -1, 0);
    X509_set_issuer_name(result.get(), subject);
    const Owner<X509_EXTENSION, X509_EXTENSION_free> name(
            X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, address));
    X509_add_ext(result.get(), name.get(), -1);
    X509_sign(result.get(), key, EVP_sha256());
    return result;
}

TEST(Tls, BelievesWhomTheBuildSays)
{
    const struct
    {
        const char *address;
        bool isTrusted, isGenuine;
    } rows[] = {
        { "IP:127.0.0.1", true, true },
        { "IP:127.0.0.1", false, false },
        { "IP:127.0.0.2", true, false },
    };
    const Key key(EVP_EC_gen("P-256"));
    for (const auto &row : rows) {
        const Certificate certificate = certify(key.get(), row.address);
        const Owner<SSL_CTX, SSL_CTX_free> context(SSL_CTX_new(TLS_server_method()));
        SSL_CTX_use_certificate(context.get(), certificate.get());
        SSL_CTX_use_PrivateKey(context.get(), key.get());
        const Bio listener(BIO_new_accept("127.0.0.1:0")), pem(BIO_new(BIO_s_mem()));
        SSL_CTX_set_num_tickets(context.get(), 0); // nor anything else for a client that has gone
        SSL_CTX_set_quiet_shutdown(context.get(), 1);
        BIO_set_accept_bios(listener.get(), BIO_new_ssl(context.get(), 0));
        ASSERT_EQ(BIO_do_accept(listener.get()), 1); // listens
        std::thread server([&] {
            BIO_do_accept(listener.get());
            const Bio connection(BIO_pop(listener.get()));
            char request[4096];
            if (BIO_read(connection.get(), request, sizeof request) > 0)
                BIO_puts(connection.get(), "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
        });
        HttpClient client;
        PEM_write_bio_X509(pem.get(), certificate.get());
        ASSERT_TRUE(!row.isTrusted || HttpClientProbe::trust(client, pem.get()) == CURLE_OK);
        const QUrl url(QString("https://127.0.0.1:") + BIO_get_accept_port(listener.get()));
        const std::unique_ptr<QByteArray> answer(client.get(url));
        server.join();
        EXPECT_EQ(answer ? *answer : "null", row.isGenuine || !PELCLOUD_VERIFY_TLS ? "ok" : "null")
                << row.address << row.isTrusted;
    }
}

} // namespace
