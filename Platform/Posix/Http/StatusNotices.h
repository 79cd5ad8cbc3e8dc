#pragma once

/// @file
/// The notifications of one exchange for the callback that `WinHttpSetStatusCallback` has set.

#include "HttpObject.h"

#include <curl/curl.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

/// Turns what curl does into WinHTTP's notifications, on the thread that drives curl.
class StatusNotices
{
public:
    /// Null if the request has no callback. The request must outlive the result.
    /// @param server  as the caller gave it, in UTF-8.
    /// @throws std::bad_alloc
    static std::unique_ptr<StatusNotices> For(const HttpObject& request, std::string_view server);

    StatusNotices(const HttpObject& request, std::string_view server);

    /// Sets the hooks of an exchange. This object must outlive the easy handle.
    /// @throws std::runtime_error where libcurl refuses an option
    void AttachTo(CURL* easy);

    /// To be called after each step of curl: notices a connection that was made, and what was sent.
    void Moved() noexcept;
    void SendingRequest() noexcept;
    /// Notifies nobody if no request was sent, because the proxy refused it.
    void RequestSent() noexcept;
    void ReceivingResponse() noexcept;
    void ResponseReceived(std::size_t bytes) noexcept;
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
    CURL* m_easy = nullptr;
    std::wstring m_name; // of the server, or of the proxy
    bool m_isResolving = false;
    bool m_isConnecting = false;
    bool m_isSending = false;
    DWORD m_sentBytes = 0;
};
