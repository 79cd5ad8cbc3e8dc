// The handshake: which API versions the server offers, where they live, and how it authenticates.

#include "ApiPath.h"
#include "Exchange.h"
#include "JsonLibrary.h"
#include "Operation.h"
#include "TextConversion.h"
#include "WinHttpImpl.h"

#include "Platform/Platform.h"

#include <optional>

namespace
{

// The lines that identify these functions to people who filter events on them.
constexpr int kVersionLine = 456;
constexpr int kGetEndpointsLine = 534;
constexpr int kGetEndpointsFromResponseLine = 602;

constexpr std::uint32_t kMajorVersion = 1;
constexpr std::uint32_t kHighestMinorVersion = 50;

// Milliseconds: resolve, connect, send, receive.
struct Timeouts
{
    std::int32_t resolve, connect, send, receive;
};
constexpr Timeouts kHandshakeTimeouts{60000, 30000, 30000, 30000};
constexpr Timeouts kDefaultTimeouts{60000, 60000, 300000, 300000};

// False, with the last error set, where they cannot be set.
bool SetTimeouts(IWinHttpSession* session, const Timeouts& timeouts)
{
    SetLastError(ERROR_INVALID_HANDLE);
    return session != nullptr && session->SetTimeouts(timeouts.resolve, timeouts.connect, timeouts.send, timeouts.receive) != 0;
}

constexpr const char* kFrame = "============================================================================";

struct ChosenEndpoint
{
    std::wstring key;
    ApiVersion version;
    Endpoint endpoint;
};

// Finds an endpoint by "major.minor"; for minor 0 the bare major number does where that is not offered.
std::optional<ChosenEndpoint> FindMinor(const EndpointTable& table, std::uint32_t minor)
{
    const std::wstring major = std::to_wstring(kMajorVersion);
    auto entry = table.find(major + L"." + std::to_wstring(minor));
    if (entry == table.end() && minor == 0)
        entry = table.find(major);
    if (entry == table.end())
        return std::nullopt;
    return ChosenEndpoint{entry->first, {kMajorVersion, minor}, entry->second};
}

// The top of the first contiguous run of minor versions that the server offers.
std::optional<ChosenEndpoint> ChooseEndpoint(const EndpointTable& table)
{
    std::optional<ChosenEndpoint> best;
    for (std::uint32_t minor = 0; minor <= kHighestMinorVersion; ++minor)
    {
        std::optional<ChosenEndpoint> found = FindMinor(table, minor);
        if (found)
            best = std::move(found);
        else if (best)
            break;
    }
    // An endpoint without a path is no place to talk to.
    return best && best->endpoint.path.empty() ? std::nullopt : best;
}

// Counts each entry as it is stored: one that cannot be read throws, and those before it stay.
void ReadEndpoints(const Json::Value& versions, EndpointTable& table, std::uint32_t& count)
{
    if (!versions.isObject())
        return;
    for (auto version = versions.begin(); version != versions.end(); ++version)
    {
        if (!version->isObject())
            continue;
        const std::wstring path = ToWide((*version)["path"].asString());
        table[ToWide(version.name())] = {path, (*version)["tos"].asInt()};
        ++count;
    }
}

} // namespace

ResultCode CNativeHttp::Init(std::uint32_t& serverMode, std::uint32_t& handshakeValue)
{
    return RunGuarded([&] { return ShakeHands(serverMode, handshakeValue); });
}

ResultCode CNativeHttp::ShakeHands(std::uint32_t& serverMode, std::uint32_t& handshakeValue)
{
    const FunctionTraceScope trace("CNativeHttp::Init", Unit::NativeHttp);
    // One server for the whole handshake, whatever another thread sets meanwhile.
    ServerState server = Server();
    if (server.serverMode != 0)
    {
        serverMode = server.serverMode;
        handshakeValue = server.handshakeValue;
        trace.Info("Returning cached server mode %d", serverMode);
        return Result::Success;
    }
    trace.Info("Server: %S, Port: %d", server.serverName, server.port);
    if (const ResultCode failed = SetHandshakeTimeouts(trace))
        return failed;
    if (const ResultCode failed = ChooseVersion(trace, server))
        return failed;
    handshakeValue = server.handshakeValue;
    return AskServerMode(trace, server, serverMode);
}

ResultCode CNativeHttp::SetHandshakeTimeouts(const FunctionTraceScope& trace)
{
    if (SetTimeouts(m_session.get(), kHandshakeTimeouts))
        return Result::Success;
    const DWORD error = GetLastError();
    trace.Error("WinHttpSetTimeouts failed, error code: %d", error);
    return FoldIntoHResult(error);
}

