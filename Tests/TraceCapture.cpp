#include "TraceCapture.h"

#include "Tracing.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

std::ostream& operator<<(std::ostream& stream, const TracedEvent& event)
{
    static constexpr const char* kLevels[] = {"ALL", "CRIT", "ERROR", "WARN", "INFO"};
    const char* kind = event.isEntry ? "ENTER" : event.isExit ? "EXIT" : event.level < std::size(kLevels) ? kLevels[event.level] : "DEBUG";
    stream << kind << ' ' << event.unit << ':' << event.line << ' ' << event.function;
    return event.IsMessage() ? stream << ": " << event.message : stream;
}

TraceCapture::TraceCapture(TraceLevel level, std::uint64_t keywords)
    : m_handle(OpenEventSink(level.Value(), keywords, TakeEvent, this)), m_previous(EventProviderHandle)
{
    if (m_handle == 0)
        throw std::runtime_error("No event sink is free");
    EventProviderHandle = m_handle;
}

TraceCapture::~TraceCapture()
{
    EventProviderHandle = m_previous;
    CloseEventSink(m_handle);
}

void TraceCapture::TakeEvent(void* context, const Eventing::Event* event)
{
    auto& self = *static_cast<TraceCapture*>(context);
    const bool isEntry = event->descriptor->id == Eventing::kFunctionEntryId;
    const bool isExit = event->descriptor->id == Eventing::kFunctionExitId;
    TracedEvent kept{event->descriptor->id,
                     event->descriptor->level,
                     event->sourceUnit,
                     event->line,
                     event->function,
                     event->message != nullptr ? event->message : "",
                     isEntry,
                     isExit,
                     event->threadId};
    const std::lock_guard lock(self.m_mutex);
    self.m_events.push_back(std::move(kept));
}

std::vector<TracedEvent> TraceCapture::Events() const
{
    const std::lock_guard lock(m_mutex);
    return m_events;
}

std::vector<std::string> TraceCapture::Messages() const
{
    std::vector<std::string> messages;
    for (const auto& event : Events())
        if (event.IsMessage())
            messages.push_back(event.message);
    return messages;
}

std::vector<std::string> TraceCapture::Messages(TraceLevel level) const
{
    std::vector<std::string> messages;
    for (const auto& event : Events())
        if (event.IsMessage() && event.level == level.Value())
            messages.push_back(event.message);
    return messages;
}

std::vector<TracedEvent> TraceCapture::EventsOf(std::string_view function) const
{
    auto events = Events();
    std::erase_if(events, [function](const TracedEvent& event) { return event.function != function; });
    return events;
}

std::size_t TraceCapture::CountOf(TraceLevel level, std::string_view message) const
{
    const auto messages = Messages(level);
    return static_cast<std::size_t>(std::count(messages.begin(), messages.end(), message));
}

bool TraceCapture::Mentions(std::string_view text) const
{
    const auto messages = Messages();
    return std::any_of(messages.begin(), messages.end(),
                       [text](const std::string& message) { return message.find(text) != std::string::npos; });
}

void TraceCapture::Clear()
{
    const std::lock_guard lock(m_mutex);
    m_events.clear();
}

std::ostream& operator<<(std::ostream& stream, const TraceCapture& capture)
{
    stream << "Traced:\n";
    for (const auto& event : capture.Events())
        stream << "  " << event << '\n';
    return stream;
}
