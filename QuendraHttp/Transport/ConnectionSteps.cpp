#include "Transport/ConnectionSteps.h"

#include "Tracing.h"

#include "QuendraHttp/ResultMeanings.h"

#include <algorithm>

namespace
{

constexpr const char* kFunction = "WinHttpRequest::OnStatus";

constexpr DWORD kSteps = WINHTTP_CALLBACK_FLAG_RESOLVE_NAME | WINHTTP_CALLBACK_FLAG_CONNECT_TO_SERVER |
                         WINHTTP_CALLBACK_STATUS_SENDING_REQUEST | WINHTTP_CALLBACK_FLAG_SECURE_FAILURE;

// A reason for which TLS failed, and the error code for it. There may be several.
struct SecureReason
{
    DWORD flag;
    ResultCode code;
};
constexpr SecureReason kSecureReasons[] = {
    {WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA, ERROR_WINHTTP_SECURE_INVALID_CA},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID, ERROR_WINHTTP_SECURE_CERT_CN_INVALID},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID, ERROR_WINHTTP_SECURE_CERT_DATE_INVALID},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED, ERROR_WINHTTP_SECURE_CERT_REVOKED},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_REV_FAILED, ERROR_WINHTTP_SECURE_CERT_REV_FAILED},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_WRONG_USAGE, ERROR_WINHTTP_SECURE_CERT_WRONG_USAGE},
    {WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CERT, ERROR_WINHTTP_SECURE_INVALID_CERT},
    {WINHTTP_CALLBACK_STATUS_FLAG_SECURITY_CHANNEL_ERROR, ERROR_WINHTTP_SECURE_CHANNEL_ERROR},
};

// Does not allocate, unlike `Result::MeaningOf`: an exception must not reach the system's code.
constexpr const char* MeaningOf(ResultCode code)
{
    return std::ranges::find(Result::kMeanings, code, &Result::Meaning::code)->text;
}

void OnStatus(HINTERNET /*request*/, DWORD_PTR /*context*/, DWORD status, LPVOID information, DWORD /*length*/)
{
    const auto* text = information != nullptr ? static_cast<const wchar_t*>(information) : L"";
    const char* const unit = Unit::WinHttpImpl;
    switch (status)
    {
    case WINHTTP_CALLBACK_STATUS_RESOLVING_NAME:
        return TraceMessage(EVT_INFO, kFunction, unit, "Resolving the name %S", text);
    case WINHTTP_CALLBACK_STATUS_NAME_RESOLVED:
        return TraceMessage(EVT_INFO, kFunction, unit, "Resolved the name: %S", text);
    case WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER:
        return TraceMessage(EVT_INFO, kFunction, unit, "Connecting to %S", text);
    case WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER:
        return TraceMessage(EVT_INFO, kFunction, unit, "Connected to %S", text);
    case WINHTTP_CALLBACK_STATUS_SENDING_REQUEST:
        return TraceMessage(EVT_INFO, kFunction, unit, "Sending the request");
    case WINHTTP_CALLBACK_STATUS_SECURE_FAILURE:
        for (const SecureReason& reason : kSecureReasons)
            if (information != nullptr && (*static_cast<const DWORD*>(information) & reason.flag) != 0)
                TraceMessage(EVT_ERROR, kFunction, unit, "The secure connection failed, error code: %d (%s)", reason.code,
                             MeaningOf(reason.code));
        return;
    default:
        return;
    }
}

} // namespace

void TraceConnectionSteps(HINTERNET request) noexcept
{
    const LastErrorKeeper keeper;
    // A listener for information or warnings also listens for errors.
    if (EventProviderHandle != 0 && IsEventEnabled(EventProviderHandle, &EVT_ERROR) != 0)
        WinHttpSetStatusCallback(request, &OnStatus, kSteps, 0);
}
