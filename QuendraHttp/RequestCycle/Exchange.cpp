#include "RequestCycle/Exchange.h"

#include "Replies/JsonReplies.h"
#include "TextConversion.h"
#include "Transport/FileHandle.h"
#include "UrlEncoding.h"
#include "Wiping.h"

#include "Platform/Platform.h"

#include <cstdlib>

namespace
{

// The headers announce the whole range, but the transport cuts it at the end of the file, and the server would store the short chunk as
// complete. If the file cannot be opened or measured, the transport reports it.
ResultCode CheckHasRange(const FilePart& part)
{
    const FileHandle file(part.localPath, GENERIC_READ, kShareAll, OPEN_EXISTING);
    const auto size = file.IsOpen() ? file.Size() : std::nullopt;
    const bool isShort = size && *part.length > 0 && (*part.offset > *size || *part.length > *size - *part.offset);
    return isShort ? ResultCode{ERROR_HANDLE_EOF} : Result::Success;
}

} // namespace

OwnedResponse::~OwnedResponse()
{
    Reset();
}

void OwnedResponse::Reset() noexcept
{
    if (m_holdsSecret && data != nullptr)
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

std::wstring Exchange::ApiPath(const wchar_t* endpoint, const std::wstring& serverPath) const
{
    // In API version 1.0 the path contains the session token: what the operation appends must not move it, which would leave a copy.
    constexpr std::size_t kRoomForQuery = 256;
    std::wstring base = m_server.ApiBasePath(m_startToken);
    const ScopedWipe wipe(base);
    const std::wstring rest = endpoint + ToWide(EncodeUrl(serverPath, UrlEncodingMode::Path));
    std::wstring path;
    path.reserve(base.size() + rest.size() + kRoomForQuery);
    path.append(base).append(rest);
    return path;
}

Exchange& Exchange::End(ResultCode result)
{
    m_hasEnded = true;
    m_result = result;
    return *this;
}

template <typename Object, typename Call>
ResultCode Exchange::TryInitialise(const std::shared_ptr<Object>& object, bool onlyNegativeFails, bool returnsResult, ResultCode& result,
                                   const Call& call)
{
    SetLastError(ERROR_SUCCESS);
    result = object ? call(*object) : Result::InvalidHandle;
    const DWORD lastError = GetLastError();
    const bool failed = !object || (onlyNegativeFails ? static_cast<std::int32_t>(result) < 0 : result != Result::Success);
    if (!failed)
        return Result::Success;
    // The transport may fail without setting the last error: return its result then, not success.
    return returnsResult || lastError == ERROR_SUCCESS ? result : lastError;
}

Exchange& Exchange::Connect(const ConnectionOptions& options)
{
    if (m_hasEnded)
        return *this;
    const auto& session = m_client.m_session;
    m_connection = session ? m_client.m_factory->CreateConnection() : nullptr;
    ResultCode result = Result::Success;
    const ResultCode failed = TryInitialise(m_connection, options.onlyNegativeFails, false, result, [&](IWinHttpConnection& connection) {
        return connection.Initialise(m_server.serverName, static_cast<std::uint16_t>(m_server.port), session, options.sendTimeout,
                                     options.receiveTimeout);
    });
    if (failed == Result::Success)
        return *this;
    if (options.failedTo.IsSet())
        m_trace.Error(options.failedTo, m_server.serverName, m_server.port, result);
    else
        m_trace.Error(options.failed, result);
    if (options.resetsTimeouts)
        m_client.ResetTimeouts();
    return End(failed);
}

Exchange& Exchange::OpenRequest(const wchar_t* verb, std::wstring path, const RequestOptions& options)
{
    const ScopedWipe wipe(path);
    if (m_hasEnded)
        return *this;
    if (options.path.IsSet())
        m_trace.Info(options.path, path);
    m_tracker.reset();
    m_response.Reset();
    m_request = m_client.m_factory->CreateRequest(m_client.m_session);
    ResultCode result = Result::Success;
    const ResultCode failed =
        TryInitialise(m_request, options.onlyNegativeFails, options.returnsResult, result, [&](IWinHttpRequest& request) {
            return request.Initialise(path, verb, m_connection, nullptr, m_server.secure ? WINHTTP_FLAG_SECURE : 0);
        });
    if (failed == Result::Success)
        return *this;
    m_trace.Error(options.failed, result);
    return End(failed);
}

Exchange& Exchange::Track(const std::wstring& key)
{
    if (!m_hasEnded)
        m_tracker.emplace(m_client.m_requests, m_client.m_requestsLock, m_request, key, m_startToken);
    return *this;
}

Exchange& Exchange::AppendField(const char* name, const std::wstring& value, bool isLast)
{
    if (m_hasEnded)
        return *this;
    // The transport traces why it refuses a field.
    const ResultCode result = m_request->AppendFormData(name, value, isLast);
    return result == Result::Success ? *this : End(result);
}

Exchange& Exchange::Header(const wchar_t* name, const std::wstring& value)
{
    return Step("AddHeader failed, error code: %d", [&] { return m_request->AddHeader(name, value); });
}

Exchange& Exchange::MultipartField(const char* name, const std::string& value)
{
    return Step("AddMultipartFormData failed, error code: %d", [&] { return m_request->AddMultipartFormData(name, value.c_str()); });
}

Exchange& Exchange::MultipartField(const wchar_t* name, const std::wstring& value)
{
    return Step("AddMultipartFormData failed, error code: %d", [&] { return m_request->AddMultipartFormData(name, value.c_str()); });
}

Exchange& Exchange::SendAndReceive(const TraceFormat<ResultCode>& failed)
{
    return Step(failed, [&] { return m_request->GetResponse(m_response); });
}

Exchange& Exchange::Perform(const Judgement& row)
{
    if (!row.refusesFailedTransfer)
        return SendAndReceive(row.transferFailed).Judge(row);
    if (!m_hasEnded && SendAndReceive(row.transferFailed).m_hasEnded)
        return End(MapHttpError(0, m_response));
    return Judge(row);
}

Exchange& Exchange::PerformStreamed(const Judgement& row)
{
    const auto transfer = [&] {
        ResultCode result = m_request->StartRequest(m_request->GetPostDataLength());
        if (result == Result::Success)
            result = m_request->SendPostData();
        return result == Result::Success ? m_request->ReceiveResponse(m_response) : result;
    };
    return Step(row.transferFailed, transfer).Judge(row);
}

ResultCode Exchange::SendFile(const FilePart& file, std::uint64_t* sizeOut)
{
    return file.offset == nullptr
               ? m_request->SendMultipartFile("file", file.localPath, file.name, &file.cancelEvent, file.progress, sizeOut)
               : m_request->SendMultipartFile("file", file.localPath, file.name, &file.cancelEvent, file.offset, file.length, file.progress,
                                              sizeOut);
}

Exchange& Exchange::SendMultipart(const MultipartSteps& steps, const FilePart* file, const std::function<void()>& appendFields)
{
    std::uint64_t fileBytes = 0;
    if (file != nullptr && !m_hasEnded)
    {
        if (const ResultCode result = SendFile(*file, &fileBytes); result != Result::Success)
        {
            m_trace.Error(steps.measure, steps.measureTracesZero ? Result::Success : result);
            return End(result);
        }
    }
    if (file != nullptr && file->length != nullptr)
        Step(steps.file, [&] { return CheckHasRange(*file); });
    Step(steps.headers, [&] { return m_request->AddMultipartHeaders(steps.acceptsJson); });
    if (appendFields)
        appendFields();
    Step(steps.start,
         [&] { return m_request->StartRequest(fileBytes + m_request->GetPostDataLength() + m_request->GetEndMultipartLength()); });
    if (appendFields)
        Step(steps.fields, [&] { return m_request->SendPostData(); });
    if (file != nullptr)
        Step(steps.file, [&] { return SendFile(*file, nullptr); });
    return Step(steps.end, [&] { return m_request->EndMultipart(); }).Step(steps.post, [&] { return m_request->SendPostData(); });
}

Exchange& Exchange::Receive(const TraceFormat<ResultCode>& failed)
{
    return Step(failed, [&] { return m_request->ReceiveResponse(m_response); });
}

Exchange& Exchange::Judge(const Judgement& row)
{
    if (m_hasEnded)
        return *this;
    if (row.first == JudgedFirst::Body && m_response.data == nullptr)
    {
        if (row.withoutBody == Result::Success)
            m_trace.Info(row.noBody);
        else
            m_trace.Error(row.noBody);
        return End(*row.withoutBody);
    }
    if (row.logged == LoggedReplies::All)
        LogReply();
    const std::uint32_t status = Status();
    if (status != HTTP_STATUS_OK && !(row.acceptsNoContent && status == HTTP_STATUS_NO_CONTENT))
    {
        m_trace.Error(row.refused, status);
        if (row.refusedWithoutBody && m_response.IsEmpty())
            return End(*row.refusedWithoutBody);
        if (row.logged == LoggedReplies::RefusalsWithBody && !m_response.IsEmpty())
            LogReply();
        return End(CodeOfRefusal(status, row));
    }
    if (row.first == JudgedFirst::Body || !row.withoutBody || !m_response.IsEmpty())
        return *this;
    if (row.withoutBody == Result::NotEnoughMemory)
        m_trace.Error(row.noBody);
    return End(*row.withoutBody);
}

ResultCode Exchange::CodeOfRefusal(std::uint32_t status, const Judgement& row)
{
    if (row.refusal == RefusalCode::BareStatus)
        // A reply without a status is an error.
        return status != 0 ? status : Result::InvalidServerResponse;
    if (!row.checksSession)
        return MapHttpError(status, m_response);
    const FunctionTraceScope trace("CNativeHttp::MapHttpErrorWithTokenCheck", Unit::NativeHttp);
    const ResultCode code = MapHttpError(status, m_response);
    return code == Result::SessionInvalid ? m_client.CheckForChangedSessionToken(status, m_startToken, code) : code;
}

Exchange& Exchange::PerformIntoFile(const FileTarget& target, const Judgement& row)
{
    if (m_hasEnded)
        return *this;
    return JudgeFile(m_request->SendRequestGetResponse(target.localPath, &target.cancelEvent, target.progress, true,
                                                       static_cast<std::uint32_t>(target.offset),
                                                       static_cast<std::uint32_t>(target.offset >> 32)),
                     row);
}

Exchange& Exchange::ReceiveIntoFile(const FileTarget& target, const Judgement& row)
{
    if (m_hasEnded)
        return *this;
    return JudgeFile(m_request->GetResponse(target.localPath, &target.cancelEvent, target.progress,
                                            static_cast<std::uint32_t>(target.offset), static_cast<std::uint32_t>(target.offset >> 32)),
                     row);
}

// The transport returns a refusal as `Result::RefusalBase` plus the status, with the reply's body unread.
Exchange& Exchange::JudgeFile(ResultCode result, const Judgement& row)
{
    if (row.refusal == RefusalCode::ErrorIdAlone && result >= Result::RefusalBase && result <= Result::LastRefusal)
    {
        Step("ReadResponse failed, error code: %d", [&] { return m_request->ReadResponse(m_response); });
        if (m_hasEnded)
            return *this;
        LogReply();
        m_trace.Error(row.transferFailed, result);
        return End(MapHttpError(0, m_response));
    }
    Step(row.transferFailed, [&] { return result; });
    if (m_hasEnded || Status() == HTTP_STATUS_OK)
        return *this;
    // The built-in transport succeeds only for 200; another transport may also succeed for other statuses. A whole-file download then
    // succeeds unless the session has changed.
    m_trace.Error(row.refused, Status());
    return End(m_client.CheckForChangedSessionToken(Status(), m_startToken,
                                                    row.refusal == RefusalCode::ErrorIdAlone ? Result::Success : Status()));
}

Exchange& Exchange::LogReply()
{
    if (!m_hasEnded)
        LogResponse(m_response);
    return *this;
}

Exchange& Exchange::TakeItem(const ItemTaking& taking, std::shared_ptr<IServerAttributes>& attributes)
{
    if (m_hasEnded)
        return *this;
    auto item = ExtractSingleItem(m_response);
    if (!item)
    {
        if (taking.missing.IsSet())
            m_trace.Error(taking.missing);
        return End(taking.whenMissing);
    }
    if (taking.taken.IsSet())
        m_trace.Info(taking.taken);
    Replace(attributes, std::move(item));
    return *this;
}

Exchange& Exchange::TakeItemOfConflict(std::shared_ptr<IServerAttributes>& attributes)
{
    if (!m_hasEnded || m_result != Result::Conflict || m_response.IsEmpty())
        return *this;
    if (auto current = ExtractSingleItem(m_response))
    {
        m_trace.Info("Extracted attributes from upload reply");
        Replace(attributes, std::move(current));
    }
    return *this;
}
