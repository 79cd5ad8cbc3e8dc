#pragma once

/// @file
/// What the code under test traces.

#include "Tracing.h"

#include "Eventing/EventLine.h"
#include "Eventing/EventSink.h"

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// One event, kept.
struct TracedEvent
{
    std::uint8_t level;
    std::string unit;
    int line;
    std::string function;
    std::string message; ///< empty for an entry or exit.
    bool isEntry;
    bool isExit;
    std::string text; ///< what a person reads, from the level on.

    [[nodiscard]] bool IsMessage() const { return !isEntry && !isExit; }
};

/// Keeps every event that is traced while it lives, from all threads; the library's provider handle is put back afterwards.
/// Make it before, and end it after, the threads that trace.
///
///     TraceCapture trace;
///     ...
///     EXPECT_TRUE(trace.Has(EVT_ERROR, "WinHttpOpen failed, error code: 12029")) << trace;
class TraceCapture
{
public:
    /// @param highest  a descriptor of the highest level that is kept.
    explicit TraceCapture(const Eventing::EventDescriptor& highest = EVT_INFO, std::uint64_t keywords = Eventing::kAnyKeyword)
        : m_handle(OpenEventSink(highest.level, keywords, TakeEvent, this)), m_previous(std::exchange(EventProviderHandle, m_handle))
    {
    }
    ~TraceCapture()
    {
        EventProviderHandle = m_previous;
        CloseEventSink(m_handle);
    }

    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    /// All events, in the order in which they were written.
    [[nodiscard]] std::vector<TracedEvent> Events() const
    {
        const std::lock_guard lock(m_mutex);
        return m_events;
    }

    /// All messages, without entries and exits; with a descriptor, those of its level alone.
    [[nodiscard]] std::vector<std::string> Messages(const std::optional<Eventing::EventDescriptor>& level = {}) const
    {
        std::vector<std::string> messages;
        for (const auto& event : Events())
            if (event.IsMessage() && (!level || level->level == event.level))
                messages.push_back(event.message);
        return messages;
    }

    /// The events of one function, its messages included.
    [[nodiscard]] std::vector<TracedEvent> EventsOf(std::string_view function) const
    {
        auto events = Events();
        std::erase_if(events, [function](const TracedEvent& event) { return event.function != function; });
        return events;
    }

    /// How many messages of a level are exactly this text.
    [[nodiscard]] std::size_t CountOf(const Eventing::EventDescriptor& level, std::string_view message) const
    {
        return static_cast<std::size_t>(std::ranges::count(Messages(level), message));
    }

    /// Whether a message of a level is exactly this text.
    [[nodiscard]] bool Has(const Eventing::EventDescriptor& level, std::string_view message) const { return CountOf(level, message) != 0; }

    /// Whether any message holds this text: to show that a secret is in none.
    [[nodiscard]] bool Mentions(std::string_view text) const
    {
        return std::ranges::any_of(Messages(), [text](const std::string& message) { return message.find(text) != std::string::npos; });
    }

    /// Forgets what was kept so far.
    void Clear()
    {
        const std::lock_guard lock(m_mutex);
        m_events.clear();
    }

private:
    static void TakeEvent(void* context, const Eventing::Event* event)
    {
        auto& self = *static_cast<TraceCapture*>(context);
        const std::uint16_t id = event->descriptor->id;
        constexpr std::size_t kTimeAndThread = 33;
        std::string text = Eventing::FormatEventLine(*event, 0).substr(kTimeAndThread);
        const std::lock_guard lock(self.m_mutex);
        self.m_events.push_back({event->descriptor->level, event->sourceUnit, event->line, event->function,
                                 event->message != nullptr ? event->message : "", id == Eventing::kFunctionEntryId,
                                 id == Eventing::kFunctionExitId, std::move(text)});
    }

    mutable std::mutex m_mutex;
    std::vector<TracedEvent> m_events;
    const Eventing::ProviderHandle m_handle;
    const Eventing::ProviderHandle m_previous;
};

/// All events, one a line.
inline std::ostream& operator<<(std::ostream& stream, const TraceCapture& capture)
{
    for (const auto& event : capture.Events())
        stream << '\n' << event.text;
    return stream;
}
