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

} // namespace

ConnectionServer ServeTls(const Options& options, RequestHandler handler, FaultChooser chooseFault)
{
    const auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    context->set_options(ssl::context::no_tlsv1 | ssl::context::no_tlsv1_1);
    try
    {
        context->use_certificate_chain_file(options.certificate.string());
        context->use_private_key_file(options.privateKey.string(), ssl::context::pem); // fails if it is not the certificate's
    }
    catch (const boost::system::system_error& error)
    {
        throw std::runtime_error("cannot use --cert and --key: " + error.code().message());
    }
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
