#pragma once

/// @file
/// The requests that the server answers, and what their handlers act on.

#include "ItemStore.h"
#include "Leases.h"
#include "Sessions.h"

#include <iosfwd>
#include <span>

namespace ApplianceParts
{

/// What all routes share. The constructor opens the root, and creates it if it does not exist. Safe to use from several threads.
/// @throws std::exception if the root cannot be used.
struct Services
{
    const Options options;
    std::ostream& output; ///< receives the mails to the user; to be written through std::osyncstream.
    const StateFolder state{options.root};
    Feed feed{};
    Sessions sessions{options, state, feed};
    ItemStore items{options.root, state, feed};
    Leases uploads{}; ///< the uploads in chunks that requests work on.
};

/// A request for a handler.
struct Call
{
    Services& services;
    const Request& request;
    Fields query;
    std::string_view rest; ///< the path below the route's own, still percent-encoded: "" or "/...".
    Session session;       ///< empty if the route is open to everybody.
};

enum class Access
{
    Everybody,
    Session ///< needs the session token: as a cookie or, at API 1.0, in the path.
};

struct Route
{
    std::string_view method;
    std::string_view path; ///< "{api}" stands for the path of each API version, and a final "/*" for any path.
    Access access;
    Reply (*handle)(const Call&);
};

/// Answers a request. What its handler throws becomes a refusal.
[[nodiscard]] Reply Handle(Services& services, const Request& request);

/// The common path of an API version's requests.
[[nodiscard]] inline std::string ApiPath(const std::string& version)
{
    return "/sync/" + version;
}

/// "/endpoints", "/init", "/version"; sessions and devices; the change feed; shares and audit data.
[[nodiscard]] std::span<const Route> SessionRoutes();

/// "/folders": items, their content and the mappings; "/delta".
[[nodiscard]] std::span<const Route> ItemRoutes();

/// "/resume/upload": uploads in chunks.
[[nodiscard]] std::span<const Route> ResumeRoutes();

/// "/delta". With fields the file is a delta, which is applied to the item. Without fields it is the signature of the client's file, and
/// the reply is the delta from that file to the item. Refused in a build without librsync.
[[nodiscard]] Reply ExchangeDelta(const Call& call);

} // namespace ApplianceParts
