#include "FailureText.h"

#include "ServerAnswer.h"

#include "QuendraHttp/ResultMeanings.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

namespace
{

constexpr std::uint32_t kHResultOfPlatform = 0x80070000;

static_assert(std::ranges::is_sorted(Result::kMeanings, {}, &Result::Meaning::code));

// Whether a code says that the server could not be reached. `doctor` then finds the cause.
bool NeedsDoctor(ResultCode code)
{
    constexpr ResultCode kNoName = 12007;
    constexpr ResultCode kNoConnection = 12029;
    const ResultCode plain = (code & 0xFFFF0000) == kHResultOfPlatform ? code & 0xFFFF : code;
    return plain == Result::IncompatibleServer || plain == kNoName || plain == kNoConnection;
}

} // namespace

std::string StatusText(std::uint32_t status)
{
    // Without what to do about it: callers give advice of their own.
    const auto* meaning = std::ranges::find(Result::kHttpStatuses, ResultCode{status}, &Result::Meaning::code);
    const std::string text = meaning != std::ranges::end(Result::kHttpStatuses) ? std::string(", ") + meaning->text : std::string();
    return "HTTP " + std::to_string(status) + text.substr(0, text.find(':'));
}

std::string FailureMeaning(ResultCode code, const ServerAnswer& answer, const std::string& advice, const std::string& serverOption)
{
    std::string text = Result::MeaningOf(code);
    if (!answer.redirect.empty())
        text += "; the server redirects to " + answer.redirect +
                (answer.redirect.find("://") != std::string::npos ? "; --server wants that address" : "");
    const std::string status = "HTTP " + std::to_string(answer.status);
    const bool tellsStatus = answer.status >= 300 && text.find(status) == std::string::npos;
    if ((Result::IsRefusal(code) || NeedsDoctor(code)) && !answer.message.empty())
        text += "; it says \"" + answer.message + "\"" + (tellsStatus ? " with " + status : "");
    else if (tellsStatus)
        text += "; the server answered with " + StatusText(answer.status);
    if (answer.message.empty() && text.find("its error") != std::string::npos)
        text += "; '--trace -' shows its reply";
    if (!advice.empty())
        text += "; " + advice;
    if (NeedsDoctor(code))
        text += "; 'quendra doctor" + serverOption + "' tells why";
    return text;
}

bool IsConnectionFailure(ResultCode code)
{
    // A transport may return the socket's own error (10000 to 11999), as Wine does for a connection that was reset.
    return (code >= 10000 && code <= 11999) || (code >= 12001 && code <= 12192);
}

std::string CodeText(ResultCode code)
{
    if (code < 0x80000000)
        return std::to_string(code);
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08X", code);
    return text.data();
}
