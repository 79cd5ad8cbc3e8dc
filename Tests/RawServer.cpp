#include "RawServer.h"

#include "Sockets.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <utility>

namespace
{
/// How often a waiting connection looks whether the server is being stopped.
constexpr int kPollMilliseconds = 20;

class Socket
{
public:
    explicit Socket(Sockets::Handle handle) : m_handle(handle) {}
    ~Socket()
    {
        if (m_handle != Sockets::kNone)
            Sockets::Close(m_handle);
    }
    Socket(Socket&& other) noexcept : m_handle(std::exchange(other.m_handle, Sockets::kNone)) {}
    Socket& operator=(Socket&&) = delete;

    Sockets::Handle Get() const { return m_handle; }

private:
    Sockets::Handle m_handle;
};

bool EqualsIgnoringCase(std::string_view left, std::string_view right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}
} // namespace

void Gate::Open()
{
    const std::lock_guard lock(m_mutex);
    m_open = true;
    m_changed.notify_all();
}

bool Gate::IsOpen() const
{
    const std::lock_guard lock(m_mutex);
    return m_open;
}

bool Gate::Wait(std::chrono::milliseconds limit) const
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, limit, [this] { return m_open; });
}

class RawServer::Implementation
{
public:
    Implementation(Script script, const char* address) : m_script(std::move(script)), m_listener(Listen(address))
    {
        m_acceptor = std::thread([this] { Accept(); });
    }

    ~Implementation()
    {
        m_stopping = true;
        m_acceptor.join();
        for (auto& thread : m_threads)
            thread.join();
    }

    std::uint16_t Port() const { return m_port; }
    std::size_t ConnectionCount() const { return m_connections; }

    std::vector<std::string> Requests() const
    {
        const std::lock_guard lock(m_mutex);
        return m_requests;
    }

private:
    class Connection;

    Socket Listen(const char* address)
    {
        Sockets::Initialise();
        sockaddr_storage storage = {};
        Sockets::Length size = 0;
        if (std::string_view(address).find(':') != std::string_view::npos)
        {
            auto& v6 = reinterpret_cast<sockaddr_in6&>(storage);
            v6.sin6_family = AF_INET6;
            ::inet_pton(AF_INET6, address, &v6.sin6_addr);
            size = sizeof(v6);
        }
        else
        {
            auto& v4 = reinterpret_cast<sockaddr_in&>(storage);
            v4.sin_family = AF_INET;
            ::inet_pton(AF_INET, address, &v4.sin_addr);
            size = sizeof(v4);
        }
        auto* const name = reinterpret_cast<sockaddr*>(&storage);
        Socket listener(::socket(storage.ss_family, SOCK_STREAM, 0));
        if (::bind(listener.Get(), name, size) != 0 || ::listen(listener.Get(), SOMAXCONN) != 0 ||
            ::getsockname(listener.Get(), name, &size) != 0)
            throw std::runtime_error("the test server cannot listen");
        // The port stands at the same place in both kinds of address.
        m_port = ntohs(reinterpret_cast<sockaddr_in&>(storage).sin_port);
        Sockets::MakeNonBlocking(listener.Get());
        return listener;
    }

    void Accept();

    const Script m_script;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::atomic<std::size_t> m_connections{0};
    mutable std::mutex m_mutex;
    std::vector<std::string> m_requests;
    std::vector<std::thread> m_threads;
    Socket m_listener;
    std::thread m_acceptor;
};

class RawServer::Implementation::Connection final : public RawConnection
{
public:
    Connection(Implementation& server, Socket socket, std::size_t index) : m_server(server), m_socket(std::move(socket)), m_index(index)
    {
        Sockets::MakeNonBlocking(m_socket.Get());
    }

    std::size_t Index() const override { return m_index; }

    std::string ReadHead() override
    {
        constexpr std::string_view kEnd = "\r\n\r\n";
        auto end = m_received.find(kEnd);
        while (end == std::string::npos)
        {
            Fill();
            end = m_received.find(kEnd);
        }
        return Take(end + kEnd.size());
    }

    std::string Read(std::uint64_t bytes) override
    {
        while (m_received.size() < bytes)
            Fill();
        return Take(static_cast<std::size_t>(bytes));
    }

    std::string ReadRequest() override
    {
        auto request = ReadHead();
        const auto length = HeaderValue(request, "Content-Length");
        request += Read(std::strtoull(length.c_str(), nullptr, 10));
        const std::lock_guard lock(m_server.m_mutex);
        m_server.m_requests.push_back(request);
        return request;
    }

