#include "OutgoingBody.h"

#include <algorithm>
#include <cstring>

namespace Quendra::Platform
{

void OutgoingBody::AttachTo(EasyHandle& easy)
{
    easy.Set(CURLOPT_READFUNCTION, &OutgoingBody::OnSend);
    easy.Set(CURLOPT_READDATA, static_cast<void*>(this));
}

bool OutgoingBody::Add(std::string_view bytes)
{
    const bool isDue = m_collected.size() + bytes.size() >= kCollectedBytes || bytes.size() == m_left;
    if (isDue)
    {
        m_offered = {m_collected, bytes};
    }
    else
    {
        m_collected.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(m_left, kCollectedBytes)));
        m_collected.append(bytes);
    }
    m_left -= bytes.size();
    return isDue;
}

std::size_t OutgoingBody::OnSend(char* target, std::size_t size, std::size_t count, void* self) noexcept
{
    auto& body = *static_cast<OutgoingBody*>(self);
    std::size_t sent = 0;
    for (auto& source : body.m_offered)
    {
        const auto moved = std::min(size * count - sent, source.size());
        if (moved != 0)
        {
            std::memcpy(target + sent, source.data(), moved);
            source.remove_prefix(moved);
            sent += moved;
        }
    }
    body.m_taken += sent;
    body.m_isPaused = sent == 0;
    return sent != 0 ? sent : CURL_READFUNC_PAUSE;
}

} // namespace Quendra::Platform
