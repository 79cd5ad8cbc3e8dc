#include "Form.h"
#include "ItemForm.h"
#include "ItemStore.h"
#include "Multipart.h"
#include "Routes.h"
#include "Transfers.h"

namespace ApplianceParts
{

namespace
{

Reply Listing(const FolderListing& listing)
{
    auto reply = ToJson(listing.folder);
    auto& contents = reply["contents"] = Json::Value(Json::arrayValue);
    for (const auto& child : listing.children)
        contents.append(ToJson(child));
    return JsonReply(reply);
}

// The folders at the top are what clients can map.
Reply Mappings(const ItemStore& items)
{
    Json::Value reply(Json::objectValue);
    auto& contents = reply["contents"] = Json::Value(Json::arrayValue);
    for (const auto& item : items.List(ItemPath()).children)
    {
        if (!item.isFolder)
            continue;
        Json::Value mapping(Json::objectValue);
        mapping["name"] = item.name;
        mapping["description"] = item.path == kHomePath ? "Home directory" : "Folder " + item.name;
        mapping["permissions"] = "WRITE";
        mapping["folder_permissions"] = "WRITE";
        mapping["status"] = "ONLINE";
        mapping["mode"] = "MANUAL";
        mapping["type"] = "smb";
        mapping["allow_sharing"] = true;
        contents.append(mapping);
    }
    return JsonReply(reply);
}

bool WantsContent(const Request& request)
{
    const auto accept = request.header("Accept");
    const bool wantsBytes = accept && accept->find("application/octet-stream") != std::string::npos;
    return wantsBytes || Find(request.query, "skip") || Find(request.query, "count");
}

Reply Read(const Call& call, const ItemStore& items)
{
    const auto path = ItemPath::FromUrl(call.rest);
    if (path.IsRoot() && Find(call.request.query, "includeAll") == "true")
        return Mappings(items);
    if (Find(call.request.query, "type") == "all")
        return Listing(items.List(path));
    return WantsContent(call.request) ? Download(call.request, path, items) : ItemReply(items.Get(path));
}

// A path in the form renames within the folder; without one, the form's times and attribute bits are set.
Reply Update(const ItemPath& path, const Fields& form, ItemStore& items)
{
    if (const auto name = Find(form, "path"))
        return ItemReply(items.Move(path, path.Parent().Child(*name), Find(form, "overwrite") == "true"));
    return ItemReply(items.SetAttributes(path, ReadChanges(form)));
}

Reply Change(const Call& call, ItemStore& items, const StateFolder& state)
{
    const auto path = ItemPath::FromUrl(call.rest);
    if (IsMultipart(call.request))
        return UploadFile(call.request, path, items, state);
    const auto form = ReadForm(call.request);
    const auto operation = Require(form, "operation");
    if (operation == "create")
        return ItemReply(items.CreateFolder(path.Child(Require(form, "name"))));
    if (operation == "update")
        return Update(path, form, items);
    if (operation == "move")
        return ItemReply(items.Move(path, ItemPath::FromText(Require(form, "path")), Find(form, "overwrite") == "true"));
    throw ApiError(400, ErrorId::Unsupported, "there is no operation of this name");
}

} // namespace

void AddFolderRoutes(Router& router, ItemStore& items, const StateFolder& state)
{
    router.Add("GET", Place::Api, "/folders", Depth::Subtree, Access::Session, [&](const Call& call) { return Read(call, items); });
    router.Add("POST", Place::Api, "/folders", Depth::Subtree, Access::Session,
               [&](const Call& call) { return Change(call, items, state); });
    router.Add("DELETE", Place::Api, "/folders", Depth::Subtree, Access::Session, [&](const Call& call) {
        items.Remove(ItemPath::FromUrl(call.rest), Find(call.request.query, "revision").value_or(""));
        return JsonReply(Json::Value(Json::objectValue));
    });
}

} // namespace ApplianceParts
