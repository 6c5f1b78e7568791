#ifndef PELCLOUD_DEVKIT_CLOUD_CERTIFICATE_H
#define PELCLOUD_DEVKIT_CLOUD_CERTIFICATE_H

#include <memory>

#include <openssl/ssl.h>

namespace localcloud {

struct SslContextDeleter
{
    void operator()(SSL_CTX *context) const { SSL_CTX_free(context); }
};
using SslContext = std::unique_ptr<SSL_CTX, SslContextDeleter>;

/**
 * A TLS server's context with a fresh key and a self-signed certificate for localhost and 127.0.0.1,
 * both held in memory only. Throws std::runtime_error.
 */
[[nodiscard]] SslContext makeServerContext();

} // namespace localcloud

#endif
