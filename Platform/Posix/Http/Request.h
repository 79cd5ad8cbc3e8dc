#pragma once

/// @file
/// A request: its headers and its current exchange.

#include "Address.h"
#include "HttpObject.h"
#include "Interruption.h"
#include "RequestHeaders.h"
#include "Session.h"
#include "Transfer.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Quendra::Platform
{

/// One call at a time, except `OnClosed`. The operations return 0 or an error value.
class Request final : public TimedObject
{
public:
    /// @param path as the caller gave it, in UTF-8.
    Request(std::shared_ptr<Connection> connection, std::string verb, std::string_view path, bool secure);

    void EndOnEvent(HANDLE event) noexcept { m_interruption.SetEvent(event); }
    DWORD AddHeaders(std::string_view lines, DWORD modifiers);
    DWORD Send(std::string_view headerLines, std::string_view body, std::uint64_t totalLength);
    DWORD Write(std::string_view bytes);
    DWORD Receive();
    DWORD DataAvailable(std::size_t& bytes);
    DWORD Read(char* target, std::size_t capacity, std::size_t& count);

    /// The reply's head; null before the reply.
    const ReplyHead* Reply() const noexcept;

    void OnClosed() noexcept override { m_interruption.Raise(); }

private:
    enum class State
    {
        Opened,  ///< headers may be added
        Sent,    ///< the body may be written
        Replied, ///< the reply may be read
    };

    DWORD AnnounceBody(std::string_view body, std::uint64_t totalLength);
    DWORD StartTransfer(std::string_view body);

    const std::shared_ptr<Connection> m_connection;
    const std::string m_verb;
    bool m_knowsHost = true;
    Address m_address;
    RequestHeaders m_headers;
    std::optional<std::uint64_t> m_bodyLength;

    State m_state = State::Opened;
    Interruption m_interruption;
    std::unique_ptr<Transfer> m_transfer;
};

} // namespace Quendra::Platform
