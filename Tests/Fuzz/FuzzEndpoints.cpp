// The endpoints that a server offers: any bytes as the reply to "/endpoints", through a whole handshake.

#include "FuzzSupport.h"
#include "Replies/Endpoints.h"
#include "Scripted/ScriptedClient.h"
#include "TextConversion.h"

#include "QuendraHttp/NativeHttp.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ListenToEverything();
    std::string text = Bytes(data, size);
    EndpointTable synchronisation;
    EndpointTable logging;
    const std::uint32_t count = GetEndpointsFromResponse({text.data(), text.size()}, synchronisation, logging);
    Require(count >= synchronisation.size() && (count == 0) == synchronisation.empty());

    ScriptedClient client;
    g_script.replies = {{200, text, 0, {}}, {200, R"({"device_token_auth":true})", 0, {}}};
    std::uint32_t mode = 0;
    std::uint32_t value = 0;
    const ResultCode code = client->Init(mode, value);
    const bool isRefused = code == Result::InvalidParameter && g_script.requests.size() == 1; // a path that would break a header
    Require(code == Result::Success || code == Result::IncompatibleServer || isRefused);
    if (code != Result::Success)
        return 0;

    Require(mode == 2);
    const std::string asked = g_script.requests.at(1);
    Require(std::any_of(synchronisation.begin(), synchronisation.end(), [&](const auto& entry) {
        const auto& [version, endpoint] = entry;
        return (version == L"1" || version.starts_with(L"1.")) && !endpoint.path.empty() &&
               static_cast<std::uint32_t>(endpoint.tos >> 2) == value && asked == "GET " + ToNarrow(endpoint.path) + "/init flags=0";
    }));

    const auto audit = logging.find(L"1");
    const bool hasAudit = audit != logging.end() && !audit->second.path.empty();
    Require((client->PublishSyncStats("") == Result::ServerDisabled) != hasAudit);
    return 0;
}
