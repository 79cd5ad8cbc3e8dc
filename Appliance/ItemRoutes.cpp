#include "Delta.h"
#include "ItemStore.h"
#include "Multipart.h"
#include "Router.h"
#include "System.h"

#include <algorithm>

namespace ApplianceParts
{

namespace
{

Reply Listing(const ItemPath& path, const ItemStore& items)
{
    const auto [folder, children] = items.List(path);
    auto reply = ToJson(folder);
    reply["contents"] = Json::arrayValue;
    for (const auto& child : children)
        reply["contents"].append(ToJson(child));
    return JsonReply(reply);
}

// Clients can map the top-level folders.
Reply Mappings(const ItemStore& items)
{
    Json::Value mappings(Json::arrayValue);
    for (const auto& item : items.List(ItemPath()).second)
        if (item.isFolder)
            mappings.append(JsonObject({{"name", item.name},
                                        {"description", item.path == kHomePath ? "Home directory" : "Folder " + item.name},
                                        {"permissions", "WRITE"},
                                        {"folder_permissions", "WRITE"},
                                        {"status", "ONLINE"},
                                        {"mode", "MANUAL"},
                                        {"type", "smb"},
                                        {"allow_sharing", true}}));
    return JsonReply({{"contents", mappings}});
}

Reply ContentReply(FileContent content)
{
    return {.contentType = "application/octet-stream", .content = std::move(content)};
}

// The content, or with "skip" and "count" a range of it, cut off at the end.
Reply Download(const Fields& query, const ItemPath& path, const ItemStore& items)
{
    const auto skip = ReadNumber(Find(query, "skip").value_or("0"), "skip");
    auto content = items.Open(path, Find(query, "revision").value_or(""), skip).second;
    if (const auto count = Find(query, "count"))
        content.length = std::min(ReadNumber(*count, "count"), content.length);
    return ContentReply(std::move(content));
}

Reply Read(const Call& call, const ItemStore& items)
{
    const auto path = ItemPath::FromUrl(call.rest);
    const auto& query = call.request.query;
    if (path.IsRoot() && Find(query, "includeAll") == "true")
        return Mappings(items);
    if (Find(query, "type") == "all")
        return Listing(path, items);
    const bool wantsBytes = call.request.header("Accept").value_or("").find("application/octet-stream") != std::string::npos;
    if (wantsBytes || query.contains("skip") || query.contains("count"))
        return Download(query, path, items);
    return ItemReply(items.Get(path));
}

// The item changes only when the whole file has arrived.
Reply UploadFile(const Request& request, const ItemPath& path, ItemStore& items, const StateFolder& state)
{
    const TemporaryFile file(state.NewTemporary());
    const auto upload = ReadUpload(request, file.Path());
    if (!upload.hasFile || Find(upload.fields, "operation") != "create")
        throw Malformed("an upload has a file and the operation \"create\"");
    return ItemReply(items.PutFile(path, file.Path(), ReadChanges(upload.fields), Find(upload.fields, "revision").value_or("")));
}

Reply Change(const Call& call, ItemStore& items, const StateFolder& state)
{
    const auto path = ItemPath::FromUrl(call.rest);
    if (IsMultipart(call.request))
        return UploadFile(call.request, path, items, state);
    const auto form = ReadForm(call.request);
    const auto operation = Require(form, "operation");
    const bool mayOverwrite = Find(form, "overwrite") == "true";
    if (operation == "create")
        return ItemReply(items.CreateFolder(path.Child(Require(form, "name"))));
    if (operation == "move")
        return ItemReply(items.Move(path, ItemPath::FromText(Require(form, "path")), mayOverwrite));
    if (operation != "update")
        throw ApiError(400, ErrorId::Unsupported, "there is no operation of this name");
    // A path renames the item within its folder; without one, its times and attribute bits are set.
    if (const auto name = Find(form, "path"))
        return ItemReply(items.Move(path, path.Parent().Child(*name), mayOverwrite));
    return ItemReply(items.SetAttributes(path, ReadChanges(form)));
}

// With fields the file is a delta, which is applied to the item. Without fields it is the signature of the client's file, and the reply is
// the delta from that file to the item.
Reply ExchangeDelta(const Call& call, ItemStore& items, const StateFolder& state)
{
    if (!Delta::IsAvailable())
        throw ApiError(501, ErrorId::Unsupported, "this build has no deltas");
    const auto path = ItemPath::FromUrl(call.rest);
    const TemporaryFile received(state.NewTemporary());
    const TemporaryFile result(state.NewTemporary());
    const auto [fields, hasFile] = ReadUpload(call.request, received.Path());
    if (!hasFile)
        throw Malformed("the file is missing");
    const bool isDelta = !fields.empty();
    const auto [item, current] = items.Open(path, Find(isDelta ? fields : call.request.query, "revision").value_or(""));
    if (isDelta)
    {
        Delta::Apply(*current.file, received.Path(), result.Path());
        return ItemReply(items.PutFile(path, result.Path(), ReadChanges(fields), item.revision));
    }
    Delta::Make(received.Path(), *current.file, result.Path());
    return ContentReply({System::OpenFile(result.Path()), std::filesystem::file_size(result.Path())});
}

} // namespace

void AddItemRoutes(Router& router, ItemStore& items, const StateFolder& state)
{
    router.Add("GET", "{api}/folders/*", Access::Session, [&](const Call& call) { return Read(call, items); });
    router.Add("POST", "{api}/folders/*", Access::Session, [&](const Call& call) { return Change(call, items, state); });
    router.Add("DELETE", "{api}/folders/*", Access::Session, [&](const Call& call) {
        items.Remove(ItemPath::FromUrl(call.rest), Find(call.request.query, "revision").value_or(""));
        return JsonReply();
    });
    router.Add("POST", "{api}/delta/*", Access::Session, [&](const Call& call) { return ExchangeDelta(call, items, state); });
}

} // namespace ApplianceParts
