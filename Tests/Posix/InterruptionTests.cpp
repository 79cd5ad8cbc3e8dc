// Every wait of a request has an end: its timeout, or the closing of its handle from another thread.

#include "LibraryOverWire.h"
#include "Operations.h"
#include "Posix/HttpSupport.h"
#include "RawServer.h"
#include "TransferSupport.h"

#include <array>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <future>
#include <netdb.h>
#include <unistd.h>

using namespace HttpCalls;
using namespace std::chrono_literals;

namespace
{
// A thread that resolves names may outlive the request that it does so for.
std::shared_ptr<Gate> resolutionGate;
} // namespace

// Stands before the system's: the name "lost.test" does not exist, and "stuck.test" is not resolved before its gate opens.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                                                                  addrinfo** result)
{
    using Resolve = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto systems = reinterpret_cast<Resolve>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    if (name != nullptr && std::strcmp(name, "lost.test") == 0)
        return EAI_NONAME;
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
// What a call returns that is ended while it is blocked: while its thread, which does nothing else, sleeps, and for longer than the 200
// milliseconds after which curl looks again by itself at a new connection.
std::string EndWithin(const HttpHandle& request, const std::function<std::string(HINTERNET)>& call, const std::function<void()>& end)
{
    std::promise<pid_t> thread;
    auto result = std::async(std::launch::async, [&, handle = request.get()] {
        thread.set_value(::gettid());
        return call(handle);
    });
    const auto state = "/proc/self/task/" + std::to_string(thread.get_future().get()) + "/stat";
    for (int sleeping = 0; sleeping < 12 && result.wait_for(25ms) != std::future_status::ready;)
    {
        std::string text;
        std::getline(std::ifstream(state), text);
        sleeping = text.find(") S ") != std::string::npos ? sleeping + 1 : 0;
    }
    end();
    EXPECT_EQ(std::future_status::ready, result.wait_for(2s));
    return result.get();
}

TEST(PosixInterruption, EndsEveryWaitWithoutProgress)
{
    resolutionGate = std::make_shared<Gate>();
    RawServer silent([](RawConnection& connection) {
        const auto head = connection.ReadHead();
        if (head.find(" /part") != std::string::npos)
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\nabc");
        // Longer in all than the timeout, shorter each: the passing of time is what is tested.
        for (const char* const part : {"HTTP/1.1 200 OK\r\n", "Content-Length: 2\r\n", "X: y\r\n", "\r\n", "o", "k"})
            if (head.find(" /slow") != std::string::npos && !Gate().Wait(300ms))
                connection.Send(part);
        connection.Hold();
    });
    const HttpClient toNowhere(80, L"stuck.test");
    const HttpClient toSilent(silent.Port());
    const std::string body(32'000'000, 'x');
    const auto exchange = [](HINTERNET request) { return Exchange(request); };
    const auto send = [&](HINTERNET request) { return Exchange(request, body); };
    const auto write = [&](HINTERNET request) {
        const DWORD error = SendWhole(request, {}, L"Content-Length: 32000000");
        return Outcome(error != ERROR_SUCCESS ? error : WriteBody(request, body));
    };
    // The wait; whom to ask and how; the timeouts to resolve, connect, send and receive, and what comes before the last of them.
    using Call = std::function<std::string(HINTERNET)>;
    const std::tuple<const char*, const HttpClient&, const wchar_t*, DWORD, Call, std::array<int, 4>, const char*> cases[] = {
        {"resolution", toNowhere, L"/", 0, exchange, {50, 50, 0, 0}, ""},
        {"handshake", toSilent, L"/", WINHTTP_FLAG_SECURE, exchange, {0, 100, 0, 0}, ""},
        {"send", toSilent, L"/", 0, send, {0, 0, 100, 0}, ""},
        {"write", toSilent, L"/", 0, write, {0, 0, 100, 0}, ""},
        {"receive", toSilent, L"/", 0, exchange, {0, 0, 0, 100}, ""},
        {"read", toSilent, L"/part", 0, exchange, {0, 0, 0, 200}, " abc"},
    };
    for (const auto& [wait, client, path, flags, call, timeouts, came] : cases)
    {
        SCOPED_TRACE(wait);
        const auto late = client.Open(L"GET", path, flags);
        EXPECT_NE(FALSE, WinHttpSetTimeouts(late.get(), timeouts[0], timeouts[1], timeouts[2], timeouts[3]));
        EXPECT_EQ(std::string("12002") + came, call(late.get()));
        auto closed = client.Open(L"GET", path, flags);
        EXPECT_EQ("12017", EndWithin(closed, call, [&] { closed.reset(); }).substr(0, 5));
        const Event event;
        const auto ended = client.Open(L"GET", path, flags);
        EndOnEvent(ended.get(), event.event);
        EXPECT_EQ("1223", EndWithin(ended, call, [&] { SetEvent(event.event); }).substr(0, 4));
    }
    resolutionGate->Open();
    ASSERT_NE(FALSE, WinHttpSetTimeouts(toSilent.session.get(), 0, 0, 0, 1000));
    EXPECT_EQ("200 ok", toSilent.Get(L"/slow"));
}

TEST(PosixInterruption, EndTransfersWhoseServerIsSilent)
{
    const TemporaryFolder folder;
    for (const auto& [name, transfer] : FileTransfers(1000))
    {
        SCOPED_TRACE(name);
        const Event event;
        const Library wire([&](RawConnection& connection) {
            std::string request;
            while (!(request = AnswerHandshake(connection.ReadRequest(), "1.3")).empty())
                connection.Send(request);
            event.Signal();
            connection.Hold();
        });
        Caller caller;
        caller.local = caller.signature = folder.Write("file", std::string(1000, 'x'));
        caller.cancel = event;
        EXPECT_EQ(transfer(wire.Api(), caller), Result::Cancelled);
    }
}

TEST(PosixInterruption, SpareABodyThatLeavesSlowly)
{
    constexpr std::size_t kLength = 2'000'000;
    RawServer slow([](RawConnection& connection) {
        connection.LimitReceiveBuffer(16 * 1024);
        connection.ReadHead();
        // Less than the timeout each, more in all, and long after the client's system has taken the whole body.
        for (std::size_t taken = 0; taken < kLength; taken += kLength / 20)
            if (!Gate().Wait(100ms))
                connection.Skip(kLength / 20);
        connection.Send(HttpReply(200, ""));
    });
    const HttpClient client(slow.Port());
    ASSERT_NE(FALSE, WinHttpSetTimeouts(client.session.get(), 0, 0, 1000, 1000));
    EXPECT_EQ("200", Exchange(client.Open(L"POST").get(), std::string(kLength, 'x')));
}
} // namespace
