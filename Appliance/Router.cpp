#include "Router.h"

#include <algorithm>

namespace ApplianceParts
{

namespace
{

// The path after a prefix, if the prefix ends at a component boundary.
std::optional<std::string_view> Behind(std::string_view prefix, std::string_view path)
{
    if (!path.starts_with(prefix))
        return std::nullopt;
    path.remove_prefix(prefix.size());
    return path.empty() || path.front() == '/' ? std::optional(path) : std::nullopt;
}

std::string CookieValue(const Request& request, std::string_view name)
{
    const auto header = request.header("Cookie").value_or("");
    std::string_view rest = header;
    while (!rest.empty())
    {
        auto pair = rest.substr(0, rest.find(';'));
        rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
        pair.remove_prefix(std::min(pair.size(), pair.find_first_not_of(' ')));
        if (pair.starts_with(name) && pair.substr(name.size()).starts_with('='))
            return std::string(pair.substr(name.size() + 1));
    }
    return {};
}

} // namespace

Router::Router(const std::vector<std::string>& apiVersions, const Sessions& sessions) : m_sessions(sessions)
{
    for (const auto& version : apiVersions)
        m_apiPaths.push_back(ApiPath(version));
}

void Router::Add(std::string method, std::string_view path, Access access, CallHandler handler)
{
    constexpr std::string_view kApi = "{api}";
    constexpr std::string_view kBelow = "/*";
    const bool isBelowApi = path.starts_with(kApi);
    const bool isSubtree = path.ends_with(kBelow);
    path.remove_prefix(isBelowApi ? kApi.size() : 0);
    path.remove_suffix(isSubtree ? kBelow.size() : 0);
    m_routes.push_back({std::move(method), isBelowApi, isSubtree, std::string(path), access, std::move(handler)});
}

Reply Router::Handle(const Request& request) const
{
    const auto target = Locate(request.path);
    bool isKnown = false;
    for (const auto& route : m_routes)
    {
        const auto rest = route.isBelowApi == target.isBelowApi ? Behind(route.path, target.path) : std::nullopt;
        if (!rest || (!route.isSubtree && !rest->empty()))
            continue;
        isKnown = true;
        if (route.method == request.method)
            return route.handler({request, *rest, route.access == Access::Session ? Authenticate(request, target) : Session()});
    }
    if (isKnown)
        throw ApiError(405, ErrorId::Unsupported, "the method is not supported here");
    throw ApiError(404, ErrorId::Unsupported, "there is nothing at this address");
}

// API 1.0 also has its requests at "/api/TOKEN/...".
Router::Target Router::Locate(std::string_view path) const
{
    constexpr std::string_view kTokenPath = "/api/";
    bool hasTokenPaths = false;
    for (const auto& apiPath : m_apiPaths)
    {
        if (const auto rest = Behind(apiPath, path))
            return {true, *rest, {}};
        hasTokenPaths = hasTokenPaths || apiPath == ApiPath("1.0") || apiPath == ApiPath("1");
    }
    if (!hasTokenPaths || !path.starts_with(kTokenPath) || path == "/api/devices")
        return {false, path, {}};
    const auto behind = path.substr(kTokenPath.size());
    const auto slash = std::min(behind.size(), behind.find('/'));
    return {true, behind.substr(slash), std::string(behind.substr(0, slash))};
}

Session Router::Authenticate(const Request& request, const Target& target) const
{
    auto session = m_sessions.Find(target.token.empty() ? CookieValue(request, "session_token") : target.token);
    if (!session)
        throw ApiError(401, ErrorId::SessionNotValid, "the session is not valid (any more)");
    return std::move(*session);
}

} // namespace ApplianceParts
