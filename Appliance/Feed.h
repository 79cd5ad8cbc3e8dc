#pragma once

/// @file
/// The change feed: actions are kept for each session until it requests them.

#include "Http.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace ApplianceParts
{

/// Safe to use from several threads.
class Feed
{
public:
    /// Starts to keep actions for a session.
    void Open(const std::string& token)
    {
        const std::lock_guard guard(m_mutex);
        m_queues.try_emplace(token);
    }

    /// Stops keeping actions for a session, and ends its waits.
    void Close(const std::string& token)
    {
        const std::lock_guard guard(m_mutex);
        m_queues.erase(token);
        m_changed.notify_all();
    }

    /// Adds an action to every session's queue: for one path, `{"a":"create","m":"/x"}`, or with a target for two:
    /// `{"a":"move","m":{"from":"/x","to":"/y"}}`.
    void Publish(const std::string& action, const std::string& path, const std::string& target = {})
    {
        const auto operand = target.empty() ? Json::Value(path) : JsonObject({{"from", path}, {"to", target}});
        const auto entry = JsonObject({{"a", action}, {"m", operand}});
        const std::lock_guard guard(m_mutex);
        for (auto& [token, actions] : m_queues)
        {
            if (actions.size() == kMostActions)
                actions.pop_front();
            actions.push_back(entry);
        }
        m_changed.notify_all();
    }

    /// Waits until there is an action for the session, and takes all that are there.
    /// @param isWanted  called during the wait and before the actions are taken: if it returns false, they stay for the session's next
    ///                  request.
    /// @return an array; empty after the time limit, if `isWanted` returns false, or if no actions are kept for the session any more.
    [[nodiscard]] Json::Value Take(const std::string& token, std::chrono::milliseconds timeout, const std::function<bool()>& isWanted)
    {
        Json::Value taken(Json::arrayValue);
        std::unique_lock lock(m_mutex);
        auto queue = m_queues.end();
        const auto isReady = [&] {
            queue = m_queues.find(token); // again each time: queues may have been added or removed during the wait
            return m_isStopped || queue == m_queues.end() || !queue->second.empty();
        };
        for (auto left = timeout; left.count() > 0 && !m_changed.wait_for(lock, kLookUp, isReady) && isWanted(); left -= kLookUp)
            ;
        if (m_isStopped || queue == m_queues.end() || !isWanted())
            return taken;
        for (auto& action : queue->second)
            taken.append(std::move(action));
        queue->second.clear();
        return taken;
    }

    /// Ends every wait, now and later.
    void Stop()
    {
        const std::lock_guard guard(m_mutex);
        m_isStopped = true;
        m_changed.notify_all();
    }

private:
    static constexpr std::size_t kMostActions = 10'000;
    static constexpr std::chrono::milliseconds kLookUp{1000};

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::string, std::deque<Json::Value>> m_queues; ///< by the session's token.
    bool m_isStopped = false;
};

} // namespace ApplianceParts
