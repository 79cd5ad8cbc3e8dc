#include "Items.h"

#include "Attributes.h"
#include "Client.h"
#include "Text.h"
#include "TextConversion.h"

#include "Platform/Platform.h"

namespace
{

Json::Value TimeDocument(const CAttributeTime& time)
{
    return time.IsSet() ? Json::Value(ToNarrow(time.ToString())) : Json::Value();
}

} // namespace

Json::Value ItemDocument(const std::shared_ptr<IServerAttributes>& item)
{
    if (!item)
        return {};
    Json::Value document;
    document["name"] = JsonText(item->GetName());
    document["directory"] = IsDirectory(*item);
    document["size"] = item->HasSize() ? Json::Value(static_cast<Json::Int64>(item->GetSize())) : Json::Value();
    document["created"] = TimeDocument(item->GetCreationTime());
    document["modified"] = TimeDocument(item->GetLastWriteTime());
    document["attributes"] = item->HasAttributes() ? Json::Value(item->GetAttributes()) : Json::Value();
    document["readOnly"] = item->IsReadOnly();
    document["folderReadOnly"] = item->IsFolderReadOnly();
    // The record keeps whatever bytes the server sent.
    document["revision"] = JsonText(ToWide(item->GetRevision()));
    return document;
}

Json::Value ItemResult(const std::shared_ptr<IServerAttributes>& item)
{
    Json::Value document;
    document["item"] = ItemDocument(item);
    return document;
}

bool IsDirectory(const IServerAttributes& item)
{
    return item.HasAttributes() && (item.GetAttributes() & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

std::string SizeText(const IServerAttributes& item)
{
    return item.HasSize() && item.GetSize() >= 0 ? BinarySize(static_cast<std::uint64_t>(item.GetSize())) : "-";
}

std::string RevisionNote(const std::shared_ptr<IServerAttributes>& item)
{
    return item && !item->GetRevision().empty() ? ", revision " + Printable(std::string_view(item->GetRevision())) : std::string();
}

std::shared_ptr<IServerAttributes> RevisionOnly(const std::string& revision)
{
    auto item = std::make_shared<CServerAttributes>();
    item->SetRevision(revision);
    return item;
}
