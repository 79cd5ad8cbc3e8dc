#include "Items.h"

#include "Attributes.h"
#include "Client.h"
#include "Failures.h"
#include "TerminalText.h"
#include "TextConversion.h"

#include "Platform/Platform.h"
#include "QuendraHttp/QuendraHttp.h"

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
    document["name"] = TextOrNull(item->GetName());
    document["directory"] = IsDirectory(*item);
    document["size"] = item->HasSize() ? Json::Value(static_cast<Json::Int64>(item->GetSize())) : Json::Value();
    document["created"] = TimeDocument(item->GetCreationTime());
    document["modified"] = TimeDocument(item->GetLastWriteTime());
    document["attributes"] = item->HasAttributes() ? Json::Value(item->GetAttributes()) : Json::Value();
    document["readOnly"] = item->IsReadOnly();
    document["folderReadOnly"] = item->IsFolderReadOnly();
    // The revision has the bytes that the server sent, which may be invalid UTF-8.
    document["revision"] = TextOrNull(ToWide(item->GetRevision()));
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

std::wstring TargetIn(const Client& client, const std::wstring& target, const std::wstring& name)
{
    if (target.ends_with(L'/'))
        return target + name;
    std::shared_ptr<IServerAttributes> item;
    const ResultCode code = client.Api().GetPathAttributes(target, item);
    if (code == Result::Success)
        return IsDirectory(*item) ? target + L'/' + name : target;
    // If the server refuses the path, or cannot describe it, it is not a folder to put something into.
    const std::uint32_t status = client.Answer().status;
    const bool isAboutPath = status == 400 || (status >= 403 && status <= 406) || status == 409 || status == 410;
    if (!isAboutPath && code != Result::InvalidData)
        throw OperationFailed("GetPathAttributes", code);
    return target;
}

std::shared_ptr<IServerAttributes> RevisionOnly(const std::string& revision)
{
    auto item = std::make_shared<CServerAttributes>();
    item->SetRevision(revision);
    return item;
}
