// Creation of the client, its settings and session token, and ending requests from other threads.

#include "QuendraHttp/NativeHttp.h"

#include "RequestCycle/Operation.h"
#include "TextComparison.h"
#include "TextConversion.h"
#include "Wiping.h"

#include "Platform/Platform.h"
#include "QuendraHttp/Transport.h"

#include <string_view>

namespace
{

// Fixed line numbers: people filter trace events by them.
constexpr int kCreateLine = 132;
constexpr int kTrackerBeginLine = 227;
constexpr int kTrackerEndLine = 235;
constexpr int kGetSessionTokenLine = 624;
constexpr int kSetSessionTokenLine = 636;

constexpr std::wstring_view kSecureScheme = L"https://";
constexpr std::wstring_view kSchemeEnd = L"://";

} // namespace

std::wstring ServerState::ApiBasePath(const std::wstring& sessionToken) const
{
    return apiVersion == kApiVersion10 ? L"/api/" + sessionToken : endpointPath;
}

CNativeHttp::RequestHandleTracker::RequestHandleTracker(RequestHandleMap& requests, std::mutex& lock,
                                                        std::shared_ptr<IWinHttpRequest> request, std::wstring key,
                                                        std::wstring sessionToken)
    : m_requests(requests), m_lock(lock), m_request(std::move(request)), m_key(std::move(key)), m_sessionToken(std::move(sessionToken))
{
    const FunctionTraceScope trace("CNativeHttp::RequestHandleTracker::RequestHandleTracker", Unit::NativeHttp, kTrackerBeginLine);
    const std::lock_guard guard(m_lock);
    m_requests[m_key] = m_request;
}

CNativeHttp::RequestHandleTracker::~RequestHandleTracker()
{
    const FunctionTraceScope trace("CNativeHttp::RequestHandleTracker::~RequestHandleTracker", Unit::NativeHttp, kTrackerEndLine);
    const std::lock_guard guard(m_lock);
    if (const auto entry = m_requests.find(m_key); entry != m_requests.end() && entry->second == m_request)
        m_requests.erase(entry);
    const ScopedWipe wipe(m_sessionToken);
}

CNativeHttp::CNativeHttp(std::shared_ptr<IWinHttpFactory> factory, const std::wstring& deviceName) : m_factory(std::move(factory))
{
    Create(deviceName);
}

CNativeHttp::~CNativeHttp() = default;

void CNativeHttp::Create(const std::wstring& deviceName)
{
    const FunctionTraceScope trace("CNativeHttp::Create", Unit::NativeHttp, kCreateLine);
    m_server.deviceName = deviceName;
    m_session = m_factory->CreateSession();
    if (m_session)
    {
        // The instance is created even if the session cannot be opened: every request then fails.
        if (const ResultCode failed = m_session->Initialise())
            trace.Error("WinHttpSession failed to initialise, error code: %d", failed);
    }
}

void CNativeHttp::Release()
{
    ReleaseInstance(this);
}

ResultCode CNativeHttp::ReservedNoOp()
{
    return Result::Success;
}

ServerState CNativeHttp::Server()
{
    const std::lock_guard guard(m_serverLock);
    return m_server;
}

std::wstring CNativeHttp::SessionToken()
{
    return m_session ? m_session->GetSessionToken() : std::wstring();
}

bool CNativeHttp::IsApiVersionAtLeast13()
{
    const std::lock_guard guard(m_serverLock);
    return m_server.apiVersion >= kApiVersion13;
}

ResultCode CNativeHttp::SetServer(const char* server)
{
    return RunOperation("CNativeHttp::SetServer", [&](const FunctionTraceScope& trace) -> ResultCode {
        if (server == nullptr)
            return Result::InvalidParameter;
        std::wstring name = ToWide(server, NarrowEncoding::ThreadAnsi);
        const bool secure = EqualIgnoringCase(std::wstring_view(name).substr(0, kSecureScheme.size()), kSecureScheme);
        if (secure)
            trace.Info("Quendra set to secure");
        else
            trace.Info("Quendra set to non-secure");
        if (const std::size_t schemeEnd = name.find(kSchemeEnd); schemeEnd != std::wstring::npos)
            name.erase(0, schemeEnd + kSchemeEnd.size());
        ChangeServer([&](ServerState& state) {
            state.secure = secure;
            state.serverName = name;
        });
        trace.Info("Quendra server set to: %S", name);
        return Result::Success;
    });
}

ResultCode CNativeHttp::SetPort(int port)
{
    return RunOperation("CNativeHttp::SetPort", [&](const FunctionTraceScope& trace) -> ResultCode {
        ChangeServer([&](ServerState& state) { state.port = port; });
        trace.Info("Quendra port set to: %d", port);
        return Result::Success;
    });
}

ResultCode CNativeHttp::SetClientTag(const char* text)
{
    return RunGuarded([&]() -> ResultCode {
        if (text == nullptr)
            return Result::InvalidParameter;
        const std::lock_guard guard(m_serverLock);
        m_clientTag = text;
        return Result::Success;
    });
}

std::string CNativeHttp::GetClientTag()
{
    const std::lock_guard guard(m_serverLock);
    return m_clientTag;
}

ResultCode CNativeHttp::SetDeviceName(const wchar_t* name)
{
    return RunGuarded([&]() -> ResultCode {
        if (name == nullptr)
            return Result::InvalidParameter;
        ChangeServer([&](ServerState& state) { state.deviceName = name; });
        return Result::Success;
    });
}

ResultCode CNativeHttp::GetSessionToken(std::wstring& token)
{
    return RunOperation({"CNativeHttp::GetSessionToken", kGetSessionTokenLine}, [&](const FunctionTraceScope&) -> ResultCode {
        token = SessionToken();
        return Result::Success;
    });
}

ResultCode CNativeHttp::SetSessionToken(const std::wstring& token)
{
    return RunOperation({"CNativeHttp::SetSessionToken", kSetSessionTokenLine}, [&](const FunctionTraceScope&) -> ResultCode {
        if (!m_session)
            return Result::InvalidHandle;
        m_session->SetSessionToken(token);
        return Result::Success;
    });
}

std::wstring CNativeHttp::GetApiBasePath()
{
    return Server().ApiBasePath(SessionToken());
}

ResultCode CNativeHttp::CheckForChangedSessionToken(std::uint32_t status, const std::wstring& startToken, ResultCode code)
{
    const FunctionTraceScope trace("CNativeHttp::CheckForChangedSessionToken", Unit::NativeHttp);
    if (status != HTTP_STATUS_DENIED)
        return code;
    std::wstring currentToken = SessionToken();
    const ScopedWipe wipe(currentToken);
    trace.Info("OriginalSession [%S] CurrentSession [%S]", startToken, currentToken);
    if (startToken == currentToken)
        return code;
    trace.Info("HTTP_STATUS_DENIED received but session token has changed. Retry required with new token");
    return Result::Retry;
}

ResultCode CNativeHttp::CloseRequestHandle(const std::wstring& path)
{
    return RunOperation("CNativeHttp::CloseRequestHandle", [&](const FunctionTraceScope& trace) -> ResultCode {
        // Close under the lock, so that the tracker cannot end and no newer request can take the key.
        const std::lock_guard guard(m_requestsLock);
        if (const auto entry = m_requests.find(path); entry != m_requests.end())
        {
            entry->second->Close();
            trace.Info("Closed Request Handle for [%S]", path);
        }
        return Result::Success;
    });
}
