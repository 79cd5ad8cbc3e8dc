#pragma once

/// @file
/// Plays faults on one connection.

#include "Faults.h"
#include "Socket.h"

#include <boost/asio/error.hpp>
#include <boost/asio/write.hpp>

#include <algorithm>
#include <memory>
#include <utility>

namespace ApplianceParts
{

/// A stream whose written bytes a fault cuts, changes or delays.
/// @tparam Stream  the socket itself, or TLS over it.
template <typename Stream> class FaultStream
{
public:
    FaultStream(Socket& socket, Stream& stream) : m_socket(socket), m_stream(stream) {}

    /// Begins a reply that has this fault, or none.
    void Begin(std::shared_ptr<const Fault> fault)
    {
        m_fault = std::move(fault);
        m_sent = 0;
        m_blockLeft = 0;
    }

    /// Sends the fault's own reply.
    void SendReply()
    {
        constexpr std::size_t kBlockSize = 64 * 1024;
        ErrorCode error;
        for (const auto& [wait, bytes, times] : *m_fault->reply)
        {
            m_socket.WaitForEnd(wait);
            // Short texts are sent many at once.
            const auto atOnce = std::min<std::uint64_t>(times, kBlockSize / std::max<std::size_t>(bytes.size(), 1) + 1);
            std::string block;
            for (std::uint64_t count = 0; count < atOnce; ++count)
                block += bytes;
            for (auto left = times; left > 0 && !error; left -= std::min(left, atOnce))
                boost::asio::write(*this, boost::asio::buffer(block, static_cast<std::size_t>(std::min(left, atOnce)) * bytes.size()),
                                   error);
        }
    }

    /// Does to the connection what the fault says. @return whether it can be used for another request.
    bool End()
    {
        if (!m_fault || m_fault->end == FaultEnd::Keep)
            return true;
        if (!m_fault->reply && m_fault->cut != Fault::kNever && m_sent < m_fault->cut)
            return true; // the reply was too short to be cut
        if (m_fault->end == FaultEnd::Reset)
            m_socket.Reset();
        if (m_fault->end == FaultEnd::Silent)
            m_socket.WaitForEnd(kLongestSilence);
        return false;
    }

    template <typename Buffers> std::size_t read_some(const Buffers& buffers, ErrorCode& error)
    {
        return m_stream.read_some(buffers, error);
    }

    template <typename Buffers> std::size_t write_some(const Buffers& buffers, ErrorCode& error)
    {
        if (!m_fault)
        {
            m_socket.BeginStep(kStepTimeout);
            return m_stream.write_some(buffers, error);
        }
        boost::asio::const_buffer next;
        for (auto at = boost::asio::buffer_sequence_begin(buffers); next.size() == 0 && at != boost::asio::buffer_sequence_end(buffers);
             ++at)
            next = *at;
        return WriteFaulty(next, error);
    }

    // Required by Beast's stream concepts, never called.
    template <typename Buffers> std::size_t read_some(const Buffers& buffers);
    template <typename Buffers> std::size_t write_some(const Buffers& buffers);

private:
    static constexpr std::chrono::minutes kStepTimeout{5};
    static constexpr std::chrono::minutes kLongestSilence{10};

    // Writes up to the next byte at which something happens.
    std::size_t WriteFaulty(boost::asio::const_buffer bytes, ErrorCode& error)
    {
        const Fault& fault = *m_fault;
        if (m_sent == fault.stallAt)
            m_socket.WaitForEnd(fault.stall);
        if (m_blockLeft == 0) // one pause for a block, however many pieces it is written in
        {
            m_socket.WaitForEnd(fault.pause);
            m_blockLeft = fault.blockSize;
        }
        error = {};
        if (m_sent == fault.cut)
            error = boost::asio::error::broken_pipe;
        if (error || bytes.size() == 0)
            return 0;
        auto most = std::min<std::uint64_t>(bytes.size(), m_blockLeft);
        for (const auto stop :
             {fault.cut, fault.stallAt, fault.corrupt, fault.corrupt == Fault::kNever ? fault.corrupt : fault.corrupt + 1})
            if (stop > m_sent)
                most = std::min(most, stop - m_sent);
        auto byte = *static_cast<const char*>(bytes.data());
        if (m_sent == fault.corrupt)
        {
            byte = static_cast<char>(byte ^ 0x15);
            bytes = {&byte, 1};
        }
        m_socket.BeginStep(kStepTimeout);
        const auto written = m_stream.write_some(boost::asio::buffer(bytes, static_cast<std::size_t>(most)), error);
        m_sent += written;
        m_blockLeft -= written;
        return written;
    }

    Socket& m_socket;
    Stream& m_stream;
    std::shared_ptr<const Fault> m_fault;
    std::uint64_t m_sent = 0;
    std::uint64_t m_blockLeft = 0;
};

/// Plays the faults that are for whole connections, and serves the others.
inline std::function<void(Socket&)> PlayAtConnections(FaultChooser choose, std::function<void(Socket&)> serve)
{
    return [choose = std::move(choose), serve = std::move(serve)](Socket& socket) {
        auto fault = choose({});
        if (!fault)
            return serve(socket);
        FaultStream stream(socket, socket);
        stream.Begin(std::move(fault));
        stream.SendReply();
        stream.End();
    };
}

} // namespace ApplianceParts
