#pragma once

/// @file
/// A trace as a picture over time: the JSON of the Trace Event Format, which https://ui.perfetto.dev and chrome://tracing show. Each
/// traced function is a bar on its thread, and so are the steps of a connection; messages are marks. Session tokens are cut out of the
/// messages. Names, paths and the rest of the replies are not.
///
///     Eventing::Timeline* const timeline = OpenTimeline("timeline.json");
///     const Eventing::ProviderHandle provider = OpenEventSink(4, Eventing::kAnyKeyword, &AddToTimeline, timeline);
///     Init(provider); // the library's
///     ...
///     CloseEventSink(provider);
///     CloseTimeline(timeline);

#include "EventSink.h"

namespace Eventing
{
class Timeline;
}

/// Opens a timeline. Each event is in the file as soon as it is added: after a crash, only the closing bracket is missing, which viewers do
/// not need.
/// @param path  the file, UTF-8; replaced where it exists. A new one gets default permissions.
/// @return the caller's, for `CloseTimeline`; null if the file cannot be opened.
QUENDRA_EVENTING_API Eventing::Timeline* OpenTimeline(const char* path) noexcept;

/// Adds an event. An `EventCallback`; may be called by several threads at once.
/// @param timeline  what `OpenTimeline` returned.
/// @param event     as a sink gets it, at the time when it gets it.
QUENDRA_EVENTING_API void AddToTimeline(void* timeline, const Eventing::Event* event) noexcept;

/// Ends the file and frees the timeline; no other call on it may be running. Does nothing for null.
/// @param timeline  what `OpenTimeline` returned.
/// @return non-zero if every event has reached the file.
QUENDRA_EVENTING_API std::int32_t CloseTimeline(Eventing::Timeline* timeline) noexcept;
