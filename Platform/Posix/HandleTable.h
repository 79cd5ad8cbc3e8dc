#pragma once

/// @file
/// The table between the opaque handles that callers hold and the objects behind them. A handle's value is never used
/// twice in a process, so a call on a handle that was closed finds nothing: there is no dangling handle.

#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <utility>

/// Hands out handle values, one sequence for every table of the process. Multiples of 4 keep clear of the values that the
/// platform predefines.
class HandleValues
{
public:
    static void* Next() noexcept
    {
        static std::mutex mutex;
        static std::uintptr_t last = 0x1000;
        const std::lock_guard lock(mutex);
        last += 4;
        return reinterpret_cast<void*>(last); // NOLINT(performance-no-int-to-ptr): a handle is a number in a pointer's clothes
    }
};

/// Handles to objects derived from `Object`. Thread-safe. A found object stays alive as long as its pointer is held, whoever
/// closes the handle meanwhile.
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

    /// Takes the object out; null where the handle is unknown or closed, so of two closers one gets the object.
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
