#include "JsonText.h"
#include "Routes.h"

#include "Eventing/EventLine.h"

#include <ostream>
#include <syncstream>

namespace ApplianceParts
{

namespace
{

// Shorter than the timeouts of clients and proxies.
constexpr std::chrono::seconds kLongestWait{55};

Reply Endpoints(const Call& call)
{
    Json::Value endpoints;
    for (const auto& version : call.services.options.apiVersions)
        endpoints["sync"][version] = JsonObject({{"path", ApiPath(version)}, {"tos", 0}});
    endpoints["audit"]["1"] = JsonObject({{"path", "/audit/1"}, {"tos", 0}});
    return JsonReply(endpoints);
}

Reply Init(const Call& call)
{
    return JsonReply({{"device_token_auth", call.services.options.needsDeviceToken}});
}

Reply Version(const Call&)
{
    return JsonReply({{"build_number", "sample-1"}});
}

Reply LogIn(const Call& call)
{
    const auto form = ReadForm(call.request);
    const auto session = call.services.sessions.LogIn(Require(form, "user_id"), Require(form, "password"),
                                                      Find(form, "device_id").value_or(""), Find(form, "device_token").value_or(""));
    auto reply = JsonObject({{"session_token", session.token}});
    // An administrator can put a policy into the state folder; every login then returns it.
    if (const auto policy = ParseJsonObject(call.services.state.Read("policy.json").value_or("")))
        reply["policy_block"] = *policy;
    return JsonReply(reply);
}

Reply Mail(const Call& call, const Fields& form, const std::string& deviceToken)
{
    std::osyncstream(call.services.output) << "mail to " << Require(form, "user_id") << ": the device token of \""
                                           << Eventing::EscapeLine(Find(form, "device_name").value_or("")) << "\" is " << deviceToken
                                           << std::endl;
    return {.status = 204};
}

Reply Register(const Call& call)
{
    const auto form = ReadForm(call.request);
    const auto user = Require(form, "user_id");
    if (const auto deviceToken = call.services.sessions.Register(user, Require(form, "device_id")))
        return Mail(call, form, *deviceToken);
    // Clients look for both parts of this message.
    throw ApiError(400, ErrorId::AlreadyExists,
                   "The user " + user + " has registered the device " + Find(form, "device_name").value_or(""));
}

Reply ResendToken(const Call& call)
{
    const auto form = ReadForm(call.request);
    return Mail(call, form, call.services.sessions.DeviceToken(Require(form, "user_id"), Require(form, "device_id")));
}

Reply ForgetDevice(const Call& call)
{
    const auto form = ReadForm(call.request);
    const auto deviceId = Require(form, "device_id");
    if (Require(form, "username") != call.session.user)
        throw ApiError(403, ErrorId::NotFound, "the device is another user's");
    call.services.sessions.Forget(deviceId, call.session.token);
    return JsonReply();
}

// At API 1.0 the path contains the session token, too.
Reply TakeActions(const Call& call)
{
    if (!call.rest.empty() && call.rest.substr(1) != call.session.token)
        throw ApiError(404, ErrorId::NotFound, "the feed is another session's");
    return JsonReply({{"contents", call.services.feed.Take(call.session.token, kLongestWait, call.request.isClientWaiting)}});
}

Json::Value TextsOf(const Fields& form, const std::string& name)
{
    (void)Require(form, name);
    Json::Value texts;
    for (auto [each, last] = form.equal_range(name); each != last; ++each)
        texts.append(each->second);
    return texts;
}

// Shares and audit data are only written to a file, a line of JSON each, for inspection.
Reply Share(const Call& call)
{
    const auto form = ReadForm(call.request);
    const auto paths = TextsOf(form, "path");
    for (const auto& path : paths)
        (void)call.services.items.Get(ItemPath::FromText(path.asString()));
    const auto id = RandomHex(16);
    call.services.state.Append("shares.jsonl", JsonObject({{"paths", paths},
                                                           {"targets", TextsOf(form, "target")},
                                                           {"name", Find(form, "name").value_or("")},
                                                           {"message", Find(form, "message").value_or("")},
                                                           {"type", Require(form, "type")},
                                                           {"user", call.session.user},
                                                           {"id", id}}));
    return JsonReply({{"link", "/shares/" + id}});
}

Reply TakeAuditData(const Call& call)
{
    const auto data = Require(ReadForm(call.request), "data");
    call.services.state.Append("audit.jsonl", JsonObject({{"data", data}, {"user", call.session.user}}));
    return JsonReply();
}

} // namespace

std::span<const Route> SessionRoutes()
{
    static constexpr Route kRoutes[] = {{"GET", "/endpoints", Access::Everybody, Endpoints},
                                        {"GET", "{api}/init", Access::Everybody, Init},
                                        {"GET", "{api}/version", Access::Everybody, Version},
                                        {"POST", "{api}/sessions", Access::Everybody, LogIn},
                                        {"POST", "{api}/registrations", Access::Everybody, Register},
                                        {"POST", "{api}/registrations/resend", Access::Everybody, ResendToken},
                                        {"POST", "/api/devices", Access::Session, ForgetDevice},
                                        {"GET", "{api}/notifs/*", Access::Session, TakeActions},
                                        {"POST", "{api}/share", Access::Session, Share},
                                        {"POST", "/audit/1", Access::Session, TakeAuditData}};
    return kRoutes;
}

} // namespace ApplianceParts
