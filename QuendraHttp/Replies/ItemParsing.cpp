// Parses items. All keys, types and reasons for dropping an item are here.

#include "Replies/ItemParsing.h"

#include "Attributes.h"
#include "ServerPath.h"
#include "TextComparison.h"
#include "Tracing.h"

#include <limits>
#include <memory>
#include <optional>
#include <utility>

namespace
{

// Do not change: it begins with NUL, so as a zero-terminated text it is empty, and no name is refused. That is part of the interface.
constexpr wchar_t kForbiddenCharacters[] = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x10, 0x11,  0x12, 0x13,
                                            0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x20, 0x21, 0x22, 0x23, 0x24, 0x25,  0x26, 0x27,
                                            0x28, 0x29, 0x30, 0x31, L'"', L'*', L'/', L':', L'<', L'>', L'?', L'\\', L'|', 0};

// An item's members; null where there is none.
struct ItemMembers
{
    const Json::Value* revision = nullptr;
    const Json::Value* name = nullptr;
    const Json::Value* orcaPath = nullptr;
    const Json::Value* directory = nullptr;
    const Json::Value* creationTime = nullptr;
    const Json::Value* modificationTime = nullptr;
    const Json::Value* size = nullptr;
    const Json::Value* attributes = nullptr;
    const Json::Value* permissions = nullptr;
    const Json::Value* folderPermissions = nullptr;
};

// Iterating once is much faster than a lookup per key, and a folder may hold 100,000 items.
ItemMembers FindMembers(const Json::Value& item)
{
    struct Place
    {
        std::string_view key;
        const Json::Value* ItemMembers::*member;
    };
    static constexpr Place kPlaces[] = {{"revision", &ItemMembers::revision},
                                        {"name", &ItemMembers::name},
                                        {"orca_path", &ItemMembers::orcaPath},
                                        {"directory", &ItemMembers::directory},
                                        {"creation_time", &ItemMembers::creationTime},
                                        {"modification_time", &ItemMembers::modificationTime},
                                        {"size", &ItemMembers::size},
                                        {"attributes", &ItemMembers::attributes},
                                        {"permissions", &ItemMembers::permissions},
                                        {"folder_permissions", &ItemMembers::folderPermissions}};
    ItemMembers members;
    if (!item.isObject())
        members.revision = FindMember(item, "revision"); // called for its exception: such a value cannot have members
    for (auto member = item.begin(), last = item.end(); member != last; ++member)
    {
        const char* end = nullptr;
        const char* const begin = member.memberName(&end);
        const std::string_view key(begin, static_cast<std::size_t>(end - begin));
        for (const Place& place : kPlaces)
        {
            if (place.key != key)
                continue;
            members.*place.member = &*member;
            break;
        }
    }
    return members;
}

std::wstring ReadName(const ItemMembers& members)
{
    std::wstring name = ToWide(members.name);
    return !name.empty() ? name : SplitForRename(ToWide(members.orcaPath)).name;
}

// A text member's value; empty where it is missing. Returns nothing for another type.
std::optional<std::string_view> ReadText(const Json::Value* member)
{
    return member != nullptr ? StringIn(*member) : std::string_view();
}

// The type to name in messages. A missing member is reported as a string.
Json::ValueType TypeOf(const Json::Value* member)
{
    return member != nullptr ? member->type() : Json::stringValue;
}

bool IsNumber(Json::ValueType type)
{
    return type == Json::intValue || type == Json::uintValue || type == Json::realValue;
}

// Truncates as x64 does: a value out of range becomes the lowest 64-bit number.
std::int64_t TruncateToInt64(double value)
{
    constexpr double kLimit = 0x1p63;
    return value >= -kLimit && value < kLimit ? static_cast<std::int64_t>(value) : std::numeric_limits<std::int64_t>::min();
}

bool DiffersFromWrite(std::string_view permissions)
{
    return !EqualIgnoringAsciiCase(permissions, "WRITE");
}

// Returns false for a string that is not a time; the item is then dropped. Other types are ignored.
bool ReadTimes(const ItemMembers& members, IServerAttributes& record, const FunctionTraceScope& trace)
{
    std::string text;
    if (const std::optional<std::string_view> created = ReadText(members.creationTime))
    {
        text = *created;
        record.SetCreationTime(CAttributeTime(text));
        if (!record.GetCreationTime().IsSet())
            return false;
    }
    else
    {
        trace.Error("Invalid or missing 'creation_time' in server response.");
    }
    if (const std::optional<std::string_view> modified = ReadText(members.modificationTime))
    {
        text = *modified;
        record.SetChangeTime(CAttributeTime(text));
        record.SetLastWriteTime(CAttributeTime(text));
        record.SetLastAccessTime(CAttributeTime(text));
        if (!record.GetLastAccessTime().IsSet())
            return false;
    }
    else
    {
        // The text names the wrong member. Do not change it: the messages are part of the interface.
        trace.Error("Invalid or missing 'creation_time' in server response.");
    }
    return true;
}

