#include "TlsMessages.h"

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

TlsMessages& MessagesOf(const SSL* connection) noexcept
{
    return *static_cast<TlsMessages*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(connection), Index()));
}

} // namespace

void TlsMessages::AttachTo(EasyHandle& easy)
{
    m_trusted.AttachTo(easy);
    easy.Set(CURLOPT_SSL_CTX_FUNCTION, &TlsMessages::Watch);
    easy.Set(CURLOPT_SSL_CTX_DATA, static_cast<void*>(this));
}

CURLcode TlsMessages::Watch(CURL*, void* context, void* self) noexcept
{
    auto* const tls = static_cast<SSL_CTX*>(context);
    if (SSL_CTX_set_ex_data(tls, Index(), self) == 0)
        return CURLE_OUT_OF_MEMORY;
    // Else OpenSSL keeps what it decrypted, such as a login's reply.
    SSL_CTX_set_options(tls, SSL_OP_CLEANSE_PLAINTEXT);
    SSL_CTX_set_client_cert_cb(tls, [](SSL* connection, X509**, EVP_PKEY**) {
        MessagesOf(connection).m_wantsCertificate = true;
        return 0; // there is none to send
    });
    SSL_CTX_set_info_callback(tls, [](const SSL* connection, int where, int alert) {
        constexpr int kDescription = 0xFF; // the level is above it
        if ((where & SSL_CB_READ_ALERT) == SSL_CB_READ_ALERT && (alert & kDescription) == SSL_AD_CLOSE_NOTIFY)
            MessagesOf(connection).m_isEnded = true;
    });
    return static_cast<TlsMessages*>(self)->m_trusted.ApplyTo(*tls);
}

} // namespace Quendra::Platform
