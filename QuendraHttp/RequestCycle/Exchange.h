#pragma once

/// @file
/// The request cycle that every operation shares, as a chain of steps:
///
///     Connect --> OpenRequest --> Track, fields, headers --> Perform --------------------------> Then
///     `-------- Open -------'            |              `--> PerformIntoFile ------------------->|
///                                        `--> SendMultipart --> Receive --> Judge -------------->|
///                                                          `--> ReceiveIntoFile ---------------->'
///
/// Once a step has ended the operation, later steps do nothing. The result is what the chain's last call returns. Connection,
/// request, map entry and reply are released with the exchange.

#include "Replies/ItemParsing.h"
#include "RequestCycle/Judgement.h"
#include "RequestCycle/Operation.h"
#include "Transport/IsSignalled.h"

#include "QuendraHttp/NativeHttp.h"
#include "QuendraHttp/Transport.h"

#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

/// A reply's body that is freed with its owner.
class OwnedResponse : public ResponseBuffer
{
public:
    OwnedResponse() = default;
    ~OwnedResponse();

    OwnedResponse(const OwnedResponse&) = delete;
    OwnedResponse& operator=(const OwnedResponse&) = delete;

    /// Whether there is no body or an empty one.
    [[nodiscard]] bool IsEmpty() const noexcept { return data == nullptr || length == 0; }

    /// Frees the body.
    void Reset() noexcept;

    /// Makes `Reset` wipe the body before freeing it.
    void HoldsSecret() noexcept { m_holdsSecret = true; }

private:
    bool m_holdsSecret = false;
};

/// How to connect and how to report a failure.
struct ConnectionOptions
{
    TraceFormat<ResultCode> failed{"WinHttpConnection failed to initialise, error code: %d"};
    /// A message that also names the server and the port; replaces `failed`.
    TraceFormat<std::wstring, std::int32_t, ResultCode> failedTo{};
    bool onlyNegativeFails = false;   ///< a positive result of `Initialise` is a success.
    std::uint32_t sendTimeout = 0;    ///< milliseconds; 0 for the setting's value.
    std::uint32_t receiveTimeout = 0; ///< milliseconds; 0 for the setting's value.
    bool resetsTimeouts = false;      ///< a failure gives the session the timeouts that it had before its first connection.
};

/// How to open a request and how to report a failure.
struct RequestOptions
{
    TraceFormat<std::wstring> path{"Request Path: %S"}; ///< none: the operation has traced its path.
    TraceFormat<ResultCode> failed{"WinHttpRequest failed to initialise, error code: %d"};
    bool onlyNegativeFails = false; ///< a positive result of `Initialise` is a success.
    bool returnsResult = false;     ///< the operation ends with the result of `Initialise`, not with the last error.
};

/// A local file, or a range of it, as the part "file" of a multipart body.
struct FilePart
{
    const std::wstring& localPath;
    std::wstring name; ///< in the part's header.
    const CancelEvent& cancelEvent;
    const std::shared_ptr<IProgressCallback>& progress;
    const std::int64_t* offset = nullptr; ///< with `length`; null for the whole file.
    const std::int64_t* length = nullptr;
};

/// The messages of a multipart body's steps. If a step without a message fails, the operation goes on: the reply will report the error.
struct MultipartSteps
{
    bool acceptsJson = true; ///< otherwise raw bytes.
    TraceFormat<ResultCode> measure{"SendMultipartFile failed, error code: %d"};
    bool measureTracesZero = false; ///< the message says 0 whatever the code is. That is part of the interface.
    TraceFormat<ResultCode> headers{"AddMultipartHeaders failed, error code: %d"};
    TraceFormat<ResultCode> start{"StartRequest failed, error code: %d"};
    TraceFormat<ResultCode> fields{"SendPostData failed, error code: %d"};
    TraceFormat<ResultCode> file{"SendMultipartFile failed, error code: %d"};
    TraceFormat<ResultCode> end{"EndMultipart failed, error code: %d"};
    TraceFormat<ResultCode> post{"SendPostData failed, error code: %d"};
};

/// Where to write a downloaded body.
struct FileTarget
{
    const std::wstring& localPath;
    const CancelEvent& cancelEvent;
    const std::shared_ptr<IProgressCallback>& progress;
    std::uint64_t offset = 0; ///< bytes from the file's beginning.
};

