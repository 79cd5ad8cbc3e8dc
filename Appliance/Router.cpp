#include "Router.h"

#include <algorithm>

namespace ApplianceParts
{

namespace
{

constexpr const char* kApi = "{api}";
constexpr std::string_view kAnyPath = "/*";

// The path after a prefix, if the prefix ends at a component boundary.
std::optional<std::string_view> Behind(std::string_view prefix, std::string_view path)
{
    if (!path.starts_with(prefix))
        return std::nullopt;
    path.remove_prefix(prefix.size());
    return path.empty() || path.front() == '/' ? std::optional(path) : std::nullopt;
}

} // namespace

Router::Router(const std::vector<std::string>& apiVersions, const Sessions& sessions) : m_sessions(sessions)
{
    for (const auto& version : apiVersions)
    {
        m_apiPaths.push_back(ApiPath(version));
        m_hasTokenPaths = m_hasTokenPaths || version == "1.0" || version == "1";
    }
}

void Router::Add(std::string method, std::string path, Access access, CallHandler handler)
{
    m_routes.push_back({std::move(method), std::move(path), access, std::move(handler)});
}

Reply Router::Handle(const Request& request) const
{
    const auto target = Locate(request.path);
    bool isKnown = false;
    for (const auto& route : m_routes)
    {
        const bool isSubtree = route.path.ends_with(kAnyPath);
        const auto rest = Behind(route.path.substr(0, route.path.size() - (isSubtree ? kAnyPath.size() : 0)), target.path);
        if (!rest || (!isSubtree && !rest->empty()))
            continue;
        isKnown = true;
        if (route.method == request.method)
            return route.handler({request, *rest, route.access == Access::Session ? Authenticate(request, target) : Session()});
    }
    if (isKnown)
        throw ApiError(405, ErrorId::Unsupported, "the method is not supported here");
    throw ApiError(404, ErrorId::Unsupported, "there is nothing at this address");
}

Router::Target Router::Locate(std::string_view path) const
{
    if (!path.starts_with('/'))
        return {};
    for (const auto& apiPath : m_apiPaths)
        if (const auto rest = Behind(apiPath, path))
            return {kApi + std::string(*rest), {}};
    // API 1.0 also has its requests at "/api/TOKEN/...".
    constexpr std::string_view kTokenPath = "/api/";
    if (!m_hasTokenPaths || !path.starts_with(kTokenPath) || path == "/api/devices")
        return {std::string(path), {}};
    const auto behind = path.substr(kTokenPath.size());
    const auto slash = std::min(behind.size(), behind.find('/'));
    return {kApi + std::string(behind.substr(slash)), std::string(behind.substr(0, slash))};
}

Session Router::Authenticate(const Request& request, const Target& target) const
{
    const auto cookie = Parameter(request.header("Cookie").value_or(""), "session_token");
    auto session = m_sessions.Find(target.token.empty() ? cookie.value_or("") : target.token);
    if (!session)
        throw ApiError(401, ErrorId::SessionNotValid, "the session is not valid (any more)");
    return std::move(*session);
}

} // namespace ApplianceParts
