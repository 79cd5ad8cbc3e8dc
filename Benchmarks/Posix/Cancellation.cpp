// How long a transfer goes on after it was ended from another thread, by the way and by what it was waiting for.
//
//     cancellation [TRIES]        prints median and 99th percentile in milliseconds; fails if the latter is over 100

#include "Attributes.h"
#include "RawServer.h"

#include "Platform/Platform.h"
#include "QuendraHttp/QuendraHttp.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

// Stands before the system's: "stuck.test" takes its time, as a resolver that gets no answer.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                                                                  addrinfo** result)
{
    using Resolve = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto systems = reinterpret_cast<Resolve>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    if (name == nullptr || std::strcmp(name, "stuck.test") != 0)
        return systems(name, service, hints, result);
    std::this_thread::sleep_for(500ms);
    return EAI_FAIL;
}

namespace
{
using Clock = std::chrono::steady_clock;

// Listens and never takes a connection: what is sent to it fills the kernel's buffers.
class SilentServer
{
public:
    // @param backlog  connections that the kernel takes by itself.
    explicit SilentServer(int backlog) : m_socket(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        ::bind(m_socket, reinterpret_cast<sockaddr*>(&address), size);
        ::listen(m_socket, backlog);
        ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size);
        m_port = ntohs(address.sin_port);
        for (int& filler : m_fillers)
        {
            filler = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            if (backlog == 0)
                static_cast<void>(::connect(filler, reinterpret_cast<sockaddr*>(&address), size));
        }
    }
    ~SilentServer()
    {
        for (const int filler : m_fillers)
            ::close(filler);
        ::close(m_socket);
    }

    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;

    [[nodiscard]] int Port() const { return m_port; }

private:
    int m_socket;
    int m_port = 0;
    std::array<int, 4> m_fillers = {};
};

struct Phase
{
    const char* name;
    const char* server;
    int port;
    bool isUpload;
};

// What is sent, and where what is received goes.
const std::filesystem::path kSent = std::filesystem::temp_directory_path() / ("quendra-sent-" + std::to_string(::getpid()));
const std::filesystem::path kReceived = std::filesystem::temp_directory_path() / ("quendra-received-" + std::to_string(::getpid()));

// @return the milliseconds for which a transfer goes on after its end was asked for.
double EndOnce(IQuendraHttpAPI& api, const Phase& phase, bool byEvent, std::chrono::milliseconds delay)
{
    const CancelEvent event{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    Gate over;
    Clock::time_point end;
    std::jthread transfer([&] {
        std::shared_ptr<IServerAttributes> item = std::make_shared<CAttributes<CServerItemAttributesBase>>();
        const std::uint32_t delta = 0;
        static_cast<void>(phase.isUpload ? api.UploadFile(kSent.wstring(), L"/a", item, &delta, event, nullptr)
                                         : api.DownloadFile(L"/a", kReceived.wstring(), item, item, L"", event, nullptr));
        end = Clock::now();
        over.Open();
    });
    std::this_thread::sleep_for(delay);
    const auto start = Clock::now();
    if (byEvent)
        SetEvent(event.event);
    do
        if (!byEvent)
            api.CloseRequestHandle(L"/a");
    while (!over.Wait(1ms));
    transfer.join();
    CloseHandle(event.event);
    return std::chrono::duration<double, std::milli>(end - start).count();
}

// Serves the beginning of a body, and its other bytes one by one if it trickles.
RawServer::Script ServeBeginning(bool trickles)
{
    return [trickles](RawConnection& connection) {
        connection.ReadHead();
        connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\nabc");
        while (trickles && !Gate().Wait(5ms))
            connection.Send("x");
        connection.Hold();
    };
}
} // namespace

int main(int count, char** arguments)
{
    const int tries = count > 1 ? std::atoi(arguments[1]) : 100;
    std::ofstream(kSent, std::ios::binary) << std::string(64U << 20U, 'x');
    const SilentServer full(0);
    const SilentServer silent(1000);
    RawServer stuck(ServeBeginning(false));
    RawServer slow(ServeBeginning(true));
    const Phase phases[] = {{"resolving the name", "http://stuck.test", 80, false},
                            {"connecting", "http://127.0.0.1", full.Port(), false},
                            {"the TLS handshake", "https://127.0.0.1", silent.Port(), false},
                            {"sending, the other side does not read", "http://127.0.0.1", silent.Port(), true},
                            {"waiting for the reply", "http://127.0.0.1", silent.Port(), false},
                            {"in the middle of the body", "http://127.0.0.1", stuck.Port(), false},
                            {"a byte every 5 ms", "http://127.0.0.1", slow.Port(), false}};
    double longest = 0;
    std::printf("| Waiting for | closing: median | 99 %% | event: median | 99 %% |\n|---|---|---|---|---|\n");
    for (const Phase& phase : phases)
    {
        IQuendraHttpAPI* const api = CreateInstance(L"my device");
        api->SetServer(phase.server);
        api->SetPort(phase.port);
        std::printf("| %s ", phase.name);
        for (const bool byEvent : {false, true})
        {
            std::vector<double> times;
            for (int i = 0; i < tries; ++i)
                times.push_back(EndOnce(*api, phase, byEvent, std::chrono::milliseconds(40 + i % 50)));
            std::ranges::sort(times);
            const double late = times[times.size() * 99 / 100];
            longest = std::max(longest, late);
            std::printf("| %.1f ms | %.1f ms ", times[times.size() / 2], late);
        }
        std::printf("|\n");
        std::fflush(stdout);
        api->Release();
    }
    std::filesystem::remove(kSent);
    std::filesystem::remove(kReceived);
    return longest <= 100 ? 0 : 1;
}
