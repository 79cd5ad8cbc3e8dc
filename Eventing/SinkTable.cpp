#include "SinkTable.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <mutex>

namespace Eventing
{
namespace
{

// Distinguishes sink handles from the system's provider handles: those are user-mode addresses with a small number in the upper bits and
// never have the highest bit set.
constexpr std::uint64_t kTag = 0xE51C;
constexpr unsigned kTagShift = 48;

struct Sink
{
    ProviderHandle handle = 0; // 0: the sink is free
    std::uint8_t level = 0;
    std::uint64_t keywords = 0;
    EventCallback callback = nullptr;
    void* context = nullptr;
    bool isOpen = false;  // also false while it is being closed
    unsigned running = 0; // calls of the callback that have not returned
};

// Guards everything below except the level. It is not held while a callback runs: callbacks may open and close other sinks.
std::mutex g_mutex;
std::condition_variable g_lastCallbackReturned;
std::array<Sink, 16> g_sinks;
ProviderHandle g_lastHandle = kTag << kTagShift;

// The highest level of the open sinks, -1 if there is none. If tracing is off, an event costs only this read.
std::atomic<int> g_highestLevel = -1;

void UpdateHighestLevel() noexcept
{
    int highest = -1;
    for (const Sink& sink : g_sinks)
        if (sink.isOpen)
            highest = std::max<int>(highest, sink.level);
    g_highestLevel.store(highest, std::memory_order_relaxed);
}

Sink* FindOpen(ProviderHandle handle) noexcept
{
    const auto found = std::find_if(g_sinks.begin(), g_sinks.end(), [=](const Sink& sink) { return sink.isOpen && sink.handle == handle; });
    return found != g_sinks.end() ? &*found : nullptr;
}

Sink* FindListening(ProviderHandle handle, const EventDescriptor& descriptor) noexcept
{
    Sink* const sink = FindOpen(handle);
    return sink != nullptr && descriptor.level <= sink->level && (descriptor.keyword & sink->keywords) != 0 ? sink : nullptr;
}

} // namespace

bool IsSinkHandle(ProviderHandle handle) noexcept
{
    return handle >> kTagShift == kTag;
}

bool IsSinkEnabled(ProviderHandle handle, const EventDescriptor& descriptor) noexcept
{
    if (descriptor.level > g_highestLevel.load(std::memory_order_relaxed))
        return false;
    const std::lock_guard lock(g_mutex);
    return FindListening(handle, descriptor) != nullptr;
}

void WriteToSink(ProviderHandle handle, const Event& event) noexcept
{
    std::unique_lock lock(g_mutex);
    Sink* const sink = FindListening(handle, *event.descriptor);
    if (sink == nullptr)
        return;
    ++sink->running;
    lock.unlock();
    sink->callback(sink->context, &event);
    lock.lock();
    if (--sink->running == 0 && !sink->isOpen)
        g_lastCallbackReturned.notify_all();
}

} // namespace Eventing

Eventing::ProviderHandle OpenEventSink(std::uint8_t level, std::uint64_t keywords, Eventing::EventCallback callback, void* context) noexcept
{
    using namespace Eventing;
    if (callback == nullptr)
        return 0;
    const std::lock_guard lock(g_mutex);
    const auto sink = std::find_if(g_sinks.begin(), g_sinks.end(), [](const Sink& each) { return each.handle == 0; });
    if (sink == g_sinks.end())
        return 0;
    *sink = {++g_lastHandle, level, keywords, callback, context, true};
    UpdateHighestLevel();
    return sink->handle;
}

void CloseEventSink(Eventing::ProviderHandle provider) noexcept
{
    using namespace Eventing;
    std::unique_lock lock(g_mutex);
    Sink* const sink = FindOpen(provider);
    if (sink == nullptr)
        return;
    sink->isOpen = false;
    UpdateHighestLevel();
    g_lastCallbackReturned.wait(lock, [sink] { return sink->running == 0; });
    sink->handle = 0;
}
