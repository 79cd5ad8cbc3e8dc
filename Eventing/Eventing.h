#pragma once

/// @file
/// `quendra_eventing`: three functions with which modules write events of a tracing provider, imported by ordinal.
/// Every operation may be called from any thread at any time; none fails or throws.

#include <cstdint>

/// @cond
#if defined(_WIN32) && defined(QUENDRA_EVENTING_BUILD)
#define QUENDRA_EVENTING_API extern "C"
#elif defined(_WIN32)
#define QUENDRA_EVENTING_API extern "C" __declspec(dllimport)
#else
#define QUENDRA_EVENTING_API extern "C" __attribute__((visibility("default")))
#endif
/// @endcond

namespace Eventing
{

/// A registered tracing provider. 0 means no provider: no event is enabled.
using ProviderHandle = std::uint64_t;

/// An event's fixed properties, in the layout of the platform's `EVENT_DESCRIPTOR`
/// (https://learn.microsoft.com/windows/win32/api/evntprov/ns-evntprov-event_descriptor).
struct EventDescriptor
{
    std::uint16_t id;      ///< what kind of event it is.
    std::uint8_t version;  ///< of the event's form.
    std::uint8_t channel;  ///< the system's event channel.
    std::uint8_t level;    ///< 1 critical, 2 error, 3 warning, 4 informational.
    std::uint8_t opcode;   ///< the operation within the task.
    std::uint16_t task;    ///< the task that it belongs to.
    std::uint64_t keyword; ///< bits to filter by.
};
static_assert(sizeof(EventDescriptor) == 16);

inline constexpr std::uint16_t kFunctionEntryId = 110; ///< the id of a function's entry.
inline constexpr std::uint16_t kFunctionExitId = 111;  ///< the id of a function's exit.

} // namespace Eventing

/// Ordinal 3. Whether an event would be delivered.
/// @param provider    the provider that would write it.
/// @param descriptor  its properties.
/// @return non-zero when a consumer listens at the descriptor's level and keyword.
QUENDRA_EVENTING_API std::int32_t IsEventEnabled(Eventing::ProviderHandle provider, const Eventing::EventDescriptor* descriptor) noexcept;

/// Ordinal 5. Writes a message.
/// @param provider    the provider that writes it.
/// @param descriptor  its properties.
/// @param sourceUnit  narrow name of the source unit that writes.
/// @param line        line of the message.
/// @param function    narrow name of the function that writes.
/// @param format      printf-style, narrow: `%s` takes narrow UTF-8 text, `%S` wide text, `%d %u %x` 32-bit numbers, and with
///                    `ll` or `I64` 64-bit ones. A conversion takes the flags `-` and `0`, a width and a precision. The message
///                    ends with the rest of the format at any other conversion.
QUENDRA_EVENTING_API void WriteEventFormatted(Eventing::ProviderHandle provider, const Eventing::EventDescriptor* descriptor,
                                              const char* sourceUnit, std::int32_t line, const char* function, const char* format,
                                              ...) noexcept;

/// Ordinal 6. Writes a function's entry or exit.
/// @param provider    the provider that writes it.
/// @param descriptor  its properties.
/// @param sourceUnit  narrow name of the source unit.
/// @param line        line that identifies the function.
/// @param function    narrow name of the function.
QUENDRA_EVENTING_API void WriteEventFunction(Eventing::ProviderHandle provider, const Eventing::EventDescriptor* descriptor,
                                             const char* sourceUnit, std::int32_t line, const char* function) noexcept;
