#pragma once

/// @file
/// What the code under test traces.

#include "Eventing/EventSink.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

/// One event, kept.
struct TracedEvent
{
    std::uint16_t id;
    std::uint8_t level;
    std::string unit;
    int line;
    std::string function;
    std::string message; ///< empty for an entry or exit.
    bool isEntry;
    bool isExit;
    std::uint32_t threadId;

    [[nodiscard]] bool IsMessage() const { return !isEntry && !isExit; }
};

/// As one line: `ERROR NativeHttp:12 CNativeHttp::Login: message`.
std::ostream& operator<<(std::ostream& stream, const TracedEvent& event);

/// A level as a number (1 critical to 4 informational), or that of a descriptor: `EVT_ERROR`.
class TraceLevel
{
public:
    // NOLINTBEGIN(google-explicit-constructor): both are meant to be written where a level is wanted.
    constexpr TraceLevel(int level) : m_level(static_cast<std::uint8_t>(level)) {}
    constexpr TraceLevel(const Eventing::EventDescriptor& descriptor) : m_level(descriptor.level) {}
    // NOLINTEND(google-explicit-constructor)

    [[nodiscard]] constexpr std::uint8_t Value() const { return m_level; }

private:
    std::uint8_t m_level;
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
    explicit TraceCapture(TraceLevel level = 4, std::uint64_t keywords = Eventing::kAnyKeyword);
    ~TraceCapture();

    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    /// The provider handle that this listens to; `EventProviderHandle` is the same while this lives.
    [[nodiscard]] Eventing::ProviderHandle Handle() const { return m_handle; }

    /// All events, in the order in which they were written.
    [[nodiscard]] std::vector<TracedEvent> Events() const;

    /// All messages, without entries and exits; with a level, the messages of exactly that level.
    [[nodiscard]] std::vector<std::string> Messages() const;
    [[nodiscard]] std::vector<std::string> Messages(TraceLevel level) const;

    /// The events of one function, its messages included.
    [[nodiscard]] std::vector<TracedEvent> EventsOf(std::string_view function) const;

    /// How many messages of a level are exactly this text.
    [[nodiscard]] std::size_t CountOf(TraceLevel level, std::string_view message) const;

    /// Whether a message of a level is exactly this text.
    [[nodiscard]] bool Has(TraceLevel level, std::string_view message) const { return CountOf(level, message) != 0; }

    /// Whether any message holds this text: to show that a secret is in none.
    [[nodiscard]] bool Mentions(std::string_view text) const;

    /// Forgets what was kept so far.
    void Clear();

private:
    static void TakeEvent(void* context, const Eventing::Event* event);

    mutable std::mutex m_mutex;
    std::vector<TracedEvent> m_events;
    Eventing::ProviderHandle m_handle;
    Eventing::ProviderHandle m_previous;
};

/// All events, one a line.
std::ostream& operator<<(std::ostream& stream, const TraceCapture& capture);
