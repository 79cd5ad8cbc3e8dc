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
        // For every verb: curl then adds only the length header.
        Set(CURLOPT_UPLOAD, 1L);
        Set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(*request.bodyLength));
        Set(CURLOPT_UPLOAD_BUFFERSIZE,
            static_cast<long>(std::clamp<std::uint64_t>(*request.bodyLength, kLeastSendBytes, OutgoingBody::kCollectedBytes)));
        Set(CURLOPT_BUFFERSIZE, kReceiveShortBytes);
    }
    else if (request.verb == "HEAD")
        Set(CURLOPT_NOBODY, 1L);
}

} // namespace Quendra::Platform
