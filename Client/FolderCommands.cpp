#include "Attributes.h"
#include "Client.h"
#include "Commands.h"
#include "Failures.h"
#include "Items.h"
#include "ServerPath.h"
#include "TerminalText.h"
#include "TextComparison.h"
#include "TextConversion.h"
#include "TimeText.h"

#include "QuendraHttp/QuendraHttp.h"

#include <array>
#include <cstdio>

namespace
{

std::string AttributesText(const IServerAttributes& item)
{
    if (!item.HasAttributes())
        return "-";
    struct Bit
    {
        std::uint32_t mask;
        const char* name;
    };
    constexpr Bit kBits[] = {{0x1, "read-only"}, {0x2, "hidden"}, {0x4, "system"}, {0x10, "folder"}, {0x20, "archive"}, {0x80, "normal"}};
    std::array<char, 16> number{};
    std::snprintf(number.data(), number.size(), "0x%X", item.GetAttributes());
    std::string text = number.data();
    for (const auto& bit : kBits)
        if ((item.GetAttributes() & bit.mask) != 0)
            text += std::string(" ") + bit.name;
    return text;
}

std::string AccessText(const IServerAttributes& item)
{
    if (item.IsReadOnly())
        return item.IsFolderReadOnly() ? "read only, also what is inside" : "read only";
    return item.IsFolderReadOnly() ? "what is inside is read only" : "read and write";
}

std::string DescribeItem(const IServerAttributes& item)
{
    const std::string name = item.HasName() ? Printable(item.GetName()) : "/";
    const std::string revision = Printable(std::string_view(item.GetRevision()));
    const std::string bytes = item.HasSize() ? " (" + item.GetSizeStringA() + " bytes)" : "";
    return "Name:       " + name + "\nKind:       " + (IsDirectory(item) ? "folder" : "file") + "\nSize:       " + SizeText(item) + bytes +
           "\nCreated:    " + TimeForPeople(item.GetCreationTime()) + "\nModified:   " + TimeForPeople(item.GetLastWriteTime()) +
           "\nAttributes: " + AttributesText(item) + "\nAccess:     " + AccessText(item) +
           "\nRevision:   " + (revision.empty() ? "-" : revision) + "\n";
}

std::vector<std::string> ListingRow(const IServerAttributes& item)
{
    const std::string kind = std::string(IsDirectory(item) ? "d" : "-") + (item.IsReadOnly() ? "r-" : "rw");
    const std::string revision = Printable(std::string_view(item.GetRevision()));
    return {kind, IsDirectory(item) ? "-" : SizeText(item), TimeForPeople(item.GetLastWriteTime()), revision.empty() ? "-" : revision,
            Printable(item.GetName()) + (IsDirectory(item) ? "/" : "")};
}

std::shared_ptr<IServerAttributes> CurrentAttributes(const Client& client, const std::wstring& path)
{
    std::shared_ptr<IServerAttributes> item;
    Check("GetPathAttributes", client.Api().GetPathAttributes(path, item));
    return item;
}

// Deleting a folder deletes its content, so the user must ask for that.
void RequireEmpty(const Client& client, const std::wstring& path)
{
    const auto item = CurrentAttributes(client, path);
    if (item->HasAttributes() && !IsDirectory(*item))
        return;
    ServerItemList children;
    std::shared_ptr<IServerAttributes> folder;
    Check("GetPathListing", client.Api().GetPathListing(path, children, folder, nullptr));
    if (!children.empty())
        throw ProgramError(Printable(path) + " is a folder that is not empty: --recursive deletes it with all that is in it");
}

// The library splits a path at a backslash first. If both paths then seem to be in the same folder, it sends the server only the part after
// the backslash, which names a different item.
void RequireSafeNames(const std::wstring& source, const std::wstring& target)
{
    if (source.find(L'\\') == std::wstring::npos && target.find(L'\\') == std::wstring::npos)
        return;
    if (EqualIgnoringCase(SplitForRename(source).directory, SplitForRename(target).directory))
        throw ProgramError("A name with a backslash cannot be changed to this one in one step: move the item to another folder first");
}

} // namespace

namespace Command
{

void Execute(Client& client, const List& command)
{
    ServerItemList children;
    std::shared_ptr<IServerAttributes> folder;
    Check("GetPathListing", client.Api().GetPathListing(command.path, children, folder, nullptr));

    Json::Value document;
    document["folder"] = ItemDocument(folder);
    document["items"] = Json::Value(Json::arrayValue);
    Table table({{"Kind"}, {"Size", Table::Align::Right}, {"Modified"}, {"Revision"}, {"Name"}});
    for (const auto& child : children)
    {
        if (client.PrintsJson())
            document["items"].append(ItemDocument(child));
        else
            table.Add(ListingRow(*child));
    }
    client.Print(document, children.empty() ? "The folder is empty.\n" : table.Render());
}

void Execute(Client& client, const Stat& command)
{
    const auto item = CurrentAttributes(client, command.path);
    client.Print(ItemResult(item), DescribeItem(*item));
}

void Execute(Client& client, const MakeFolder& command)
{
    std::shared_ptr<IServerAttributes> item;
    Check("CreateFolder", client.Api().CreateFolder(command.path, item));
    client.Print(ItemResult(item), "Created " + Printable(command.path) + RevisionNote(item) + ".\n");
}

void Execute(Client& client, const Touch& command)
{
    const auto item = CurrentAttributes(client, command.path);
    if (command.created)
        item->SetCreationTime(*command.created);
    if (command.modified)
        item->SetLastWriteTime(*command.modified);
    if (command.attributes)
        item->SetAttributes(*command.attributes);

    std::shared_ptr<IServerAttributes> changed;
    Check("SetPathAttributes", client.Api().SetPathAttributes(command.path, item, changed));
    client.Print(ItemResult(changed), DescribeItem(*changed));
}

void Execute(Client& client, const Remove& command)
{
    if (!command.recursive)
        RequireEmpty(client, command.path);
    Check("DeletePath", client.Api().DeletePath(command.path, RevisionOnly(command.revision)));
    client.Print(OkDocument(), "Deleted " + Printable(command.path) + ".\n");
}

void Execute(Client& client, const Move& command)
{
    // Changing only the case of a folder's name: a server that ignores case finds the folder itself at the target.
    const bool isOtherPath = !EqualIgnoringCase(command.source, command.target);
    const std::wstring target = isOtherPath ? TargetIn(client, command.target, LeafName(command.source)) : command.target;
    RequireSafeNames(command.source, target);
    std::shared_ptr<IServerAttributes> item;
    Check("RenamePath", client.Api().RenamePath(command.source, target, command.overwrite ? 1 : 0, item));
    client.Print(ItemResult(item), "Moved " + Printable(command.source) + " to " + Printable(target) + RevisionNote(item) + ".\n");
}

} // namespace Command
