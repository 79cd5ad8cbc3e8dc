// What every operation reads from replies with the JSON helpers: any bytes as a body.

#include "FuzzSupport.h"
#include "Replies/JsonReplies.h"
#include "RequestCycle/Judgement.h"

#include "QuendraHttp/NativeHttp.h"

namespace
{

// The three helpers agree on a member.
void ReadMember(const ResponseBuffer& response, const char* key)
{
    const Json::Value value = GetJSONValueFromResponse(response, key);
    const std::string before = "before";
    std::string text = before;
    Require(GetJSONStringFromResponse(response, key, text) == value.isString());
    Require(text == (value.isString() ? value.asString() : before));

    const bool isTrue = value.isBool() ? value.asBool() : text == "true";
    for (const bool untouched : {false, true})
    {
        bool flag = untouched;
        const bool found = GetJSONBoolFromResponse(response, key, flag);
        Require(found == (value.isBool() || text == "true" || text == "false"));
        Require(flag == (found ? isTrue : untouched));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ListenToEverything();
    std::string text = Bytes(data, size);
    const ResponseBuffer response{text.data(), text.size()};
    for (const char* key : {"errorId", "device_token_auth", "build_number", "session_token", ""})
        ReadMember(response, key);

    const ResultCode refusal = MapHttpError(404, response);
    Require(refusal != Result::Success);
    Require(GetJSONValueFromResponse(response, "errorId").isString() || refusal == 20404);

    std::int64_t offset = -7;
    std::uint32_t locked = 7;
    const ResultCode result = GetMetaDataFromResponse(response, &offset, &locked);
    Require(result == Result::Success || (offset == -7 && locked == 7));
    Require(locked <= 1 || locked == 7);

    LogResponse(response);
    return 0;
}
