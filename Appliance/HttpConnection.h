#pragma once

/// @file
/// HTTP/1.1 on one connection. Compiled for plain sockets and for TLS.

#include "FaultStream.h"
#include "Http.h"
#include "Socket.h"
#include "UtcText.h"

#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include <utility>
#include <vector>

namespace ApplianceParts
{

/// @tparam Stream  the socket itself, or TLS over it.
template <typename Stream> class HttpConnection
{
public:
    HttpConnection(Socket& socket, Stream& stream, const RequestHandler& handler, const FaultChooser& chooseFault)
        : m_socket(socket), m_stream(socket, stream), m_handler(handler), m_chooseFault(chooseFault)
    {
        m_buffer.reserve(kBlockSize); // each read fills at most this capacity
    }

    /// Serves requests one after the other until the client or a timeout ends the connection.
    void Serve()
    {
        while (WaitForRequest() && ServeRequest())
            ;
    }

private:
    using Parser = boost::beast::http::request_parser<boost::beast::http::buffer_body>;
    using HttpError = boost::beast::http::error;
    using Field = boost::beast::http::field;

    static constexpr std::chrono::minutes kIdleTimeout{5};  ///< until the next request begins.
    static constexpr std::chrono::seconds kHeadTimeout{30}; ///< for a request's head.
    static constexpr std::chrono::minutes kBlockTimeout{5}; ///< for each block of a body.
    static constexpr std::size_t kLargestHead = 64 * 1024;
    static constexpr std::size_t kBlockSize = 64 * 1024;

    bool WaitForRequest()
    {
        ErrorCode error;
        m_socket.BeginStep(kIdleTimeout);
        if (m_buffer.size() == 0)
            m_buffer.commit(m_stream.read_some(m_buffer.prepare(kBlockSize), error));
        return !error;
    }

    // Returns whether the connection can be used for another request.
    bool ServeRequest()
    {
        m_stream.Begin(nullptr);
        Parser parser;
        parser.header_limit(kLargestHead);
        parser.body_limit(boost::none);
        m_socket.BeginStep(kHeadTimeout);
        ErrorCode error;
        boost::beast::http::read_header(m_stream, m_buffer, parser, error);
        const bool isTooLarge = error == HttpError::header_limit || error == HttpError::buffer_overflow;
        if (isTooLarge || error.category() == make_error_code(HttpError::bad_method).category())
            return Send(ErrorReply({isTooLarge ? 431 : 400, ErrorId::Malformed, "the request's head is malformed or too large"}), 11,
                        false);
        if (error)
            return false;

        const auto& head = parser.get();
        m_isContinueExpected = boost::beast::iequals(head[Field::expect], "100-continue");
        if (const auto fault = m_chooseFault ? m_chooseFault({head.method_string(), PathOf(head.target())}) : nullptr)
        {
            m_stream.Begin(fault);
            if (fault->reply)
                return Play(*fault, parser);
        }
        const bool isClear = HasClearBody(parser);
        const auto reply = isClear ? Answer(parser) : ErrorReply(Malformed("the length of the request's body is unclear"));
        // Read the rest of the body: the next request starts behind it, and a client that sends everything before it reads gets the reply.
        while (isClear && !ReadBody(parser).empty())
            ;
        const bool isUsable = isClear && parser.is_done() && parser.keep_alive();
        const bool isSent = Send(reply, head.version(), isUsable, head.method() == boost::beast::http::verb::head);
        return m_stream.End() && isSent;
    }

    // Sends the fault's reply in place of the server's. Returns whether the connection can be used for another request.
    bool Play(const Fault& fault, Parser& parser)
    {
        for (std::uint64_t read = 0, size = 1; read < fault.reads && size > 0; read += size)
            size = ReadBody(parser).size();
        m_stream.SendReply();
        return m_stream.End() && parser.is_done() && parser.keep_alive();
    }

    static std::string_view PathOf(std::string_view target) { return TakeUpTo(target, "?"); }

    // Accepts one length or chunked coding. With several, or with another coding, a proxy may see the body's end elsewhere.
    static bool HasClearBody(const Parser& parser)
    {
        const auto& head = parser.get();
        const auto codings = head.count(Field::transfer_encoding);
        return codings + head.count(Field::content_length) <= 1 &&
               (codings == 0 || boost::beast::iequals(head[Field::transfer_encoding], "chunked"));
    }

    Reply Answer(Parser& parser)
    {
        const auto& head = parser.get();
        std::string_view target = head.target();
        Request request{.method = head.method_string(), .path = std::string(TakeUpTo(target, "?")), .query = std::string(target)};
        request.header = [&head](std::string_view name) {
            const auto found = head.find(name);
            return found == head.end() ? std::nullopt : std::optional<std::string>(found->value());
        };
        request.readBody = [this, &parser] {
            const auto piece = ReadBody(parser);
            if (piece.empty() && !parser.is_done())
                throw Malformed("the body ended early");
            return piece;
        };
        request.isClientWaiting = [this] { return m_socket.IsClientWaiting(); };
        return m_handler(request);
    }

    // Returns the next block of the body; nothing at its end, or if the connection fails.
    std::string_view ReadBody(Parser& parser)
    {
        ErrorCode error;
        if (std::exchange(m_isContinueExpected, false) && !parser.is_done())
            boost::asio::write(m_stream, boost::asio::buffer(std::string_view("HTTP/1.1 100 Continue\r\n\r\n")), error);
        std::size_t size = 0;
        while (size == 0 && !parser.is_done() && !m_isBroken)
        {
            parser.get().body() = {m_block.data(), m_block.size(), true};
            m_socket.BeginStep(kBlockTimeout);
            boost::beast::http::read(m_stream, m_buffer, parser, error);
            m_isBroken = error && error != HttpError::need_buffer;
            size = m_block.size() - parser.get().body().size;
        }
        return {m_block.data(), size};
    }

    // Returns whether the connection can be used for another request.
    bool Send(const Reply& reply, unsigned version, bool keepsConnection, bool isHeadOnly = false)
    {
        boost::beast::http::response<boost::beast::http::buffer_body> message(static_cast<boost::beast::http::status>(reply.status),
                                                                              version);
        message.set(Field::date, FormatHttpDate(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now())));
        if (reply.content || !reply.text.empty())
            message.set(Field::content_type, reply.content ? "application/octet-stream" : "application/json");
        if (reply.status != 204) // which has no body
            message.content_length(reply.Length());
        message.keep_alive(keepsConnection);
        boost::beast::http::response_serializer<boost::beast::http::buffer_body> serializer(message);
        auto left = isHeadOnly ? 0 : reply.Length();
        ErrorCode error;
        do
        {
            const bool isFile = reply.content && left > 0;
            const auto size = static_cast<std::size_t>(isFile ? std::min<std::uint64_t>(left, kBlockSize) : left);
            // If the file was truncated meanwhile, end the connection, so that the client sees an incomplete body.
            if (isFile && std::fread(m_block.data(), 1, size, reply.content->file.get()) != size)
                return false;
            left -= size;
            message.body() = {isFile ? m_block.data() : const_cast<char*>(reply.text.data()), size, left > 0};
            boost::beast::http::write(m_stream, serializer, error);
        } while (error == HttpError::need_buffer);
        return !error && keepsConnection;
    }

    Socket& m_socket;
    FaultStream<Stream> m_stream;
    const RequestHandler& m_handler;
    const FaultChooser& m_chooseFault;
    boost::beast::flat_buffer m_buffer{2 * kBlockSize};
    std::vector<char> m_block = std::vector<char>(kBlockSize);
    bool m_isContinueExpected = false; ///< the client has sent "Expect: 100-continue".
    bool m_isBroken = false;           ///< the body cannot be read to its end.
};

} // namespace ApplianceParts
