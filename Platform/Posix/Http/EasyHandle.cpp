#include "EasyHandle.h"

#include "OutgoingBody.h"

#include <algorithm>
#include <limits>

namespace Quendra::Platform
{

namespace
{

// The most bytes that one receive takes. A reply to a request with a body is short.
constexpr long kReceiveBytes = 256 * 1024;
constexpr long kReceiveShortBytes = 16 * 1024;

// curl accepts no smaller buffer for sending.
constexpr std::uint64_t kLeastSendBytes = 16 * 1024;

constexpr long kUnlimited = std::numeric_limits<int>::max();

// Seconds of silence before a TCP keep-alive probe, and between probes.
constexpr long kProbeAfter = 30;
constexpr long kProbeEach = 10;

} // namespace

EasyHandle::EasyHandle() : m_easy(curl_easy_init())
{
    if (!m_easy)
        throw std::bad_alloc();
    Set(CURLOPT_PROTOCOLS_STR, "http,https");
    // Also where OpenSSL's configuration allows older versions.
    Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    Set(CURLOPT_PATH_AS_IS, 1L);
    Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    // Signal handlers belong to the process, so curl must not set any. Its writes do not raise SIGPIPE.
    Set(CURLOPT_NOSIGNAL, 1L);
    // Closing a request does not wait for its name resolution.
    Set(CURLOPT_QUICK_EXIT, 1L);
    Set(CURLOPT_TCP_KEEPALIVE, 1L);
    Set(CURLOPT_TCP_KEEPIDLE, kProbeAfter);
    Set(CURLOPT_TCP_KEEPINTVL, kProbeEach);
    Set(CURLOPT_BUFFERSIZE, kReceiveBytes);
}

EasyHandle::EasyHandle(const EasyHandle& common, const TransferRequest& request, CURLSH* share, bool isFresh)
    : m_easy(curl_easy_duphandle(common.Get()))
{
    if (!m_easy)
        throw std::bad_alloc();
    Set(CURLOPT_ERRORBUFFER, m_errorText.data());
    Set(CURLOPT_SHARE, share);
    // Names no file, but enables curl's cookie engine.
    Set(CURLOPT_COOKIEFILE, "");
    Set(CURLOPT_FRESH_CONNECT, isFresh ? 1L : 0L);
    Set(CURLOPT_CONNECTTIMEOUT_MS, request.connectTimeout > 0 ? static_cast<long>(request.connectTimeout) : kUnlimited);
    Set(CURLOPT_URL, request.url.c_str());
    SetHeaders(request);
    SetBody(request);
    Set(CURLOPT_CUSTOMREQUEST, request.verb.c_str());
}

void EasyHandle::SetHeaders(const TransferRequest& request)
{
    for (const auto& line : request.headerLines)
    {
        curl_slist* const longer = curl_slist_append(m_headerLines.get(), line.c_str());
        if (longer == nullptr)
            throw std::bad_alloc();
        static_cast<void>(m_headerLines.release());
        m_headerLines.reset(longer);
    }
    Set(CURLOPT_HTTPHEADER, m_headerLines.get());
    if (!request.cookies.empty())
        Set(CURLOPT_COOKIE, request.cookies.c_str());
}

void EasyHandle::SetBody(const TransferRequest& request)
{
    if (request.bodyLength)
    {
        // Whatever the verb is: curl then adds Content-Length and no other header.
        Set(CURLOPT_UPLOAD, 1L);
        Set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(*request.bodyLength));
        Set(CURLOPT_UPLOAD_BUFFERSIZE,
            static_cast<long>(std::clamp<std::uint64_t>(*request.bodyLength, kLeastSendBytes, OutgoingBody::kCollectedBytes)));
        Set(CURLOPT_BUFFERSIZE, kReceiveShortBytes);
    }
    else if (request.verb == "HEAD")
        Set(CURLOPT_NOBODY, 1L);
}

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
