#include "Transport/WinHttpImpl.h"

#include "Settings.h"
#include "Transport/WinHttpImplRequest.h"

namespace
{

Settings::OncePerProcessNumber g_connectTimeout(Tuning::kConnectTimeout);
Settings::OncePerProcessNumber g_resolveTimeout(Tuning::kResolveTimeout);
Settings::OncePerProcessNumber g_sendTimeout(Tuning::kSendTimeout);
Settings::OncePerProcessNumber g_receiveTimeout(Tuning::kReceiveTimeout);

// Preserves the last error: it often says why the handle is being closed.
void CloseQuietly(HINTERNET handle)
{
    const LastErrorKeeper keeper;
    if (handle != nullptr)
        WinHttpCloseHandle(handle);
}

} // namespace

ResultCode FoldIntoHResult(DWORD error) noexcept
{
    return static_cast<std::int32_t>(error) > 0 ? 0x80070000U | (error & 0xFFFFU) : static_cast<ResultCode>(error);
}

ResultCode TraceLastError(const FunctionTraceScope& trace, const TraceFormat<DWORD>& failed)
{
    const DWORD error = GetLastError();
    trace.Error(failed, error);
    return error;
}

WinHttpHandle::WinHttpHandle()
{
    const FunctionTraceScope trace("WinHttpHandle::WinHttpHandle", Unit::WinHttpImpl);
}

WinHttpHandle::~WinHttpHandle()
{
    const FunctionTraceScope trace("WinHttpHandle::~WinHttpHandle", Unit::WinHttpImpl);
    WinHttpHandle::Close();
}

void WinHttpHandle::Close()
{
    const FunctionTraceScope trace("WinHttpHandle::Close", Unit::WinHttpImpl);
    CloseQuietly(m_handle.exchange(nullptr));
}

bool WinHttpHandle::Attach(HINTERNET handle)
{
    const FunctionTraceScope trace("WinHttpHandle::Attach", Unit::WinHttpImpl);
    const HINTERNET held = m_handle.exchange(handle);
    if (held != nullptr)
    {
        trace.Error("Attach handle non-null");
        if (held != handle)
            CloseQuietly(held);
    }
    return handle != nullptr;
}

ResultCode WinHttpHandle::SetOption(DWORD option, void* buffer, DWORD length)
{
    const FunctionTraceScope trace("WinHttpHandle::SetOption", Unit::WinHttpImpl);
    if (!WinHttpSetOption(Handle(), option, buffer, length))
        return FoldIntoHResult(TraceLastError(trace, "WinHttpSetOption failed, error code: %d"));
    trace.Info("Successfully set option on http handle");
    return Result::Success;
}

ResultCode WinHttpHandle::QueryOption(DWORD option, void* buffer, DWORD& length)
{
    const FunctionTraceScope trace("WinHttpHandle::QueryOption", Unit::WinHttpImpl);
    if (!WinHttpQueryOption(Handle(), option, buffer, &length))
        return FoldIntoHResult(TraceLastError(trace, "WinHttpQueryOption failed, error code: %d"));
    trace.Info("Successfully retrieved option on http handle");
    return Result::Success;
}

ResultCode WinHttpSession::Initialise()
{
    const FunctionTraceScope trace("WinHttpSession::Initialise", Unit::WinHttpImpl);
    // Send no User-Agent header.
    if (!Attach(WinHttpOpen(nullptr, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0)))
        return FoldIntoHResult(TraceLastError(trace, "WinHttpOpen failed, error code: %d"));
    if (!SetTimeouts(kSessionTimeouts.resolve, kSessionTimeouts.connect, kSessionTimeouts.send, kSessionTimeouts.receive))
        return FoldIntoHResult(TraceLastError(trace, "WinHttpSetTimeouts failed, error code: %d"));
    // Never follow redirects: they would send the token or a password to another URL.
    DWORD never = WINHTTP_OPTION_REDIRECT_POLICY_NEVER;
    if (!WinHttpSetOption(Handle(), WINHTTP_OPTION_REDIRECT_POLICY, &never, sizeof never))
        return FoldIntoHResult(TraceLastError(trace, "WinHttpSetOption failed, error code: %d"));
    trace.Info("Successfully initialised http session");
    return Result::Success;
}

