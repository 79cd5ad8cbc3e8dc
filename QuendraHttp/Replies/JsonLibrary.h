#pragma once

/// @file
/// Wraps the JSON library: its deprecated classic reader and writer, which define the accepted input and the form of replies in the trace;
/// lookup of members by key; and one place that catches its exceptions.

#include "Tracing.h"

#include "QuendraHttp/Types.h"

#include <json/json.h>

#include <exception>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

/// Whether a parsed value keeps the text's comments. Collecting them takes quadratic time.
enum class Comments
{
    Skip,
    Collect
};

/// Parses a text as the JSON library's classic reader does.
/// @throws Json::Exception for a text that is nested too deeply.
[[nodiscard]] bool ReadJson(std::string_view text, Comments comments, Json::Value& root);

/// Parses a whole reply. Unpaired surrogates, which file names may contain but UTF-8 cannot encode, become U+FFFD.
/// @return false if it is not JSON or the body is empty.
/// @throws Json::Exception for a text that is nested too deeply.
[[nodiscard]] bool ParseJson(const ResponseBuffer& response, Comments comments, Json::Value& root);

/// Renders a value in readable form; only the beginning of a large one.
/// @param value       parts that do not fit are removed from it.
/// @param room        the maximum length of the text in bytes.
/// @param[out] isCut  whether something was removed.
[[nodiscard]] std::string RenderJson(Json::Value& value, std::size_t room, bool& isCut);

/// Whether a value is an array, or null, which counts as an empty array.
[[nodiscard]] inline bool HoldsElements(const Json::Value& value)
{
    return value.isNull() || value.isArray();
}

/// A member of an object, in place; a null pointer where there is none. A null value counts as an object without members.
/// @throws Json::Exception for a value that is neither an object nor null.
[[nodiscard]] const Json::Value* FindMember(const Json::Value& object, std::string_view key);

/// Whether a value may have members, as objects and null may. For another value traces the exception that `FindMember` would throw: a reply
/// can hold a million such values, and throwing for each costs ten times what reading it does.
[[nodiscard]] bool MayHaveMembers(const Json::Value& value, const FunctionTraceScope& trace);

/// A member as text: empty for none; numbers and booleans are written out.
/// @param member  as `FindMember` gives it.
/// @throws Json::Exception for an array or object.
[[nodiscard]] std::string ToText(const Json::Value* member);
[[nodiscard]] std::wstring ToWide(const Json::Value* member);

/// A string's UTF-8, not copied; nothing for another type.
[[nodiscard]] std::optional<std::string_view> StringIn(const Json::Value& value);

/// Traces the text of an exception that the JSON library has thrown.
void TraceJsonError(const FunctionTraceScope& trace, const char* text);

/// Runs a step that works on JSON values. Catches and traces the exceptions that the library throws for values that it cannot convert.
/// Changes that the step made before the exception remain. std::bad_alloc is passed on.
template <typename Body> void CatchJsonErrors(const FunctionTraceScope& trace, const Body& body)
{
    const auto runtimeError = [&trace](const std::exception& error) { TraceJsonError(trace, error.what()); };
    try
    {
        body();
    }
    catch (const std::runtime_error& error)
    {
        runtimeError(error);
    }
    catch (const Json::Exception& error) // what newer versions of the library throw; not a std::runtime_error
    {
        runtimeError(error);
    }
}

/// As `CatchJsonErrors`, but also catches and traces std::bad_alloc.
template <typename Body> void CatchJsonExceptions(const FunctionTraceScope& trace, const Body& body)
{
    try
    {
        CatchJsonErrors(trace, body);
    }
    catch (const std::bad_alloc& error)
    {
        trace.Error("JSON library has thrown a bad_alloc exception (%s)!", error.what());
    }
}
