#pragma once

/// @file
/// What the clients of a simulation share: the sample server, which goes away and comes back, and instances of the library.

#include "Appliance.h"
#include "Operations.h"
#include "TextConversion.h"
#include "Tree.h"

#include <atomic>
#include <cstdio>
#include <sstream>

/// Ends what a client does where a check does not hold.
inline void Check(bool holds, const std::string& what)
{
    if (!holds)
        throw std::runtime_error(what);
}

/// The end of names that lead to this machine. They begin with the number of their look-ups that fail, of ten.
inline constexpr const char* kDomain = ".simulation.test";

/// The look-ups that have failed.
extern std::atomic<unsigned> lostNames;

/// @param choice  chooses one of six.
/// @return an address for `SetServer`.
inline std::string AddressOfServer(unsigned choice)
{
    return "http://" + std::to_string(choice % 3) + (choice % 2 == 0 ? "a" : "b") + kDomain;
}

class World
{
public:
    explicit World(unsigned count)
    {
        std::ifstream plan(QUENDRA_SOURCE_DIR "/Tests/Simulation/Network.json");
        m_plan = ApplianceParts::ReadFaultPlan({std::istreambuf_iterator<char>(plan), {}});
        m_options.root = files / "root";
        m_options.user = "ann"; // as `LogIn` does
        m_options.password = "p&ss";
        Start();
        m_waker = NewInstance(0);
        for (unsigned i = 0; i < count; ++i)
            instances.push_back(NewInstance(i));
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

    /// What can make a call fail: grows when it happens, and is odd while it goes on.
    [[nodiscard]] unsigned Disturbances() const { return m_restarts + 2 * lostNames; }
    [[nodiscard]] bool IsCalmSince(unsigned earlier) const { return !m_options.faults && earlier % 2 == 0 && earlier == Disturbances(); }

    /// Waits until the server has done with each request whose client has closed its connection: it takes effect now or never.
    void Fence()
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (HasConnectionThatItsClientClosed())
        {
            Check(std::chrono::steady_clock::now() < deadline, "the server does not end a request whose client is gone");
            // A feed that waits finds out with the next change that its client is gone.
            Caller caller;
            if ((*m_waker)->SetPathAttributes(L"/home", caller.item, caller) != Result::Success)
                static_cast<void>(LogIn()(m_waker->Api(), caller));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
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
        const auto root = files / "root";
        Tree found = {{folder, {.isFolder = true}}};
        for (const auto& entry : fs::recursive_directory_iterator(root / folder.substr(1)))
        {
            const auto path = fs::relative(entry.path(), root).string();
            found['/' + path] = {entry.is_directory(), entry.is_directory() ? "" : files.Read("root/" + path)};
        }
        const auto place = Difference(found, tree);
        Check(place.empty(), "the server's disk is not what its client knows at " + place);
        Check(fs::is_empty(root / ".quendra-appliance/temporary"), "the server has left temporary files");
    }

    const TemporaryFolder files;
    std::vector<std::unique_ptr<Instance>> instances;
    std::atomic<std::uint64_t> requests = 0;
    std::atomic<std::uint64_t> bytes = 0;

private:
    [[nodiscard]] std::unique_ptr<Instance> NewInstance(unsigned choice) const
    {
        auto instance = std::make_unique<Instance>(CreateInstance(L"my device"));
        instance->Api().SetServer(AddressOfServer(choice).c_str());
        instance->Api().SetPort(m_options.port);
        return instance;
    }

    void Start()
    {
        m_output.str({});
        m_server = std::make_unique<ApplianceParts::Appliance>(m_options, m_output);
        m_server->Start();
        if (m_options.port == 0)
            m_options.port = m_server->Port();
    }

    [[nodiscard]] bool HasConnectionThatItsClientClosed() const
    {
        const auto server = static_cast<unsigned>(m_options.port);
        std::ifstream table("/proc/net/tcp");
        for (std::string line; std::getline(table, line);)
        {
            unsigned local = 0;
            unsigned remote = 0;
            unsigned state = 0;
            std::sscanf(line.c_str(), "%*s %*8s:%X %*8s:%X %X", &local, &remote, &state);
            // The client's end waits for an acknowledgement of all that it has sent or for the server; the server's end, for its owner.
            if ((remote == server && (state == 4 || state == 5)) || (local == server && state == 8))
                return true;
        }
        return false;
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
