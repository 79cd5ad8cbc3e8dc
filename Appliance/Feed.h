#pragma once

/// @file
/// The change feed: actions are kept for each session until it requests them.

#include <json/value.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace ApplianceParts
{

/// Safe to use from several threads.
class Feed
{
public:
    /// Starts to keep actions for a session.
    void Open(const std::string& token);

    /// Adds an action to every session's queue: for one path, `{"a":"create","m":"/x"}`, or with a target for two:
    /// `{"a":"move","m":{"from":"/x","to":"/y"}}`.
    void Publish(const std::string& action, const std::string& path, const std::string& target = {});

    /// Waits until there is an action for the session, and takes all that are there.
    /// @param isWanted  called before the actions are taken: if it returns false, they stay for the session's next request.
    /// @return an array; empty after the time limit, if `isWanted` returns false, or if the feed stopped.
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
