#pragma once

/// @file
/// What the clients of a simulation share: the sample server, which goes away and comes back, and instances of the library.

#include "Appliance.h"
#include "Operations.h"
#include "TextConversion.h"
#include "Tree.h"

#include <algorithm>
#include <atomic>
#include <iomanip>
#include <set>
#include <sstream>

/// A check that does not hold.
struct Violation : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

inline void Check(bool holds, const std::string& what)
{
    if (!holds)
        throw Violation(what);
}

/// Names of servers that lead to this machine. Some are lost at times.
namespace Names
{
/// @param failures  how many look-ups of the name fail, of ten.
/// @return an address for `SetServer`.
[[nodiscard]] std::string New(unsigned failures);

/// Twice the look-ups that have failed.
[[nodiscard]] unsigned Disturbances();
} // namespace Names

class World
{
public:
    explicit World(unsigned count)
    {
        std::ifstream plan(QUENDRA_SOURCE_DIR "/Tests/Simulation/Faults.json");
        m_plan = ApplianceParts::ReadFaultPlan({std::istreambuf_iterator<char>(plan), {}});
        m_options.root = files / "root";
        m_options.user = "ann"; // as `LogIn` does
        m_options.password = "p&ss";
        Start();
        const auto create = [this](unsigned failures) {
            auto instance = std::make_unique<Instance>(CreateInstance(L"my device"));
            instance->Api().SetServer(Names::New(failures).c_str());
            instance->Api().SetPort(m_options.port);
            return instance;
        };
        m_waker = create(0);
        for (unsigned i = 0; i < count; ++i)
            instances.push_back(create(i % 2));
    }

    /// The server goes away and comes back.
    /// @param seed  where given: of the faults that it plays from now on; 0: none.
    void Restart(std::optional<unsigned> seed = {})
    {
        const std::lock_guard guard(m_mutex);
        ++m_restarts;
        m_server.reset();
        m_options.faultSeed = seed.value_or(m_options.faultSeed + 1'000'000);
        if (seed)
        {
            m_options.faults = *seed != 0 ? m_plan : std::nullopt;
            m_attempts.clear();
            m_actions.clear();
        }
        Start();
        ++m_restarts;
    }
    void Stop() { m_server.reset(); }

    /// Waits while the server is away.
    void Await() { const std::lock_guard guard(m_mutex); }

    /// Grows when something happens that can make a call fail; odd while it goes on.
    [[nodiscard]] unsigned Disturbances() const { return m_restarts + Names::Disturbances(); }
    [[nodiscard]] bool IsCalmSince(unsigned earlier) const { return !m_options.faults && earlier % 2 == 0 && earlier == Disturbances(); }

    /// Waits until the server has done with each request whose client has closed its connection: it takes effect now or never.
    void Fence()
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (auto waiting = ClosedByClients(); !waiting.empty();)
        {
            Check(std::chrono::steady_clock::now() < deadline, "the server does not end a request whose client is gone");
            // A feed that waits finds out with the next change that its client is gone.
            Caller caller;
            if ((*m_waker)->SetPathAttributes(L"/home", caller.item, caller) != Result::Success)
                static_cast<void>(LogIn()(m_waker->Api(), caller));
            const auto now = ClosedByClients();
            std::erase_if(waiting, [&](const auto& each) { return !now.contains(each); });
        }
    }

    /// Counts a change that a client tries, and an action of the feed: there are never more of these.
    void NoteAttempt(const std::string& path)
    {
        const std::lock_guard guard(m_mutex);
        ++m_attempts[path];
    }
    void NoteAction(const std::wstring& token, const std::string& path)
    {
        const std::lock_guard guard(m_mutex);
        Check(++m_actions[{token, path}] <= m_attempts[path], "the feed has more changes of " + path + " than were tried");
    }

    /// Compares a client's folder with the disk of the server, which is stopped.
    void CompareFiles(const std::string& folder, const Tree& tree) const
    {
        namespace fs = std::filesystem;
        const fs::path root = files / "root";
        Tree found = {{folder, {.isFolder = true}}};
        for (const auto& entry : fs::recursive_directory_iterator(root / folder.substr(1)))
        {
            const auto path = fs::relative(entry.path(), root).string();
            found['/' + path] = {entry.is_directory(), entry.is_directory() ? "" : files.Read("root/" + path)};
        }
        const bool isSame = std::ranges::equal(found, tree, [](const auto& on, const auto& known) {
            return on.first == known.first && on.second.isFolder == known.second.isFolder && on.second.content == known.second.content;
        });
        Check(isSame, "the server's disk is not what its clients know");
        Check(fs::is_empty(root / ".quendra-appliance/temporary"), "the server has left temporary files");
    }

    const TemporaryFolder files;
    std::vector<std::unique_ptr<Instance>> instances;
    std::atomic<std::uint64_t> requests = 0;
    std::atomic<std::uint64_t> bytes = 0;

private:
    void Start()
    {
        m_output.str({});
        m_server = std::make_unique<ApplianceParts::Appliance>(m_options, m_output);
        m_server->Start();
        if (m_options.port == 0)
            m_options.port = m_server->Port();
    }

    /// The clients' ends of the connections that clients have closed, and the server has not.
    [[nodiscard]] std::set<std::string> ClosedByClients() const
    {
        std::ostringstream server;
        server << "0100007F:" << std::uppercase << std::hex << std::setw(4) << std::setfill('0') << m_options.port;
        std::set<std::string> ends;
        std::ifstream table("/proc/net/tcp");
        std::string number;
        std::string local;
        std::string remote;
        std::string state;
        for (std::string line; std::getline(table, line);)
        {
            std::istringstream(line) >> number >> local >> remote >> state;
            // The client's end waits for an acknowledgement (of all that it has sent) or for the server; the server's end, for its owner.
            if (remote == server.str() && (state == "04" || state == "05"))
                ends.insert(local);
            else if (local == server.str() && state == "08")
                ends.insert(remote);
        }
        return ends;
    }

    ApplianceParts::Options m_options;
    std::optional<ApplianceParts::FaultPlan> m_plan;
    std::ostringstream m_output;
    std::atomic<unsigned> m_restarts = 0; ///< twice their number; odd while the server is away.
    std::mutex m_mutex;                   ///< of the server and the counts.
    std::unique_ptr<ApplianceParts::Appliance> m_server;
    std::unique_ptr<Instance> m_waker;
    std::map<std::string, unsigned> m_attempts;
    std::map<std::pair<std::wstring, std::string>, unsigned> m_actions;
};
