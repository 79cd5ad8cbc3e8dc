#include "Channel.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <stdexcept>
#include <string>

namespace ApplianceParts
{

namespace
{

using Context = std::shared_ptr<SSL_CTX>;

std::runtime_error Failure(const std::string& step)
{
    char reason[256] = "unknown";
    ERR_error_string_n(ERR_get_error(), reason, sizeof reason);
    return std::runtime_error(step + ": " + reason);
}

class TlsChannel final : public IChannel
{
public:
    TlsChannel(Context context, System::Socket socket) : m_context(std::move(context)), m_ssl(SSL_new(m_context.get()), &SSL_free)
    {
        if (!m_ssl || SSL_set_fd(m_ssl.get(), static_cast<int>(socket)) != 1)
            m_ssl.reset();
    }

    ~TlsChannel() override
    {
        if (m_isOpen)
            SSL_shutdown(m_ssl.get());
    }

    TlsChannel(const TlsChannel&) = delete;
    TlsChannel& operator=(const TlsChannel&) = delete;

    bool Accept()
    {
        m_isOpen = m_ssl && SSL_accept(m_ssl.get()) == 1;
        return m_isOpen;
    }

    std::ptrdiff_t Read(char* buffer, std::size_t size) override
    {
        std::size_t count = 0;
        if (SSL_read_ex(m_ssl.get(), buffer, size, &count) == 1)
            return static_cast<std::ptrdiff_t>(count);
        return Judge();
    }

    std::ptrdiff_t Write(const char* data, std::size_t size) override
    {
        std::size_t count = 0;
        if (SSL_write_ex(m_ssl.get(), data, size, &count) == 1)
            return static_cast<std::ptrdiff_t>(count);
        return Judge();
    }

    bool HasPending() const override { return SSL_pending(m_ssl.get()) > 0; }

private:
    std::ptrdiff_t Judge()
    {
        const int error = SSL_get_error(m_ssl.get(), 0);
        // After these two the connection must not be used any more, not even for its end.
        if (error == SSL_ERROR_SSL || error == SSL_ERROR_SYSCALL)
            m_isOpen = false;
        ERR_clear_error();
        return error == SSL_ERROR_ZERO_RETURN ? 0 : -1;
    }

    Context m_context;
    std::unique_ptr<SSL, decltype(&SSL_free)> m_ssl;
    bool m_isOpen = false;
};

} // namespace

ChannelFactory TlsChannels(const std::filesystem::path& certificate, const std::filesystem::path& privateKey)
{
    const Context context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
    if (!context)
        throw Failure("cannot prepare TLS");
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_mode(context.get(), SSL_MODE_AUTO_RETRY);
    if (SSL_CTX_use_certificate_chain_file(context.get(), certificate.string().c_str()) != 1)
        throw Failure("cannot use the certificate " + certificate.string());
    if (SSL_CTX_use_PrivateKey_file(context.get(), privateKey.string().c_str(), SSL_FILETYPE_PEM) != 1)
        throw Failure("cannot use the private key " + privateKey.string());
    if (SSL_CTX_check_private_key(context.get()) != 1)
        throw Failure("the private key is not the certificate's");
    return [context](System::Socket socket) -> std::unique_ptr<IChannel> {
        auto channel = std::make_unique<TlsChannel>(context, socket);
        return channel->Accept() ? std::move(channel) : nullptr;
    };
}

} // namespace ApplianceParts