void ReadSize(const Json::Value* size, IServerAttributes& record, const FunctionTraceScope& trace)
{
    const Json::ValueType type = TypeOf(size);
    const bool isNumber = IsNumber(type);
    if (!isNumber)
        trace.Error("Invalid or missing 'size' in server response (type is %d)", static_cast<int>(type));
    // Converts through double, so sizes above 2^53 lose their lowest digits.
    record.SetSize(isNumber ? TruncateToInt64(size->asDouble()) : 0);
}

void ReadAttributeBits(const ItemMembers& members, IServerAttributes& record, const FunctionTraceScope& trace)
{
    const Json::ValueType type = TypeOf(members.attributes);
    if (IsNumber(type))
        record.SetAttributes(members.attributes->asUInt());
    else
        trace.Error("Invalid or missing 'attributes' in server response (type is %d)", static_cast<int>(type));

    // The server may omit the directory bit from a folder's number.
    constexpr std::uint32_t kDirectory = 0x10;
    if (members.directory != nullptr && members.directory->isBool() && members.directory->asBool())
        record.SetAttributes(record.GetAttributes() | kDirectory);
}

// An item without permissions may not be written.
void ReadPermissions(const ItemMembers& members, IServerAttributes& record)
{
    if (const std::optional<std::string_view> permissions = ReadText(members.permissions))
    {
        const bool isReadOnly = DiffersFromWrite(*permissions);
        record.SetReadOnly(isReadOnly ? 1 : 0);
        record.SetFolderReadOnly(isReadOnly ? 1 : 0);
    }
    if (members.folderPermissions != nullptr && !members.folderPermissions->isNull())
        record.SetFolderReadOnly(DiffersFromWrite(ToText(members.folderPermissions)) ? 1 : 0);
}

// Null for an item that is dropped.
std::shared_ptr<IServerAttributes> ReadItem(const Json::Value& item, const FunctionTraceScope& trace)
{
    const ItemMembers members = FindMembers(item);
    const std::string revision = ToText(members.revision);
    const std::wstring name = ReadName(members);
    if (name.find_first_of(kForbiddenCharacters) != std::wstring::npos)
    {
        trace.Error("Invalid filename in server response.");
        return nullptr;
    }
    auto record = std::make_shared<CServerAttributes>();
    record->SetName(name);
    record->SetRevision(revision);
    record->SetDirectory(members.directory != nullptr && members.directory->asBool() ? 1 : 0);
    if (!ReadTimes(members, *record, trace))
        return nullptr;
    ReadSize(members.size, *record, trace);
    ReadAttributeBits(members, *record, trace);
    ReadPermissions(members, *record);
    return record;
}

} // namespace

std::uint32_t ProcessJSONDictionary(const Json::Value& value, ServerItemList& list, bool topLevel)
{
    const FunctionTraceScope trace("CNativeHttp::ProcessJSONDictionary", Unit::NativeHttp);
    if (topLevel)
    {
        const Json::Value* taken = FindMember(value, "contents");
        if (taken == nullptr)
            taken = FindMember(value, "document_info");
        if (taken == nullptr)
            taken = &Json::Value::nullSingleton();
        return HoldsElements(*taken) ? ProcessJSONArray(*taken, list, false) : ProcessJSONDictionary(*taken, list, false);
    }
    std::shared_ptr<IServerAttributes> record = ReadItem(value, trace);
    if (record == nullptr)
        return 0;
    list.push_back(std::move(record));
    return 1;
}

std::uint32_t ProcessJSONArray(const Json::Value& value, ServerItemList& list, bool topLevel)
{
    const FunctionTraceScope trace("CNativeHttp::ProcessJSONArray", Unit::NativeHttp);
    std::uint32_t added = 0;
    CatchJsonExceptions(trace, [&] {
        for (const Json::Value& element : value)
            added += ProcessJSONDictionary(element, list, topLevel);
    });
    return added;
}

std::uint32_t ExtractAttributes(const ResponseBuffer& response, ServerItemList& children, ServerItemList& self,
                                const std::function<void()>& isParsed)
{
    const FunctionTraceScope trace("CNativeHttp::ExtractAttributes", Unit::NativeHttp);
    std::uint32_t added = 0;
    CatchJsonExceptions(trace, [&] {
        Json::Value root;
        if (!ParseJson(response, Comments::Skip, root))
            return;
        if (isParsed)
            isParsed();
        const auto process = HoldsElements(root) ? &ProcessJSONArray : &ProcessJSONDictionary;
        // First the items that the reply contains, then the reply itself as an item.
        added += process(root, children, true);
        added += process(root, self, false);
    });
    return added;
}

std::shared_ptr<IServerAttributes> ExtractSingleItem(const ResponseBuffer& response)
{
    ServerItemList items;
    return ExtractAttributes(response, items, items) == 1 ? items.front() : nullptr;
}
