#include "HttpServer.h"

#include "Connection.h"
#include "ConnectionThreads.h"

#include <httplib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace ApplianceParts
{

namespace
{

constexpr std::chrono::minutes kIdleTimeout{5};
constexpr std::size_t kMostRequestsPerConnection = 1'000'000'000;
constexpr std::size_t kSendSize = 64 * 1024;

// The library matches paths with regular expressions, which recurse once for each character; here every request has this path,
// and is told apart by its target.
constexpr const char* kEveryPath = "/";

// The library takes apart multipart bodies by itself where it sees this header, but not all that clients send.
constexpr const char* kContentType = "Content-Type";
constexpr const char* kKeptContentType = "Appliance-Content-Type";

// What a request's head says of its body.
enum class BodyKind
{
    None,
    Present,
    Unclear
};

BodyKind KindOfBody(const httplib::Request& request)
{
    const auto encodings = request.get_header_value_count("Transfer-Encoding");
    const auto lengths = request.get_header_value_count("Content-Length");
    if (encodings + lengths == 0)
        return BodyKind::None;
    if (encodings + lengths > 1)
        return BodyKind::Unclear;
    if (encodings == 1)
        return request.get_header_value("Transfer-Encoding") == "chunked" ? BodyKind::Present : BodyKind::Unclear;
    const auto text = request.get_header_value("Content-Length");
    std::uint64_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    if (error != std::errc() || end != text.data() + text.size() || text.empty())
        return BodyKind::Unclear;
    return length > 0 ? BodyKind::Present : BodyKind::None;
}

// Reads a body once, to its end whatever happens, so that the next request on the connection starts where it should.
class Body
{
public:
    Body(BodyKind kind, const httplib::ContentReader* reader) : m_reader(kind == BodyKind::Present ? reader : nullptr) {}

    void Read(const BodyReceiver& receiver)
    {
        if (m_reader == nullptr)
            return;
        std::exception_ptr thrown;
        const auto take = [&](const char* data, std::size_t size) {
            try
            {
                if (!thrown)
                    receiver({data, size});
            }
            catch (...)
            {
                thrown = std::current_exception();
            }
            return true;
        };
        const bool isWhole = (*std::exchange(m_reader, nullptr))(take);
        if (thrown)
            std::rethrow_exception(thrown);
        if (!isWhole)
            throw ApiError(400, ErrorId::Malformed, "the body ended early");
    }

    void Skip()
    {
        if (m_reader != nullptr)
            (*std::exchange(m_reader, nullptr))([](const char*, std::size_t) { return true; });
    }

private:
    const httplib::ContentReader* m_reader;
};

void Send(const FileContent& content, const std::string& contentType, httplib::Response& response)
{
    auto buffer = std::make_shared<std::vector<char>>(kSendSize);
    const auto provide = [content, buffer](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
        const auto count = content.file->ReadAt(content.offset + offset, buffer->data(), std::min(length, buffer->size()));
        // A file that was cut short meanwhile ends the connection: too short a body must not look whole.
        return count > 0 && sink.write(buffer->data(), static_cast<std::size_t>(count));
    };
    response.set_content_provider(static_cast<std::size_t>(content.length), contentType, provide);
}

void Send(const Reply& reply, httplib::Response& response)
{
    response.status = reply.status;
    if (reply.content && reply.content->length > 0)
        Send(*reply.content, reply.contentType, response);
    else if (!reply.contentType.empty())
        response.set_content(reply.text, reply.contentType);
}

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

} // namespace

class HttpServer::Implementation final : public httplib::Server
{
public:
    Implementation(ChannelFactory channels, std::size_t mostConnections, HttpServer::Handler handler)
        : m_channels(std::move(channels)), m_handler(std::move(handler))
    {
        new_task_queue = [this, mostConnections] { return new ConnectionThreads(mostConnections, [this] { EndLongestIdle(); }); };
        set_socket_options([](socket_t socket) { System::PrepareListener(static_cast<System::Socket>(socket)); });
        set_tcp_nodelay(true);
        set_keep_alive_max_count(kMostRequestsPerConnection);
        set_keep_alive_timeout(std::chrono::seconds(kIdleTimeout).count());
        set_read_timeout(kIdleTimeout);
        set_write_timeout(kIdleTimeout);

        const auto serve = [this](const auto& request, auto& response) { Serve(request, response, nullptr); };
        const auto serveWithBody = [this](const auto& request, auto& response, const auto& reader) { Serve(request, response, &reader); };
        Get(kEveryPath, serve);
        httplib::Server::Options(kEveryPath, serve);
        Post(kEveryPath, HandlerWithContentReader(serveWithBody));
        Put(kEveryPath, HandlerWithContentReader(serveWithBody));
        Patch(kEveryPath, HandlerWithContentReader(serveWithBody));
        Delete(kEveryPath, HandlerWithContentReader(serveWithBody));
        set_post_routing_handler([](const httplib::Request&, httplib::Response& response) {
            response.set_header("Date", HttpDate(std::chrono::system_clock::now()));
        });
        set_error_handler([](const httplib::Request&, httplib::Response& response) {
            // Refused before any handler saw it.
            if (response.body.empty() && !response.has_header(kContentType))
                Send(ErrorReply(ApiError(response.status, ErrorId::Malformed, "the request is malformed")), response);
        });
    }

    int Start(int port)
    {
        const int bound = port == 0 ? bind_to_any_port("127.0.0.1") : bind_to_port("127.0.0.1", port) ? port : -1;
        if (bound <= 0)
            throw std::runtime_error("cannot listen on port " + std::to_string(port) + " of 127.0.0.1");
        m_listener = std::thread([this] {
            listen_after_bind();
            m_hasEnded = true;
        });
        // `stop` has no effect before this.
        while (!is_running() && !m_hasEnded)
            std::this_thread::yield();
        return bound;
    }

    void Stop()
    {
        {
            const std::lock_guard guard(m_mutex);
            m_isStopping = true;
            for (const auto& [number, live] : m_live)
                End(live);
        }
        stop();
        if (m_listener.joinable())
            m_listener.join();
    }

private:
    struct Live
    {
        System::Socket socket;
        Connection* connection;
        std::optional<std::chrono::steady_clock::time_point> idleSince; // nothing while a request is served
    };

    static void End(const Live& live)
    {
        if (live.connection != nullptr)
            live.connection->Abort();
        else
            System::ShutDown(live.socket);
    }

    bool process_and_close_socket(socket_t socket) override
    {
        const auto number = Enter(static_cast<System::Socket>(socket));
        if (number != 0)
        {
            if (auto channel = m_channels(static_cast<System::Socket>(socket)))
            {
                Connection connection(std::move(channel), static_cast<System::Socket>(socket), number);
                SetConnection(number, &connection);
                ServeRequests(connection, number);
                SetConnection(number, nullptr);
            }
            Leave(number);
        }
        System::ShutDown(static_cast<System::Socket>(socket));
        System::Close(static_cast<System::Socket>(socket));
        return true;
    }

    void ServeRequests(Connection& connection, int number)
    {
        bool isClosed = false;
        for (auto left = keep_alive_max_count_; left > 0 && !isClosed && connection.WaitForRequest(kIdleTimeout); --left)
        {
            SetIdle(number, false);
            const auto isServed = process_request(connection, left == 1, isClosed, [](httplib::Request& request) {
                request.path = kEveryPath;
                request.ranges.clear();
                while (const auto type = request.headers.extract(kContentType))
                    request.headers.emplace(kKeptContentType, type.mapped());
            });
            if (!isServed)
                break;
            SetIdle(number, true);
        }
    }

    void Serve(const httplib::Request& source, httplib::Response& response, const httplib::ContentReader* reader)
    {
        const auto kind = KindOfBody(source);
        Body body(kind, reader);
        Connection* const connection = ConnectionOf(source.remote_port);
        try
        {
            if (kind == BodyKind::Unclear || (kind == BodyKind::Present && reader == nullptr))
            {
                connection->EndAfterReply();
                throw ApiError(400, ErrorId::Malformed, "the request's body is malformed or has no place here");
            }
            Send(m_handler(Translate(source, body, *connection)), response);
        }
        catch (const ApiError& error)
        {
            Send(ErrorReply(error), response);
        }
        catch (const std::exception& error)
        {
            Send(ErrorReply(ApiError(500, ErrorId::Internal, error.what())), response);
        }
        body.Skip();
    }

    static Request Translate(const httplib::Request& source, Body& body, const Connection& connection)
    {
        Request request;
        request.method = source.method;
        request.path = source.target.substr(0, source.target.find('?'));
        request.query = Fields(source.params.begin(), source.params.end());
        request.header = [&source](const std::string& name) -> std::optional<std::string> {
            const std::string key = name == kContentType ? kKeptContentType : name;
            return source.has_header(key) ? std::optional(source.get_header_value(key)) : std::nullopt;
        };
        request.readBody = [&body](const BodyReceiver& receiver) { body.Read(receiver); };
        request.isClientWaiting = [&connection] { return connection.IsPeerWaiting(); };
        return request;
    }

    int Enter(System::Socket socket)
    {
        const std::lock_guard guard(m_mutex);
        if (m_isStopping)
            return 0;
        m_live.emplace(++m_lastNumber, Live{socket, nullptr, std::chrono::steady_clock::now()});
        return m_lastNumber;
    }

    void SetConnection(int number, Connection* connection)
    {
        const std::lock_guard guard(m_mutex);
        auto& live = m_live.at(number);
        live.connection = connection;
        if (m_isStopping)
            End(live);
    }

    void SetIdle(int number, bool isIdle)
    {
        const std::lock_guard guard(m_mutex);
        m_live.at(number).idleSince = isIdle ? std::optional(std::chrono::steady_clock::now()) : std::nullopt;
    }

    void EndLongestIdle()
    {
        const std::lock_guard guard(m_mutex);
        const Live* longest = nullptr;
        for (const auto& [number, live] : m_live)
            if (live.idleSince && (longest == nullptr || *live.idleSince < *longest->idleSince))
                longest = &live;
        if (longest != nullptr)
            End(*longest);
    }

    Connection* ConnectionOf(int number)
    {
        const std::lock_guard guard(m_mutex);
        return m_live.at(number).connection;
    }

    void Leave(int number)
    {
        const std::lock_guard guard(m_mutex);
        m_live.erase(number);
    }

    ChannelFactory m_channels;
    HttpServer::Handler m_handler;
    std::thread m_listener;
    std::atomic<bool> m_hasEnded = false;
    std::mutex m_mutex;
    std::map<int, Live> m_live;
    int m_lastNumber = 0;
    bool m_isStopping = false;
};

HttpServer::HttpServer(ChannelFactory channels, std::size_t mostConnections, Handler handler)
    : m_implementation(std::make_unique<Implementation>(std::move(channels), mostConnections, std::move(handler)))
{
}

HttpServer::~HttpServer()
{
    Stop();
}

int HttpServer::Start(int port)
{
    return m_implementation->Start(port);
}

void HttpServer::Stop()
{
    m_implementation->Stop();
}

} // namespace ApplianceParts
