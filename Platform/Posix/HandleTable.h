#pragma once

/// @file
/// The table between the opaque handles that callers hold and the objects behind them. A handle value is never reused in a process, so a
/// call with a closed handle finds no object.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace Quendra::Platform
{

/// Allocates handle values, in one sequence for all tables of the process. Multiples of 4 differ from the values that the platform
/// predefines.
class HandleValues
{
public:
    static void* Next() noexcept
    {
        static std::atomic<std::uintptr_t> last = 0x1000;
        return reinterpret_cast<void*>(last += kStep); // NOLINT(performance-no-int-to-ptr): a handle is an opaque number
    }

    /// The position of a handle in the sequence.
    static std::size_t Number(const void* handle) noexcept { return reinterpret_cast<std::uintptr_t>(handle) / kStep; }

private:
    static constexpr std::uintptr_t kStep = 4;
};

/// Handles to objects derived from `Object`. Thread-safe. A found object stays alive as long as its pointer is held, even if the handle is
/// closed meanwhile.
template <typename Object> class HandleTable
{
public:
    /// The process's table; never destroyed, so that handles may be closed by destructors of static objects.
    static HandleTable& Instance()
    {
        static auto* const table = new HandleTable;
        return *table;
    }

    void* Insert(std::shared_ptr<Object> object)
    {
        void* const handle = HandleValues::Next();
        auto& part = PartOf(handle);
        const std::lock_guard lock(part.mutex);
        part.objects.emplace(handle, std::move(object));
        return handle;
    }

    /// Null where the handle is unknown or closed.
    std::shared_ptr<Object> Find(void* handle)
    {
        auto& part = PartOf(handle);
        const std::lock_guard lock(part.mutex);
        const auto found = part.objects.find(handle);
        return found == part.objects.end() ? nullptr : found->second;
    }

    /// Removes and returns the object; null where the handle is unknown or closed. If two threads close a handle, one gets the object.
    std::shared_ptr<Object> Remove(void* handle)
    {
        auto& part = PartOf(handle);
        const std::lock_guard lock(part.mutex);
        const auto node = part.objects.extract(handle);
        return node.empty() ? nullptr : std::move(node.mapped());
    }

private:
    struct Part
    {
        std::mutex mutex;
        std::unordered_map<void*, std::shared_ptr<Object>> objects;
    };

    HandleTable() = default;

    Part& PartOf(const void* handle) noexcept { return m_parts[HandleValues::Number(handle) % m_parts.size()]; }

    std::array<Part, 64> m_parts; // so that threads with handles of their own seldom wait for each other
};

} // namespace Quendra::Platform