    void Skip(std::uint64_t bytes, const std::function<void(std::string_view)>& look) override
    {
        while (bytes > 0)
        {
            if (m_received.empty())
                Fill();
            const auto count = std::min<std::uint64_t>(bytes, m_received.size());
            if (look)
                look(std::string_view(m_received).substr(0, static_cast<std::size_t>(count)));
            m_received.erase(0, static_cast<std::size_t>(count));
            bytes -= count;
        }
    }

    void Send(std::string_view bytes) override
    {
        while (!bytes.empty())
        {
            AwaitReady(true);
            const auto count = Sockets::Send(m_socket.Get(), bytes.data(), bytes.size());
            if (count < 0 && !Sockets::WouldBlock())
                throw ConnectionEnded();
            bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
        }
    }

    void Hold() override
    {
        while (!m_server.m_stopping)
            std::this_thread::sleep_for(std::chrono::milliseconds(kPollMilliseconds));
    }

    void AwaitEnd() override
    {
        while (true)
        {
            m_received.clear();
            Fill();
        }
    }

    void Reset() override
    {
        Sockets::ResetWhenClosed(m_socket.Get());
        throw ConnectionEnded();
    }

private:
    void AwaitReady(bool forWriting)
    {
        do
        {
            if (m_server.m_stopping)
                throw ConnectionEnded();
        } while (!Sockets::IsReady(m_socket.Get(), forWriting, kPollMilliseconds));
    }

    void Fill()
    {
        std::array<char, 64 * 1024> block; // NOLINT(cppcoreguidelines-pro-type-member-init): filled by the system
        AwaitReady(false);
        const auto count = Sockets::Receive(m_socket.Get(), block.data(), block.size());
        if (count == 0 || (count < 0 && !Sockets::WouldBlock()))
            throw ConnectionEnded();
        m_received.append(block.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    }

    std::string Take(std::size_t bytes)
    {
        auto taken = m_received.substr(0, bytes);
        m_received.erase(0, bytes);
        return taken;
    }

    Implementation& m_server;
    Socket m_socket;
    std::size_t m_index;
    std::string m_received;
};

void RawServer::Implementation::Accept()
{
    while (!m_stopping)
    {
        if (!Sockets::IsReady(m_listener.Get(), false, kPollMilliseconds))
            continue;
        Socket accepted(::accept(m_listener.Get(), nullptr, nullptr));
        if (accepted.Get() == Sockets::kNone)
            continue;
        auto connection = std::make_unique<Connection>(*this, std::move(accepted), m_connections++);
        m_threads.emplace_back([this, own = std::move(connection)] {
            try
            {
                m_script(*own);
            }
            catch (const ConnectionEnded&)
            {
                // The usual end of a script.
                return;
            }
        });
    }
}

RawServer::RawServer(Script script, const char* address) : m_implementation(std::make_unique<Implementation>(std::move(script), address))
{
}

RawServer::~RawServer() = default;

std::uint16_t RawServer::Port() const
{
    return m_implementation->Port();
}

std::size_t RawServer::ConnectionCount() const
{
    return m_implementation->ConnectionCount();
}

std::vector<std::string> RawServer::Requests() const
{
    return m_implementation->Requests();
}

std::string HttpReply(int status, std::string_view body, std::string_view headerLines)
{
    std::string reply = "HTTP/1.1 " + std::to_string(status) + " Reason\r\n";
    reply += headerLines;
    reply += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    reply += body;
    return reply;
}

RawServer::Script AnswerEach(std::function<std::string(const std::string& request)> answer)
{
    return [answer = std::move(answer)](RawConnection& connection) {
        while (true)
            connection.Send(answer(connection.ReadRequest()));
    };
}

std::string HeaderValue(const std::string& request, std::string_view name)
{
    std::string_view rest = request;
    while (!rest.empty())
    {
        const auto end = std::min(rest.find("\r\n"), rest.size());
        const auto line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 2, rest.size()));
        const auto colon = line.find(':');
        if (line.empty())
            break;
        if (colon != std::string_view::npos && EqualsIgnoringCase(line.substr(0, colon), name))
        {
            const auto value = line.substr(colon + 1);
            return std::string(value.substr(std::min(value.find_first_not_of(' '), value.size())));
        }
    }
    return {};
}

std::vector<std::string> HeaderLines(const std::string& request)
{
    std::vector<std::string> lines;
    std::size_t start = request.find("\r\n") + 2;
    for (std::size_t end = request.find("\r\n", start); end != start && end != std::string::npos; end = request.find("\r\n", start))
    {
        lines.push_back(request.substr(start, end - start));
        start = end + 2;
    }
    return lines;
}

std::string Pattern(std::size_t size)
{
    std::string text(size, '\0');
    for (std::size_t at = 0; at < size; ++at)
        text[at] = static_cast<char>((at * 31 + at / 251) & 0xFF);
    return text;
}
