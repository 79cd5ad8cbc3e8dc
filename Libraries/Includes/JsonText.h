#pragma once

/// @file
/// Reads and writes JSON text for programs. Stricter than the library's parser for replies.

#include <json/json.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

/// @return the value in one line of UTF-8, without a line end.
[[nodiscard]] inline std::string JsonLine(const Json::Value& value)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    builder["commentStyle"] = "None"; // a comment would end the line
    return Json::writeString(builder, value);
}

/// @return the object that the text holds; nothing if it is not a JSON object.
[[nodiscard]] inline std::optional<Json::Value> ParseJsonObject(std::string_view text)
{
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    const bool isObject = reader->parse(text.data(), text.data() + text.size(), &value, nullptr) && value.isObject();
    return isObject ? std::optional(std::move(value)) : std::nullopt;
}
