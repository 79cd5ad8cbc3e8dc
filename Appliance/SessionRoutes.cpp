#include "ItemStore.h"
#include "JsonText.h"
#include "Router.h"

namespace ApplianceParts
{

namespace
{

// Shorter than the timeouts of clients and proxies.
constexpr std::chrono::seconds kLongestWait{55};

Json::Value Endpoint(const std::string& path)
{
    return JsonObject({{"path", path}, {"tos", 0}});
}

Json::Value TextsOf(const Fields& form, const std::string& name)
{
    (void)Require(form, name);
    Json::Value texts;
    for (auto [each, last] = form.equal_range(name); each != last; ++each)
        texts.append(each->second);
    return texts;
}

// Adds a route that always gives the same reply.
void AddConstant(Router& router, const std::string& path, const Json::Value& value)
{
    router.Add("GET", path, Access::Everybody, [value](const Call&) { return JsonReply(value); });
}

void AddHandshake(Router& router, const Options& options)
{
    Json::Value endpoints;
    for (const auto& version : options.apiVersions)
        endpoints["sync"][version] = Endpoint(Router::ApiPath(version));
    endpoints["audit"]["1"] = Endpoint("/audit/1");
    AddConstant(router, "/endpoints", endpoints);
    AddConstant(router, "{api}/init", JsonObject({{"device_token_auth", options.needsDeviceToken}}));
    AddConstant(router, "{api}/version", JsonObject({{"build_number", "sample-1"}}));
}

void AddDevices(Router& router, Sessions& sessions, LineWriter& mail)
{
    const auto send = [&mail](const Fields& form, const std::string& deviceToken) {
        mail.Write("mail to " + Require(form, "user_id") + ": the device token of \"" + Find(form, "device_name").value_or("") + "\" is " +
                   deviceToken);
        return Reply{.status = 204};
    };
    router.Add("POST", "{api}/registrations", Access::Everybody, [&sessions, send](const Call& call) {
        const auto form = ReadForm(call.request);
        const auto user = Require(form, "user_id");
        const auto deviceToken = sessions.Register(user, Require(form, "device_id"));
        // Clients look for both parts of this message.
        if (!deviceToken)
            throw ApiError(400, ErrorId::AlreadyExists,
                           "The user " + user + " has registered the device " + Find(form, "device_name").value_or(""));
        return send(form, *deviceToken);
    });
    router.Add("POST", "{api}/registrations/resend", Access::Everybody, [&sessions, send](const Call& call) {
        const auto form = ReadForm(call.request);
        return send(form, sessions.DeviceToken(Require(form, "user_id"), Require(form, "device_id")));
    });
    router.Add("POST", "/api/devices", Access::Session, [&sessions](const Call& call) {
        const auto form = ReadForm(call.request);
        const auto deviceId = Require(form, "device_id");
        if (Require(form, "username") != call.session.user)
            throw ApiError(403, ErrorId::NotFound, "the device is another user's");
        sessions.Forget(deviceId, call.session.token);
        return JsonReply();
    });
}

// Shares and audit data are only written to a file, a line of JSON each, for inspection.
void AddNotices(Router& router, const ItemStore& items, const StateFolder& state)
{
    const auto shares = std::make_shared<LineWriter>(state.Path("shares.jsonl"));
    router.Add("POST", "{api}/share", Access::Session, [&items, shares](const Call& call) {
        const auto form = ReadForm(call.request);
        const auto paths = TextsOf(form, "path");
        for (const auto& path : paths)
            (void)items.Get(ItemPath::FromText(path.asString()));
        const auto id = RandomHex(16);
        shares->Write(JsonLine(JsonObject({{"paths", paths},
                                           {"targets", TextsOf(form, "target")},
                                           {"name", Find(form, "name").value_or("")},
                                           {"message", Find(form, "message").value_or("")},
                                           {"type", Require(form, "type")},
                                           {"user", call.session.user},
                                           {"id", id}})));
        return JsonReply({{"link", "/shares/" + id}});
    });

    const auto audits = std::make_shared<LineWriter>(state.Path("audit.jsonl"));
    router.Add("POST", "/audit/1", Access::Session, [audits](const Call& call) {
        audits->Write(JsonLine(JsonObject({{"data", Require(ReadForm(call.request), "data")}, {"user", call.session.user}})));
        return JsonReply();
    });
}

} // namespace

void AddSessionRoutes(Router& router, const Options& options, Sessions& sessions, Feed& feed, const ItemStore& items,
                      const StateFolder& state, LineWriter& mail)
{
    AddHandshake(router, options);
    router.Add("POST", "{api}/sessions", Access::Everybody, [&](const Call& call) {
        const auto form = ReadForm(call.request);
        const auto session = sessions.LogIn(Require(form, "user_id"), Require(form, "password"), Find(form, "device_id").value_or(""),
                                            Find(form, "device_token").value_or(""));
        auto reply = JsonObject({{"session_token", session.token}});
        // An administrator can put a policy into the state folder; every login then returns it.
        if (const auto policy = ParseJsonObject(state.Read("policy.json").value_or("")))
            reply["policy_block"] = *policy;
        return JsonReply(reply);
    });
    AddDevices(router, sessions, mail);

    // At API 1.0 the path contains the session token, too.
    router.Add("GET", "{api}/notifs/*", Access::Session, [&feed](const Call& call) {
        if (!call.rest.empty() && call.rest.substr(1) != call.session.token)
            throw ApiError(404, ErrorId::NotFound, "the feed is another session's");
        return JsonReply({{"contents", feed.Take(call.session.token, kLongestWait, call.request.isClientWaiting)}});
    });
    AddNotices(router, items, state);
}

} // namespace ApplianceParts
