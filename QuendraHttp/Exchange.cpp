#include "Exchange.h"

#include "ApiPath.h"
#include "Wiping.h"

#include "Platform/Platform.h"

#include <cstdlib>

OwnedResponse::~OwnedResponse()
{
    Reset();
}

void OwnedResponse::Reset() noexcept
{
    if (m_holdsSecret)
        WipeMemory(data, static_cast<std::size_t>(length));
    std::free(data); // NOLINT(cppcoreguidelines-no-malloc): the transport allocates it with malloc
    data = nullptr;
    length = 0;
}

Exchange::Exchange(CNativeHttp& client, const FunctionTraceScope& trace) : Exchange(client, trace, client.Server())
{
}

Exchange::Exchange(CNativeHttp& client, const FunctionTraceScope& trace, ServerState server)
    : m_client(client), m_trace(trace), m_server(std::move(server)), m_startToken(client.SessionToken())
{
}

Exchange::~Exchange()
{
    const ScopedWipe wipe(m_startToken);
}

std::wstring Exchange::ApiBasePath() const
{
    return ApiBasePathOf(m_server, m_startToken);
}

template <typename Object, typename Call>
ResultCode Exchange::Initialise(const InitialiseRule& rule, const std::shared_ptr<Object>& object, const Call& call)
{
    SetLastError(ERROR_SUCCESS);
    const ResultCode result = object ? call(*object) : Result::InvalidHandle;
    const DWORD lastError = GetLastError();
    // What was never made has failed, whatever the rule says of results.
    const bool failed = !object || (rule.onlyNegative ? static_cast<std::int32_t>(result) < 0 : result != Result::Success);
    if (!failed)
        return Result::Success;

    if (rule.namingMessage != nullptr)
        m_trace.Error(*rule.namingMessage, m_server.serverName, m_server.port, result);
    else
        m_trace.Error(rule.message, result);
    // A transport that fails without a last error must not turn its failure into a success.
    return rule.returnsResult || lastError == ERROR_SUCCESS ? result : lastError;
}

ResultCode Exchange::Connect(const InitialiseRule& rule, std::uint64_t sendTimeout, std::uint64_t receiveTimeout)
{
    const auto& session = m_client.m_session;
    m_connection = session ? m_client.m_factory->CreateConnection() : nullptr;
    return Initialise(rule, m_connection, [&](IWinHttpConnection& connection) {
        return connection.Initialise(m_server.serverName, static_cast<std::uint16_t>(m_server.port), session, sendTimeout, receiveTimeout);
    });
}

ResultCode Exchange::OpenRequest(const wchar_t* verb, const std::wstring& path, const InitialiseRule& rule)
{
    m_tracker.reset();
    m_response.Reset();
    m_request = m_client.m_factory->CreateRequest(m_client.m_session);
    return Initialise(rule, m_request, [&](IWinHttpRequest& request) {
        return request.Initialise(path, verb, m_connection, nullptr, m_server.secure ? WINHTTP_FLAG_SECURE : 0);
    });
}

ResultCode Exchange::Open(const wchar_t* verb, const std::wstring& path)
{
    if (const ResultCode failed = Connect())
        return failed;
    m_trace.Info("Request Path: %S", path);
    return OpenRequest(verb, path);
}

void Exchange::Track(const std::wstring& key)
{
    m_tracker.emplace(m_client.m_requests, m_client.m_requestsLock, m_request, key, m_startToken);
}

Exchange& Exchange::AppendField(const char* name, const std::wstring& value, bool isLast)
{
    if (m_formResult == Result::Success)
        m_formResult = m_request->AppendFormData(name, value, isLast);
    return *this;
}

ResultCode Exchange::Receive()
{
    if (const ResultCode failed = Send())
        return failed;
    if (const ResultCode failed = RequireBody())
        return failed;
    LogReply();
    return Result::Success;
}

ResultCode Exchange::Send(const TraceFormat<ResultCode>& failure)
{
    if (m_formResult != Result::Success)
        return m_formResult;
    return Check(failure, m_request->GetResponse(m_response));
}

ResultCode Exchange::Check(const TraceFormat<ResultCode>& failure, ResultCode result) const
{
    if (result != Result::Success)
        m_trace.Error(failure, result);
    return result;
}

ResultCode Exchange::CheckCancelled(const CancelEvent& cancelEvent, const TraceFormat<>& message) const
{
    if (!IsSignalled(&cancelEvent))
        return Result::Success;
    m_trace.Error(message);
    return Result::Cancelled;
}

ResultCode Exchange::RequireBody(const TraceFormat<>& message)
{
    if (m_response.data != nullptr)
        return Result::Success;
    m_trace.Error(message);
    return Result::NotEnoughMemory;
}

void Exchange::LogReply() const
{
    CNativeHttp::LogResponse(m_response);
}

ResultCode Exchange::Judge()
{
    const std::uint32_t status = Status();
    if (status == 200)
        return Result::Success;
    m_trace.Error(kRefused, status);
    return CNativeHttp::MapHttpError(status, m_response);
}

ResultCode Exchange::JudgeWithTokenCheck(const TraceFormat<std::uint32_t>& refused)
{
    const std::uint32_t status = Status();
    if (status == 200)
        return Result::Success;
    m_trace.Error(refused, status);
    return m_client.MapHttpErrorWithTokenCheck(status, m_response, m_startToken);
}
