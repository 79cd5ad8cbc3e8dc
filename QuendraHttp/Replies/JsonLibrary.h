#pragma once

/// @file
/// The JSON library, as this library uses it: its classic reader and writer, which it marks as deprecated but which define what is
/// accepted and how replies look in the trace; members read by key; and its exceptions, ended in one place.

#include "Tracing.h"

#include "QuendraHttp/Types.h"

#include <json/json.h>

#include <exception>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

/// Whether a parsed value keeps the text's comments. The time that the library takes to collect them grows with the square of the text.
enum class Comments
{
    Skip,
    Collect
};

/// Parses a whole reply. Escapes of unpaired surrogates, which a file name can hold but UTF-8 cannot, read as U+FFFD.
/// @return false where it is not JSON; a reply without a body is not.
/// @throws Json::Exception for a text that is nested too deeply.
[[nodiscard]] bool ParseJson(const ResponseBuffer& response, Comments comments, Json::Value& root);

/// Renders a value in readable form, of a large one the beginning.
/// @param value       what has no room is taken out of it.
/// @param room        bytes that the text may have at most.
/// @param[out] isCut  whether something was taken out.
[[nodiscard]] std::string RenderJson(Json::Value& value, std::size_t room, bool& isCut);

/// Whether a value stands for a list of elements: an array, or null, which is an empty one.
[[nodiscard]] inline bool HoldsElements(const Json::Value& value)
{
    return value.isNull() || value.isArray();
}

/// A member of an object, in place; a null pointer where there is none. A null value counts as an object without members.
/// @throws Json::Exception for a value that is neither an object nor null.
[[nodiscard]] const Json::Value* FindMember(const Json::Value& object, std::string_view key);

/// A member as text: empty for none; numbers and booleans are written out.
/// @param member  as `FindMember` gives it.
/// @throws Json::Exception for an array or object.
[[nodiscard]] std::string ToText(const Json::Value* member);
[[nodiscard]] std::wstring ToWide(const Json::Value* member);

/// A string's UTF-8, in place; nothing for a value of another type.
[[nodiscard]] std::optional<std::string_view> StringIn(const Json::Value& value);

/// Runs a step that works on JSON values. What the library throws for values that it cannot convert ends here, traced; a step that
/// changes its caller's variables leaves them as they were when it was thrown out. Missing memory goes on to the caller.
template <typename Body> void CatchJsonErrors(const FunctionTraceScope& trace, const Body& body)
{
    const auto runtimeError = [&trace](const std::exception& error) {
        trace.Error("JSON library has thrown a runtime_error exception (%s)!", error.what());
    };
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

/// As `CatchJsonErrors`, and ends the step, traced, where memory runs out.
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