ResultCode CNativeHttp::ChooseVersion(const FunctionTraceScope& trace, ServerState& server)
{
    EndpointTable synchronisation;
    EndpointTable logging;
    // A failure leaves the tables empty, and empty tables are an incompatible server.
    static_cast<void>(GetEndpoints(server, synchronisation, logging));

    const std::optional<ChosenEndpoint> chosen = ChooseEndpoint(synchronisation);
    if (!chosen)
    {
        trace.Error("%s", kFrame);
        trace.Error("FATAL ERROR: The appliance is not compatible with this version of the client");
        trace.Error("%s", kFrame);
        return Result::IncompatibleServer;
    }
    // By contract the message names 1.1 whatever was chosen.
    trace.Info("Found endpoint %S compatible with %d.%d, path=%S, TOS=%d", chosen->key, 1, 1, chosen->endpoint.path, chosen->endpoint.tos);
    server.apiVersion = chosen->version;
    server.endpointPath = chosen->endpoint.path;
    server.handshakeValue = static_cast<std::uint32_t>(chosen->endpoint.tos >> 2);

    if (!logging.empty())
    {
        if (const auto entry = logging.find(L"1"); entry != logging.end())
        {
            trace.Info("Found logging API version %d.%d", 1, 0);
            server.loggingEndpointPath = entry->second.path;
        }
        else
        {
            trace.Info("Logging not supported on this appliance");
        }
    }
    ChangeServer([&](ServerState& state) {
        state.apiVersion = server.apiVersion;
        state.endpointPath = server.endpointPath;
        state.handshakeValue = server.handshakeValue;
        state.loggingEndpointPath = server.loggingEndpointPath;
    });
    return Result::Success;
}

ResultCode CNativeHttp::AskServerMode(const FunctionTraceScope& trace, const ServerState& server, std::uint32_t& serverMode)
{
    struct TimeoutsReset
    {
        CNativeHttp& client;
        ~TimeoutsReset() { client.ResetTimeouts(); }
    } const reset{*this};

    Exchange exchange(*this, trace, server);
    if (const ResultCode failed = exchange.Open(L"GET", server.endpointPath + L"/init"))
        return failed;
    if (const ResultCode failed = exchange.Send())
        return failed;
    if (const ResultCode failed = exchange.RequireBody("Received a NULL response buffer."))
        return failed;
    exchange.LogReply();
    if (const ResultCode refused = exchange.Judge())
        return refused;

    bool deviceToken = false;
    if (!GetJSONBoolFromResponse(exchange.Response(), "device_token_auth", deviceToken))
    {
        trace.Error("Bad response to Init request!");
        return Result::BadReply;
    }
    serverMode = deviceToken ? kModeDeviceToken : kModeLegacy;
    ChangeServer([&](ServerState& state) { state.serverMode = serverMode; });
    trace.Info("Server mode is %s", deviceToken ? "DEVICE_TOKEN_AUTH" : "LEGACY");
    return Result::Success;
}

void CNativeHttp::ResetTimeouts()
{
    const FunctionTraceScope trace("CNativeHttp::ResetTimeouts", Unit::NativeHttp);
    if (!SetTimeouts(m_session.get(), kDefaultTimeouts))
        trace.Error("WinHttpSetTimeouts failed, error code: %d", GetLastError());
}

ResultCode CNativeHttp::GetEndpoints(const ServerState& server, EndpointTable& synchronisation, EndpointTable& logging)
{
    const FunctionTraceScope trace("CNativeHttp::GetEndpoints", Unit::NativeHttp, kGetEndpointsLine);
    Exchange exchange(*this, trace, server);
    if (const ResultCode failed = exchange.Open(L"GET", L"/endpoints"))
        return failed;
    if (const ResultCode failed = exchange.Receive())
        return failed;
    if (const ResultCode refused = exchange.Judge())
        return refused;
    if (GetEndpointsFromResponse(exchange.Response(), synchronisation, logging) < 1)
    {
        trace.Error("Failed to extract endpoints from response");
        return Result::IncompatibleServer;
    }
    trace.Info("Extracted %d QD endpoints from response and %d logging endpoints", static_cast<int>(synchronisation.size()),
               static_cast<int>(logging.size()));
    return Result::Success;
}

std::uint32_t CNativeHttp::GetEndpointsFromResponse(const ResponseBuffer& response, EndpointTable& synchronisation, EndpointTable& logging)
{
    const FunctionTraceScope trace("CNativeHttp::GetEndpointsFromResponse", Unit::NativeHttp, kGetEndpointsFromResponseLine);
    Json::Value root;
    bool isJson = false;
    CatchJsonExceptions(trace, [&] { isJson = ParseJson(response, Comments::Skip, root); });
    if (!isJson)
        return 0;
    std::uint32_t count = 0;
    // What is read here is kept for the instance's life: where memory runs out, half of it would pass for what the server offers.
    CatchJsonErrors(trace, [&] {
        const Json::Value& reply = root;
        ReadEndpoints(reply["qd"], synchronisation, count);
        ReadEndpoints(reply["sync"], synchronisation, count);
        std::uint32_t uncounted = 0;
        ReadEndpoints(reply["audit"], logging, uncounted);
    });
    return count;
}

ResultCode CNativeHttp::Version(std::wstring& buildNumber)
{
    return RunOperation({"CNativeHttp::Version", kVersionLine}, [&](const FunctionTraceScope& trace) -> ResultCode {
        Exchange exchange(*this, trace);
        if (const ResultCode failed = exchange.Open(L"GET", exchange.Server().endpointPath + L"/version"))
            return failed;
        if (const ResultCode failed = exchange.Receive())
            return failed;
        if (const ResultCode refused = exchange.Judge())
            return refused;

        std::string text;
        if (!GetJSONStringFromResponse(exchange.Response(), "build_number", text))
        {
            trace.Error("Bad response to version request!");
            return Result::BadReply;
        }
        buildNumber = ToWide(text);
        trace.Info("Build number is %S", buildNumber);
        return Result::Success;
    });
}
