#pragma once

/// @file
/// The open sinks of the process.

#include "EventSink.h"

namespace Eventing
{

/// Whether a handle was made by `OpenEventSink`, still open or not; any other handle is a provider of the system's tracing.
[[nodiscard]] bool IsSinkHandle(ProviderHandle handle) noexcept;

/// Whether the sink is open and accepts the event.
[[nodiscard]] bool IsSinkEnabled(ProviderHandle handle, const EventDescriptor& descriptor) noexcept;

/// Passes an event to its sink; drops it if the sink is closed or does not accept it.
void WriteToSink(ProviderHandle handle, const Event& event) noexcept;

} // namespace Eventing
