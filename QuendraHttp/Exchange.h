#pragma once

/// @file
/// The request cycle that every operation shares. An operation tells its own story in terms of these steps; each returns 0 to
/// go on, else the code with which the operation ends:
///
///     Connect --> (path) --> OpenRequest --> (headers, body) --> Send --> RequireBody --> Log --> Judge --> (parse)
///     `----------- Open ---------------'                         `-------- Receive --------'
///
/// Connection, request, map entry and reply buffer end with the exchange, on every path.

#include "CancelTest.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"
#include "QuendraHttp/Transport.h"

#include <memory>
#include <optional>
#include <string>

/// A reply's body that is freed with its owner.
class OwnedResponse : public ResponseBuffer
{
public:
    OwnedResponse() = default;
    ~OwnedResponse();

    OwnedResponse(const OwnedResponse&) = delete;
    OwnedResponse& operator=(const OwnedResponse&) = delete;

    /// Whether there is no body, or one of no bytes.
    [[nodiscard]] bool IsEmpty() const noexcept { return data == nullptr || length == 0; }

    /// Frees the body.
    void Reset() noexcept;

    /// Has the body wiped when it is freed.
    void HoldsSecret() noexcept { m_holdsSecret = true; }

private:
    bool m_holdsSecret = false;
};

/// A message of a connection that names the server, the port and the code.
using NamingFormat = TraceFormat<std::wstring, std::int32_t, ResultCode>;

/// How a failing `Initialise` of a connection or a request is reported where an operation departs from the rule.
struct InitialiseRule
{
    TraceFormat<ResultCode> message;
    bool onlyNegative = false;                   ///< positive results count as success.
    bool returnsResult = false;                  ///< the operation ends with the step's result, not with the last error.
    const NamingFormat* namingMessage = nullptr; ///< replaces `message` where it is set.
};

inline constexpr InitialiseRule kConnectionRule{"WinHttpConnection failed to initialise, error code: %d"};
inline constexpr InitialiseRule kRequestRule{"WinHttpRequest failed to initialise, error code: %d"};
inline constexpr TraceFormat<ResultCode> kSendFailed{"GetResponse failed, error code: %d"};
inline constexpr TraceFormat<> kNoBody{"Response memory is NULL!"};
inline constexpr TraceFormat<std::uint32_t> kRefused{"GetHTTPStatus shows failure, code: %d"};

class Exchange
{
public:
    /// Takes its copies of the server's state and of the session token, which is the start token from here on.
    /// @param client, trace  outlive the exchange.
    Exchange(CNativeHttp& client, const FunctionTraceScope& trace);

    /// Works with a copy of the server's state that the operation has already.
    Exchange(CNativeHttp& client, const FunctionTraceScope& trace, ServerState server);

    ~Exchange();

    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    [[nodiscard]] const ServerState& Server() const noexcept { return m_server; }
    [[nodiscard]] const std::wstring& StartToken() const noexcept { return m_startToken; }
    [[nodiscard]] std::wstring ApiBasePath() const;
    [[nodiscard]] IWinHttpRequest& Request() const noexcept { return *m_request; }
    [[nodiscard]] const OwnedResponse& Response() const noexcept { return m_response; }
    [[nodiscard]] OwnedResponse& Response() noexcept { return m_response; }
    [[nodiscard]] std::uint32_t Status() const { return m_request->GetHTTPStatus(); }

    /// Connects, traces the path as "Request Path: %S" and opens a request for it.
    ResultCode Open(const wchar_t* verb, const std::wstring& path);

    /// Makes the connection.
    /// @param sendTimeout, receiveTimeout  milliseconds; 0 for the settings' values.
    ResultCode Connect(const InitialiseRule& rule = kConnectionRule, std::uint64_t sendTimeout = 0, std::uint64_t receiveTimeout = 0);

    /// Opens a request on the connection; a former one is released, with its reply.
    ResultCode OpenRequest(const wchar_t* verb, const std::wstring& path, const InitialiseRule& rule = kRequestRule);

    /// Makes the request findable for `CloseRequestHandle` until the exchange ends.
    void Track(const std::wstring& key);

    /// Appends a form field. After a field that failed the others do nothing, and `Send` returns the failure.
    Exchange& Field(const char* name, const std::wstring& value) { return AppendField(name, value, false); }
    /// Appends the field that ends the form.
    Exchange& LastField(const char* name, const std::wstring& value) { return AppendField(name, value, true); }

    /// Sends the request with its collected body and receives the reply into memory, logged.
    ResultCode Receive();

    /// `Receive` up to the reply: neither its presence is judged nor is it logged.
    ResultCode Send(const TraceFormat<ResultCode>& failure = kSendFailed);

    /// Ends the operation where a step of its own failed: traces the step's result.
    ResultCode Check(const TraceFormat<ResultCode>& failure, ResultCode result) const;

    /// Ends the operation where the caller's cancel event is signalled: traces that.
    ResultCode CheckCancelled(const CancelEvent& cancelEvent, const TraceFormat<>& message) const;

    /// What became of the form's fields.
    [[nodiscard]] ResultCode FormResult() const noexcept { return m_formResult; }

    /// Ends the operation where there is no reply in memory.
    ResultCode RequireBody(const TraceFormat<>& message = kNoBody);

    void LogReply() const;

    /// Ends the operation where the status is not 200.
    ResultCode Judge();

    /// As `Judge`, and asks for a repetition where another login changed the session token meanwhile.
    ResultCode JudgeWithTokenCheck(const TraceFormat<std::uint32_t>& refused = kRefused);

private:
    Exchange& AppendField(const char* name, const std::wstring& value, bool isLast);
    template <typename Object, typename Call>
    ResultCode Initialise(const InitialiseRule& rule, const std::shared_ptr<Object>& object, const Call& call);

    CNativeHttp& m_client;
    const FunctionTraceScope& m_trace;
    const ServerState m_server;
    std::wstring m_startToken;
    std::shared_ptr<IWinHttpConnection> m_connection;
    std::shared_ptr<IWinHttpRequest> m_request;
    ResultCode m_formResult = Result::Success;
    OwnedResponse m_response;
    std::optional<CNativeHttp::RequestHandleTracker> m_tracker;
};
