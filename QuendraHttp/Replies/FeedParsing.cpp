#include "Replies/FeedParsing.h"

#include "Mapping.h"
#include "NotificationAction.h"
#include "PathUtilities.h"
#include "TextComparison.h"
#include "Tracing.h"

#include "Platform/Platform.h"

#include <memory>

namespace
{

// Appends a record to a list of owned pointers.
template <typename Record, typename Records> void Append(std::unique_ptr<Record> record, Records& records)
{
    records.push_back(record.get());
    static_cast<void>(record.release());
}

// The keys of the two operands of an action; the first is null if the action has only one operand.
struct OperandKeys
{
    const char* first = nullptr;
    const char* second = nullptr;
};

OperandKeys OperandKeysOf(NotificationType type)
{
    switch (type)
    {
    case NotificationType::Move:
    case NotificationType::Update:
        return {"from", "to"};
    case NotificationType::Mode:
        return {"name", "mode"};
    default:
        return {};
    }
}

std::unique_ptr<CNotificationAction> ReadAction(const Json::Value& entry, const FunctionTraceScope& trace)
{
    auto action = std::make_unique<CNotificationAction>();
    const std::wstring typeText = ToWide(FindMember(entry, "a"));
    action->Type = NotificationTypeFromString(typeText);
    const OperandKeys keys = OperandKeysOf(action->Type);
    if (keys.first == nullptr)
    {
        action->Value = ToWide(FindMember(entry, "m"));
        trace.Info("Creating notification action: type: '%S', value: '%S'", typeText, action->Value);
        return action;
    }
    const Json::Value* operands = FindMember(entry, "m");
    if (operands != nullptr && operands->isObject() && !operands->empty())
    {
        action->Value = ToWide(FindMember(*operands, keys.first));
        action->Value2 = ToWide(FindMember(*operands, keys.second));
    }
    trace.Info("Creating notification action: type: '%S', value: '%S', value2: '%S'", typeText, action->Value, action->Value2);
    return action;
}

// A mapping's members as the server sent them.
struct MappingTexts
{
    explicit MappingTexts(const Json::Value& entry)
        : name(ToWide(FindMember(entry, "name"))),
          description(ToWide(FindMember(entry, "description"))),
          permissions(ToWide(FindMember(entry, "permissions"))),
          status(ToWide(FindMember(entry, "status"))),
          mode(ToWide(FindMember(entry, "mode"))),
          type(ToWide(FindMember(entry, "type"))),
          folderPermissions(ToWide(FindMember(entry, "folder_permissions")))
    {
        const Json::Value* sharing = FindMember(entry, "allow_sharing");
        allowSharing = sharing != nullptr && sharing->asBool();
    }

    std::wstring name;
    std::wstring description;
    std::wstring permissions;
    std::wstring status;
    std::wstring mode;
    std::wstring type;
    std::wstring folderPermissions;
    bool allowSharing = false;
};

std::unique_ptr<CMapping> MakeMapping(const MappingTexts& texts)
{
    const bool isRootReadOnly = EqualIgnoringCase(texts.folderPermissions, L"READONLY");
    return std::make_unique<CMapping>(L"/" + texts.name, texts.description, PathUtilities::NormalizePath({}),
                                      MappingModeFromString(texts.mode), isRootReadOnly ? L"ROOT_READONLY" : texts.permissions,
                                      MappingStatusFromString(texts.status), MappingTypeFromString(texts.type), texts.allowSharing ? 1 : 0);
}

// An entry that fails adds nothing; the others are still read.
std::uint32_t AddMapping(const MappingTexts& texts, std::vector<CMapping*>& mappings, const FunctionTraceScope& trace)
{
    try
    {
        Append(MakeMapping(texts), mappings);
        return 1;
    }
    catch (const std::bad_alloc&)
    {
        trace.Error("Failed to create mapping for [%S] - error [%d]", texts.name, E_FAIL);
        return 0;
    }
}

// Passes a reply's root to the array or object parser. Returns the number of appended records, including those before an exception.
template <typename Records>
std::uint32_t ProcessReply(const FunctionTraceScope& trace, const ResponseBuffer& response, Records& records,
                           std::uint32_t (*processDictionary)(const Json::Value&, Records&),
                           std::uint32_t (*processArray)(const Json::Value&, Records&))
{
    const std::size_t before = records.size();
    CatchJsonExceptions(trace, [&] {
        Json::Value root;
        if (!ParseJson(response, Comments::Skip, root))
            return;
        static_cast<void>(HoldsElements(root) ? processArray(root, records) : processDictionary(root, records));
    });
    return static_cast<std::uint32_t>(records.size() - before);
}

} // namespace

