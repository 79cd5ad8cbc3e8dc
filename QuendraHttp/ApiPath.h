#pragma once

/// @file
/// What of the server's state shapes requests: its API version and mode, and the paths that are built on them.

#include "Attributes.h"
#include "TextConversion.h"
#include "UrlEncoding.h"

#include "QuendraHttp/NativeHttp.h"

/// API versions that the client treats in their own way.
inline constexpr ApiVersion kApiVersion10{1, 0};
inline constexpr ApiVersion kApiVersion13{1, 3};

/// How the server authenticates, as the handshake learns it; 0 is not known yet.
inline constexpr std::uint32_t kModeLegacy = 1;
inline constexpr std::uint32_t kModeDeviceToken = 2;

/// The path prefix of API requests. API 1.0 carries the session in the path, by intent of that old API.
[[nodiscard]] inline std::wstring ApiBasePathOf(const ServerState& server, const std::wstring& sessionToken)
{
    return server.apiVersion == kApiVersion10 ? L"/api/" + sessionToken : server.endpointPath;
}

/// A server path as it goes into a request's path.
[[nodiscard]] inline std::wstring EncodedPath(const std::wstring& path)
{
    return ToWide(EncodeUrl(path, UrlEncodingMode::Path));
}

/// The query that names an item's revision; empty for an item without one, or no item.
/// @param separator  "?" or "&".
[[nodiscard]] inline std::wstring RevisionSuffix(const char* separator, const IServerAttributes* item)
{
    return ToWide(CNativeHttp::AddRevision(separator, item != nullptr ? item->GetRevision() : std::string()));
}
