/// @file
/// Closing a request's handle from another thread ends the call that is blocked on it, wherever it is blocked.

#include "PosixHttpSupport.h"
#include "RawServer.h"

#include <arpa/inet.h>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

using namespace HttpCalls;

namespace
{
/// A thread that resolves names may outlive the request that it does so for.
std::shared_ptr<Gate> resolutionGate;
} // namespace

/// Stands before the system's: the name "stuck.test" is not resolved before its gate opens.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                                                                  addrinfo** result)
{
    using Resolve = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto systems = reinterpret_cast<Resolve>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    if (name != nullptr && std::strcmp(name, "stuck.test") == 0)
    {
        const auto gate = resolutionGate;
        gate->Wait();
        return EAI_FAIL;
    }
    return systems(name, service, hints, result);
}

namespace
{
/// A listener that takes no further connection: its queue is full, and the system drops who knocks.
class DeafListener
{
public:
    DeafListener()
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const name = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof(address);
        m_sockets.push_back(::socket(AF_INET, SOCK_STREAM, 0));
        ::bind(m_sockets[0], name, size);
        ::listen(m_sockets[0], 0);
        ::getsockname(m_sockets[0], name, &size);
        m_port = ntohs(address.sin_port);
        for (int count = 0; count < 4; ++count)
        {
            m_sockets.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
            static_cast<void>(::connect(m_sockets.back(), name, size));
        }
    }
    ~DeafListener()
    {
        for (const int socket : m_sockets)
            ::close(socket);
    }

    std::uint16_t Port() const { return m_port; }

private:
    std::vector<int> m_sockets;
    std::uint16_t m_port = 0;
};

/// Closes the request while the call on it is blocked.
void ExpectEnded(HttpHandle& request, const std::function<DWORD()>& call)
{
    BlockedCall blocked(call);
    blocked.AwaitBlocked();
    const auto start = std::chrono::steady_clock::now();
    request.Close();
    EXPECT_EQ(ERROR_WINHTTP_OPERATION_CANCELLED, blocked.Result());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(PosixInterruption, EndsAResolution)
{
    resolutionGate = std::make_shared<Gate>();
    const HttpClient client(80, L"stuck.test");
    auto request = client.Open();
    ExpectEnded(request, [handle = request.Get()] { return SendWhole(handle); });

    // So does its timeout.
    const auto late = client.Open();
    ASSERT_NE(FALSE, WinHttpSetTimeouts(late.Get(), 50, 50, 0, 0));
    EXPECT_EQ(ERROR_WINHTTP_TIMEOUT, SendWhole(late.Get()));
    resolutionGate->Open();
}

TEST(PosixInterruption, EndsAConnect)
{
    const DeafListener listener;
    const HttpClient client(listener.Port());
    auto request = client.Open();
    ExpectEnded(request, [handle = request.Get()] { return SendWhole(handle); });

    const auto late = client.Open();
    ASSERT_NE(FALSE, WinHttpSetTimeouts(late.Get(), 0, 100, 0, 0));
    EXPECT_EQ(ERROR_WINHTTP_TIMEOUT, SendWhole(late.Get()));
}

TEST(PosixInterruption, EndsAHandshake)
{
    RawServer silent([](RawConnection& connection) { connection.Hold(); });
    const HttpClient client(silent.Port());
    auto request = client.Open(L"GET", L"/", WINHTTP_FLAG_SECURE);
    ExpectEnded(request, [handle = request.Get()] { return SendWhole(handle); });
}

TEST(PosixInterruption, EndsASend)
{
    RawServer deaf([](RawConnection& connection) {
        connection.ReadHead();
        connection.Hold();
    });
    const HttpClient client(deaf.Port());
    auto request = client.Open(L"POST");
    ASSERT_EQ(ERROR_SUCCESS, SendWhole(request.Get(), {}, L"Content-Length: 100000000"));
    ExpectEnded(request, [handle = request.Get()] {
        const std::string body(100'000'000, 'x');
        return ErrorOfCall(WinHttpWriteData(handle, body.data(), static_cast<DWORD>(body.size()), nullptr));
    });
}

TEST(PosixInterruption, EndsAReceiveAndARead)
{
    RawServer server([](RawConnection& connection) {
        if (connection.ReadHead().starts_with("GET /part"))
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc");
        connection.Hold();
    });
    const HttpClient client(server.Port());
    auto silent = client.Open();
    ASSERT_EQ(ERROR_SUCCESS, SendWhole(silent.Get()));
    ExpectEnded(silent, [handle = silent.Get()] { return ErrorOfCall(WinHttpReceiveResponse(handle, nullptr)); });

    auto part = client.Open(L"GET", L"/part");
    ASSERT_EQ(ERROR_SUCCESS, SendWhole(part.Get()));
    ExpectEnded(part, [handle = part.Get()] { return ReadReply(handle).error; });
}

TEST(PosixInterruption, MeetsRequestsAtAnyPoint)
{
    RawServer server(AnswerEach([](const std::string&) { return HttpReply(200, std::string(100'000, 'x')); }));
    const HttpClient client(server.Port());
    for (int round = 0; round < 100; ++round)
    {
        auto request = client.Open(L"POST");
        std::atomic<int> steps = 0;
        std::thread worker([handle = request.Get(), &steps] {
            steps = 1;
            const DWORD error = Exchange(handle, "body").error;
            EXPECT_TRUE(error == ERROR_SUCCESS || error == ERROR_INVALID_HANDLE || error == ERROR_WINHTTP_OPERATION_CANCELLED) << error;
        });
        while (steps == 0)
            std::this_thread::yield();
        for (int spin = 0; spin < round * 20; ++spin)
            std::this_thread::yield();
        request.Close();
        worker.join();
    }
    EXPECT_EQ(ERROR_SUCCESS, client.Get().error);
}
} // namespace
