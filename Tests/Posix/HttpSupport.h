#pragma once

/// @file
/// WinHTTP's calls as the tests make them: handles that close themselves, whole exchanges in one line.

#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace HttpCalls
{
/// 0, or the last error, which the next call then has to set anew.
inline DWORD ErrorOfCall(BOOL result)
{
    const DWORD error = result != FALSE ? ERROR_SUCCESS : GetLastError();
    SetLastError(ERROR_SUCCESS);
    return error;
}

struct CloseHttpHandle
{
    void operator()(HINTERNET handle) const { WinHttpCloseHandle(handle); }
};
using HttpHandle = std::unique_ptr<void, CloseHttpHandle>;

/// The outcome of an exchange as text: the status, or the error of the step that failed, and the body as far as it came: "200 body".
inline std::string Outcome(long long code, const std::string& body = {})
{
    return std::to_string(code) + (body.empty() ? "" : " " + body);
}

/// Reads the reply as the library does: as much as is there, or at most that much at a time, until nothing is.
inline std::string ReadReply(HINTERNET request, DWORD most = ~DWORD{0})
{
    wchar_t status[16] = {};
    DWORD size = sizeof(status);
    bool succeeds = WinHttpReceiveResponse(request, nullptr) != FALSE &&
                    WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE, nullptr, status, &size, nullptr) != FALSE;
    std::string body;
    for (DWORD available = 1; succeeds && available != 0;)
    {
        DWORD count = 0;
        const auto before = body.size();
        succeeds = WinHttpQueryDataAvailable(request, &available) != FALSE;
        EXPECT_LE(available, 600'000U) << "the server is not held back";
        available = std::min(available, most);
        body.resize(before + available);
        succeeds = succeeds && (available == 0 || WinHttpReadData(request, body.data() + before, available, &count) != FALSE);
        body.resize(before + count);
    }
    return Outcome(succeeds ? std::stoll(status) : GetLastError(), body);
}

inline DWORD SendWhole(HINTERNET request, std::string body = {}, const wchar_t* headers = nullptr)
{
    const auto size = static_cast<DWORD>(body.size());
    // The text is wiped after the call, as the library does with its own.
    const DWORD error = ErrorOfCall(
        WinHttpSendRequest(request, headers, headers != nullptr ? DWORD(-1) : 0, size != 0 ? body.data() : nullptr, size, size, 0));
    body.assign(body.size(), '\0');
    return error;
}

/// Writes the body piece by piece until it is over or an error comes.
inline DWORD WriteBody(HINTERNET request, std::string_view body, std::size_t piece = 100'000)
{
    DWORD error = ERROR_SUCCESS;
    for (DWORD written = 0; !body.empty() && error == ERROR_SUCCESS; body.remove_prefix(written))
        error = ErrorOfCall(WinHttpWriteData(request, body.data(), static_cast<DWORD>(std::min(piece, body.size())), &written));
    return error;
}

inline std::string Exchange(HINTERNET request, const std::string& body = {}, const wchar_t* headers = nullptr)
{
    const DWORD error = SendWhole(request, body, headers);
    return error == ERROR_SUCCESS ? ReadReply(request) : Outcome(error);
}

/// Records the notifications about a handle and those opened from it: "connecting 127.0.0.1, sending, sent 17".
struct StatusRecord
{
    explicit StatusRecord(HINTERNET handle, DWORD notifications = WINHTTP_CALLBACK_FLAG_ALL_NOTIFICATIONS)
    {
        const auto callback = [](HINTERNET, DWORD_PTR context, DWORD status, LPVOID information, DWORD length) {
            reinterpret_cast<StatusRecord*>(context)->Add(status, information, length); // NOLINT(performance-no-int-to-ptr)
        };
        auto context = reinterpret_cast<DWORD_PTR>(this);
        EXPECT_EQ(nullptr, WinHttpSetStatusCallback(handle, callback, notifications, 0));
        EXPECT_NE(FALSE, WinHttpSetOption(handle, WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof context));
    }

    void Add(DWORD status, LPVOID information, DWORD length)
    {
        static const std::map<DWORD, std::string> names = {
            {WINHTTP_CALLBACK_STATUS_RESOLVING_NAME, "resolving"},        {WINHTTP_CALLBACK_STATUS_NAME_RESOLVED, "resolved"},
            {WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER, "connecting"}, {WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER, "connected"},
            {WINHTTP_CALLBACK_STATUS_SENDING_REQUEST, "sending"},         {WINHTTP_CALLBACK_STATUS_REQUEST_SENT, "sent"},
            {WINHTTP_CALLBACK_STATUS_RECEIVING_RESPONSE, "receiving"},    {WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED, "received"},
            {WINHTTP_CALLBACK_STATUS_SECURE_FAILURE, "secure failure"}};
        constexpr DWORD kTexts = WINHTTP_CALLBACK_FLAG_RESOLVE_NAME | WINHTTP_CALLBACK_FLAG_CONNECT_TO_SERVER;
        text += (text.empty() ? "" : ", ") + names.at(status);
        if ((status & kTexts) != 0)
        {
            const std::wstring wide(static_cast<const wchar_t*>(information), length - 1);
            text += " " + std::string(wide.begin(), wide.end());
        }
        else if (information != nullptr)
            text += " " + std::to_string(*static_cast<const DWORD*>(information));
    }

    /// What was recorded since the last call.
    std::string Take() { return std::exchange(text, {}); }

    std::string text;
};

/// A session with a connection to one server.
struct HttpClient
{
    explicit HttpClient(std::uint16_t port, const wchar_t* server = L"127.0.0.1", const wchar_t* agent = nullptr)
        : session(WinHttpOpen(agent, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0)),
          connection(WinHttpConnect(session.get(), server, port, 0))
    {
    }

    HttpHandle Open(const wchar_t* verb = L"GET", const wchar_t* path = L"/", DWORD flags = 0) const
    {
        return HttpHandle(WinHttpOpenRequest(connection.get(), verb, path, nullptr, WINHTTP_NO_REFERER, nullptr, flags));
    }

    std::string Get(const wchar_t* path = L"/", DWORD flags = 0) const { return Exchange(Open(L"GET", path, flags).get()); }

    const HttpHandle session;
    const HttpHandle connection;
};
} // namespace HttpCalls
