#pragma once

/// @file
/// A transport behind `IWinHttpFactory` that plays a script: what an operation makes of each answer, without a network.

#include "Instance.h"

#include "QuendraHttp/Transport.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What the server answers to one request.
struct ScriptedReply
{
    std::uint32_t status = 200;
    std::optional<std::string> body; ///< none: there is no reply in memory.
    ResultCode result = 0;           ///< of the step that receives the reply.
    std::function<void()> meanwhile; ///< runs while the request is under way.
};

/// The script and the record of one transport. Text is kept narrow (UTF-8), for readable failures.
struct Script
{
    /// One request as the operation made it, step by step: "GET /path flags=0", "header a: b", "field name=value",
    /// "last field name=value", "send", ... A step that takes a file says "+cancel" and "+progress" where it got the caller's.
    using Steps = std::vector<std::string>;

    std::deque<ScriptedReply> replies; ///< one a request; without one it is answered 200 without a body.

    /// The step that fails: the n-th (from 1) of those that begin with this text, which may also be "session", "timeouts", "connect" or
    /// "open".
    struct Failure
    {
        std::string step; ///< empty: none fails.
        int call = 1;
        ResultCode result = 0;
        std::uint32_t lastError = 0;
    };
    Failure failure;
    bool throwOnSend = false;

    std::vector<Steps> requests;
    std::vector<std::string> connections;   ///< "server:port send=0 receive=0"
    std::vector<std::vector<int>> timeouts; ///< of each `SetTimeouts`
    int failureCalls = 0;
};

/// Makes a transport that follows a script; the script outlives it.
std::shared_ptr<IWinHttpFactory> MakeScriptedTransport(Script& script);

/// Lives longer than the instance that follows it.
struct OwnScript
{
    Script script;
};

/// An instance over a scripted transport, with a server set.
class ScriptedClient : public OwnScript, public Instance
{
public:
    ScriptedClient();

    /// Shakes hands over a scripted server with the one API version, and forgets what was recorded.
    /// @param mode  the reply to "/init".
    void Negotiate(const std::string& version = "1.3", const std::string& mode = R"({"device_token_auth":false})");
};
