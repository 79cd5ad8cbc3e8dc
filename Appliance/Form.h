#pragma once

/// @file
/// Percent-encoded text: request paths and small forms.

#include "Exchange.h"

#include <optional>
#include <string>
#include <string_view>

namespace ApplianceParts
{

enum class Plus
{
    IsItself, ///< in paths
    IsSpace   ///< in forms
};

/// Decodes %XX; nothing where an escape is malformed.
[[nodiscard]] std::optional<std::string> PercentDecode(std::string_view text, Plus plus);

[[nodiscard]] bool IsValidUtf8(std::string_view text);

/// Reads a form-urlencoded body. Its size is bounded; its names and values are UTF-8.
/// @throws ApiError where it is no such form.
[[nodiscard]] Fields ReadForm(const Request& request);

/// A field that has to be there.
/// @throws ApiError where it is missing.
[[nodiscard]] std::string Require(const Fields& fields, std::string_view name);

} // namespace ApplianceParts
