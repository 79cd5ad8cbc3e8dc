// WinHTTP's calls: they check arguments, look up handles and convert text; the objects in Http/ do the rest.

#include "WinHttp.h"

#include "CallGuard.h"
#include "Http/HttpObject.h"
#include "Http/Request.h"
#include "Http/Session.h"
#include "Secret.h"
#include "Utf8.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Quendra::Platform
{

namespace
{

// Runs the action on the object behind the handle, which must be of that type.
template <typename Type, typename Action> BOOL With(HINTERNET handle, Action action) noexcept
{
    return SucceedsAsCall(
        [&]() -> DWORD {
            const auto object = HttpHandles::Instance().Find(handle);
            if (!object)
                return ERROR_INVALID_HANDLE;
            const auto wanted = std::dynamic_pointer_cast<Type>(object);
            return wanted ? action(wanted) : ERROR_WINHTTP_INCORRECT_HANDLE_TYPE;
        },
        ERROR_WINHTTP_INTERNAL_ERROR);
}

HINTERNET Publish(const std::shared_ptr<HttpObject>& object)
{
    const HINTERNET handle = HttpHandles::Instance().Insert(object);
    object->SetHandle(handle);
    return handle;
}

template <typename Type, typename... Arguments> HINTERNET MakeHandle(Arguments&&... arguments)
{
    return Publish(std::make_shared<Type>(std::forward<Arguments>(arguments)...));
}

// A caller's header text; a length of -1 means that it is NUL-terminated.
SecretText HeaderText(LPCWSTR headers, DWORD length)
{
    constexpr DWORD kNulTerminated = 0xFFFFFFFF;
    if (headers == nullptr)
        return {};
    return MakeSecret(ToUtf8({headers, length == kNulTerminated ? std::wcslen(headers) : length}));
}

bool IsVerb(const std::string& verb)
{
    constexpr std::string_view kToken = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!#$%&'*+-.^_`|~";
    return !verb.empty() && verb.find_first_not_of(kToken) == std::string::npos;
}

// The timeout that an option sets; null for another option.
int* TimeoutOf(Timeouts& timeouts, DWORD option)
{
    switch (option)
    {
    case WINHTTP_OPTION_RESOLVE_TIMEOUT:
        return &timeouts.resolve;
    case WINHTTP_OPTION_CONNECT_TIMEOUT:
        return &timeouts.connect;
    case WINHTTP_OPTION_SEND_TIMEOUT:
        return &timeouts.send;
    case WINHTTP_OPTION_RECEIVE_TIMEOUT:
        return &timeouts.receive;
    default:
        return nullptr;
    }
}

// Copies an option's value to the caller; if it does not fit, only its size.
template <typename Value> DWORD DeliverValue(const Value& value, LPVOID buffer, DWORD* length)
{
    if (length == nullptr)
        return ERROR_INVALID_PARAMETER;
    const bool fits = buffer != nullptr && *length >= sizeof(value);
    *length = sizeof(value);
    if (!fits)
        return ERROR_INSUFFICIENT_BUFFER;
    std::memcpy(buffer, &value, sizeof(value));
    return ERROR_SUCCESS;
}

// Copies a text with its terminator to the caller; if it does not fit, only the number of bytes that it needs.
DWORD DeliverText(const std::wstring& text, LPVOID buffer, DWORD* length)
{
    const auto bytes = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    const auto needed = static_cast<DWORD>(bytes + sizeof(wchar_t));
    if (buffer == nullptr || *length < needed)
    {
        *length = needed;
        return ERROR_INSUFFICIENT_BUFFER;
    }
    std::memcpy(buffer, text.c_str(), needed);
    *length = bytes;
    return ERROR_SUCCESS;
}

} // namespace

HINTERNET WinHttpOpen(LPCWSTR userAgent, DWORD accessType, LPCWSTR proxy, LPCWSTR proxyBypass, DWORD flags) noexcept
{
    HINTERNET handle = nullptr;
    SucceedsAsCall([&]() -> DWORD {
        if (accessType != WINHTTP_ACCESS_TYPE_DEFAULT_PROXY || proxy != nullptr || proxyBypass != nullptr || flags != 0)
            return ERROR_INVALID_PARAMETER;
        handle = MakeHandle<Session>(userAgent != nullptr ? ToUtf8(userAgent) : std::string());
        return ERROR_SUCCESS;
    });
    return handle;
}

HINTERNET WinHttpConnect(HINTERNET session, LPCWSTR server, INTERNET_PORT port, DWORD reserved) noexcept
{
    HINTERNET handle = nullptr;
    With<Session>(session, [&](const std::shared_ptr<Session>& parent) -> DWORD {
        if (server == nullptr || reserved != 0)
            return ERROR_INVALID_PARAMETER;
        handle = MakeHandle<Connection>(parent, ToUtf8(server), port);
        return ERROR_SUCCESS;
    });
    return handle;
}

HINTERNET WinHttpOpenRequest(HINTERNET connection, LPCWSTR verb, LPCWSTR path, LPCWSTR version, LPCWSTR referrer, LPCWSTR* acceptTypes,
                             DWORD flags) noexcept
{
    HINTERNET handle = nullptr;
    With<Connection>(connection, [&](const std::shared_ptr<Connection>& parent) -> DWORD {
        const auto verbText = verb != nullptr && *verb != L'\0' ? ToUtf8(verb) : std::string("GET");
        const bool isVersion = version == nullptr || std::wstring_view(version) == L"HTTP/1.1";
        if (!IsVerb(verbText) || !isVersion || (flags & ~WINHTTP_FLAG_SECURE) != 0)
            return ERROR_INVALID_PARAMETER;
        const auto pathText = path != nullptr ? MakeSecret(ToUtf8(path)) : SecretText();
        const auto request = std::make_shared<Request>(parent, verbText, pathText, (flags & WINHTTP_FLAG_SECURE) != 0);
        const auto add = [&request](const std::string& name, LPCWSTR value) {
            return request->AddHeaders(name + ": " + ToUtf8(value), WINHTTP_ADDREQ_FLAG_ADD | WINHTTP_ADDREQ_FLAG_COALESCE_WITH_COMMA);
        };
        DWORD error = referrer != nullptr ? add("Referer", referrer) : ERROR_SUCCESS;
        for (; acceptTypes != nullptr && *acceptTypes != nullptr && error == ERROR_SUCCESS; ++acceptTypes)
            error = add("Accept", *acceptTypes);
        if (error == ERROR_SUCCESS)
            handle = Publish(request);
        return error;
    });
    return handle;
}

BOOL WinHttpSetTimeouts(HINTERNET handle, int resolve, int connect, int send, int receive) noexcept
{
    return With<TimedObject>(handle, [&](const std::shared_ptr<TimedObject>& object) -> DWORD {
        object->timeouts.Update([&](Timeouts& timeouts) { timeouts = {resolve, connect, send, receive}; });
        return ERROR_SUCCESS;
    });
}

WINHTTP_STATUS_CALLBACK WinHttpSetStatusCallback(HINTERNET handle, WINHTTP_STATUS_CALLBACK callback, DWORD notifications,
                                                 DWORD_PTR reserved) noexcept
{
    WINHTTP_STATUS_CALLBACK previous = WINHTTP_INVALID_STATUS_CALLBACK;
    With<HttpObject>(handle, [&](const std::shared_ptr<HttpObject>& object) -> DWORD {
        if (reserved != 0)
            return ERROR_INVALID_PARAMETER;
        object->listener.Update([&](StatusListener& listener) {
            previous = std::exchange(listener.callback, callback);
            listener.notifications = notifications;
        });
        return ERROR_SUCCESS;
    });
    return previous;
}

BOOL WinHttpSetOption(HINTERNET handle, DWORD option, LPVOID buffer, DWORD length) noexcept
{
    if (option == WINHTTP_OPTION_CONTEXT_VALUE)
        return With<HttpObject>(handle, [&](const std::shared_ptr<HttpObject>& object) -> DWORD {
            DWORD_PTR context = 0;
            if (buffer == nullptr || length != sizeof context)
                return ERROR_INVALID_PARAMETER;
            std::memcpy(&context, buffer, sizeof context);
            object->listener.Update([&](StatusListener& listener) { listener.context = context; });
            return ERROR_SUCCESS;
        });
    return With<TimedObject>(handle, [&](const std::shared_ptr<TimedObject>& object) -> DWORD {
        if (option == WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT)
            return ERROR_SUCCESS;
        if (option == WINHTTP_OPTION_REDIRECT_POLICY)
        {
            DWORD policy = 0;
            if (buffer == nullptr || length != sizeof policy)
            {
                return ERROR_INVALID_PARAMETER;
            }
            std::memcpy(&policy, buffer, sizeof policy);
            return policy == WINHTTP_OPTION_REDIRECT_POLICY_NEVER ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
        }
        DWORD error = ERROR_SUCCESS;
        object->timeouts.Update([&](Timeouts& timeouts) {
            int* const timeout = TimeoutOf(timeouts, option);
            error = timeout == nullptr                                ? ERROR_WINHTTP_INVALID_OPTION
                    : buffer == nullptr || length != sizeof(*timeout) ? ERROR_INVALID_PARAMETER
                                                                      : ERROR_SUCCESS;
            if (error == ERROR_SUCCESS)
            {
                std::memcpy(timeout, buffer, sizeof(*timeout));
            }
        });
        return error;
    });
}

BOOL WinHttpQueryOption(HINTERNET handle, DWORD option, LPVOID buffer, DWORD* length) noexcept
{
    if (option == WINHTTP_OPTION_CONTEXT_VALUE)
        return With<HttpObject>(handle, [&](const std::shared_ptr<HttpObject>& object) -> DWORD {
            return DeliverValue(object->listener.Get().context, buffer, length);
        });
    return With<TimedObject>(handle, [&](const std::shared_ptr<TimedObject>& object) -> DWORD {
        auto timeouts = object->timeouts.Get();
        const int* const timeout = TimeoutOf(timeouts, option);
        if (timeout == nullptr)
        {
            return ERROR_WINHTTP_INVALID_OPTION;
        }
        return DeliverValue(*timeout, buffer, length);
    });
}

BOOL WinHttpAddRequestHeaders(HINTERNET request, LPCWSTR headers, DWORD length, DWORD modifiers) noexcept
{
    return With<Request>(request, [&](const std::shared_ptr<Request>& object) -> DWORD {
        return headers != nullptr ? object->AddHeaders(HeaderText(headers, length), modifiers) : ERROR_INVALID_PARAMETER;
    });
}

BOOL WinHttpSendRequest(HINTERNET request, LPCWSTR headers, DWORD headersLength, LPVOID optional, DWORD optionalLength, DWORD totalLength,
                        DWORD_PTR context) noexcept
{
    return With<Request>(request, [&](const std::shared_ptr<Request>& object) -> DWORD {
        if (optional == nullptr && optionalLength != 0)
            return ERROR_INVALID_PARAMETER;
        if (context != 0)
            object->listener.Update([&](StatusListener& listener) { listener.context = context; });
        const std::string_view body(static_cast<const char*>(optional), optionalLength);
        return object->Send(HeaderText(headers, headersLength), body, totalLength);
    });
}

BOOL WinHttpWriteData(HINTERNET request, LPCVOID buffer, DWORD bytes, DWORD* bytesWritten) noexcept
{
    return With<Request>(request, [&](const std::shared_ptr<Request>& object) -> DWORD {
        if (buffer == nullptr && bytes != 0)
            return ERROR_INVALID_PARAMETER;
        const DWORD error = object->Write({static_cast<const char*>(buffer), bytes});
        if (bytesWritten != nullptr)
            *bytesWritten = error == ERROR_SUCCESS ? bytes : 0;
        return error;
    });
}

BOOL WinHttpReceiveResponse(HINTERNET request, LPVOID reserved) noexcept
{
    return With<Request>(request, [&](const std::shared_ptr<Request>& object) -> DWORD {
        return reserved == nullptr ? object->Receive() : ERROR_INVALID_PARAMETER;
    });
}

BOOL WinHttpQueryHeaders(HINTERNET request, DWORD level, LPCWSTR name, LPVOID buffer, DWORD* length, DWORD* index) noexcept
{
    return With<Request>(request, [&](const std::shared_ptr<Request>& object) -> DWORD {
        const auto* const reply = object->Reply();
        if (reply == nullptr)
            return ERROR_WINHTTP_INCORRECT_HANDLE_STATE;
        const bool isKnown = level == WINHTTP_QUERY_STATUS_CODE || level == WINHTTP_QUERY_CONTENT_LENGTH ||
                             level == WINHTTP_QUERY_LOCATION || level == WINHTTP_QUERY_TRANSFER_ENCODING;
        if (!isKnown || name != nullptr || length == nullptr)
            return ERROR_INVALID_PARAMETER;
        if (level == WINHTTP_QUERY_STATUS_CODE)
            return DeliverText(ToWideText(std::to_string(reply->status)), buffer, length);
        std::optional<WipedAtEnd<std::wstring>> header; // a location may hold the session token
        if (level == WINHTTP_QUERY_LOCATION && reply->location)
            header = WipedAtEnd<std::wstring>{ToWideText(*reply->location)};
        else if (level == WINHTTP_QUERY_CONTENT_LENGTH && reply->contentLength)
            header = WipedAtEnd<std::wstring>{ToWideText(std::to_string(*reply->contentLength))};
        if (!header || (index != nullptr && *index != 0))
            return ERROR_WINHTTP_HEADER_NOT_FOUND;
        const DWORD error = DeliverText(header->text, buffer, length);
        if (index != nullptr && error == ERROR_SUCCESS)
            ++*index;
        return error;
    });
}

BOOL WinHttpQueryDataAvailable(HINTERNET request, DWORD* bytes) noexcept
{
    return With<Request>(request, [&](const std::shared_ptr<Request>& object) -> DWORD {
        std::size_t available = 0;
        const DWORD error = object->DataAvailable(available);
        if (bytes != nullptr)
            *bytes = static_cast<DWORD>(available);
        return error;
    });
}

BOOL WinHttpReadData(HINTERNET request, LPVOID buffer, DWORD bytes, DWORD* bytesRead) noexcept
{
    return With<Request>(request, [&](const std::shared_ptr<Request>& object) -> DWORD {
        if (buffer == nullptr && bytes != 0)
            return ERROR_INVALID_PARAMETER;
        std::size_t count = 0;
        const DWORD error = object->Read(static_cast<char*>(buffer), bytes, count);
        if (bytesRead != nullptr)
            *bytesRead = static_cast<DWORD>(count);
        return error;
    });
}

BOOL WinHttpCloseHandle(HINTERNET handle) noexcept
{
    const DWORD error = ErrorOf([&]() -> DWORD {
        const auto object = HttpHandles::Instance().Remove(handle);
        if (!object)
            return ERROR_INVALID_HANDLE;
        object->OnClosed();
        return ERROR_SUCCESS;
    });
    if (error != ERROR_SUCCESS)
        SetLastError(error);
    return error == ERROR_SUCCESS ? TRUE : FALSE;
}

void EndOnEvent(HINTERNET request, HANDLE event) noexcept
{
    With<Request>(request, [&](const std::shared_ptr<Request>& object) -> DWORD {
        object->EndOnEvent(event);
        return ERROR_SUCCESS;
    });
}

} // namespace Quendra::Platform
