#pragma once

/// @file
/// What the suites of the reply parsers share: replies from texts, records as texts.

#include "Attributes.h"
#include "JsonLibrary.h"
#include "TextConversion.h"

#include <stdexcept>
#include <string>

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

/// A record on one line: revision, name, attribute bits, size, creation, access, write and change time, `r` for read-only, `f` for
/// a folder that is.
inline std::string Describe(const IServerAttributes& record)
{
    const auto time = [](CAttributeTime value) { return ' ' + ToNarrow(value.ToString()); };
    return '\'' + record.GetRevision() + "' '" + ToNarrow(record.GetName()) + "' " + record.GetAttributesStringA() + ' ' +
           std::to_string(record.GetSize()) + time(record.GetCreationTime()) + time(record.GetLastAccessTime()) +
           time(record.GetLastWriteTime()) + time(record.GetChangeTime()) + (record.IsReadOnly() ? " r" : " -") +
           (record.IsFolderReadOnly() ? "f" : "-");
}
