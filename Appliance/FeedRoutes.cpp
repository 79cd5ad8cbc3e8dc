#include "Feed.h"
#include "Form.h"
#include "ItemStore.h"
#include "Routes.h"

#include <chrono>
#include <fstream>
#include <memory>
#include <mutex>

namespace ApplianceParts
{

namespace
{

// Shorter than clients and what lies between are ready to wait.
constexpr std::chrono::seconds kLongestWait{55};

// Keeps what clients tell, a line of JSON each, for whoever tries things out.
class Notebook
{
public:
    explicit Notebook(std::filesystem::path file) : m_file(std::move(file)) {}

    void Write(const Json::Value& entry)
    {
        const std::lock_guard guard(m_mutex);
        std::ofstream output(m_file, std::ios::binary | std::ios::app);
        output << ToText(entry) << '\n' << std::flush;
        if (!output)
            throw ApiError(507, ErrorId::StorageFailed, "it cannot be written down");
    }

private:
    std::filesystem::path m_file;
    std::mutex m_mutex;
};

Json::Value TextsOf(const Fields& form, const std::string& name)
{
    Json::Value texts(Json::arrayValue);
    const auto [first, last] = form.equal_range(name);
    for (auto each = first; each != last; ++each)
        texts.append(each->second);
    if (texts.empty())
        throw ApiError(400, ErrorId::Malformed, "the field \"" + name + "\" is missing");
    return texts;
}

Reply Share(const Call& call, const ItemStore& items, Notebook& notebook)
{
    const auto form = ReadForm(call.request);
    Json::Value share(Json::objectValue);
    share["paths"] = TextsOf(form, "path");
    share["targets"] = TextsOf(form, "target");
    for (const auto& path : share["paths"])
        (void)items.Get(ItemPath::FromText(path.asString()));
    share["name"] = Find(form, "name").value_or("");
    share["message"] = Find(form, "message").value_or("");
    share["type"] = Require(form, "type");
    share["user"] = call.session.user;
    share["id"] = RandomHex(16);
    notebook.Write(share);
    Json::Value reply(Json::objectValue);
    reply["link"] = "/shares/" + share["id"].asString();
    return JsonReply(reply);
}

} // namespace

void AddFeedRoutes(Router& router, Feed& feed)
{
    // At the first API version the session token stands in the path, too.
    router.Add("GET", Place::Api, "/notifs", Depth::Subtree, Access::Session, [&feed](const Call& call) {
        if (!call.rest.empty() && call.rest.substr(1) != call.session.token)
            throw ApiError(404, ErrorId::NotFound, "the feed is another session's");
        Json::Value reply(Json::objectValue);
        reply["contents"] = feed.Take(call.session.token, kLongestWait, call.request.isClientWaiting);
        return JsonReply(reply);
    });
}

void AddNoticeRoutes(Router& router, const ItemStore& items, const StateFolder& state)
{
    const auto shares = std::make_shared<Notebook>(state.Path("shares.jsonl"));
    router.Add("POST", Place::Api, "/share", Depth::Exact, Access::Session,
               [&items, shares](const Call& call) { return Share(call, items, *shares); });

    const auto audits = std::make_shared<Notebook>(state.Path("audit.jsonl"));
    router.Add("POST", Place::Server, "/audit/1", Depth::Exact, Access::Session, [audits](const Call& call) {
        Json::Value entry(Json::objectValue);
        entry["data"] = Require(ReadForm(call.request), "data");
        entry["user"] = call.session.user;
        audits->Write(entry);
        return JsonReply(Json::Value(Json::objectValue));
    });
}

} // namespace ApplianceParts
