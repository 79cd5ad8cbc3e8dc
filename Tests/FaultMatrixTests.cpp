// Every operation meets every fault of the plan that the sample server brings, all on one instance: each pair ends in time and in a
// documented code, and the instance works on.

#include "CaseFile.h"
#include "HttpServer.h"
#include "LibraryOverWire.h"
#include "Operations.h"
#include "Transport/WinHttpImpl.h"

namespace
{

using namespace ApplianceParts;
using namespace std::chrono_literals;

// The library's own transport, with time-outs of the test's.
struct TimedSession : WinHttpSession
{
    explicit TimedSession(const std::atomic<int>& time) : timeout(time) {}

    int SetTimeouts(std::int32_t, std::int32_t, std::int32_t, std::int32_t) override
    {
        return WinHttpSession::SetTimeouts(timeout, timeout, timeout, timeout);
    }

    const std::atomic<int>& timeout;
};

struct TimedTransport : WinHttpFactory
{
    std::shared_ptr<IWinHttpSession> CreateSession() override { return std::make_shared<TimedSession>(timeout); }

    std::atomic<int> timeout = 0; // milliseconds
};

// Whether a fault cannot be played here.
bool IsException(const std::string& fault)
{
    static const Json::Value exceptions = ReadCaseFile("FaultCases.json")["exceptions"][QUENDRA_BUILD_KIND];
    const auto isNamed = [&fault](const Json::Value& each) { return fault.find(each[0].asString()) != std::string::npos; };
    return std::any_of(exceptions.begin(), exceptions.end(), isNamed);
}

// What this process has at the moment.
struct Used
{
#if defined(_WIN32)
    Used()
    {
        GetProcessHandleCount(GetCurrentProcess(), &handles);
    }

    DWORD handles = 0; // Wine counts none
    DWORD threads = 0; // unknown
#else
    static std::ptrdiff_t Count(const char* folder)
    {
        return std::distance(std::filesystem::directory_iterator(folder), {});
    }

    std::ptrdiff_t handles = Count("/proc/self/fd");
    std::ptrdiff_t threads = Count("/proc/self/task");
#endif
};

// Wine's WinHTTP gives the socket's own error where a reply's body does not come in time.
#if defined(_WIN32)
constexpr ResultCode kSocketTimeout = WSAETIMEDOUT;
#else
constexpr ResultCode kSocketTimeout = ERROR_WINHTTP_TIMEOUT;
#endif

class FaultMatrix : public testing::TestWithParam<std::size_t>
{
protected:
    FaultMatrix() { m_library->SetServer("127.0.0.1"); }

    // Serves until the server is gone, with the fault of the moment.
    std::shared_ptr<void> Start()
    {
        const auto answer = [](const Request& request) -> Reply {
            const std::string reply = AnswerHandshake(request.method + ' ' + request.path + ' ');
            return {.text = reply.empty() ? kReply : reply.substr(reply.find("\r\n\r\n") + 4)};
        };
        m_port = 0;
        auto server = StartHttpServer(m_options, m_port, answer, [this](const FaultOccasion& occasion) -> std::shared_ptr<const Fault> {
            const std::lock_guard lock(m_mutex);
            if (!m_fault || m_fault->isAtConnection != occasion.method.empty())
                return nullptr;
            m_isPlayed = true;
            return m_fault;
        });
        m_library->SetPort(m_port);
        EXPECT_EQ(Meet(nullptr, "", ShakeHands), Result::Success);
        return server;
    }

    // Performs an operation whose requests meet the fault, if there is one.
    // @param timeout  in milliseconds.
    ResultCode Meet(const std::shared_ptr<const Fault>& fault, const std::string& name, const Operation& operation, int timeout = 20'000)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_fault = fault;
            m_isPlayed = false;
            m_transport->timeout = timeout;
        }
        Caller caller;
        if (IsDownload(name))
            caller.local = m_folder.Write("target", "b");
        (IsUpload(name) ? caller.local : caller.signature) = m_sent;
        static_cast<void>(m_library->SetSessionToken(L"token"));
        return operation(m_library.Api(), caller);
    }

