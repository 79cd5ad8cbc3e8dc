#pragma once

/// @file
/// What the suites of the reply parsers share: replies from texts, records as texts.

#include "Mapping.h"
#include "NotificationAction.h"
#include "Replies/JsonLibrary.h"
#include "TextConversion.h"

#include <list>
#include <stdexcept>
#include <string>
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
