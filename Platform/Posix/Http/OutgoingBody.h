#pragma once

/// @file
/// The sending half of an exchange: the request's body, from the caller's writes to curl.

#include "EasyHandle.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace Quendra::Platform
{

/// Collects short writes and hands them to curl together. Sending is paused while curl asks for bytes that were not written yet.
class OutgoingBody
{
public:
    /// The number of bytes that are collected before they are sent. Callers write in small blocks, and each send costs the same system
    /// calls and wakes the server up, however short it is.
    static constexpr std::size_t kCollectedBytes = 256 * 1024;

    /// @param length  as announced to the server.
    explicit OutgoingBody(std::uint64_t length) noexcept : m_length(length), m_left(length) {}

    /// Sets curl's callback. This object must outlive the easy handle.
    void AttachTo(EasyHandle& easy);

    /// Adds bytes, no more than are left. If enough have been collected, or these are the last, curl is offered all of them: they must stay
    /// valid until `EndOffer`.
    /// @return whether there is an offer.
    [[nodiscard]] bool Add(std::string_view bytes);

    /// Offers curl what was collected from a sender that stopped early; otherwise there is nothing.
    void OfferCollected() noexcept { m_offered = {m_collected, {}}; }

    void EndOffer() noexcept
    {
        m_offered = {};
        m_collected.clear();
    }

    /// Whether curl has taken all bytes that it was offered.
    bool IsTaken() const noexcept { return m_offered[0].empty() && m_offered[1].empty(); }

    /// Announced bytes that were not added yet.
    std::uint64_t Left() const noexcept { return m_left; }
    std::uint64_t Taken() const noexcept { return m_taken; }
    /// Whether curl has taken all announced bytes.
    bool IsWholeTaken() const noexcept { return m_taken == m_length; }

    bool IsPaused() const noexcept { return m_isPaused; }
    /// @return whether it was paused.
    bool Unpause() noexcept { return std::exchange(m_isPaused, false); }

private:
    static std::size_t OnSend(char* target, std::size_t size, std::size_t count, void* self) noexcept;

    std::string m_collected;                   // of multipart bodies, which hold no password or token. Forms with one go to curl at once.
    std::array<std::string_view, 2> m_offered; // not taken yet: the collected bytes, and the last write
    const std::uint64_t m_length;
    std::uint64_t m_left;
    std::uint64_t m_taken = 0;
    bool m_isPaused = false;
};

} // namespace Quendra::Platform