    // @return what is wrong with the pair; nothing if all is as it should be.
    std::string Try(const std::shared_ptr<const Fault>& fault, const std::string& name, const Operation& operation)
    {
        std::string wrong;
        ResultCode code = Result::Success;
        // On a slow machine the shorter time may pass before the request has come.
        for (const int timeout : {25, 2000})
        {
            if (fault->isAtConnection)
                Meet(m_closing, "", kNext);
            const auto start = std::chrono::steady_clock::now();
            code = Meet(fault, name, operation, timeout);
            wrong += std::chrono::steady_clock::now() - start < 20s ? "" : "late; ";
            if (m_isPlayed)
                break;
        }
        wrong += m_isPlayed ? "" : "not met; ";
        // The raw status of what the server made of it; another operation tells it with 20000 more.
        wrong +=
            IsDocumented(code) || code == kSocketTimeout || (name == "wipe" && code < 1000) ? "" : "ends in " + std::to_string(code) + "; ";
        code = Meet(nullptr, name, name == "handshake" ? operation : kNext);
        return wrong + (code == Result::Success ? "" : "the next operation ends in " + std::to_string(code));
    }

    // An instance shakes hands only once: this is for another one.
    Operation Handshake()
    {
        return [this, instance = std::shared_ptr<Instance>()](Api&, Caller&) mutable {
            if (!instance)
            {
                instance = std::make_shared<Instance>(CreateInstanceWithFactory(m_transport, L"device"));
                instance->Api().SetServer("127.0.0.1");
                instance->Api().SetPort(m_port);
            }
            const ResultCode code = instance->ShakeHands();
            if (code == Result::Success)
                instance = nullptr;
            return code;
        };
    }

    const Operation kNext = Call(&Api::GetPathAttributes, L"/a");
    const std::shared_ptr<const Fault> m_closing = std::make_shared<const Fault>(
        Fault{.name = "closes", .reply = {{{.bytes = HttpReply(200, kReply, "Connection: close\r\n")}}}, .end = FaultEnd::Close});
    const TemporaryFolder m_folder;
    const std::wstring m_sent = m_folder.Write("sent", std::string(20'000, 'x'));
    const std::shared_ptr<TimedTransport> m_transport = std::make_shared<TimedTransport>();
    const Instance m_library{CreateInstanceWithFactory(m_transport, L"device")};
    const Options m_options;
    int m_port = 0;
    std::mutex m_mutex; // of the next two
    std::shared_ptr<const Fault> m_fault;
    std::atomic<bool> m_isPlayed = false;
};

// A part of the faults, so that several processes share the work. Under Wine all take too long for each run: the first part is a sample.
#if defined(_WIN32)
constexpr std::size_t kParts = 40;
#else
constexpr std::size_t kParts = 4;
#endif

TEST_P(FaultMatrix, EveryOperationMeetsEveryFaultAndTheNextOneWorks)
{
    std::map<std::string, Operation> operations = AllTransfers();
    operations.merge(PathOperations());
    operations.erase("move"); // the request of "rename"
    operations.insert({"handshake", Handshake()});
    std::ifstream file(QUENDRA_SOURCE_DIR "/Appliance/Faults.json", std::ios::binary);
    const FaultPlan plan = ReadFaultPlan({std::istreambuf_iterator<char>(file), {}});
    Start().reset(); // what is made only once is there
    const Used before;
    auto server = Start();
    std::size_t pairs = 0;
    std::size_t passed = 0;
    for (std::size_t index = GetParam(); index < plan.faults.size(); index += kParts)
        for (const auto& [name, operation] : operations)
        {
            const auto& fault = plan.faults[index];
            if (IsException(fault->name))
                continue;
            const std::string wrong = Try(fault, name, operation);
            EXPECT_EQ(wrong, "") << fault->name << ": " << name;
            ++pairs;
            passed += wrong.empty() ? 1U : 0U;
        }
    server = nullptr;
    const Used after;
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_LE(after.handles, before.handles + 4); // the second server's idle connection is kept
    std::cout << pairs << " pairs of a fault and an operation, " << passed << " passed\n";
}

INSTANTIATE_TEST_SUITE_P(Parts, FaultMatrix, testing::Range<std::size_t>(0, kParts),
                         [](const auto& part) { return part.param == 0 ? std::string("Sample") : "Part" + std::to_string(part.param); });

} // namespace
