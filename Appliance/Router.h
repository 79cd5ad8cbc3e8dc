#pragma once

/// @file
/// Maps requests to handlers. One function per subject adds its handlers.

#include "Http.h"
#include "Sessions.h"

namespace ApplianceParts
{

class ItemStore;
class LineWriter;

/// A request for a handler.
struct Call
{
    const Request& request;
    std::string_view rest; ///< the path below the route's own, still percent-encoded: "" or "/...".
    Session session;       ///< empty if the route is open to everybody.
};

enum class Access
{
    Everybody,
    Session ///< needs the session token: as a cookie or, at API 1.0, in the path.
};

class Router
{
public:
    using CallHandler = std::function<Reply(const Call&)>;

    Router(const std::vector<std::string>& apiVersions, const Sessions& sessions);

    /// @param path  such as "/endpoints"; "{api}" stands for the path of each API version, and a final "/*" for any path.
    void Add(std::string method, std::string path, Access access, CallHandler handler);

    /// @throws ApiError if there is no handler for the request, or its session is not valid.
    [[nodiscard]] Reply Handle(const Request& request) const;

    /// The common path of an API version's requests.
    [[nodiscard]] static std::string ApiPath(const std::string& version) { return "/sync/" + version; }

private:
    struct Route
    {
        std::string method;
        std::string path;
        Access access;
        CallHandler handler;
    };

    struct Target
    {
        std::string path;  ///< as in routes, with "{api}".
        std::string token; ///< from the path; empty if it has none.
    };

    [[nodiscard]] Target Locate(std::string_view path) const;
    [[nodiscard]] Session Authenticate(const Request& request, const Target& target) const;

    std::vector<std::string> m_apiPaths;
    bool m_hasTokenPaths = false;
    const Sessions& m_sessions;
    std::vector<Route> m_routes;
};

/// "/endpoints", "/init", "/version"; sessions and devices; the change feed; shares and audit data.
/// @param mail  receives the mails to the user.
void AddSessionRoutes(Router& router, const Options& options, Sessions& sessions, Feed& feed, const ItemStore& items,
                      const StateFolder& state, LineWriter& mail);

/// "/folders": items, their content and the mappings; "/delta".
void AddItemRoutes(Router& router, ItemStore& items, const StateFolder& state);

/// "/resume/upload": uploads in chunks.
void AddResumeRoutes(Router& router, ItemStore& items, const StateFolder& state);

} // namespace ApplianceParts