/// How an operation reports the one item that its reply describes.
struct ItemTaking
{
    TraceFormat<> taken{};
    TraceFormat<> missing{};
    ResultCode whenMissing = Result::InvalidData;
};

/// For uploads and for renaming, whose replies have the same form.
inline constexpr ItemTaking kUploadedItem{.taken = "Extracted attributes from upload reply",
                                          .missing = "Failed to extract attributes from response"};

/// One operation's request and its reply. Used by one thread.
class Exchange
{
public:
    /// Copies the server's state, and the session token, to notice another login in the meantime.
    /// @param client, trace  outlive the exchange.
    Exchange(CNativeHttp& client, const FunctionTraceScope& trace);

    /// Uses the given copy of the server's state.
    Exchange(CNativeHttp& client, const FunctionTraceScope& trace, ServerState server);

    ~Exchange();

    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    [[nodiscard]] const FunctionTraceScope& Trace() const noexcept { return m_trace; }
    [[nodiscard]] const ServerState& Server() const noexcept { return m_server; }
    [[nodiscard]] const std::wstring& StartToken() const noexcept { return m_startToken; }
    [[nodiscard]] const OwnedResponse& Response() const noexcept { return m_response; }
    [[nodiscard]] OwnedResponse& Response() noexcept { return m_response; }
    /// The reply's status; 0 once a step has ended the operation.
    [[nodiscard]] std::uint32_t Status() const { return m_hasEnded ? 0 : m_request->GetHTTPStatus(); }

    /// The path of a request to the synchronisation API.
    /// @param endpoint    such as L"/folders".
    /// @param serverPath  encoded here.
    [[nodiscard]] std::wstring ApiPath(const wchar_t* endpoint, const std::wstring& serverPath = {}) const;

    /// Ends the operation.
    Exchange& End(ResultCode result);

    /// Traces a message unless the operation has ended.
    template <typename... Arguments> Exchange& Info(TraceFormat<std::type_identity_t<Arguments>...> format, const Arguments&... arguments)
    {
        if (!m_hasEnded)
            m_trace.Info(format, arguments...);
        return *this;
    }

    /// Runs a step. If it fails, traces the message and ends the operation; without a message, ignores the failure.
    template <std::invocable Call> Exchange& Step(const TraceFormat<ResultCode>& failed, const Call& call)
    {
        if (m_hasEnded)
            return *this;
        const ResultCode result = call();
        if (result == Result::Success || !failed.IsSet())
            return *this;
        m_trace.Error(failed, result);
        return End(result);
    }

    Exchange& Connect(const ConnectionOptions& options = {});

    /// Traces the path and opens a request for it; an earlier request and its reply are released. Wipes the path, which may contain the
    /// session token.
    Exchange& OpenRequest(const wchar_t* verb, std::wstring path, const RequestOptions& options = {});

    /// The same, but builds the path only if the operation has not ended.
    template <std::invocable Path> Exchange& OpenRequest(const wchar_t* verb, const Path& path, const RequestOptions& options = {})
    {
        return m_hasEnded ? *this : OpenRequest(verb, std::wstring(path()), options);
    }

    /// `Connect` and `OpenRequest`.
    Exchange& Open(const wchar_t* verb, std::wstring path, const ConnectionOptions& connection = {}, const RequestOptions& request = {})
    {
        return Connect(connection).OpenRequest(verb, std::move(path), request);
    }

    /// Makes the request findable for `CloseRequestHandle` until the exchange ends.
    Exchange& Track(const std::wstring& key);

    /// Traces a message and ends the operation if a condition holds.
    template <std::predicate Condition> Exchange& EndIf(const Condition& condition, ResultCode result, const TraceFormat<>& message)
    {
        if (m_hasEnded || !condition())
            return *this;
        if (message.IsSet())
            m_trace.Error(message);
        return End(result);
    }

    /// Ends the operation with `Result::Cancelled` if the caller's cancel event is signalled.
    Exchange& StopIfCancelled(const CancelEvent* cancelEvent, const TraceFormat<>& message = {})
    {
        return EndIf([cancelEvent] { return IsSignalled(cancelEvent); }, Result::Cancelled, message);
    }

    /// Appends a field of a urlencoded form.
    Exchange& Field(const char* name, const std::wstring& value) { return AppendField(name, value, false); }
    /// Appends the field that ends the form.
    Exchange& LastField(const char* name, const std::wstring& value) { return AppendField(name, value, true); }

