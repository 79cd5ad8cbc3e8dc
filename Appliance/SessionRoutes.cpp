#include "Feed.h"
#include "Form.h"
#include "Routes.h"

#include <json/reader.h>

#include <memory>
#include <mutex>
#include <ostream>

namespace ApplianceParts
{

namespace
{

constexpr const char* kPolicyFile = "policy.json";

Json::Value Endpoint(const std::string& path)
{
    Json::Value entry(Json::objectValue);
    entry["path"] = path;
    entry["tos"] = 0;
    return entry;
}

Json::Value Endpoints(const Options& options)
{
    Json::Value endpoints(Json::objectValue);
    endpoints["sync"] = Json::Value(Json::objectValue);
    for (const auto& version : options.apiVersions)
        endpoints["sync"][version] = Endpoint(Router::ApiPath(version));
    endpoints["audit"]["1"] = Endpoint("/audit/1");
    return endpoints;
}

// An administrator can put a policy into the state folder; it then comes with every login.
void AddPolicy(const StateFolder& state, Json::Value& reply)
{
    const auto text = state.Read(kPolicyFile);
    if (!text)
        return;
    Json::Value policy;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (reader->parse(text->data(), text->data() + text->size(), &policy, nullptr))
        reply["policy_block"] = policy;
}

// Mails would come out interleaved from several threads.
class Mailer
{
public:
    explicit Mailer(std::ostream& output) : m_output(output) {}

    void Send(const std::string& user, const std::string& deviceName, const std::string& deviceToken)
    {
        const std::lock_guard guard(m_mutex);
        m_output << "mail to " << user << ": the device token of \"" << deviceName << "\" is " << deviceToken << std::endl;
    }

private:
    std::ostream& m_output;
    std::mutex m_mutex;
};

} // namespace

void AddHandshakeRoutes(Router& router, const Options& options)
{
    router.Add("GET", Place::Server, "/endpoints", Depth::Exact, Access::Everybody,
               [endpoints = Endpoints(options)](const Call&) { return JsonReply(endpoints); });

    Json::Value init(Json::objectValue);
    init["device_token_auth"] = options.mode == ServerMode::DeviceToken;
    router.Add("GET", Place::Api, "/init", Depth::Exact, Access::Everybody, [init](const Call&) { return JsonReply(init); });

    Json::Value version(Json::objectValue);
    version["build_number"] = "sample-1";
    router.Add("GET", Place::Api, "/version", Depth::Exact, Access::Everybody, [version](const Call&) { return JsonReply(version); });
}

void AddSessionRoutes(Router& router, Sessions& sessions, Feed& feed, const StateFolder& state, std::ostream& mail)
{
    router.Add("POST", Place::Api, "/sessions", Depth::Exact, Access::Everybody, [&](const Call& call) {
        const auto form = ReadForm(call.request);
        const auto session = sessions.LogIn(Require(form, "user_id"), Require(form, "password"), Find(form, "device_id").value_or(""),
                                            Find(form, "device_token").value_or(""));
        feed.Open(session.token);
        Json::Value reply(Json::objectValue);
        reply["session_token"] = session.token;
        AddPolicy(state, reply);
        return JsonReply(reply);
    });

    const auto mailer = std::make_shared<Mailer>(mail);
    router.Add("POST", Place::Api, "/registrations", Depth::Exact, Access::Everybody, [&sessions, mailer](const Call& call) {
        const auto form = ReadForm(call.request);
        const auto user = Require(form, "user_id");
        const auto deviceName = Find(form, "device_name").value_or("");
        const auto deviceToken = sessions.Register(user, Require(form, "device_id"));
        // Clients look for the two halves of this sentence.
        if (!deviceToken)
            throw ApiError(400, ErrorId::AlreadyExists, "The user " + user + " has registered the device " + deviceName);
        mailer->Send(user, deviceName, *deviceToken);
        return EmptyReply(204);
    });

    router.Add("POST", Place::Api, "/registrations/resend", Depth::Exact, Access::Everybody, [&sessions, mailer](const Call& call) {
        const auto form = ReadForm(call.request);
        const auto user = Require(form, "user_id");
        mailer->Send(user, Find(form, "device_name").value_or(""), sessions.DeviceToken(user, Require(form, "device_id")));
        return EmptyReply(204);
    });

    router.Add("POST", Place::Server, "/api/devices", Depth::Exact, Access::Session, [&sessions](const Call& call) {
        const auto form = ReadForm(call.request);
        const auto deviceId = Require(form, "device_id");
        if (Require(form, "username") != call.session.user)
            throw ApiError(403, ErrorId::NotFound, "the device is another user's");
        sessions.Forget(deviceId, call.session.token);
        return JsonReply(Json::Value(Json::objectValue));
    });
}

} // namespace ApplianceParts