int WinHttpSession::SetTimeouts(std::int32_t resolve, std::int32_t connect, std::int32_t send, std::int32_t receive)
{
    const FunctionTraceScope trace("WinHttpSession::SetTimeouts", Unit::WinHttpImpl);
    const BOOL isSet = WinHttpSetTimeouts(Handle(), resolve, connect, send, receive);
    // WinHTTP also limits the time until all headers of a reply have come: to 90 seconds unless this option sets another limit.
    DWORD headers = receive > 0 ? static_cast<DWORD>(receive) : INFINITE;
    if (isSet)
        WinHttpSetOption(Handle(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &headers, sizeof headers);
    return isSet;
}

void WinHttpSession::SetSessionToken(const std::wstring& token)
{
    const FunctionTraceScope trace("WinHttpSession::SetSessionToken", Unit::WinHttpImpl);
    std::wstring replacement = token;
    const std::lock_guard lock(m_tokenLock);
    WipeToken();
    m_sessionToken = std::move(replacement);
}

std::wstring WinHttpSession::GetSessionToken()
{
    const std::lock_guard lock(m_tokenLock);
    return m_sessionToken;
}

ResultCode WinHttpConnection::Initialise(const std::wstring& server, std::uint16_t port, const std::shared_ptr<IWinHttpSession>& session,
                                         std::uint64_t sendTimeoutOverride, std::uint64_t receiveTimeoutOverride)
{
    const FunctionTraceScope trace("WinHttpConnection::Initialise", Unit::WinHttpImpl);
    if (!Attach(WinHttpConnect(session->GetHandle(), server.c_str(), port, 0)))
        return FoldIntoHResult(TraceLastError(trace, "WinHttpConnect failed, error code: %d"));

    // Read all four settings on the first connection, even those that are overridden.
    const std::int32_t connect = g_connectTimeout.Get();
    const std::int32_t resolve = g_resolveTimeout.Get();
    std::int32_t send = g_sendTimeout.Get();
    std::int32_t receive = g_receiveTimeout.Get();
    if (sendTimeoutOverride != 0)
        send = static_cast<std::int32_t>(sendTimeoutOverride);
    if (receiveTimeoutOverride != 0)
        receive = static_cast<std::int32_t>(receiveTimeoutOverride);

    // Timeouts are set on the session, not the connection: they apply until the next connection sets them.
    trace.Info("Calling WinHttpSetTimeouts. CONN:%d, RES:%d, SEND:%d, RECV:%d", connect, resolve, send, receive);
    if (!session->SetTimeouts(resolve, connect, send, receive))
        trace.Warning("WinHttpSetTimeouts failed with error code: [%d]. Failed to override timeout defaults.", GetLastError());

    trace.Info("Successfully initialised http connection");
    return Result::Success;
}

std::shared_ptr<IWinHttpSession> WinHttpFactory::CreateSession()
{
    const FunctionTraceScope trace("WinHttpFactory::CreateSession", Unit::WinHttpImpl);
    return std::make_shared<WinHttpSession>();
}

std::shared_ptr<IWinHttpConnection> WinHttpFactory::CreateConnection()
{
    const FunctionTraceScope trace("WinHttpFactory::CreateConnection", Unit::WinHttpImpl);
    return std::make_shared<WinHttpConnection>();
}

std::shared_ptr<IWinHttpRequest> WinHttpFactory::CreateRequest(const std::shared_ptr<IWinHttpSession>& session)
{
    const FunctionTraceScope trace("WinHttpFactory::CreateRequest", Unit::WinHttpImpl);
    return std::make_shared<WinHttpRequest>(session);
}
