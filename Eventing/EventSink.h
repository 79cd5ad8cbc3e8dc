#pragma once

/// @file
/// Receives events inside the process: a program that uses the library opens a sink, passes its provider handle to the library's `Init`,
/// and receives every event that matches the sink's level and keywords.

#include "Eventing.h"

namespace Eventing
{

/// One event as passed to a sink. The pointers are valid only during the call; the names are never null.
struct Event
{
    const EventDescriptor* descriptor; ///< its properties.
    const char* sourceUnit;            ///< narrow name of the source unit that wrote it.
    std::int32_t line;                 ///< the line in it.
    const char* function;              ///< narrow name of the function.
    const char* message;               ///< UTF-8; null for a function's entry or exit.
    std::uint32_t threadId;            ///< the system's id of the writing thread.
    std::int64_t unixMilliseconds;     ///< when it was written: UTC, since 1970.
};

/// Takes one event. Called on the thread that writes it, by several threads at once; must not throw, write events, or close its
/// own sink. It may open and close others.
using EventCallback = void (*)(void* context, const Event* event);

/// Matches every keyword.
inline constexpr std::uint64_t kAnyKeyword = ~std::uint64_t{0};

} // namespace Eventing

/// Opens a sink.
/// @param level     the highest level that passes (1 critical to 4 informational).
/// @param keywords  an event passes when it shares a bit with these.
/// @param callback  takes the events.
/// @param context   passed to the callback.
/// @return the provider handle that writes into this sink, or 0 if 16 sinks are already open.
QUENDRA_EVENTING_API Eventing::ProviderHandle OpenEventSink(std::uint8_t level, std::uint64_t keywords, Eventing::EventCallback callback,
                                                            void* context) noexcept;

/// Closes a sink: after it returns, the callback does not run any more. Events written to its handle are dropped, and the handle is not
/// reused. Does nothing for a handle of no open sink.
/// @param provider  what `OpenEventSink` returned.
QUENDRA_EVENTING_API void CloseEventSink(Eventing::ProviderHandle provider) noexcept;
