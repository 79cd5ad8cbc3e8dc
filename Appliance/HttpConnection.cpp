#include "HttpConnection.h"

#include "ChannelStream.h"

#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include <array>
#include <chrono>
#include <cstdio>
#include <utility>

namespace ApplianceParts
{

namespace
{

namespace asio = boost::asio;
namespace http = boost::beast::http;

using ErrorCode = boost::system::error_code;
using Parser = http::request_parser<http::buffer_body>;

constexpr std::chrono::minutes kIdleTimeout{5};   ///< until the next request begins.
constexpr std::chrono::seconds kHeadTimeout{30};  ///< for a request's head.
constexpr std::chrono::minutes kBlockTimeout{5};  ///< for each block of a body.
constexpr std::chrono::seconds kLingerTimeout{1}; ///< for the client to read the last reply.
constexpr std::size_t kLargestHead = 64 * 1024;
constexpr std::size_t kBlockSize = 64 * 1024;

std::string HttpDate(std::chrono::system_clock::time_point time)
{
    using namespace std::chrono;
    constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const auto day = floor<days>(time);
    const year_month_day date{day};
    const hh_mm_ss clock{floor<seconds>(time - day)};
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%s, %02u %s %d %02d:%02d:%02d GMT", kDays[weekday{day}.c_encoding()],
                  static_cast<unsigned>(date.day()), kMonths[static_cast<unsigned>(date.month()) - 1], static_cast<int>(date.year()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text.data();
}

class Connection
{
public:
    Connection(ISocket& socket, IChannel& channel, const RequestHandler& handler)
        : m_socket(socket), m_channel(channel), m_stream(channel), m_handler(handler)
    {
        m_buffer.reserve(kBlockSize); // each read fills at most this capacity
    }

    void Serve()
    {
        while (WaitForRequest() && ServeRequest())
            ;
        Linger();
    }

private:
    bool WaitForRequest()
    {
        if (m_buffer.size() > 0)
            return true;
        m_socket.BeginStep(kIdleTimeout);
        ErrorCode error;
        m_buffer.commit(m_stream.read_some(m_buffer.prepare(kBlockSize), error));
        return !error;
    }

    // Returns whether the connection can be used for another request.
    bool ServeRequest()
    {
        Parser parser;
        parser.header_limit(kLargestHead);
        parser.body_limit(boost::none);
        m_socket.BeginStep(kHeadTimeout);
        ErrorCode error;
        http::read_header(m_stream, m_buffer, parser, error);
        const bool isTooLarge = error == http::error::header_limit || error == http::error::buffer_overflow;
        if (isTooLarge || error.category() == make_error_code(http::error::bad_method).category())
            return Send(ErrorReply({isTooLarge ? 431 : 400, ErrorId::Malformed, "the request's head is malformed or too large"}), 11,
                        false);
        if (error)
            return false;

        const auto& head = parser.get();
        const bool isClear = HasClearBody(parser);
        const auto reply = isClear ? Answer(parser) : ErrorReply(Malformed("the length of the request's body is unclear"));
        const bool isUsable = isClear && ReadBody(parser, {}) && parser.keep_alive();
        return Send(reply, head.version(), isUsable, head.method() == http::verb::head);
    }

    // Accepts one length or chunked coding. With several, or with another coding, a proxy may see the body's end elsewhere.
    static bool HasClearBody(const Parser& parser)
    {
        const auto& head = parser.get();
        const auto codings = head.count(http::field::transfer_encoding);
        return codings + head.count(http::field::content_length) <= 1 &&
               (codings == 0 || boost::beast::iequals(head[http::field::transfer_encoding], "chunked"));
    }

    Reply Answer(Parser& parser)
    {
        const auto& head = parser.get();
        const std::string_view target(head.target().data(), head.target().size());
        const auto question = std::min(target.size(), target.find('?'));
        try
        {
            Request request;
            request.method = std::string(head.method_string());
            request.path = target.substr(0, question);
            request.query = ParseFields(target.substr(std::min(target.size(), question + 1)));
            request.header = [&head](std::string_view name) {
                const auto found = head.find({name.data(), name.size()});
                return found == head.end() ? std::nullopt : std::optional(std::string(found->value()));
            };
            request.readBody = [this, &parser](const BodyReceiver& receiver) {
                if (!ReadBody(parser, receiver))
                    throw Malformed("the body ended early");
            };
            request.isClientWaiting = [this] { return m_socket.IsClientWaiting(); };
            return m_handler(request);
        }
        catch (const ApiError& error)
        {
            return ErrorReply(error);
        }
    }

    // Reads the rest of the body, so that the next request starts at the right byte. Returns whether the body was complete.
    bool ReadBody(Parser& parser, const BodyReceiver& receiver)
    {
        std::exception_ptr thrown;
        ErrorCode error;
        const bool isLeft = !parser.is_done() && !m_isBroken;
        std::vector<char> block(isLeft ? kBlockSize : 0);
        if (isLeft && boost::beast::iequals(parser.get()[http::field::expect], "100-continue"))
            asio::write(m_stream, asio::buffer(std::string_view("HTTP/1.1 100 Continue\r\n\r\n")), error);
        while (!parser.is_done() && !m_isBroken)
        {
            parser.get().body() = {block.data(), block.size(), true};
            m_socket.BeginStep(kBlockTimeout);
            http::read(m_stream, m_buffer, parser, error);
            m_isBroken = error && error != http::error::need_buffer;
            try
            {
                if (receiver && !thrown)
                    receiver({block.data(), block.size() - parser.get().body().size});
            }
            catch (...)
            {
                thrown = std::current_exception();
            }
        }
        if (thrown)
            std::rethrow_exception(thrown);
        return parser.is_done();
    }

    // Returns whether the connection can be used for another request.
    bool Send(const Reply& reply, unsigned version, bool keepsConnection, bool isHeadOnly = false)
    {
        const auto length = reply.content ? reply.content->length : reply.text.size();
        http::response<http::buffer_body> message(http::int_to_status(static_cast<unsigned>(reply.status)), version);
        message.set(http::field::date, HttpDate(std::chrono::system_clock::now()));
        if (!reply.contentType.empty())
            message.set(http::field::content_type, reply.contentType);
        message.content_length(length);
        message.keep_alive(keepsConnection);
        http::response_serializer<http::buffer_body> serializer(message);
        m_socket.BeginStep(kBlockTimeout);
        ErrorCode error;
        if (isHeadOnly || reply.content)
            http::write_header(m_stream, serializer, error);
        else
        {
            message.body() = {const_cast<char*>(reply.text.data()), reply.text.size(), false};
            http::write(m_stream, serializer, error);
        }
        return !error && (isHeadOnly || !reply.content || Send(*reply.content)) && keepsConnection;
    }

    bool Send(const FileContent& content)
    {
        std::vector<char> block(kBlockSize);
        ErrorCode error;
        for (std::uint64_t sent = 0; sent < content.length && !error;)
        {
            const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), content.length - sent));
            const auto count = content.file->ReadAt(content.offset + sent, block.data(), size);
            // If the file was truncated meanwhile, end the connection, so that the client sees an incomplete body.
            if (count <= 0)
                return false;
            m_socket.BeginStep(kBlockTimeout);
            sent += asio::write(m_stream, asio::buffer(block.data(), static_cast<std::size_t>(count)), error);
        }
        return !error;
    }

    // Closing a socket with unread bytes resets the connection, and the client may lose the last reply. So read them first.
    void Linger()
    {
        m_socket.BeginStep(kLingerTimeout);
        m_channel.FinishWriting();
        std::array<char, 4096> rest{};
        while (m_channel.Read(rest.data(), rest.size()) > 0)
            ;
    }

    ISocket& m_socket;
    IChannel& m_channel;
    ChannelStream m_stream;
    const RequestHandler& m_handler;
    boost::beast::flat_buffer m_buffer{2 * kBlockSize};
    bool m_isBroken = false; ///< the body cannot be read to its end.
};

} // namespace

void ServeConnection(ISocket& socket, IChannel& channel, const RequestHandler& handler)
{
    Connection(socket, channel, handler).Serve();
}

} // namespace ApplianceParts
