#include "Lane.h"

#include <new>
#include <utility>

namespace
{
/// Lanes beyond this number are closed when they come back: a burst of requests does not keep its connections for good.
constexpr std::size_t kMaxIdleLanes = 8;

void InitialiseCurl()
{
    // Once per process; a static's initialisation is thread-safe.
    static const CURLcode result = curl_global_init(CURL_GLOBAL_ALL);
    if (result != CURLE_OK)
    {
        throw std::bad_alloc();
    }
}
} // namespace

Lane::Lane()
{
    InitialiseCurl();
    m_multi.reset(curl_multi_init());
    m_easy.reset(curl_easy_init());
    if (!m_multi || !m_easy)
    {
        throw std::bad_alloc();
    }
}

LanePool::LanePool()
{
    // So that putting a lane back cannot fail.
    m_idle.reserve(kMaxIdleLanes);
}

LanePool::Borrowed LanePool::Borrow()
{
    std::unique_ptr<Lane> lane;
    {
        const std::lock_guard lock(m_mutex);
        if (!m_idle.empty())
        {
            lane = std::move(m_idle.back());
            m_idle.pop_back();
        }
    }
    if (!lane)
    {
        lane = std::make_unique<Lane>();
    }
    return {lane.release(), Return(shared_from_this())};
}

void LanePool::Return::operator()(Lane* lane) const noexcept
{
    std::unique_ptr<Lane> owned(lane);
    const std::lock_guard lock(m_pool->m_mutex);
    if (m_pool->m_idle.size() < kMaxIdleLanes)
    {
        m_pool->m_idle.push_back(std::move(owned));
    }
}
