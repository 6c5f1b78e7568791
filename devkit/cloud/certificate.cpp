#include "devkit/cloud/certificate.h"

#include <stdexcept>
#include <string>

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace localcloud {

namespace {

constexpr long SECONDS_BEFORE = 3600; // for clients whose clock is behind
constexpr long SECONDS_AFTER = 30L * 24 * 3600;
constexpr const char *NAMES = "DNS:localhost,IP:127.0.0.1";

template <auto Free>
struct Deleter
{
    template <class Object>
    void operator()(Object *object) const
    {
        Free(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION_free>>;

void require(bool isDone, const char *what)
{
    if (!isDone)
        throw std::runtime_error(std::string("cannot make a certificate: ") + what);
}

void setRandomSerial(X509 *certificate)
{
    std::uint64_t serial = 0;
    require(RAND_bytes(reinterpret_cast<unsigned char *>(&serial), sizeof serial) == 1, "random");
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial >> 1U);
}

Certificate selfSigned(EVP_PKEY *key)
{
    Certificate certificate(X509_new());
    require(certificate != nullptr, "memory");
    X509_set_version(certificate.get(), X509_VERSION_3);
    setRandomSerial(certificate.get());
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -SECONDS_BEFORE);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), SECONDS_AFTER);
    X509_NAME *const name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char *>("localhost"), -1, -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    X509_set_pubkey(certificate.get(), key);
    const Extension names(X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, NAMES));
    require(names && X509_add_ext(certificate.get(), names.get(), -1) == 1, "names");
    require(X509_sign(certificate.get(), key, EVP_sha256()) > 0, "signature");
    return certificate;
}

} // namespace

SslContext makeServerContext()
{
    const Key key(EVP_EC_gen("P-256"));
    require(key != nullptr, "key");
    const Certificate certificate = selfSigned(key.get());
    SslContext context(SSL_CTX_new(TLS_server_method()));
    require(context && SSL_CTX_use_certificate(context.get(), certificate.get()) == 1
                    && SSL_CTX_use_PrivateKey(context.get(), key.get()) == 1,
            "context");
    SSL_CTX_set_num_tickets(context.get(), 0); // the server sends nothing but answers
    return context;
}

} // namespace localcloud
