#pragma once

/// @file
/// Tuning values that an administrator may set in the registry, under "Software\Ostvalen\Quendra". A user's value wins over
/// the machine's. A value that is absent, of another type or unreadable is silently replaced by the caller's default.
/// Everything here may be called from any thread.

#include "Platform/Platform.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The values that the library reads, and their defaults.
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

namespace Settings
{

/// A registry key that is searched for values.
struct SearchPlace
{
    HKEY root;
    std::wstring subKey;

    /// "HKEY_CURRENT_USER\Software\..." for people.
    [[nodiscard]] std::wstring Text() const;
};

/// The places in the order in which they are searched.
/// @param userIdentifier  a security identifier whose hive comes first; empty for none.
[[nodiscard]] std::vector<SearchPlace> SearchList(const std::wstring& userIdentifier = {});

/// A value's data as stored.
struct RawValue
{
    std::unique_ptr<std::byte[]> data; ///< null where no place has the value.
    std::size_t size = 0;              ///< in bytes.
    SearchPlace place{};               ///< where it was found.
};

/// Reads a value from the first place that has it with the wanted type (REG_EXPAND_SZ passes for REG_SZ).
[[nodiscard]] RawValue ReadRaw(const std::wstring& name, DWORD type, const std::wstring& userIdentifier = {});

/// A number and where it was found.
struct FoundNumber
{
    std::int32_t value;
    SearchPlace place;
};

/// Finds a REG_DWORD; nothing if the caller's default applies.
[[nodiscard]] std::optional<FoundNumber> FindNumber(const std::wstring& name, const std::wstring& userIdentifier = {});

/// Reads a REG_DWORD.
[[nodiscard]] std::int32_t ReadNumber(const std::wstring& name, std::int32_t defaultValue, const std::wstring& userIdentifier = {});

/// Reads a REG_DWORD as a flag: set when it is not 0.
[[nodiscard]] bool ReadFlag(const std::wstring& name, bool defaultValue, const std::wstring& userIdentifier = {});

/// Reads a REG_SZ or REG_EXPAND_SZ; the latter is not expanded.
[[nodiscard]] std::wstring ReadText(const std::wstring& name, const std::wstring& defaultValue, const std::wstring& userIdentifier = {});

/// Reads a REG_MULTI_SZ, in stored order.
[[nodiscard]] std::vector<std::wstring> ReadTextList(const std::wstring& name, const std::wstring& userIdentifier = {});

/// A number that is read on first use and then kept for the life of the process.
///
/// There is no lock: threads that race for the first use all read the same value. If a read throws, the next use reads again.
class OncePerProcessNumber
{
public:
    /// @param name  must outlive the object.
    constexpr OncePerProcessNumber(const wchar_t* name, std::int32_t defaultValue) noexcept : m_name(name), m_value(defaultValue) {}
    constexpr explicit OncePerProcessNumber(const Tuning::Value& value) noexcept : m_name(value.name), m_value(value.defaultValue) {}

    [[nodiscard]] std::int32_t Get();

private:
    const wchar_t* m_name;
    std::atomic<std::int32_t> m_value; // the default until the first read
    std::atomic<bool> m_isRead{false};
};

} // namespace Settings
