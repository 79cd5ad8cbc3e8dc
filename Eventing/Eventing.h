#pragma once

/// @file
/// `quendra_eventing`: the three operations through which modules write events of one tracing provider, imported by ordinal.
/// Every operation may be called from any thread at any time; none fails or throws.

#include <cstdint>

#if defined(_WIN32) && defined(QUENDRA_EVENTING_BUILD)
#define QUENDRA_EVENTING_API extern "C"
#elif defined(_WIN32)
#define QUENDRA_EVENTING_API extern "C" __declspec(dllimport)
#else
#define QUENDRA_EVENTING_API extern "C" __attribute__((visibility("default")))
#endif

namespace Eventing
{

/// A registered tracing provider. 0 is no provider: nothing is enabled for it.
using ProviderHandle = std::uint64_t;

/// An event's fixed properties, in the layout of the platform's `EVENT_DESCRIPTOR`
/// (https://learn.microsoft.com/windows/win32/api/evntprov/ns-evntprov-event_descriptor).
struct EventDescriptor
{
    std::uint16_t id;
    std::uint8_t version;
    std::uint8_t channel;
    std::uint8_t level; ///< 1 critical, 2 error, 3 warning, 4 informational.
    std::uint8_t opcode;
    std::uint16_t task;
    std::uint64_t keyword;
};
static_assert(sizeof(EventDescriptor) == 16);

/// The ids that tell a function's entry from its exit.
inline constexpr std::uint16_t kFunctionEntryId = 110;
inline constexpr std::uint16_t kFunctionExitId = 111;

} // namespace Eventing

/// Ordinal 3. Non-zero when a consumer listens at the descriptor's level and keyword.
QUENDRA_EVENTING_API std::int32_t IsEventEnabled(Eventing::ProviderHandle provider, const Eventing::EventDescriptor* descriptor) noexcept;

/// Ordinal 5. Writes a message.
/// @param sourceUnit  narrow name of the source unit that writes.
/// @param line        line of the message.
/// @param function    narrow name of the function that writes.
/// @param format      printf-style, narrow: `%s` takes narrow UTF-8 text, `%S` wide text, `%I64u` an unsigned 64-bit number,
///                    besides the C library's own conversions of integers, doubles and characters.
QUENDRA_EVENTING_API void WriteEventFormatted(Eventing::ProviderHandle provider, const Eventing::EventDescriptor* descriptor,
                                              const char* sourceUnit, std::int32_t line, const char* function, const char* format,
                                              ...) noexcept;

/// Ordinal 6. Writes a function's entry or exit.
QUENDRA_EVENTING_API void WriteEventFunction(Eventing::ProviderHandle provider, const Eventing::EventDescriptor* descriptor,
                                             const char* sourceUnit, std::int32_t line, const char* function) noexcept;
