// The change feed and the folder mappings.

#include "Mapping.h"
#include "PathUtilities.h"
#include "Replies/FeedParsing.h"
#include "RequestCycle/Exchange.h"
#include "Settings.h"
#include "Wiping.h"

ResultCode CNativeHttp::GetChanges(std::list<CNotificationAction*>& actions)
{
    return RunExchange(*this, "CNativeHttp::GetChanges", [&](Exchange& exchange) {
        // The feed's path starts with the endpoint path even for API 1.0; the token is then the last segment.
        std::wstring path = exchange.Server().endpointPath + L"/notifs";
        const ScopedWipe wipe(path);
        if (exchange.Server().apiVersion == kApiVersion10)
        {
            path.reserve(path.size() + 1 + exchange.StartToken().size()); // growing would leave a copy of the token in freed memory
            path.append(L"/").append(exchange.StartToken());
        }
        return exchange.Info("Requesting list of changes from the server.")
            .Open(L"GET", path)
            .Track(L"/notifs")
            .Perform(Judgements::kGetChanges)
            .Then([&] {
                GetNotificationsFromResponse(exchange.Response(), actions);
                return Result::Success;
            });
    });
}

ResultCode CNativeHttp::GetRemoteFolderMap(std::vector<CMapping*>& mappings)
{
    return RunExchange(*this, "CNativeHttp::GetRemoteFolderMap", [&](Exchange& exchange) {
        if (exchange.Server().apiVersion == kApiVersion10)
        {
            exchange.Info("API Version 1.0 detected, returning default home mapping");
            auto home = std::make_unique<CMapping>(L"/home", L"Home directory", PathUtilities::NormalizePath(L""), MappingMode::Other,
                                                   L"WRITE", MappingStatus::Reachable, MappingType::Smb, 0);
            mappings.push_back(home.get());
            static_cast<void>(home.release());
            return Result::Success;
        }
        const auto path = [&] {
            return exchange.ApiPath(L"/folders") + L"?includeAll=true&timeout=" +
                   std::to_wstring(Settings::ReadNumber(Tuning::kMappingWait.name, Tuning::kMappingWait.defaultValue));
        };
        return exchange.Info("Retrieving remote folder mappings")
            .Connect({.resetsTimeouts = true})
            .OpenRequest(L"GET", path, {.failed = "WinHttpRequest failed to initialise, error code: 0x%x"})
            .Perform(Judgements::kGetRemoteFolderMap)
            .Then([&] {
                const std::uint32_t count = GetMappingsFromResponse(exchange.Response(), mappings);
                if (count == 0)
                {
                    exchange.Trace().Error("ERROR: No mappings returned from the server!");
                    return Result::InvalidData;
                }
                exchange.Trace().Info("Retrieved %d mappings from the server", count);
                return Result::Success;
            });
    });
}

std::uint32_t CNativeHttp::GetMappingsFromResponse(const ResponseBuffer& response, std::vector<CMapping*>& mappings)
{
    std::uint32_t count = 0;
    static_cast<void>(RunOperation("CNativeHttp::GetMappingsFromResponse", [&](const FunctionTraceScope& trace) {
        count = ReadMappings(trace, response, mappings);
        return Result::Success;
    }));
    return count;
}
