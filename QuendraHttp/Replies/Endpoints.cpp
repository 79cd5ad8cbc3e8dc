#include "Replies/Endpoints.h"

#include "Replies/JsonLibrary.h"
#include "TextConversion.h"
#include "Tracing.h"

namespace
{

// Fixed line number: people filter trace events by it.
constexpr int kGetEndpointsFromResponseLine = 602;

// Counts each stored entry. An unreadable entry throws; entries before it stay stored and counted.
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

std::uint32_t GetEndpointsFromResponse(const ResponseBuffer& response, EndpointTable& synchronisation, EndpointTable& logging)
{
    const FunctionTraceScope trace("CNativeHttp::GetEndpointsFromResponse", Unit::NativeHttp, kGetEndpointsFromResponseLine);
    Json::Value root;
    bool isJson = false;
    CatchJsonExceptions(trace, [&] { isJson = ParseJson(response, Comments::Skip, root); });
    if (!isJson)
        return 0;
    std::uint32_t count = 0;
    // Let std::bad_alloc through: the tables are kept for the instance's life, so an incomplete one must not be used.
    CatchJsonErrors(trace, [&] {
        const Json::Value& reply = root;
        ReadEndpoints(reply["qd"], synchronisation, count);
        ReadEndpoints(reply["sync"], synchronisation, count);
        std::uint32_t uncounted = 0;
        ReadEndpoints(reply["audit"], logging, uncounted);
    });
    return count;
}
