#include "ChannelStream.h"

#include <boost/asio/ssl.hpp>

#include <stdexcept>
#include <string>

namespace ApplianceParts
{

namespace
{

namespace asio = boost::asio;
namespace ssl = boost::asio::ssl;

using ErrorCode = boost::system::error_code;

class TlsChannel final : public IChannel
{
public:
    TlsChannel(ssl::context& context, ISocket& socket) : m_stream(ChannelStream(socket), context) {}

    [[nodiscard]] bool Accept()
    {
        ErrorCode error;
        m_stream.handshake(ssl::stream_base::server, error);
        return !error;
    }

    std::ptrdiff_t Read(char* buffer, std::size_t size) override
    {
        ErrorCode error;
        return Judge(m_stream.read_some(asio::buffer(buffer, size), error), error);
    }

    std::ptrdiff_t Write(const char* data, std::size_t size) override
    {
        ErrorCode error;
        return Judge(m_stream.write_some(asio::buffer(data, size), error), error);
    }

    void FinishWriting() override
    {
        ErrorCode ignored;
        m_stream.shutdown(ignored);
    }

private:
    static std::ptrdiff_t Judge(std::size_t count, const ErrorCode& error)
    {
        return !error ? static_cast<std::ptrdiff_t>(count) : error == asio::error::eof ? 0 : -1;
    }

    ssl::stream<ChannelStream> m_stream;
};

void Check(const ErrorCode& error, const std::string& step)
{
    if (error)
        throw std::runtime_error(step + ": " + error.message());
}

} // namespace

TlsAcceptor LoadTls(const std::filesystem::path& certificate, const std::filesystem::path& privateKey)
{
    const auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    ErrorCode error;
    context->set_options(ssl::context::no_tlsv1 | ssl::context::no_tlsv1_1, error);
    Check(error, "cannot prepare TLS");
    context->use_certificate_chain_file(certificate.string(), error);
    Check(error, "cannot use the certificate " + certificate.string());
    context->use_private_key_file(privateKey.string(), ssl::context::pem, error);
    Check(error, "cannot use the private key " + privateKey.string());
    if (SSL_CTX_check_private_key(context->native_handle()) != 1)
        throw std::runtime_error("the private key is not the certificate's");
    return [context](ISocket& socket) -> std::unique_ptr<IChannel> {
        auto channel = std::make_unique<TlsChannel>(*context, socket);
        return channel->Accept() ? std::move(channel) : nullptr;
    };
}

} // namespace ApplianceParts
