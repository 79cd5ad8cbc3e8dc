#pragma once

/// @file
/// The identifier of a chunked upload, as text.

#include "QuendraHttp/Types.h"

#include <optional>
#include <string>
#include <string_view>

/// `0F8FAD5B-D9CB-469F-A165-70867728950E`
[[nodiscard]] std::string IdentifierText(const GUID& id);

/// Reads the same, in any case, with or without braces.
[[nodiscard]] std::optional<GUID> ParseIdentifier(std::string_view text);

/// A new one.
/// @throws ProgramError where the system gives none.
[[nodiscard]] GUID MakeIdentifier();
