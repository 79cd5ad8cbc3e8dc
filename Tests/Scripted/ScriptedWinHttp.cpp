#include "ScriptedWinHttp.h"

#include "PlatformSteps.h"
#include "TextConversion.h"

#include <cstring>
#include <utility>

WinHttpScript g_script;

namespace
{

// The declarations that these definitions must match say noexcept on one platform and not on the other.
constexpr bool kNoexcept = noexcept(WinHttpCloseHandle(nullptr));

bool Fails(DWORD error)
{
    if (error != 0)
        SetLastError(error);
    return error != 0;
}

bool Succeeds(const char* function)
{
    if (IsToFail(function))
        return false;
    const Uncounted pause;
    const int call = ++g_script.counts[function];
    const auto failure = g_script.failures.find({function, call});
    return failure == g_script.failures.end() || !Fails(failure->second);
}

HINTERNET Open(const char* function)
{
    return Succeeds(function) ? reinterpret_cast<HINTERNET>(g_script.nextHandle++) : nullptr; // NOLINT(performance-no-int-to-ptr)
}

BOOL Answer(const std::wstring& text, void* buffer, DWORD* length)
{
    const auto needed = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
    if (buffer == nullptr || *length < needed)
    {
        *length = needed;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(buffer, text.c_str(), needed);
    *length = needed - static_cast<DWORD>(sizeof(wchar_t));
    return TRUE;
}

} // namespace

#if !defined(_WIN32)
namespace Quendra::Platform
{
#endif

HINTERNET WinHttpOpen(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD) noexcept(kNoexcept)
{
    return Open("WinHttpOpen");
}

HINTERNET WinHttpConnect(HINTERNET, LPCWSTR server, INTERNET_PORT port, DWORD) noexcept(kNoexcept)
{
    const HINTERNET connection = Open("WinHttpConnect");
    const Uncounted pause;
    g_script.connections.push_back(ToNarrow(server) + ":" + std::to_string(port));
    return connection;
}

HINTERNET WinHttpOpenRequest(HINTERNET, LPCWSTR verb, LPCWSTR path, LPCWSTR, LPCWSTR, LPCWSTR*, DWORD flags) noexcept(kNoexcept)
{
    const HINTERNET request = Open("WinHttpOpenRequest");
    const Uncounted pause;
    g_script.requests.push_back(ToNarrow(verb) + " " + ToNarrow(path) + " flags=" + std::to_string(flags));
    return request;
}

BOOL WinHttpSetTimeouts(HINTERNET, int resolve, int connect, int send, int receive) noexcept(kNoexcept)
{
    const bool isSet = Succeeds("WinHttpSetTimeouts");
    const Uncounted pause;
    g_script.timeouts.push_back({resolve, connect, send, receive});
    return isSet;
}

BOOL WinHttpSetOption(HINTERNET, DWORD, LPVOID, DWORD) noexcept(kNoexcept)
{
    return Succeeds("WinHttpSetOption");
}

BOOL WinHttpQueryOption(HINTERNET, DWORD, LPVOID, DWORD*) noexcept(kNoexcept)
{
    return Succeeds("WinHttpQueryOption");
}

BOOL WinHttpAddRequestHeaders(HINTERNET, LPCWSTR headers, DWORD, DWORD modifiers) noexcept(kNoexcept)
{
    if (!Succeeds("WinHttpAddRequestHeaders"))
        return FALSE;
    const Uncounted pause;
    g_script.headers.push_back({headers, modifiers});
    return TRUE;
}

WINHTTP_STATUS_CALLBACK WinHttpSetStatusCallback(HINTERNET, WINHTTP_STATUS_CALLBACK callback, DWORD notifications,
                                                 DWORD_PTR) noexcept(kNoexcept)
{
    if (!Succeeds("WinHttpSetStatusCallback"))
        return WINHTTP_INVALID_STATUS_CALLBACK;
    g_script.notifications = notifications;
    return std::exchange(g_script.callback, callback);
}

BOOL WinHttpSendRequest(HINTERNET request, LPCWSTR headers, DWORD, LPVOID optional, DWORD optionalLength, DWORD,
                        DWORD_PTR) noexcept(kNoexcept)
{
    for (auto& notice : g_script.notices)
    {
        const bool isFailure = notice.status == WINHTTP_CALLBACK_STATUS_SECURE_FAILURE;
        void* const information = isFailure ? static_cast<void*>(&notice.flags) : notice.text.data();
        if (g_script.callback != nullptr && (g_script.notifications & notice.status) != 0)
            g_script.callback(request, 0, notice.status, information, 0);
    }
    if (!Succeeds("WinHttpSendRequest"))
        return FALSE;
    const Uncounted pause;
    g_script.sendHeaders.emplace_back(headers == nullptr ? L"" : headers);
    g_script.body.append(static_cast<const char*>(optional), optionalLength);
    return TRUE;
}

BOOL WinHttpWriteData(HINTERNET, LPCVOID buffer, DWORD bytes, DWORD* written) noexcept(kNoexcept)
{
    if (!Succeeds("WinHttpWriteData"))
        return FALSE;
    const Uncounted pause;
    *written = bytes;
    g_script.body += g_script.writes.emplace_back(static_cast<const char*>(buffer), bytes);
    return TRUE;
}

BOOL WinHttpReceiveResponse(HINTERNET, LPVOID) noexcept(kNoexcept)
{
    if (!Succeeds("WinHttpReceiveResponse"))
        return FALSE;
    const Uncounted pause;
    if (g_script.replies.empty())
        return TRUE;
    const WinHttpScript::Reply reply = std::move(g_script.replies.front());
    g_script.replies.pop_front();
    g_script.status = std::to_wstring(reply.status);
    g_script.pieces = {{static_cast<DWORD>(reply.body.size()), reply.body, 0, 0}};
    if (reply.meanwhile)
        reply.meanwhile();
    return !Fails(reply.error);
}

BOOL WinHttpQueryHeaders(HINTERNET, DWORD level, LPCWSTR, LPVOID buffer, DWORD* length, DWORD*) noexcept(kNoexcept)
{
    if (!Succeeds("WinHttpQueryHeaders"))
        return FALSE;
    if (level == WINHTTP_QUERY_STATUS_CODE)
        return Answer(g_script.status, buffer, length);
    SetLastError(ERROR_WINHTTP_HEADER_NOT_FOUND);
    return level == WINHTTP_QUERY_CONTENT_LENGTH && !g_script.contentLength.empty() && Answer(g_script.contentLength, buffer, length);
}

BOOL WinHttpQueryDataAvailable(HINTERNET, DWORD* bytes) noexcept(kNoexcept)
{
    if (!Succeeds("WinHttpQueryDataAvailable"))
        return FALSE;
    const Uncounted pause;
    const WinHttpScript::Piece piece = g_script.pieces.empty() ? WinHttpScript::Piece() : g_script.pieces.front();
    *bytes = piece.announced;
    return !Fails(piece.availableError);
}

BOOL WinHttpReadData(HINTERNET, LPVOID buffer, DWORD bytes, DWORD* read) noexcept(kNoexcept)
{
    if (!Succeeds("WinHttpReadData"))
        return FALSE;
    const Uncounted pause;
    const WinHttpScript::Piece piece = g_script.pieces.front();
    g_script.pieces.pop_front();
    *read = static_cast<DWORD>(std::min<std::size_t>(bytes, piece.bytes.size()));
    std::memcpy(buffer, piece.bytes.data(), *read);
    return !Fails(piece.readError);
}

BOOL WinHttpCloseHandle(HINTERNET handle) noexcept(kNoexcept)
{
    const Uncounted pause;
    g_script.closed.push_back(handle);
    // A library must not let the cleaning up hide why a step failed.
    SetLastError(0xDEAD);
    return TRUE;
}

#if !defined(_WIN32)
} // namespace Quendra::Platform
#endif
