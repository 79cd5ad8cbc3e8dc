#include "Transport/WinHttpImplRequest.h"

#include "TextConversion.h"
#include "Transport/ConnectionSteps.h"
#include "Transport/HeaderText.h"
#include "UrlEncoding.h"

#include <string_view>

namespace
{

constexpr DWORD kWholeText = static_cast<DWORD>(-1);
constexpr std::size_t kMaximumFieldCharacters = 1024;

ResultCode RefuseHeader(const FunctionTraceScope& trace, const char* what)
{
    trace.Error("Refused a line break or NUL in %s", what);
    SetLastError(ERROR_INVALID_PARAMETER);
    return Result::InvalidParameter;
}

} // namespace

WinHttpRequest::WinHttpRequest(std::shared_ptr<IWinHttpSession> session) : m_session(std::move(session)), m_boundary(GenerateRandomValue())
{
}

ResultCode WinHttpRequest::Initialise(const std::wstring& path, const std::wstring& verb,
                                      const std::shared_ptr<IWinHttpConnection>& connection, const wchar_t* acceptType, std::uint32_t flags)
{
    const FunctionTraceScope trace("WinHttpRequest::Initialise", Unit::WinHttpImpl);
    if (BreaksHeader(path) || BreaksHeader(verb))
        return FoldIntoHResult(RefuseHeader(trace, "the request line"));

    LPCWSTR acceptTypes[] = {acceptType, nullptr};
    if (!Attach(WinHttpOpenRequest(connection->GetHandle(), verb.c_str(), path.c_str(), nullptr, WINHTTP_NO_REFERER, acceptTypes, flags)))
        return FoldIntoHResult(TraceLastError(trace, "WinHttpOpenRequest failed, error code: %d"));
    TraceConnectionSteps(Handle());
    trace.Info("WinHttpRequest successfully initialised");
    return Result::Success;
}

void WinHttpRequest::WatchEvent(const CancelEvent* cancelEvent) const noexcept
{
    if (cancelEvent != nullptr && cancelEvent->event != nullptr)
        EndOnEvent(Handle(), cancelEvent->event);
}

ResultCode WinHttpRequest::AddHeaderText(const std::wstring& text, DWORD modifiers)
{
    return WinHttpAddRequestHeaders(Handle(), text.c_str(), kWholeText, modifiers) ? Result::Success : GetLastError();
}

ResultCode WinHttpRequest::AddHeader(const std::wstring& name, const std::wstring& value)
{
    const FunctionTraceScope trace("WinHttpRequest::AddHeader", Unit::WinHttpImpl);
    if (BreaksHeader(name) || BreaksHeader(value))
        return RefuseHeader(trace, "a header");

    const std::wstring header = name + L": " + value;
    const ResultCode result = AddHeaderText(header, kAddAndCoalesce);
    if (result != Result::Success)
        trace.Error("Failed to add header [%S], error: %d", header, result);
    return result;
}

ResultCode WinHttpRequest::AddSessionCookie(const FunctionTraceScope& trace)
{
    constexpr std::wstring_view kCookie = L"Cookie: session_token=";
    std::wstring token = m_session->GetSessionToken();
    const ScopedWipe wipeToken(token);
    if (token.empty())
        return Result::Success;

    std::wstring header;
    header.reserve(kCookie.size() + token.size()); // growing would leave a copy in freed memory
    header.append(kCookie).append(token);
    const ScopedWipe wipeHeader(header);
    const ResultCode result = BreaksHeader(token) ? RefuseHeader(trace, "the session token") : AddHeaderText(header, kCoalesceOnly);
    if (result != Result::Success)
        trace.Error("WinHttpAddRequestHeaders failed, error code: %d", result);
    return result;
}

