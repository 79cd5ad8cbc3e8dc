#include "CurlErrors.h"

namespace Quendra::Platform
{

DWORD Win32ErrorOf(CURLcode result, bool isConnected, std::string_view text) noexcept
{
    // With TLS 1.3 the server reports this after the handshake, as an alert; curl returns a general receive error.
    if (result == CURLE_SSL_CLIENTCERT || (result != CURLE_OK && text.find("certificate required") != std::string_view::npos))
        return ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED;
    switch (result)
    {
    case CURLE_OK:
        return ERROR_SUCCESS;
    case CURLE_OUT_OF_MEMORY:
        // curl also reports a line that exceeds its limit as out of memory. While a reply arrives, that cause is far more likely.
        return isConnected ? ERROR_WINHTTP_INVALID_SERVER_RESPONSE : ERROR_NOT_ENOUGH_MEMORY;
    case CURLE_OPERATION_TIMEDOUT:
        return ERROR_WINHTTP_TIMEOUT;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_URL_MALFORMAT: // the path was escaped before, so the server's name is invalid
        return ERROR_WINHTTP_NAME_NOT_RESOLVED;
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
        return ERROR_WINHTTP_CANNOT_CONNECT;
    case CURLE_UNSUPPORTED_PROTOCOL: // an HTTP/0.9 reply: it has no status line
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_FUNCTION_ARGUMENT: // a header continuation line without a header before it
    case CURLE_BAD_CONTENT_ENCODING:
        return ERROR_WINHTTP_INVALID_SERVER_RESPONSE;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_USE_SSL_FAILED:
        return ERROR_WINHTTP_SECURE_FAILURE;
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_SEND_FAIL_REWIND:
    case CURLE_HTTP2:
    case CURLE_ABORTED_BY_CALLBACK: // a request that must not be sent again on another connection
        return ERROR_WINHTTP_CONNECTION_ERROR;
    default:
        return ERROR_WINHTTP_INTERNAL_ERROR;
    }
}

} // namespace Quendra::Platform
