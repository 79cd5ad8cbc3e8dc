#pragma once

/// @file
/// The open sinks of the process.

#include "EventSink.h"

namespace Eventing
{

/// Whether a handle was made by `OpenEventSink`, still open or not; any other is a provider of the system's tracing.
[[nodiscard]] bool IsSinkHandle(ProviderHandle handle) noexcept;

/// Whether the sink is open and lets the event pass.
[[nodiscard]] bool IsSinkEnabled(ProviderHandle handle, const EventDescriptor& descriptor) noexcept;

/// Hands an event to its sink; one that is closed, or does not let it pass, drops it.
void WriteToSink(ProviderHandle handle, const Event& event) noexcept;

} // namespace Eventing
