/// @file
/// Every wait of a request has an end: its timeout, or the closing of its handle from another thread.

#include "PosixHttpSupport.h"
#include "RawServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <functional>
#include <future>
#include <netdb.h>
#include <thread>
#include <unistd.h>

using namespace HttpCalls;
using namespace std::chrono_literals;

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
/// What a call returns whose request is closed while it is blocked: while its thread, which does nothing else, sleeps.
std::string CloseWithin(HttpHandle request, const std::function<std::string(HINTERNET)>& call)
{
    std::promise<pid_t> thread;
    auto result = std::async(std::launch::async, [&, handle = request.get()] {
        thread.set_value(::gettid());
        return call(handle);
    });
    const auto state = "/proc/self/task/" + std::to_string(thread.get_future().get()) + "/stat";
    for (int sleeping = 0; sleeping < 20 && result.wait_for(0s) != std::future_status::ready;)
    {
        std::string text;
        std::getline(std::ifstream(state), text);
        sleeping = text.find(") S ") != std::string::npos ? sleeping + 1 : 0;
        std::this_thread::yield();
    }
    request.reset();
    EXPECT_EQ(std::future_status::ready, result.wait_for(2s));
    return result.get();
}

TEST(PosixInterruption, EndsEveryWait)
{
    struct Case
    {
        const char* wait;
        const HttpClient& client;
        const wchar_t* path;
        DWORD flags;
        std::function<std::string(HINTERNET)> call;
        int connectTimeout;
        int sendTimeout;
        int receiveTimeout;
        const char* came = "";
    };
    resolutionGate = std::make_shared<Gate>();
    RawServer silent([](RawConnection& connection) {
        if (connection.ReadHead().starts_with("GET /part"))
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc");
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
    const Case cases[] = {
        {"resolution", toNowhere, L"/", 0, exchange, 50, 0, 0}, {"handshake", toSilent, L"/", WINHTTP_FLAG_SECURE, exchange, 50, 0, 0},
        {"send", toSilent, L"/", 0, send, 0, 100, 0},           {"write", toSilent, L"/", 0, write, 0, 100, 0},
        {"receive", toSilent, L"/", 0, exchange, 0, 0, 100},    {"read", toSilent, L"/part", 0, exchange, 0, 0, 100, " abc"},
    };
    for (const auto& test : cases)
    {
        SCOPED_TRACE(test.wait);
        const auto late = test.client.Open(L"GET", test.path, test.flags);
        EXPECT_NE(FALSE, WinHttpSetTimeouts(late.get(), 50, test.connectTimeout, test.sendTimeout, test.receiveTimeout));
        EXPECT_EQ(std::string("12002") + test.came, test.call(late.get()));
        EXPECT_EQ("12017", CloseWithin(test.client.Open(L"GET", test.path, test.flags), test.call).substr(0, 5));
    }
    resolutionGate->Open();
}

TEST(PosixInterruption, MeetsRequestsAtAnyPoint)
{
    RawServer server(AnswerEach([](const std::string&) { return HttpReply(200, std::string(100'000, 'x')); }));
    const HttpClient client(server.Port());
    for (int round = 0; round < 100; ++round)
    {
        auto request = client.Open(L"POST");
        Gate begun;
        std::thread worker([handle = request.get(), &begun] {
            begun.Open();
            const auto outcome = Exchange(handle, "body").substr(0, 5);
            EXPECT_TRUE(outcome == "200 x" || outcome == "6" || outcome == "12017") << outcome;
        });
        begun.Wait();
        for (int spin = 0; spin < round * 20; ++spin)
            std::this_thread::yield();
        request.reset();
        worker.join();
    }
    EXPECT_TRUE(client.Get().starts_with("200 "));
}
} // namespace