std::uint32_t ProcessNotificationJSONDictionary(const Json::Value& value, std::list<CNotificationAction*>& actions)
{
    const FunctionTraceScope trace("CNativeHttp::ProcessNotificationJSONDictionary", Unit::NativeHttp);
    std::uint32_t added = 0;
    CatchJsonExceptions(trace, [&] {
        if (!MayHaveMembers(value, trace))
            return;
        if (const Json::Value* contents = FindMember(value, "contents"))
        {
            added = HoldsElements(*contents) ? ProcessNotificationJSONArray(*contents, actions)
                                             : ProcessNotificationJSONDictionary(*contents, actions);
            return;
        }
        Append(ReadAction(value, trace), actions);
        added = 1;
        trace.Info("There are now %d notification actions", static_cast<std::uint32_t>(actions.size()));
    });
    return added;
}

std::uint32_t ProcessNotificationJSONArray(const Json::Value& value, std::list<CNotificationAction*>& actions)
{
    const FunctionTraceScope trace("CNativeHttp::ProcessNotificationJSONArray", Unit::NativeHttp);
    std::uint32_t added = 0;
    for (const Json::Value& element : value)
        added += ProcessNotificationJSONDictionary(element, actions);
    return added;
}

std::uint32_t ProcessMappingJSONDictionary(const Json::Value& value, std::vector<CMapping*>& mappings)
{
    const FunctionTraceScope trace("CNativeHttp::ProcessMappingJSONDictionary", Unit::NativeHttp);
    std::uint32_t added = 0;
    CatchJsonExceptions(trace, [&] {
        if (!MayHaveMembers(value, trace))
            return;
        if (const Json::Value* contents = FindMember(value, "contents"))
            added =
                HoldsElements(*contents) ? ProcessMappingJSONArray(*contents, mappings) : ProcessMappingJSONDictionary(*contents, mappings);
        else
            added = AddMapping(MappingTexts(value), mappings, trace);
    });
    return added;
}

std::uint32_t ProcessMappingJSONArray(const Json::Value& value, std::vector<CMapping*>& mappings)
{
    const FunctionTraceScope trace("CNativeHttp::ProcessMappingJSONArray", Unit::NativeHttp);
    std::uint32_t added = 0;
    for (const Json::Value& element : value)
        added += ProcessMappingJSONDictionary(element, mappings);
    return added;
}

std::uint32_t GetNotificationsFromResponse(const ResponseBuffer& response, std::list<CNotificationAction*>& actions)
{
    const FunctionTraceScope trace("CNativeHttp::GetNotificationsFromResponse", Unit::NativeHttp);
    const std::uint32_t count = ProcessReply(trace, response, actions, &ProcessNotificationJSONDictionary, &ProcessNotificationJSONArray);
    trace.Info("Extracted %d notification actions from reply", count);
    return count;
}

std::uint32_t ReadMappings(const FunctionTraceScope& trace, const ResponseBuffer& response, std::vector<CMapping*>& mappings)
{
    return ProcessReply(trace, response, mappings, &ProcessMappingJSONDictionary, &ProcessMappingJSONArray);
}
