#pragma once

/// @file
/// The certificate authorities that a session trusts, loaded once for all its connections.

#include "EasyHandle.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <string>

namespace Quendra::Platform
{

/// The system's authorities, or those that SSL_CERT_FILE and SSL_CERT_DIR name when the object is made. Thread-safe.
class CertificateStore
{
public:
    CertificateStore();

    /// Keeps curl from loading authorities itself.
    /// @throws std::bad_alloc, and std::runtime_error where libcurl refuses an option
    void AttachTo(EasyHandle& easy);

    /// Makes a new TLS context trust these authorities.
    /// @return CURLE_OK, or CURLE_SSL_CACERT_BADFILE where they cannot be loaded.
    CURLcode ApplyTo(SSL_CTX& context) noexcept;

private:
    using Clock = std::chrono::steady_clock;

    struct Free
    {
        void operator()(X509_STORE* store) const noexcept { X509_STORE_free(store); }
    };

    bool Load() noexcept;

    const std::string m_file;
    const std::string m_folder;
    std::mutex m_mutex;
    std::unique_ptr<X509_STORE, Free> m_store;
    Clock::time_point m_loaded;
};

} // namespace Quendra::Platform
