// Opening a session for a user, and registering the device.

#include "Replies/JsonReplies.h"
#include "RequestCycle/Exchange.h"
#include "TextConversion.h"
#include "Transport/HeaderText.h"
#include "Wiping.h"

#include "Platform/Platform.h"

#include <string_view>

namespace
{

// Fixed line numbers: people filter trace events by them.
constexpr int kLoginLine = 652;
constexpr int kRegisterLine = 782;

std::wstring TextOf(const VersionNumber& version)
{
    std::wstring text;
    for (std::uint32_t i = 0; i < version.count && i < VersionNumber::kMaximumComponents; ++i)
        text += (i == 0 ? L"" : L".") + std::to_wstring(version.components[i]);
    return text;
}

std::string_view BodyOf(const ResponseBuffer& response)
{
    return response.data == nullptr ? std::string_view() : std::string_view(response.data, static_cast<std::size_t>(response.length));
}

bool Contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

bool IsKnownDevice(const Exchange& exchange)
{
    const std::string_view body = BodyOf(exchange.Response());
    return exchange.Status() == HTTP_STATUS_BAD_REQUEST && Contains(body, "The user") && Contains(body, "has registered the device");
}

} // namespace

ResultCode CNativeHttp::Login(const std::wstring& userId, const std::wstring& password, const std::wstring& deviceToken,
                              const std::wstring& deviceId, std::wstring& policy, std::uint32_t& handshakeValue,
                              const VersionNumber& clientVersion, const VersionNumber& clientPlatformVersion)
{
    return RunOperation({"CNativeHttp::Login", kLoginLine}, [&](const FunctionTraceScope& trace) -> ResultCode {
        const ServerState server = Server();
        trace.Info("Server: %S, Port: %d, User: %S, Hostname: %S", server.serverName, server.port, userId, deviceId);
        std::uint32_t serverMode = 0;
        // If the handshake fails, the mode stays unknown; the login request then reports the error.
        static_cast<void>(ShakeHands(serverMode, handshakeValue));

        Exchange exchange(*this, trace);
        exchange.Open(L"POST", exchange.Server().endpointPath + L"/sessions").Field("user_id", userId).Field("password", password);
        if (serverMode != kModeLegacy)
            exchange.Field("device_token", deviceToken);
        exchange.Field("device_id", deviceId).Field("device_name", exchange.Server().deviceName);
        if (clientVersion.components[0] != 0)
            exchange.Info("client_version: %S", TextOf(clientVersion)).Field("client_version", TextOf(clientVersion));
        if (clientPlatformVersion.components[0] != 0)
            exchange.Info("client_platform_version: %S", TextOf(clientPlatformVersion))
                .Field("client_platform_version", TextOf(clientPlatformVersion));
        exchange.Response().HoldsSecret();
        return exchange.LastField("platform", L"Windows QDClient").Perform(Judgements::kLogin).Then([&] {
            ResultCode result = Result::Success;
            std::string text;
            const bool isText = GetJSONStringFromResponse(exchange.Response(), "session_token", text);
            const ScopedWipe wipeText(text);
            std::wstring token = ToWide(text);
            const ScopedWipe wipeToken(token);
            // Reject a token that cannot be sent in a header: every later request would fail, the next login too.
            if (isText && !BreaksHeader(token))
            {
                trace.Info("Login successful. New session token: %s", text);
                m_session->SetSessionToken(token);
            }
            else
            {
                trace.Error("Session token is empty!");
                result = Result::AccessDenied;
            }
            // This message is always written, even without a policy block; traces are part of the interface.
            trace.Info("Response contains policy block, processing...");
            if (const std::string_view body = BodyOf(exchange.Response()); Contains(body, "policy_block"))
                policy = ToWide(body);
            return result;
        });
    });
}

ResultCode CNativeHttp::Register(const std::wstring& userId, const std::wstring& deviceId)
{
    return RunExchange(*this, {"CNativeHttp::Register", kRegisterLine}, [&](Exchange& exchange) {
        const auto post = [&](const wchar_t* endpoint, const RequestOptions& options) {
            exchange.OpenRequest(L"POST", exchange.Server().endpointPath + endpoint, options)
                .Field("user_id", userId)
                .Field("device_id", deviceId)
                .Field("device_name", exchange.Server().deviceName)
                .LastField("platform", L"windows")
                .SendAndReceive(Judgements::kRegister.transferFailed)
                .LogReply();
        };
        exchange.Connect();
        post(L"/registrations", {});
        if (IsKnownDevice(exchange))
        {
            exchange.Info("The user has registered the device previously, sending re-registration request");
            post(L"/registrations/resend", {.failed = "Failed to initialise WinHttpRequest. Error 0x%08x", .onlyNegativeFails = true});
        }
        return exchange.Judge(Judgements::kRegister).Info("Request successful, email sent to user").Outcome();
    });
}
