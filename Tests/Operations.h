#pragma once

/// @file
/// What the suites of the operations and of the reply parsers share: replies from texts, records as texts, an operation as a value,
/// and what it delivers.

#include "Mapping.h"
#include "NotificationAction.h"
#include "Replies/JsonLibrary.h"
#include "TextConversion.h"
#include "TransferSupport.h"

#include <list>
#include <stdexcept>
#include <vector>

/// A reply with a text as its body. The text must outlive it.
inline ResponseBuffer AsReply(std::string& text)
{
    return {text.data(), text.size()};
}

inline Json::Value ParseText(std::string text)
{
    Json::Value value;
    if (!ParseJson(AsReply(text), Comments::Skip, value))
        throw std::runtime_error("Not JSON: " + text);
    return value;
}

/// A list of owned records, which its owner, like every caller of the library, deletes.
template <typename List> struct Owned : List
{
    Owned() = default;
    ~Owned()
    {
        for (const auto* record : *this)
            delete record;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
};
using Actions = Owned<std::list<CNotificationAction*>>;
using Mappings = Owned<std::vector<CMapping*>>;

/// An action on one line: type, value, second value.
inline std::string Describe(const CNotificationAction& action)
{
    return std::to_string(static_cast<std::int32_t>(action.Type)) + " '" + ToNarrow(action.Value) + "' '" + ToNarrow(action.Value2) + '\'';
}

/// A mapping on one line: server path, description, local path, permissions; mode, status, type, sharing.
inline std::string Describe(const CMapping& mapping)
{
    std::string text;
    for (const std::wstring* part : {&mapping.ServerPath, &mapping.Description, &mapping.LocalPath, &mapping.Permissions})
        text += '\'' + ToNarrow(*part) + "' ";
    return text + std::to_string(static_cast<std::uint32_t>(mapping.Mode)) + ' ' +
           std::to_string(static_cast<std::uint32_t>(mapping.Status)) + ' ' + std::to_string(static_cast<std::uint32_t>(mapping.Type)) +
           ' ' + std::to_string(mapping.AllowSharing);
}

/// A caller's variables; as an argument, each stands where its type is wanted.
struct Outputs
{
    std::shared_ptr<IServerAttributes> item;
    ServerItemList children;
    Actions actions;
    Mappings mappings;
    std::wstring text;

    operator std::shared_ptr<IServerAttributes>&() { return item; }
    operator std::list<CNotificationAction*>&() { return actions; }
    operator std::vector<CMapping*>&() { return mappings; }
    operator std::wstring&() { return text; }

    /// All that was delivered, as "one, another"; of items their names.
    [[nodiscard]] std::string Told() const
    {
        std::vector<std::string> all;
        for (const CNotificationAction* action : actions)
            all.push_back(Describe(*action));
        for (const CMapping* mapping : mappings)
            all.push_back(Describe(*mapping));
        for (const auto& child : children)
            all.push_back(ToNarrow(child->GetName()));
        all.push_back(item ? ToNarrow(item->GetName()) : "");
        all.push_back(ToNarrow(text));
        std::string told;
        for (const std::string& each : all)
            told += told.empty() || each.empty() ? each : ", " + each;
        return told;
    }
};

using Operation = std::function<ResultCode(Api&, Outputs&)>;

/// An operation with its arguments; an output that it has goes last.
template <typename... Parameters, typename... Arguments>
Operation Call(ResultCode (Api::*operation)(Parameters...), const Arguments&... arguments)
{
    return [=](Api& api, Outputs& outputs) {
        if constexpr (sizeof...(Arguments) < sizeof...(Parameters))
            return (api.*operation)(arguments..., outputs);
        else
            return (api.*operation)(arguments...);
    };
}

inline Operation List(const std::wstring& path)
{
    return [=](Api& api, Outputs& outputs) { return api.GetPathListing(path, outputs.children, outputs.item, nullptr); };
}

/// Delivers the policy, and behind a bar the session's token where that is not "old" any more.
inline Operation LogIn(const VersionNumber& version = {}, const VersionNumber& platform = {})
{
    return [=](Api& api, Outputs& outputs) {
        std::uint32_t value = 0;
        const ResultCode code = api.Login(L"ann", L"p&ss", L"device-token", L"host", outputs.text, value, version, platform);
        std::wstring token;
        static_cast<void>(api.GetSessionToken(token));
        outputs.text += token == L"old" ? L"" : L"|" + token;
        return code;
    };
}
