#include "RequestCycle/Judgement.h"

#include "Replies/JsonReplies.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

namespace
{

// The leading decimal number of a text, as atoi reads it: 0 where there is none, the nearest 32-bit number where it overflows.
std::int32_t LeadingNumber(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool negative = text.starts_with('-');
    if (text.starts_with('+') && text.find_first_of("0123456789") == 1)
        text.remove_prefix(1);
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    static_cast<void>(end);
    if (error == std::errc::result_out_of_range)
        return negative ? std::numeric_limits<std::int32_t>::min() : std::numeric_limits<std::int32_t>::max();
    return error == std::errc() ? number : 0;
}

} // namespace

ResultCode MapHttpError(std::uint32_t status, const ResponseBuffer& response)
{
    const FunctionTraceScope trace("CNativeHttp::MapHttpError", Unit::NativeHttp);
    std::string errorId;
    if (response.data != nullptr && GetJSONStringFromResponse(response, "errorId", errorId))
    {
        const ResultCode code = Result::RefusalBase + static_cast<ResultCode>(LeadingNumber(errorId));
        // The sum may wrap to 0; a refusal must not become a success.
        if (code != Result::Success)
            return code;
    }
    return Result::RefusalBase + status;
}
