#include "SinkTable.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <shared_mutex>

// A slot's life. Asking whether a sink listens reads atomics only; writing to one that does also holds the slot's lock together
// with other writers. Closing first takes the sink away and then waits for the writers that found it:
//
//     free --OpenEventSink--> reserved --filled--> open --CloseEventSink--> reserved --last writer left--> free
//
// A handle is tag (16 bits), generation (40), slot (8). The system's provider handles are user-mode addresses with a small
// number above them and never have the tag's highest bit; generations keep a closed sink's handle away from its slot's next.

namespace Eventing
{
namespace
{

constexpr std::uint64_t kTag = 0xE51C;
constexpr unsigned kTagShift = 48;
constexpr unsigned kGenerationShift = 8;
constexpr std::uint64_t kGenerationMask = (std::uint64_t{1} << (kTagShift - kGenerationShift)) - 1;
constexpr std::uint64_t kSlotMask = 0xFF;

constexpr ProviderHandle kFree = 0;
constexpr ProviderHandle kReserved = 1;

struct SinkSlot
{
    std::atomic<ProviderHandle> handle{kFree};
    std::atomic<std::uint8_t> level{0};
    std::atomic<std::uint64_t> keywords{0};
    std::uint64_t generation{0};
    EventCallback callback{nullptr};
    void* context{nullptr};
    std::shared_mutex writing;
};

std::array<SinkSlot, 16> g_slots;

SinkSlot* FindSlot(ProviderHandle handle) noexcept
{
    const std::size_t index = handle & kSlotMask;
    return IsSinkHandle(handle) && index < g_slots.size() ? &g_slots[index] : nullptr;
}

bool Passes(const SinkSlot& slot, const EventDescriptor& descriptor) noexcept
{
    return descriptor.level <= slot.level.load(std::memory_order_relaxed) &&
           (descriptor.keyword & slot.keywords.load(std::memory_order_relaxed)) != 0;
}

} // namespace

bool IsSinkHandle(ProviderHandle handle) noexcept
{
    return handle >> kTagShift == kTag;
}

bool IsSinkEnabled(ProviderHandle handle, const EventDescriptor& descriptor) noexcept
{
    const SinkSlot* slot = FindSlot(handle);
    return slot != nullptr && slot->handle.load(std::memory_order_acquire) == handle && Passes(*slot, descriptor);
}

void WriteToSink(ProviderHandle handle, const Event& event) noexcept
{
    // Looking first keeps writers with a former handle from delaying those who close.
    if (!IsSinkEnabled(handle, *event.descriptor))
        return;
    SinkSlot& slot = *FindSlot(handle);
    const std::shared_lock lock(slot.writing);
    if (slot.handle.load(std::memory_order_acquire) == handle && Passes(slot, *event.descriptor))
        slot.callback(slot.context, &event);
}

} // namespace Eventing

Eventing::ProviderHandle OpenEventSink(std::uint8_t level, std::uint64_t keywords, Eventing::EventCallback callback, void* context) noexcept
{
    using namespace Eventing;
    if (callback == nullptr)
        return 0;
    for (std::size_t index = 0; index < g_slots.size(); ++index)
    {
        SinkSlot& slot = g_slots[index];
        ProviderHandle expected = kFree;
        if (!slot.handle.compare_exchange_strong(expected, kReserved))
            continue;
        // The lock is made here, by one thread: that of mingw-w64, made by two writers at once on their first use, loses one of them.
        std::unique_lock(slot.writing).unlock();
        slot.level.store(level, std::memory_order_relaxed);
        slot.keywords.store(keywords, std::memory_order_relaxed);
        slot.callback = callback;
        slot.context = context;
        slot.generation = (slot.generation + 1) & kGenerationMask;
        const ProviderHandle handle = kTag << kTagShift | slot.generation << kGenerationShift | index;
        slot.handle.store(handle);
        return handle;
    }
    return 0;
}

void CloseEventSink(Eventing::ProviderHandle provider) noexcept
{
    using namespace Eventing;
    SinkSlot* slot = FindSlot(provider);
    ProviderHandle expected = provider;
    if (slot == nullptr || !slot->handle.compare_exchange_strong(expected, kReserved))
        return;
    // Whoever found the sink open holds the lock until its callback has returned.
    std::unique_lock(slot->writing).unlock();
    slot->handle.store(kFree);
}
