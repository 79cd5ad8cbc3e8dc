#pragma once

/// @file
/// The notifications of one exchange for the callback that `WinHttpSetStatusCallback` has set.

#include "EasyHandle.h"
#include "HttpObject.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Quendra::Platform
{

/// Turns what curl does into WinHTTP's notifications, on the thread that drives curl.
class StatusNotices
{
public:
    /// @param request  must outlive this object.
    /// @param server  as the caller gave it, in UTF-8; must stay valid until `AttachTo`.
    StatusNotices(const HttpObject& request, std::string_view server) noexcept : m_request(request), m_server(server) {}

    /// Sets curl's callbacks if the request has a status callback; without one, nothing is notified. This object must outlive the easy
    /// handle.
    /// @throws std::bad_alloc, and std::runtime_error where libcurl refuses an option
    void AttachTo(EasyHandle& easy);

    /// To be called after each step of curl: detects a new connection and counts the bytes sent.
    void Moved() noexcept;
    void SendingRequest() noexcept;
    /// Does nothing if a proxy refused the tunnel: no request was sent then.
    void RequestSent() noexcept;
    void ReceivingResponse() noexcept;
    void ResponseReceived(std::uint64_t bytes) noexcept;
    /// @param result  why TLS failed.
    void SecureFailure(CURLcode result) noexcept;

private:
    static int OnResolving(void*, void*, void* self) noexcept;
    static curl_socket_t OnOpenSocket(void* self, curlsocktype, curl_sockaddr* address) noexcept;
    static int OnDebug(CURL*, curl_infotype type, char* text, std::size_t size, void* self) noexcept;

    void Notify(DWORD status, void* information = nullptr, DWORD length = 0) const noexcept;
    void NotifyNumber(DWORD status, DWORD number) const noexcept;
    void NotifyAddress(DWORD status, const char* address) const noexcept;

    const HttpObject& m_request;
    std::string_view m_server;
    const EasyHandle* m_easy = nullptr; // null without a status callback
    std::wstring m_name;                // of the server, or of the proxy
    bool m_isResolving = false;
    bool m_isConnecting = false;
    bool m_isSending = false;
    DWORD m_sentBytes = 0;
};

} // namespace Quendra::Platform
