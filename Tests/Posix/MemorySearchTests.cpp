// The memory of a process holds no password and no device token behind the login, and no session token that was replaced, however an
// operation ends. Events hold the session token where they must, and nothing else.

#include "LibraryOverWire.h"
#include "MemorySearch.h"
#include "Operations.h"
#include "RegistryValues.h"
#include "Tracing.h"
#include "Wiping.h"

#include "Eventing/EventSink.h"

#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr std::string_view kPassword = "drowssap-gnol-yrev-a-6f1d9c3b7a";
constexpr std::string_view kDeviceToken = "nekot-ecived-gnol-yrev-a-4b8f0d6e2c";
constexpr std::string_view kToken = "nekot-noisses-gnol-yrev-a-5e0c8b2a";
constexpr std::string_view kForProxy = "=Qmcvd3czFGctcmbvxWL5JXZ21SYtYjZxQWOjNjY3EmOu5WY"; // the password with a user, in base64

// How the server ends an operation: with a status, or so.
enum Ending
{
    Cut = -9,
    NoReply,
    Silence,
    Closed,
    Cancelled,
};
constexpr int kEndings[] = {200, 307, 401, 500, Cut, NoReply, Silence, Closed, Cancelled};

struct Case
{
    const char* name;
    const char* version;
    bool isTraced;
    bool isProxied;
};

// A text that is wiped when the operation that takes it is over.
struct Secret
{
    explicit Secret(std::string_view secret) : text(Spelled<std::wstring>(secret)) {}

    std::wstring text;
    const ScopedWipe<std::wstring> wipe{text};
};

int g_toldSecrets = 0;

void TakeEvent(void*, const Eventing::Event* event)
{
    const std::string_view message = event->message != nullptr ? event->message : "";
    // The two messages, a login's reply, and paths with API 1.0.
    const auto holds = [message](std::string_view text) { return message.find(text) != std::string_view::npos; };
    const bool mayHoldToken = holds("New session token: ") || holds("OriginalSession [") || holds("\"session_token\"") || holds("/api/") ||
                              holds("/sync/notifs/");
    for (const auto secret : {kPassword, kDeviceToken, kForProxy, mayHoldToken ? kPassword : kToken})
        if (const int count = CountIn(message.data(), message.size(), secret, 1))
        {
            g_toldSecrets += count;
            std::printf("an event of %s, line %d\n", event->function, event->line);
        }
}

void PrintTo(const Case& value, std::ostream* stream)
{
    *stream << value.name;
}

class MemorySearch : public testing::TestWithParam<Case>
{
protected:
    MemorySearch()
    {
        EXPECT_EQ(pipe(m_arrived), 0);
        for (const int ending : kEndings)
            m_servers[ending] = std::make_unique<RawServer>(
                AfterHandshake([this, ending](RawConnection& connection, const std::string& head) { Serve(ending, connection, head); },
                               GetParam().version));
    }
    ~MemorySearch() override { close(m_arrived[0]), close(m_arrived[1]); }

