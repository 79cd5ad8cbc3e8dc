#include "HttpConnection.h"
#include "HttpServer.h"

#include <boost/beast/ssl/ssl_stream.hpp>

#include <stdexcept>

namespace ApplianceParts
{

namespace
{

namespace ssl = boost::asio::ssl;

constexpr std::chrono::seconds kHandshakeTimeout{30};

void Check(const ErrorCode& error, const std::string& step)
{
    if (error)
        throw std::runtime_error(step + ": " + error.message());
}

} // namespace

ConnectionServer ServeTls(const Options& options, RequestHandler handler, FaultChooser chooseFault)
{
    const auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    ErrorCode error;
    context->set_options(ssl::context::no_tlsv1 | ssl::context::no_tlsv1_1, error);
    Check(error, "cannot prepare TLS");
    context->use_certificate_chain_file(options.certificate.string(), error);
    Check(error, "cannot use the certificate " + options.certificate.string());
    context->use_private_key_file(options.privateKey.string(), ssl::context::pem, error);
    Check(error, "cannot use the private key " + options.privateKey.string());
    if (SSL_CTX_check_private_key(context->native_handle()) != 1)
        throw std::runtime_error("the private key is not the certificate's");
    return [context, handler = std::move(handler), chooseFault = std::move(chooseFault)](Socket& socket) {
        boost::beast::ssl_stream<Socket&> stream(socket, *context);
        ErrorCode failed;
        socket.BeginStep(kHandshakeTimeout);
        stream.handshake(ssl::stream_base::server, failed);
        if (failed)
            return;
        HttpConnection(socket, stream, handler, chooseFault).Serve();
        socket.BeginStep(std::chrono::seconds(1));
        stream.shutdown(failed);
    };
}

} // namespace ApplianceParts