ResultCode WinHttpRequest::AppendFormData(const char* name, const std::wstring& value, bool isLast)
{
    const FunctionTraceScope trace("WinHttpRequest::AppendFormData", Unit::WinHttpImpl);
    std::string field = std::string(name) + '=';
    const ScopedWipe wipeField(field);
    {
        std::string encoded = EncodeUrl(value, UrlEncodingMode::Form);
        const ScopedWipe wipeEncoded(encoded);
        // Reserve first: growing would leave a copy of the value in freed memory.
        field.reserve(field.size() + encoded.size() + 1);
        field += encoded;
    }
    if (!isLast)
        field += '&';

    // The limit counts characters. Only the name may contain non-ASCII characters here.
    if (ToWide(name).size() + (field.size() - std::string_view(name).size()) > kMaximumFieldCharacters)
    {
        trace.Error("Form field [%s] is longer than %d characters", name, static_cast<int>(kMaximumFieldCharacters));
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return Result::InsufficientBuffer;
    }
    m_body.Append(field);

    const ResultCode result = AddHeaderText(L"Content-Type: application/x-www-form-urlencoded; charset=UTF-8", kReplaceOrAdd);
    if (result != Result::Success)
        trace.Error("Failed to AddRequestHeaders - %d", result);
    return result;
}

ResultCode WinHttpRequest::SendPostData()
{
    const FunctionTraceScope trace("WinHttpRequest::SendPostData", Unit::WinHttpImpl);
    DWORD written = 0;
    const ResultCode result = WinHttpWriteData(Handle(), m_body.Data(), m_body.Length(), &written) ? Result::Success : GetLastError();
    m_body.Clear();
    return result;
}

ResultCode WinHttpRequest::SendRequest()
{
    const FunctionTraceScope trace("WinHttpRequest::SendRequest", Unit::WinHttpImpl);
    if (!WinHttpSendRequest(Handle(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, m_body.Data(), m_body.Length(), m_body.Length(), 0))
        return TraceLastError(trace, "WinHttpSendRequest failed, error code: %d");
    m_body.MoveTo(m_sentBody);
    trace.Info("Request successfully sent");
    return Result::Success;
}

ResultCode WinHttpRequest::StartRequest(std::uint64_t contentLength)
{
    const FunctionTraceScope trace("WinHttpRequest::StartRequest", Unit::WinHttpImpl);
    const std::wstring header = L"Content-Length: " + std::to_wstring(contentLength) + L"\r\n";
    if (const ResultCode failed = AddSessionCookie(trace))
        return failed;

    // Announce the length in the header only: the call's DWORD argument cannot hold 64 bits.
    if (!WinHttpSendRequest(Handle(), header.c_str(), kWholeText, WINHTTP_NO_REQUEST_DATA, 0, 0, 0))
        return TraceLastError(trace, "WinHttpSendRequest failed, error code: %d");
    return Result::Success;
}

ResultCode WinHttpRequest::GetResponse(ResponseBuffer& response)
{
    const FunctionTraceScope trace("WinHttpRequest::GetResponse", Unit::WinHttpImpl);
    if (const ResultCode failed = AddHeaderText(L"Accept: application/json", kAddAndCoalesce))
        return failed;
    if (const ResultCode failed = AddSessionCookie(trace))
        return failed;
    if (const ResultCode failed = SendRequest())
        return failed;
    return ReceiveResponse(response);
}

ResultCode WinHttpRequest::SendRequestGetResponse(const std::wstring& path, const CancelEvent* cancelEvent,
                                                  const std::shared_ptr<IProgressCallback>& progress, bool acceptOctetStream,
                                                  std::uint32_t offsetLow, std::uint32_t offsetHigh)
{
    const FunctionTraceScope trace("WinHttpRequest::SendRequestGetResponse", Unit::WinHttpImpl);
    WatchEvent(cancelEvent);
    if (acceptOctetStream)
    {
        if (const ResultCode failed = AddHeaderText(L"Accept: application/octet-stream", kCoalesceOnly))
        {
            trace.Error("WinHttpAddRequestHeaders failed, error code: %d", failed);
            return failed;
        }
    }
    if (const ResultCode failed = AddSessionCookie(trace))
        return failed;
    if (const ResultCode failed = SendRequest())
    {
        OutputDebugStringW((L"ERROR: SendRequest() failed, error code: " + std::to_wstring(failed) + L"\n").c_str());
        trace.Error("SendRequest failed, error code: %d", failed);
        return failed;
    }
    return GetResponse(path, cancelEvent, progress, offsetLow, offsetHigh);
}
