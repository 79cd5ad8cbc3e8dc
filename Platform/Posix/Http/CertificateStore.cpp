#include "CertificateStore.h"

#include <cstdlib>
#include <openssl/ssl.h>
#include <utility>

namespace Quendra::Platform
{

namespace
{

// The files are read again after this time, so that a program that runs for weeks takes changed certificates.
constexpr std::chrono::hours kLongestUse(24);

std::string Environment(const char* name, const char* otherwise)
{
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing here writes the environment
    const bool isSet = value != nullptr && *value != '\0';
    return isSet ? value : otherwise != nullptr ? otherwise : "";
}

const curl_version_info_data& CurlVersion()
{
    static const auto* const version = curl_version_info(CURLVERSION_NOW);
    return *version;
}

} // namespace

CertificateStore::CertificateStore()
    : m_file(Environment("SSL_CERT_FILE", CurlVersion().cainfo)), m_folder(Environment("SSL_CERT_DIR", CurlVersion().capath))
{
}

void CertificateStore::AttachTo(EasyHandle& easy)
{
    // Given the files, curl would load them for each connection.
    easy.Set(CURLOPT_CAINFO, static_cast<const char*>(nullptr));
    easy.Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
}

CURLcode CertificateStore::ApplyTo(SSL_CTX& context) noexcept
{
    const std::lock_guard lock(m_mutex);
    // Files that cannot be read again, as while they are being replaced, leave the certificates that were loaded before.
    if ((!m_store || Clock::now() - m_loaded > kLongestUse) && !Load() && !m_store)
        return CURLE_SSL_CACERT_BADFILE;
    SSL_CTX_set1_cert_store(&context, m_store.get());
    return CURLE_OK;
}

bool CertificateStore::Load() noexcept
{
    std::unique_ptr<X509_STORE, Free> store(X509_STORE_new());
    if (!store || (!m_file.empty() && X509_STORE_load_file(store.get(), m_file.c_str()) != 1) ||
        (!m_folder.empty() && X509_STORE_load_path(store.get(), m_folder.c_str()) != 1))
        return false;
    // As curl sets them: a trusted certificate ends the chain, also one that is not self-signed.
    X509_STORE_set_flags(store.get(), X509_V_FLAG_TRUSTED_FIRST | X509_V_FLAG_PARTIAL_CHAIN);
    m_store = std::move(store);
    m_loaded = Clock::now();
    return true;
}

} // namespace Quendra::Platform
