#include "Mapping.h"

#include "TextComparison.h"

#include <algorithm>
#include <array>
#include <utility>

MappingMode MappingModeFromString(std::wstring_view text)
{
    if (EqualIgnoringCase(text, L"AUTOMATIC"))
        return MappingMode::Automatic;
    return EqualIgnoringCase(text, L"OFFLINE") ? MappingMode::Offline : MappingMode::Other;
}

MappingStatus MappingStatusFromString(std::wstring_view text)
{
    constexpr std::array<std::wstring_view, 4> kFailures = {L"OFFLINE", L"TIMEOUT", L"INACCESSIBLE", L"BAD_CREDENTIALS"};
    const bool isFailure =
        std::any_of(kFailures.begin(), kFailures.end(), [&](std::wstring_view failure) { return EqualIgnoringCase(text, failure); });
    return isFailure ? MappingStatus::NotReachable : MappingStatus::Reachable;
}

MappingType MappingTypeFromString(std::wstring_view text)
{
    if (EqualIgnoringCase(text, L"webdav"))
        return MappingType::WebDav;
    return EqualIgnoringCase(text, L"smb") ? MappingType::Smb : MappingType::Other;
}

CMapping::CMapping(std::wstring serverPath, std::wstring description, std::wstring localPath, MappingMode mode, std::wstring permissions,
                   MappingStatus status, MappingType type, std::uint32_t allowSharing)
    : ServerPath(std::move(serverPath)),
      LocalPath(std::move(localPath)),
      Description(std::move(description)),
      Permissions(std::move(permissions)),
      Mode(mode),
      Status(status),
      AllowSharing(allowSharing),
      Type(type)
{
}