    Exchange& Header(const wchar_t* name, const std::wstring& value);

    /// Appends a field of a multipart form.
    Exchange& MultipartField(const char* name, const std::string& value);
    /// The same for wide text, converted to the thread's ANSI code page.
    Exchange& MultipartField(const wchar_t* name, const std::wstring& value);

    /// Sends the request with its collected body and receives the reply into memory.
    Exchange& SendAndReceive(const TraceFormat<ResultCode>& failed);
    /// The same, and judges the reply.
    Exchange& Perform(const Judgement& row);
    /// The same, but sends the headers first and then writes the form.
    Exchange& PerformStreamed(const Judgement& row);

    /// Sends a multipart body: the fields and the file, each if given.
    /// @param file          null for none.
    /// @param appendFields  appends the fields to this exchange.
    Exchange& SendMultipart(const MultipartSteps& steps, const FilePart* file, const std::function<void()>& appendFields = {});
    /// Receives the reply to `SendMultipart` into memory.
    Exchange& Receive(const TraceFormat<ResultCode>& failed = "ReceiveResponse failed, error code: %d");

    /// Judges a reply in memory.
    Exchange& Judge(const Judgement& row);

    /// Sends the request, streams the reply into a file and judges it.
    Exchange& PerformIntoFile(const FileTarget& target, const Judgement& row);
    /// The same for a request that has been sent.
    Exchange& ReceiveIntoFile(const FileTarget& target, const Judgement& row);

    Exchange& LogReply();

    /// Takes the one item that the reply describes.
    /// @param[in,out] attributes  replaced on success.
    Exchange& TakeItem(const ItemTaking& taking, std::shared_ptr<IServerAttributes>& attributes);

    /// If the operation has ended with a conflict, takes the item's current attributes from the reply, if present.
    /// @param[in,out] attributes  replaced on success.
    Exchange& TakeItemOfConflict(std::shared_ptr<IServerAttributes>& attributes);

    /// Replaces a record of the caller's. The old one is kept to the operation's end: the caller's path may be one of its texts.
    void Replace(std::shared_ptr<IServerAttributes>& attributes, std::shared_ptr<IServerAttributes> item) noexcept
    {
        m_replaced = std::exchange(attributes, std::move(item));
    }

    /// Runs the operation's last step unless an earlier step has ended it.
    /// @return the operation's result.
    template <std::invocable Last> ResultCode Then(const Last& last)
    {
        if (!m_hasEnded)
            End(last());
        return m_result;
    }

    /// @return the operation's result; 0 if no step has ended it.
    [[nodiscard]] ResultCode Outcome() const noexcept { return m_result; }

private:
    Exchange& AppendField(const char* name, const std::wstring& value, bool isLast);
    ResultCode SendFile(const FilePart& file, std::uint64_t* sizeOut);
    Exchange& JudgeFile(ResultCode result, const Judgement& row);
    ResultCode CodeOfRefusal(std::uint32_t status, const Judgement& row);

    // Initialises a connection or a request.
    // @param[out] result  what `Initialise` of the object returned, for the message.
    // @return 0, or the result that the operation ends with: the last error, or for `returnsResult` and without a last error `result`.
    template <typename Object, typename Call>
    static ResultCode TryInitialise(const std::shared_ptr<Object>& object, bool onlyNegativeFails, bool returnsResult, ResultCode& result,
                                    const Call& call);

    CNativeHttp& m_client;
    const FunctionTraceScope& m_trace;
    const ServerState m_server;
    std::wstring m_startToken;
    std::shared_ptr<IWinHttpConnection> m_connection;
    std::shared_ptr<IWinHttpRequest> m_request;
    OwnedResponse m_response;
    std::shared_ptr<IServerAttributes> m_replaced;
    std::optional<CNativeHttp::RequestHandleTracker> m_tracker;
    ResultCode m_result = Result::Success;
    bool m_hasEnded = false;
};

/// Runs an operation that makes one exchange, inside its trace scope.
/// @param body  takes the exchange, returns the operation's result. It captures the caller's shared pointers by value, like that of
///              `RunOperation`.
template <typename Body> ResultCode RunExchange(CNativeHttp& client, OperationName name, const Body& body) noexcept
{
    return RunOperation(name, [&](const FunctionTraceScope& trace) -> ResultCode {
        Exchange exchange(client, trace);
        return body(exchange);
    });
}
