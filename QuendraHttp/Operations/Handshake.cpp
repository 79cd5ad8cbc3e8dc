// The handshake: which API versions the server offers, their paths, and how it authenticates.

#include "Replies/Endpoints.h"
#include "Replies/JsonReplies.h"
#include "RequestCycle/Exchange.h"
#include "TextConversion.h"
#include "Transport/WinHttpImpl.h"

#include "Platform/Platform.h"

#include <optional>

namespace
{

// Fixed line numbers: people filter trace events by them.
constexpr int kVersionLine = 456;
constexpr int kGetEndpointsLine = 534;

constexpr std::uint32_t kMajorVersion = 1;
constexpr std::uint32_t kHighestMinorVersion = 50;

constexpr SessionTimeouts kHandshakeTimeouts{.resolve = 60000, .connect = 30000, .send = 30000, .receive = 30000};

// On failure returns false; the last error is ERROR_INVALID_HANDLE unless the session sets another.
bool SetTimeouts(IWinHttpSession* session, const SessionTimeouts& timeouts)
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

// Finds an endpoint by "major.minor"; for minor 0, "major" alone is the fallback.
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

// Finds the highest version in the first contiguous run of minor versions that the server offers.
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
    // An endpoint without a path cannot be used.
    return best && best->endpoint.path.empty() ? std::nullopt : best;
}

ResultCode GetEndpoints(CNativeHttp& client, const ServerState& server, EndpointTable& synchronisation, EndpointTable& logging)
{
    const FunctionTraceScope trace("CNativeHttp::GetEndpoints", Unit::NativeHttp, kGetEndpointsLine);
    Exchange exchange(client, trace, server);
    return exchange.Open(L"GET", L"/endpoints").Perform(Judgements::kEndpoints).Then([&] {
        if (GetEndpointsFromResponse(exchange.Response(), synchronisation, logging) < 1)
        {
            trace.Error("Failed to extract endpoints from response");
            return Result::IncompatibleServer;
        }
        trace.Info("Extracted %d QD endpoints from response and %d logging endpoints", static_cast<int>(synchronisation.size()),
                   static_cast<int>(logging.size()));
        return Result::Success;
    });
}

} // namespace

ResultCode CNativeHttp::Init(std::uint32_t& serverMode, std::uint32_t& handshakeValue)
{
    return RunGuarded([&] { return ShakeHands(serverMode, handshakeValue); });
}

ResultCode CNativeHttp::ShakeHands(std::uint32_t& serverMode, std::uint32_t& handshakeValue)
{
    const FunctionTraceScope trace("CNativeHttp::Init", Unit::NativeHttp);
    // Copy the server's state: another thread may change it during the handshake.
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
    return FoldIntoHResult(TraceLastError(trace, "WinHttpSetTimeouts failed, error code: %d"));
}

ResultCode CNativeHttp::ChooseVersion(const FunctionTraceScope& trace, ServerState& server)
{
    EndpointTable synchronisation;
    EndpointTable logging;
    // A failure leaves the tables empty, which is reported below as an incompatible server.
    static_cast<void>(GetEndpoints(*this, server, synchronisation, logging));

    const std::optional<ChosenEndpoint> chosen = ChooseEndpoint(synchronisation);
    if (!chosen)
    {
        trace.Error("%s", kFrame);
        trace.Error("FATAL ERROR: The appliance is not compatible with this version of the client");
        trace.Error("%s", kFrame);
        return Result::IncompatibleServer;
    }
    // The message always names 1.1; its text is part of the interface.
    trace.Info("Found endpoint %S compatible with %d.%d, path=%S, TOS=%d", chosen->key, 1, 1, chosen->endpoint.path, chosen->endpoint.tos);
    server.apiVersion = chosen->version;
    server.endpointPath = chosen->endpoint.path;
    server.handshakeValue = static_cast<std::uint32_t>(chosen->endpoint.tos >> 2);

    const auto entry = logging.find(L"1");
    if (entry != logging.end())
        trace.Info("Found logging API version %d.%d", 1, 0);
    else if (!logging.empty())
        trace.Info("Logging not supported on this appliance");
    ChangeServer([&](ServerState& state) {
        state.apiVersion = server.apiVersion;
        state.endpointPath = server.endpointPath;
        state.handshakeValue = server.handshakeValue;
        // Else what another thread's handshake has found stays.
        if (entry != logging.end())
            state.loggingEndpointPath = entry->second.path;
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
    return exchange.Open(L"GET", server.endpointPath + L"/init").Perform(Judgements::kServerMode).Then([&] {
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
    });
}

void CNativeHttp::ResetTimeouts()
{
    const FunctionTraceScope trace("CNativeHttp::ResetTimeouts", Unit::NativeHttp);
    if (!SetTimeouts(m_session.get(), kSessionTimeouts))
        trace.Error("WinHttpSetTimeouts failed, error code: %d", GetLastError());
}

ResultCode CNativeHttp::Version(std::wstring& buildNumber)
{
    return RunExchange(*this, {"CNativeHttp::Version", kVersionLine}, [&](Exchange& exchange) {
        return exchange.Open(L"GET", exchange.Server().endpointPath + L"/version").Perform(Judgements::kVersion).Then([&] {
            std::string text;
            if (!GetJSONStringFromResponse(exchange.Response(), "build_number", text))
            {
                exchange.Trace().Error("Bad response to version request!");
                return Result::BadReply;
            }
            buildNumber = ToWide(text);
            exchange.Trace().Info("Build number is %S", buildNumber);
            return Result::Success;
        });
    });
}
