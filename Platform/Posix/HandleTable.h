#pragma once

/// @file
/// The table between the opaque handles that callers hold and the objects behind them. A handle value is never reused in a process, so a
/// call with a closed handle finds no object.

#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
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
        static std::mutex mutex;
        static std::uintptr_t last = 0x1000;
        const std::lock_guard lock(mutex);
        last += 4;
        return reinterpret_cast<void*>(last); // NOLINT(performance-no-int-to-ptr): a handle is an opaque number
    }
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
        const std::lock_guard lock(m_mutex);
        m_objects.emplace(handle, std::move(object));
        return handle;
    }

    /// Null where the handle is unknown or closed.
    std::shared_ptr<Object> Find(void* handle) const
    {
        const std::shared_lock lock(m_mutex);
        const auto found = m_objects.find(handle);
        return found == m_objects.end() ? nullptr : found->second;
    }

    /// Removes and returns the object; null where the handle is unknown or closed. If two threads close a handle, one gets the object.
    std::shared_ptr<Object> Remove(void* handle)
    {
        const std::lock_guard lock(m_mutex);
        const auto found = m_objects.find(handle);
        if (found == m_objects.end())
            return nullptr;
        auto object = std::move(found->second);
        m_objects.erase(found);
        return object;
    }

private:
    HandleTable() = default;

    mutable std::shared_mutex m_mutex;
    std::unordered_map<void*, std::shared_ptr<Object>> m_objects;
};
} // namespace Quendra::Platform
