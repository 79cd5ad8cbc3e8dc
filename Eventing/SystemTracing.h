#pragma once

/// @file
/// The operating system's event tracing. `Windows/` and `Posix/` implement it.

#include "EventSink.h"

namespace Eventing
{

/// Whether a session of the system's tracing listens to the provider at the descriptor's level and keyword.
[[nodiscard]] bool IsSystemEventEnabled(ProviderHandle provider, const EventDescriptor& descriptor) noexcept;

/// Writes one event of a registered provider, with the fields source unit, line, function and, for a message, its text: the
/// texts are UTF-8 with a NUL, the line is a 32-bit number.
void WriteSystemEvent(ProviderHandle provider, const Event& event) noexcept;

/// The system's id of the calling thread, as debuggers and process viewers show it.
[[nodiscard]] std::uint32_t CurrentThreadId() noexcept;

/// The system's id of this process.
[[nodiscard]] std::uint32_t CurrentProcessId() noexcept;

} // namespace Eventing
