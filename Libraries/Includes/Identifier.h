#pragma once

/// @file
/// Identifiers of uploads as text.

#include "QuendraHttp/UploadId.h"

#include <optional>
#include <string>
#include <string_view>

/// @return `0F8FAD5B-D9CB-469F-A165-70867728950E`
[[nodiscard]] std::wstring IdentifierText(const Quendra::UploadId& id);

/// Parses the same form, in any case, with or without braces.
/// @param text  ASCII.
/// @return nothing for anything else.
[[nodiscard]] std::optional<Quendra::UploadId> ParseIdentifier(std::string_view text);
