#include "Router.h"

#include <algorithm>

namespace ApplianceParts
{

namespace
{

constexpr std::string_view kTokenPath = "/api/";
constexpr std::string_view kDevicesPath = "/api/devices";

// The path behind a prefix, where the prefix ends at a component's end.
std::optional<std::string_view> Behind(std::string_view prefix, std::string_view path)
{
    if (!path.starts_with(prefix))
        return std::nullopt;
    path.remove_prefix(prefix.size());
    return path.empty() || path.front() == '/' ? std::optional(path) : std::nullopt;
}

} // namespace

std::string CookieValue(const Request& request, std::string_view name)
{
    const auto header = request.header("Cookie");
    std::string_view rest = header ? std::string_view(*header) : std::string_view();
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

Router::Router(const std::vector<std::string>& apiVersions, const Sessions& sessions)
    : m_hasTokenPaths(std::find(apiVersions.begin(), apiVersions.end(), "1.0") != apiVersions.end() ||
                      std::find(apiVersions.begin(), apiVersions.end(), "1") != apiVersions.end()),
      m_sessions(sessions)
{
    for (const auto& version : apiVersions)
        m_apiPaths.push_back(ApiPath(version));
}

void Router::Add(std::string method, Place place, std::string path, Depth depth, Access access, CallHandler handler)
{
    m_routes.push_back({std::move(method), place, std::move(path), depth, access, std::move(handler)});
}

Reply Router::Handle(const Request& request) const
{
    const auto target = Locate(request.path);
    bool isKnown = false;
    for (const auto& route : m_routes)
    {
        const auto rest = route.place == target.place ? Behind(route.path, target.path) : std::nullopt;
        if (!rest || (route.depth == Depth::Exact && !rest->empty()))
            continue;
        isKnown = true;
        if (route.method != request.method)
            continue;
        const bool isOpen = route.access == Access::Everybody;
        return route.handler({request, *rest, isOpen ? Session() : Authenticate(request, target)});
    }
    if (isKnown)
        throw ApiError(405, ErrorId::Unsupported, "the method is not supported here");
    throw ApiError(404, ErrorId::Unsupported, "there is nothing at this address");
}

Router::Target Router::Locate(std::string_view path) const
{
    for (const auto& apiPath : m_apiPaths)
    {
        if (const auto rest = Behind(apiPath, path))
            return {Place::Api, *rest, {}};
    }
    if (m_hasTokenPaths && path.starts_with(kTokenPath) && path != kDevicesPath)
    {
        const auto behind = path.substr(kTokenPath.size());
        const auto slash = std::min(behind.size(), behind.find('/'));
        return {Place::Api, behind.substr(slash), std::string(behind.substr(0, slash))};
    }
    return {Place::Server, path, {}};
}

Session Router::Authenticate(const Request& request, const Target& target) const
{
    const auto token = target.token.empty() ? CookieValue(request, "session_token") : target.token;
    auto session = m_sessions.Find(token);
    if (!session)
        throw ApiError(401, ErrorId::SessionNotValid, "the session is not valid (any more)");
    return std::move(*session);
}

} // namespace ApplianceParts
