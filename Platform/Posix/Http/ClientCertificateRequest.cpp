#include "ClientCertificateRequest.h"

#include <openssl/ssl.h>

namespace Quendra::Platform
{

namespace
{

int Index() noexcept
{
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

} // namespace

void ClientCertificateRequest::AttachTo(EasyHandle& easy)
{
    m_trusted.AttachTo(easy);
    easy.Set(CURLOPT_SSL_CTX_FUNCTION, &ClientCertificateRequest::Watch);
    easy.Set(CURLOPT_SSL_CTX_DATA, static_cast<void*>(this));
}

CURLcode ClientCertificateRequest::Watch(CURL*, void* context, void* self) noexcept
{
    auto* const tls = static_cast<SSL_CTX*>(context);
    if (SSL_CTX_set_ex_data(tls, Index(), self) == 0)
        return CURLE_OUT_OF_MEMORY;
    // Else OpenSSL keeps what it decrypted, such as a login's reply.
    SSL_CTX_set_options(tls, SSL_OP_CLEANSE_PLAINTEXT);
    SSL_CTX_set_client_cert_cb(tls, [](SSL* connection, X509**, EVP_PKEY**) {
        static_cast<ClientCertificateRequest*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(connection), Index()))->m_isReceived = true;
        return 0; // there is none to send
    });
    return static_cast<ClientCertificateRequest*>(self)->m_trusted.ApplyTo(*tls);
}

} // namespace Quendra::Platform
