// Whole operations over the platform's own HTTP: the first byte chooses one, from 128 on with a cancel event, the rest is what the server
// sends, parted into the replies to its requests by the bytes FF FE. Behind the last reply the connection ends. Then an ordinary operation
// of the same instance must succeed.

#include "FuzzSupport.h"
#include "Operations.h"

#include <array>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr std::string_view kNextReply = "\xFF\xFE";

// A server with one connection at a time; a new one replaces it.
class FuzzedServer
{
public:
    FuzzedServer()
    {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof place;
        Require(bind(m_listener, reinterpret_cast<sockaddr*>(&place), size) == 0 && listen(m_listener, 64) == 0);
        Require(getsockname(m_listener, reinterpret_cast<sockaddr*>(&place), &size) == 0);
        m_port = ntohs(place.sin_port);
        std::thread([this] { Serve(); }).detach(); // until the process ends
    }

    [[nodiscard]] std::uint16_t Port() const { return m_port; }

    // Sends these replies; without a text, right ones.
    void Play(std::optional<std::string> replies)
    {
        const std::lock_guard lock(m_mutex);
        m_replies = std::move(replies);
    }

private:
    void Serve()
    {
        constexpr int kPatience = 2; // ms; a client may wait for the rest of a reply
        for (;;)
        {
            std::array<pollfd, 2> both{{{m_listener, POLLIN, 0}, {m_connection, POLLIN, 0}}};
            const int ready = poll(both.data(), both.size(), m_connection >= 0 && m_isPlaying ? kPatience : -1);
            if (ready == 0)
                Close();
            else if ((both[0].revents & POLLIN) != 0)
            {
                Close();
                m_connection = accept(m_listener, nullptr, nullptr);
            }
            else if (!Read() || (IsWhole() && !Answer()))
                Close();
        }
    }

    void Close()
    {
        if (m_connection >= 0)
            close(std::exchange(m_connection, -1));
        m_received.clear();
        m_isPlaying = false;
    }

    bool Read()
    {
        std::array<char, 65536> block{};
        const ssize_t size = recv(m_connection, block.data(), block.size(), 0);
        m_received.append(block.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        return size > 0;
    }

    [[nodiscard]] bool IsWhole() const
    {
        const std::size_t head = m_received.find("\r\n\r\n");
        return head != std::string::npos &&
               m_received.size() >= head + 4 + std::strtoull(HeaderValue(m_received, "Content-Length").c_str(), nullptr, 10);
    }

    // Whether the connection is kept.
    bool Answer()
    {
        std::string reply;
        {
            const std::lock_guard lock(m_mutex);
            m_isPlaying = m_replies.has_value();
            if (!m_isPlaying)
                reply = RightReply();
            else if (m_replies->empty())
                return false;
            else
            {
                const std::size_t end = m_replies->find(kNextReply);
                reply = m_replies->substr(0, end);
                m_replies->erase(0, end == std::string::npos ? end : end + kNextReply.size());
            }
            m_received.clear();
            if (m_isPlaying && m_replies->empty())
            {
                Send(reply);
                return false;
            }
        }
        Send(reply);
        return true;
    }

    void Send(const std::string& text) const
    {
        for (std::string_view left = text; !left.empty();)
        {
            const ssize_t sent = send(m_connection, left.data(), left.size(), MSG_NOSIGNAL);
            if (sent <= 0)
                return;
            left.remove_prefix(static_cast<std::size_t>(sent));
        }
    }

    [[nodiscard]] std::string RightReply() const
    {
        if (m_received.starts_with("GET /endpoints"))
            return HttpReply(200, R"({"sync":{"1.3":{"path":"/sync"}},"audit":{"1":{"path":"/audit"}}})");
        return HttpReply(200, m_received.starts_with("GET /sync/init") ? R"({"device_token_auth":false})" : kReply);
    }

    const int m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::uint16_t m_port = 0;
    int m_connection = -1;
    std::string m_received;
    bool m_isPlaying = false;
    std::mutex m_mutex;
    std::optional<std::string> m_replies;
};

std::vector<std::pair<std::string, Operation>> AllOperations()
{
    std::vector<std::pair<std::string, Operation>> all{{"handshake", ShakeHands}};
    for (const auto& group : {PathOperations(), AllTransfers()})
        all.insert(all.end(), group.begin(), group.end());
    return all;
}

std::unique_ptr<Instance> NewInstance(std::uint16_t port)
{
    auto instance = std::make_unique<Instance>(CreateInstance(L"fuzz"));
    Require((*instance)->SetServer("http://127.0.0.1") == Result::Success && (*instance)->SetPort(port) == Result::Success);
    return instance;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static FuzzedServer server;
    static const TemporaryFolder folder;
    static const auto operations = AllOperations();
    static const auto common = NewInstance(server.Port());
    static const bool isReady = (server.Play({}), common->ShakeHands() == Result::Success);
    Require(isReady);
    static const CancelEvent cancel{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    ListenToEverything();
    if (size == 0)
        return 0;
    const auto& [name, operation] = operations[data[0] % operations.size()];
    const auto own = name == "handshake" ? NewInstance(server.Port()) : nullptr;
    const Instance& instance = own ? *own : *common;
    std::ofstream(folder / "local", std::ios::binary) << "0123456789abcdef";
    std::ofstream(folder / "sig", std::ios::binary) << "signature";
    Caller caller;
    caller.local = ToWide((folder / "local").string());
    if ((data[0] & 0x80U) != 0)
        caller.cancel = cancel;
    caller.signature = ToWide((folder / "sig").string());
    Require(instance->SetSessionToken(L"old") == Result::Success);
    server.Play(Bytes(data + 1, size - 1));
    const ResultCode code = operation(instance.Api(), caller);
    Require(code != Result::Success || name != "get" || caller.given != nullptr);

    server.Play({});
    Require(common->Api().SetSessionToken(L"new") == Result::Success);
    std::shared_ptr<IServerAttributes> item;
    const ResultCode after = common->Api().GetPathAttributes(L"/a", item);
    if (after != Result::Success)
        std::fprintf(stderr, "the operation after '%s', which gave %u, gives %u\n", name.c_str(), code, after);
    Require(after == Result::Success && item != nullptr);
    return 0;
}