    void Serve(int ending, RawConnection& connection, const std::string& head)
    {
        const std::string form = connection.Read(BodyLength(head));
        const bool isLogin = form.find("password=" + Spelled<std::string>(kPassword)) != std::string::npos;
        m_logins += isLogin ? 1 : 0;
        m_tokens += HeaderValue(head, "Cookie") == "session_token=" + Spelled<std::string>(kToken) ? 1 : 0;
        m_forProxy += HeaderValue(head, "Proxy-Authorization") == "Basic " + Spelled<std::string>(kForProxy) ? 1 : 0;
        const std::string body =
            isLogin ? R"({"other":"\ud800","session_token":")" + Spelled<std::string>(kToken) + "\"}" + std::string(8000, ' ') : kReply;
        if (ending >= Silence && ending < 0)
        {
            EXPECT_EQ(write(m_arrived[1], "r", 1), 1);
            connection.Read(1);
        }
        if (ending > 0)
        {
            const auto path = head.find('/');
            const auto location = "Location: " + head.substr(path, head.find(' ', path) - path) + "\r\n";
            const auto reply = HttpReply(ending, ending == 200 ? body : R"({"errorId":"6"})", ending == 307 ? location : "");
            const std::size_t first = isLogin ? std::min<std::size_t>(reply.size(), 400) : reply.size();
            connection.Send(reply.substr(0, first));
            if (first != reply.size())
                Gate().Wait(std::chrono::milliseconds(20)); // the rest moves what came before
            connection.Send(reply.substr(first));
        }
        if (ending == Cut)
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 9999\r\n\r\n" + body);
        if (ending < 0)
            throw ConnectionEnded();
    }

    // Performs an operation, and ends it from another thread once its request has arrived, if that is how it ends.
    void Perform(int ending, Api& api, const std::string& name, const Operation& operation)
    {
        const Event cancel;
        Caller caller;
        caller.cancel = cancel;
        caller.signature = caller.local = m_folder.Write("local", "local");
        static_cast<void>(api.SetSessionToken(Secret(kToken).text));
        std::thread ender([&] {
            for (char what = 0; read(m_arrived[0], &what, 1) == 1 && what == 'r';)
                if (ending == Cancelled)
                    cancel.Signal();
                else if (ending == Closed)
                    for (const wchar_t* const path : {L"/notifs", L"/d", L"/d/a.txt"})
                        static_cast<void>(api.CloseRequestHandle(path));
        });
        if (name == "login")
        {
            std::uint32_t value = 0;
            static_cast<void>(api.Login(L"ann", Secret(kPassword).text, Secret(kDeviceToken).text, L"host", caller.text, value, {}, {}));
            // The session's token is the only one: what is searched for later may have been overwritten by chance.
            if (ending == 200 && !GetParam().isTraced)
                m_otherTokens += std::abs(CountInMemory(kToken) - 1);
        }
        else
            static_cast<void>(operation(api, caller));
        EXPECT_EQ(write(m_arrived[1], "o", 1), 1);
        ender.join();
        static_cast<void>(api.SetSessionToken(L""));
    }

    // @return how many secrets were found; each is printed with the operation and how it ended.
    int PerformAll()
    {
        const RegistryValues values;
        RegistryValues::Set(RegistryValues::Root::User, "HTTPReceiveResponseTimeout", 15);
        if (GetParam().isTraced)
            EventProviderHandle = OpenEventSink(EVT_INFO.level, Eventing::kAnyKeyword, &TakeEvent, nullptr);
        auto operations = PathOperations();
        operations.merge(AllTransfers());
        int found = 0;
        const auto search = [&](int ending, const std::string& name) {
            // A listener's texts are not the library's.
            for (const auto secret : {kPassword, kDeviceToken, kForProxy, GetParam().isTraced ? kPassword : kToken})
                if (const int count = CountInMemory(secret))
                {
                    found += count;
                    std::printf("%s, ending %d: %d times %s\n", name.c_str(), ending, count, std::string(secret).c_str());
                }
        };
        for (const auto& [ending, server] : m_servers)
        {
            if (GetParam().isProxied)
            {
                const auto proxy = "http://ann:" + Spelled<std::string>(kPassword) + "@127.0.0.1:" + std::to_string(server->Port());
                ::setenv("http_proxy", proxy.c_str(), 1);
            }
            {
                const Instance library(CreateInstanceFor(*server));
                static_cast<void>(library.ShakeHands());
                for (const auto& [name, operation] : operations)
                {
                    Perform(ending, library.Api(), name, operation);
                    if (!GetParam().isProxied) // what the environment holds, libcurl may hold
                        search(ending, name);
                }
            }
            if (char* const proxy = std::getenv("http_proxy"))
                WipeMemory(proxy, std::strlen(proxy));
            search(ending, "the instance's end");
        }
        std::printf("%d events hold secrets\n", g_toldSecrets);
        std::printf("%d tokens beside the session's behind a login\n", m_otherTokens);
        std::fflush(stdout);
        return found + g_toldSecrets + m_otherTokens;
    }

    const TemporaryFolder m_folder;
    int m_arrived[2] = {};
    int m_otherTokens = 0;
    std::atomic<int> m_logins = 0;
    std::atomic<int> m_tokens = 0;
    std::atomic<int> m_forProxy = 0;
    std::map<int, std::unique_ptr<RawServer>> m_servers;
};

TEST_P(MemorySearch, FindsNoSecret)
{
    ASSERT_TRUE(std::getenv("LD_BIND_NOW")) << "Else the system's libraries leave registers on the stack when they first make a call.";
    // The server's copies stay with this process.
    const pid_t child = fork();
    if (child == 0)
        _exit(PerformAll() == 0 ? 0 : 1);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_GE(m_logins, static_cast<int>(std::size(kEndings)));
    EXPECT_GT(m_tokens, 100);
    EXPECT_EQ(m_forProxy > 100, GetParam().isProxied);
}

INSTANTIATE_TEST_SUITE_P(Process, MemorySearch,
                         testing::Values(Case{"Api13", "1.3", false, false}, Case{"Api10", "1.0", false, false},
                                         Case{"Api13Traced", "1.3", true, false}, Case{"Api10Traced", "1.0", true, false},
                                         Case{"Proxy", "1.3", false, true}),
                         [](const auto& made) { return made.param.name; });

} // namespace
