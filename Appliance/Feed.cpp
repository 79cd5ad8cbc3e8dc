#include "Feed.h"

#include "Http.h"

#include <algorithm>

namespace ApplianceParts
{

namespace
{

constexpr std::size_t kMostQueues = 1000;
constexpr std::size_t kMostActions = 10'000;

} // namespace

void Feed::Open(const std::string& token)
{
    const std::lock_guard guard(m_mutex);
    (void)QueueOf(token);
}

void Feed::Publish(const std::string& action, const std::string& path, const std::string& target)
{
    const auto operand = target.empty() ? Json::Value(path) : JsonObject({{"from", path}, {"to", target}});
    const auto entry = JsonObject({{"a", action}, {"m", operand}});
    const std::lock_guard guard(m_mutex);
    for (auto& queue : m_queues)
    {
        if (queue.actions.size() == kMostActions)
            queue.actions.pop_front();
        queue.actions.push_back(entry);
    }
    m_changed.notify_all();
}

Json::Value Feed::Take(const std::string& token, std::chrono::milliseconds timeout, const std::function<bool()>& isWanted)
{
    Json::Value taken(Json::arrayValue);
    std::unique_lock lock(m_mutex);
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    // The queue is looked up again each time: queues may have been added or removed during the wait.
    m_changed.wait_until(lock, deadline, [&] { return m_isStopped || !QueueOf(token).actions.empty(); });
    if (m_isStopped || !isWanted())
        return taken;
    for (auto& action : QueueOf(token).actions)
        taken.append(std::move(action));
    QueueOf(token).actions.clear();
    return taken;
}

void Feed::Stop()
{
    const std::lock_guard guard(m_mutex);
    m_isStopped = true;
    m_changed.notify_all();
}

Feed::Queue& Feed::QueueOf(const std::string& token)
{
    const auto found = std::find_if(m_queues.begin(), m_queues.end(), [&](const Queue& each) { return each.token == token; });
    if (found != m_queues.end())
        return *found;
    if (m_queues.size() == kMostQueues)
        m_queues.pop_front();
    return m_queues.emplace_back(Queue{token, {}});
}

} // namespace ApplianceParts
