#pragma once

/// @file
/// WinHTTP's calls as the tests make them: handles that close themselves, whole exchanges in one line, and threads that are
/// known to be blocked in a call.

#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <future>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace HttpCalls
{
/// 0, or the last error.
inline DWORD ErrorOfCall(BOOL result)
{
    return result != FALSE ? ERROR_SUCCESS : GetLastError();
}

class HttpHandle
{
public:
    explicit HttpHandle(HINTERNET handle = nullptr) : m_handle(handle) {}
    ~HttpHandle() { Close(); }
    HttpHandle(HttpHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    HttpHandle& operator=(HttpHandle&&) = delete;

    HINTERNET Get() const { return m_handle; }
    void Close()
    {
        if (m_handle != nullptr)
            WinHttpCloseHandle(std::exchange(m_handle, nullptr));
    }

private:
    HINTERNET m_handle;
};

struct HttpResult
{
    DWORD error = ERROR_SUCCESS; ///< of the first step that failed
    int status = 0;
    std::string body;
};

inline std::wstring StatusText(HINTERNET request)
{
    wchar_t text[16] = {};
    DWORD length = sizeof(text);
    return WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE, nullptr, text, &length, nullptr) != FALSE ? text : L"";
}

/// Reads the body as the library does: as much as is there, until nothing is.
inline HttpResult ReadReply(HINTERNET request)
{
    HttpResult result;
    result.error = ErrorOfCall(WinHttpReceiveResponse(request, nullptr));
    if (result.error != ERROR_SUCCESS)
        return result;
    const auto status = StatusText(request);
    if (status.empty())
    {
        result.error = GetLastError();
        return result;
    }
    result.status = std::stoi(status);
    while (true)
    {
        DWORD available = 0;
        DWORD count = 0;
        result.error = ErrorOfCall(WinHttpQueryDataAvailable(request, &available));
        if (result.error != ERROR_SUCCESS || available == 0)
            return result;
        const auto before = result.body.size();
        result.body.resize(before + available);
        result.error = ErrorOfCall(WinHttpReadData(request, result.body.data() + before, available, &count));
        result.body.resize(before + count);
    }
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

inline HttpResult Exchange(HINTERNET request, const std::string& body = {}, const wchar_t* headers = nullptr)
{
    const DWORD error = SendWhole(request, body, headers);
    return error == ERROR_SUCCESS ? ReadReply(request) : HttpResult{error, 0, {}};
}

/// A session with a connection to one server.
class HttpClient
{
public:
    explicit HttpClient(std::uint16_t port, const wchar_t* server = L"127.0.0.1", const wchar_t* agent = nullptr)
        : m_session(WinHttpOpen(agent, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0)),
          m_connection(WinHttpConnect(m_session.Get(), server, port, 0))
    {
    }

    HINTERNET Session() const { return m_session.Get(); }
    HINTERNET Connection() const { return m_connection.Get(); }

    HttpHandle Open(const wchar_t* verb = L"GET", const wchar_t* path = L"/", DWORD flags = 0) const
    {
        return HttpHandle(WinHttpOpenRequest(m_connection.Get(), verb, path, nullptr, WINHTTP_NO_REFERER, nullptr, flags));
    }

    HttpResult Get(const wchar_t* path = L"/") const { return Exchange(Open(L"GET", path).Get()); }

private:
    HttpHandle m_session;
    HttpHandle m_connection;
};

/// A call on a thread of its own.
class BlockedCall
{
public:
    explicit BlockedCall(std::function<DWORD()> call)
        : m_thread([this, call = std::move(call)] {
              m_threadId.set_value(::gettid());
              m_result.set_value(call());
          })
    {
        m_id = m_threadId.get_future().get();
    }
    ~BlockedCall() { m_thread.join(); }

    BlockedCall(const BlockedCall&) = delete;
    BlockedCall& operator=(const BlockedCall&) = delete;

    /// Returns when the call's thread has stopped running, which it does only inside the call.
    void AwaitBlocked() const
    {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (int sleeping = 0; sleeping < 20 && std::chrono::steady_clock::now() < limit;)
        {
            std::ifstream file("/proc/self/task/" + std::to_string(m_id) + "/stat");
            std::stringstream text;
            text << file.rdbuf();
            const auto name = text.str().rfind(')');
            sleeping = name != std::string::npos && text.str().substr(name + 2, 1) == "S" ? sleeping + 1 : 0;
            std::this_thread::yield();
        }
    }

    /// The call's result, which must come at once.
    DWORD Result()
    {
        auto result = m_result.get_future();
        if (result.wait_for(std::chrono::seconds(5)) != std::future_status::ready)
            ADD_FAILURE() << "the call does not return";
        return result.get();
    }

private:
    std::promise<pid_t> m_threadId;
    std::promise<DWORD> m_result;
    std::thread m_thread;
    pid_t m_id = 0;
};
} // namespace HttpCalls
