#pragma once

#include <mutex>
#include <utility>

namespace Quendra::Platform
{
/// A value that one thread may change while another reads it.
template <class Value> class Guarded
{
public:
    explicit Guarded(Value value) : m_value(std::move(value)) {}

    Value Get() const
    {
        const std::lock_guard lock(m_mutex);
        return m_value;
    }

    /// Changes the value atomically.
    template <class Change> void Update(Change change)
    {
        const std::lock_guard lock(m_mutex);
        change(m_value);
    }

private:
    mutable std::mutex m_mutex;
    Value m_value;
};
} // namespace Quendra::Platform
