#pragma once

/// @file
/// Adapts a channel to a synchronous stream for Boost.Asio and Boost.Beast. Only sources that call these libraries include it.

#include "Channel.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/system/error_code.hpp>

#include <algorithm>
#include <vector>

namespace ApplianceParts
{

class ChannelStream
{
public:
    using ErrorCode = boost::system::error_code;
    // Required by Asio's TLS stream, which uses it for asynchronous operations only.
    using lowest_layer_type = ChannelStream;
    using executor_type = boost::asio::io_context::executor_type;

    explicit ChannelStream(IChannel& channel) : m_channel(channel) {}

    ChannelStream& lowest_layer() { return *this; }
    static executor_type get_executor()
    {
        static boost::asio::io_context context;
        return context.get_executor();
    }

    template <typename Buffers> std::size_t read_some(const Buffers& buffers, ErrorCode& error)
    {
        const boost::asio::mutable_buffer first = *boost::asio::buffer_sequence_begin(buffers);
        return Judge(m_channel.Read(static_cast<char*>(first.data()), first.size()), error);
    }

    // Sends several buffers, such as a reply's head and its text, in one write.
    template <typename Buffers> std::size_t write_some(const Buffers& buffers, ErrorCode& error)
    {
        const boost::asio::const_buffer first = *boost::asio::buffer_sequence_begin(buffers);
        const std::size_t size = boost::asio::buffer_size(buffers);
        if (first.size() == size)
            return Judge(m_channel.Write(static_cast<const char*>(first.data()), size), error);
        std::vector<char> block(std::min<std::size_t>(size, 64 * 1024));
        boost::asio::buffer_copy(boost::asio::buffer(block), buffers);
        return Judge(m_channel.Write(block.data(), block.size()), error);
    }

    // Required by Beast's stream concepts, never called.
    template <typename Buffers> std::size_t read_some(const Buffers& buffers);
    template <typename Buffers> std::size_t write_some(const Buffers& buffers);

private:
    static std::size_t Judge(std::ptrdiff_t count, ErrorCode& error)
    {
        error = {};
        if (count <= 0)
            error = count == 0 ? ErrorCode(boost::asio::error::eof) : ErrorCode(boost::asio::error::connection_aborted);
        return count > 0 ? static_cast<std::size_t>(count) : 0;
    }

    IChannel& m_channel;
};

} // namespace ApplianceParts
