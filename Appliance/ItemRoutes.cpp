#include "Routes.h"

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
            mappings.append(JsonObject({{"name", item.path.substr(1)},
                                        {"description", item.path == kHomePath ? "Home directory" : "Folder " + item.path.substr(1)},
                                        {"permissions", "WRITE"},
                                        {"folder_permissions", "WRITE"},
                                        {"status", "ONLINE"},
                                        {"mode", "MANUAL"},
                                        {"type", "smb"},
                                        {"allow_sharing", true}}));
    return JsonReply({{"contents", mappings}});
}

// The content, or with "skip" and "count" a range of it, cut off at the end.
Reply Download(const Call& call, const ItemPath& path)
{
    const auto skip = ReadNumber(Find(call.query, "skip").value_or("0"), "skip");
    auto content = call.services.items.Open(path, Find(call.query, "revision").value_or(""), skip).second;
    if (const auto count = Find(call.query, "count"))
        content.length = std::min(ReadNumber(*count, "count"), content.length);
    return {.content = std::move(content)};
}

Reply Read(const Call& call)
{
    const auto path = ItemPath::FromUrl(call.rest);
    if (path.IsRoot() && Find(call.query, "includeAll") == "true")
        return Mappings(call.services.items);
    if (Find(call.query, "type") == "all")
        return Listing(path, call.services.items);
    const bool wantsBytes = call.request.header("Accept").value_or("").find("application/octet-stream") != std::string::npos;
    if (wantsBytes || call.query.contains("skip") || call.query.contains("count"))
        return Download(call, path);
    return ItemReply(call.services.items.Get(path));
}

// The item changes only when the whole file has arrived.
Reply UploadFile(const Call& call, const ItemPath& path)
{
    const TemporaryFile file(call.services.state);
    const auto [fields, hasFile] = ReadUpload(call.request, file.Path());
    if (!hasFile || Find(fields, "operation") != "create")
        throw Malformed("an upload has a file and the operation \"create\"");
    return ItemReply(call.services.items.PutFile(path, file.Path(), ReadChanges(fields), Find(fields, "revision").value_or("")));
}

Reply Change(const Call& call)
{
    auto& items = call.services.items;
    const auto path = ItemPath::FromUrl(call.rest);
    if (IsMultipart(call.request))
        return UploadFile(call, path);
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

Reply Remove(const Call& call)
{
    call.services.items.Remove(ItemPath::FromUrl(call.rest), Find(call.query, "revision").value_or(""));
    return JsonReply();
}

} // namespace

std::span<const Route> ItemRoutes()
{
    static constexpr Route kRoutes[] = {{"GET", "{api}/folders/*", Access::Session, Read},
                                        {"POST", "{api}/folders/*", Access::Session, Change},
                                        {"DELETE", "{api}/folders/*", Access::Session, Remove},
                                        {"POST", "{api}/delta/*", Access::Session, ExchangeDelta}};
    return kRoutes;
}

} // namespace ApplianceParts
