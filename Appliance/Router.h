#pragma once

/// @file
/// Which handler answers which request.

#include "Exchange.h"
#include "Sessions.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ApplianceParts
{

/// A request that found its handler.
struct Call
{
    const Request& request;
    std::string_view rest; ///< the path behind the route's own, still percent-encoded: "" or "/...".
    Session session;       ///< empty where the route is open to everybody.
};

enum class Access
{
    Everybody,
    Session ///< needs the session token: as a cookie or, at API 1.0, in the path.
};

enum class Depth
{
    Exact,
    Subtree ///< the path of an item follows
};

enum class Place
{
    Server, ///< below "/"
    Api     ///< below the path of each API version
};

class Router
{
public:
    using CallHandler = std::function<Reply(const Call&)>;

    Router(const std::vector<std::string>& apiVersions, const Sessions& sessions);

    void Add(std::string method, Place place, std::string path, Depth depth, Access access, CallHandler handler);

    /// @throws ApiError where nothing answers the request, or its session is not valid.
    [[nodiscard]] Reply Handle(const Request& request) const;

    /// The path below which an API version's requests lie.
    [[nodiscard]] static std::string ApiPath(const std::string& version) { return "/sync/" + version; }

private:
    struct Route
    {
        std::string method;
        Place place;
        std::string path;
        Depth depth;
        Access access;
        CallHandler handler;
    };

    struct Target
    {
        Place place = Place::Server;
        std::string_view path;
        std::string token; ///< from the path; empty where it has none.
    };

    [[nodiscard]] Target Locate(std::string_view path) const;
    [[nodiscard]] Session Authenticate(const Request& request, const Target& target) const;

    std::vector<std::string> m_apiPaths;
    bool m_hasTokenPaths;
    const Sessions& m_sessions;
    std::vector<Route> m_routes;
};

/// The value of a cookie in a request's Cookie headers; empty where there is none.
[[nodiscard]] std::string CookieValue(const Request& request, std::string_view name);

} // namespace ApplianceParts
