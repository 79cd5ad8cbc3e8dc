#pragma once

/// @file
/// A server folder that the client maps.

#include <cstdint>
#include <string>
#include <string_view>

/// How the client keeps a mapping's content.
enum class MappingMode : std::uint32_t
{
    Other = 1,
    Automatic = 2,
    Offline = 3
};

/// Whether the server can reach a mapping's storage.
enum class MappingStatus : std::uint32_t
{
    NotReachable = 1,
    Reachable = 2
};

/// The kind of storage that a mapping refers to.
enum class MappingType : std::uint32_t
{
    Smb = 0,
    WebDav = 1,
    Other = 2
};

/// Reads a server's text.
/// @param text  in any case.
/// @return `MappingMode::Other` for a text that is not known.
[[nodiscard]] MappingMode MappingModeFromString(std::wstring_view text);

/// Reads a server's text.
/// @param text  in any case.
/// @return `MappingStatus::NotReachable` for the known kinds of failure only.
[[nodiscard]] MappingStatus MappingStatusFromString(std::wstring_view text);

/// Reads a server's text.
/// @param text  in any case.
/// @return `MappingType::Other` for a text that is not known.
[[nodiscard]] MappingType MappingTypeFromString(std::wstring_view text);

/// A folder mapping. The caller that receives one owns it.
class CMapping
{
public:
    /// @param serverPath,description,localPath,mode,permissions,status,type,allowSharing  what the members of these names hold.
    CMapping(std::wstring serverPath, std::wstring description, std::wstring localPath, MappingMode mode, std::wstring permissions,
             MappingStatus status, MappingType type, std::uint32_t allowSharing);
    virtual ~CMapping() = default;

    CMapping(const CMapping&) = default; ///< A deep copy.
    /// @return this record.
    CMapping& operator=(const CMapping&) = default;

    std::wstring ServerPath;    ///< "/" and the mapping's name.
    std::wstring LocalPath;     ///< set by the client; the server does not know it.
    std::wstring Description;   ///< for people.
    std::wstring Permissions;   ///< the server's text, or "ROOT_READONLY".
    MappingMode Mode;           ///< how the client keeps it.
    MappingStatus Status;       ///< whether the server can reach it.
    std::uint32_t AllowSharing; ///< 1 or 0.
    MappingType Type;           ///< the kind of storage.
};
