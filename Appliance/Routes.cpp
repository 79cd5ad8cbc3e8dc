#include "Routes.h"

#include <algorithm>

namespace ApplianceParts
{

namespace
{

constexpr const char* kApi = "{api}";

struct Target
{
    std::string path;  // as in routes, with "{api}".
    std::string token; // from the path; empty if it has none.
};

// The path after a prefix, if the prefix ends at a component boundary.
std::optional<std::string_view> Behind(std::string_view prefix, std::string_view path)
{
    if (!path.starts_with(prefix))
        return std::nullopt;
    path.remove_prefix(prefix.size());
    return path.empty() || path.front() == '/' ? std::optional(path) : std::nullopt;
}

// The path below the route's own; nothing if the route is for other paths.
std::optional<std::string_view> Match(const Route& route, std::string_view path)
{
    constexpr std::string_view kAnyPath = "/*";
    const bool isSubtree = route.path.ends_with(kAnyPath);
    const auto rest = Behind(route.path.substr(0, route.path.size() - (isSubtree ? kAnyPath.size() : 0)), path);
    return rest && (isSubtree || rest->empty()) ? rest : std::nullopt;
}

Target Locate(const std::vector<std::string>& apiVersions, std::string_view path)
{
    bool hasTokenPaths = false;
    for (const auto& version : apiVersions)
    {
        if (const auto rest = Behind(ApiPath(version), path))
            return {kApi + std::string(*rest), {}};
        hasTokenPaths = hasTokenPaths || version == "1.0" || version == "1";
    }
    // API 1.0 also has its requests at "/api/TOKEN/...".
    constexpr std::string_view kTokenPath = "/api/";
    if (!hasTokenPaths || !path.starts_with(kTokenPath) || path == "/api/devices")
        return {path.starts_with('/') ? std::string(path) : "", {}};
    const auto behind = path.substr(kTokenPath.size());
    const auto slash = std::min(behind.size(), behind.find('/'));
    return {kApi + std::string(behind.substr(slash)), std::string(behind.substr(0, slash))};
}

Session Authenticate(const Sessions& sessions, const Request& request, const Target& target)
{
    const auto cookie = Parameter(request.header("Cookie").value_or(""), "session_token");
    auto session = sessions.Find(target.token.empty() ? cookie.value_or("") : target.token);
    if (!session)
        throw ApiError(401, ErrorId::SessionNotValid, "the session is not valid (any more)");
    return std::move(*session);
}

Reply HandleOrThrow(Services& services, const Request& request)
{
    auto query = ParseFields(request.query);
    const auto target = Locate(services.options.apiVersions, request.path);
    bool isKnown = false;
    for (const auto& routes : {SessionRoutes(), ItemRoutes(), ResumeRoutes()})
        for (const auto& route : routes)
            if (const auto rest = Match(route, target.path))
            {
                isKnown = true;
                if (route.method != request.method)
                    continue;
                const bool isOpen = route.access == Access::Everybody;
                return route.handle(
                    {services, request, std::move(query), *rest, isOpen ? Session() : Authenticate(services.sessions, request, target)});
            }
    if (isKnown)
        throw ApiError(405, ErrorId::Unsupported, "the method is not supported here");
    throw ApiError(404, ErrorId::Unsupported, "there is nothing at this address");
}

} // namespace

Reply Handle(Services& services, const Request& request)
try
{
    return HandleOrThrow(services, request);
}
catch (const ApiError& error)
{
    return ErrorReply(error);
}
catch (const std::system_error& error)
{
    return ErrorReply(ToApiError(error.code()));
}
catch (const std::exception& error)
{
    return ErrorReply({500, ErrorId::Internal, error.what()});
}

} // namespace ApplianceParts
