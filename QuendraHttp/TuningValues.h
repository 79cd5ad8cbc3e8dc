#pragma once

/// @file
/// The tuning values that the library reads, and their defaults.

#include <cstdint>

namespace Tuning
{

struct Value
{
    const wchar_t* name;
    std::int32_t defaultValue;
    const char* unit;
    const char* subject; ///< a description for people.
};

inline constexpr Value kResolveTimeout{L"HTTPNameResolutionTimeout", 0, "ms", "resolving the server's name; 0: no limit"};
inline constexpr Value kConnectTimeout{L"HTTPConnectionRequestTimeout", 60000, "ms", "connecting"};
inline constexpr Value kSendTimeout{L"HTTPSendRequestTimeout", 60000, "ms", "sending"};
inline constexpr Value kReceiveTimeout{L"HTTPReceiveResponseTimeout", 60000, "ms", "waiting for a reply"};
inline constexpr Value kDeltaSendTimeout{L"HTTPDeltaSendRequestTimeout", 300000, "ms", "sending a delta"};
// The same name again: one stored value sets both; only the defaults differ.
inline constexpr Value kDeltaReceiveTimeout{L"HTTPReceiveResponseTimeout", 600000, "ms", "waiting for a delta's reply"};
inline constexpr Value kUploadExpiry{L"UploadExpiry", 0, "h", "keeping a partial upload; 0: as the server likes"};
inline constexpr Value kMappingWait{L"OfflineMappointTimeout", 30, "", "the server's wait for folder mappings, as it takes it"};

inline constexpr const Value* kAll[] = {&kResolveTimeout,   &kConnectTimeout,      &kSendTimeout,  &kReceiveTimeout,
                                        &kDeltaSendTimeout, &kDeltaReceiveTimeout, &kUploadExpiry, &kMappingWait};

} // namespace Tuning
