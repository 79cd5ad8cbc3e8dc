// Apart from the benchmarks, so that no compiler sees both ends of an allocation and takes them for a mismatch.

#include "AllocationCounter.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<std::int64_t> allocatedBytes = 0;
std::atomic<std::int64_t> peakBytes = 0;

// Every block remembers its size in front of itself.
constexpr std::size_t kHeaderSize = alignof(std::max_align_t);

} // namespace

std::int64_t AllocatedBytes()
{
    return allocatedBytes.load(std::memory_order_relaxed);
}

std::int64_t TakePeakBytes()
{
    return peakBytes.exchange(AllocatedBytes(), std::memory_order_relaxed);
}

void* operator new(std::size_t size)
{
    void* const block = std::malloc(size + kHeaderSize);
    if (block == nullptr)
        throw std::bad_alloc();
    *static_cast<std::size_t*>(block) = size;
    const auto asked = static_cast<std::int64_t>(size);
    const std::int64_t now = allocatedBytes.fetch_add(asked, std::memory_order_relaxed) + asked;
    if (now > peakBytes.load(std::memory_order_relaxed)) // benchmarks allocate in one thread
        peakBytes.store(now, std::memory_order_relaxed);
    return static_cast<std::byte*>(block) + kHeaderSize;
}

void operator delete(void* memory) noexcept
{
    if (memory == nullptr)
        return;
    void* const block = static_cast<std::byte*>(memory) - kHeaderSize;
    allocatedBytes.fetch_sub(static_cast<std::int64_t>(*static_cast<std::size_t*>(block)), std::memory_order_relaxed);
    std::free(block);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}
