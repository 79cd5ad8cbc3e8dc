#pragma once

/// @file
/// What changed, kept for each session until it asks.

#include <json/value.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

namespace ApplianceParts
{

/// Safe to use from several threads.
class Feed
{
public:
    /// From now on a session's actions are kept for it.
    void Open(const std::string& token);

    /// Tells every session of an action on one path, `{"a":"create","m":"/x"}`, or with a target on two:
    /// `{"a":"move","m":{"from":"/x","to":"/y"}}`.
    void Publish(const std::string& action, const std::string& path, const std::string& target = {});

    /// Waits until there is an action for the session, and takes all that are there.
    /// @param isWanted  asked before the actions are taken: they stay for the session's next request where nobody waits any more.
    /// @returns an array; empty where the time ran out, nobody waits, or the feed stopped.
    [[nodiscard]] Json::Value Take(const std::string& token, std::chrono::milliseconds timeout, const std::function<bool()>& isWanted);

    /// Ends every wait, now and later.
    void Stop();

private:
    struct Queue
    {
        std::string token;
        std::deque<Json::Value> actions;
    };

    Queue& QueueOf(const std::string& token);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Queue> m_queues; ///< the oldest first.
    bool m_isStopped = false;
};

} // namespace ApplianceParts
