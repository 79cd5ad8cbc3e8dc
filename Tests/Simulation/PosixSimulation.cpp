// Clients that synchronise their folders with the sample server while everything fails that can, and know at each moment what the server
// must have. A change that failed has happened or it has not: the client asks, and finds one of the two.
//
//     Simulation seeds FIRST COUNT            each seed has a server, instances, three clients with a thread each, and 120 steps
//     Simulation soak REQUESTS MIB            one server and one instance for all; memory, descriptors and threads stay what they are
//     Simulation threads THREADS STEPS        all operations, by many threads on one instance
//
// A thread's operations and what ends them depend on the seed alone, when they meet does not.

#include "Client.h"
#include "TextConversion.h"

#include <iostream>
#include <malloc.h>
#include <numeric>

namespace
{
using Clients = std::list<Client>;

/// What all clients do, each on a thread of its own. @return what failed.
std::string Together(Clients& clients, const std::function<std::string(Client&)>& run)
{
    std::list<std::string> failures;
    {
        std::list<std::jthread> threads;
        for (Client& client : clients)
            threads.emplace_back([&run, &client, &failure = failures.emplace_back()] { failure = run(client); });
    }
    return std::accumulate(failures.begin(), failures.end(), std::string());
}

/// Faults for odd seeds, then none, and a last look at all.
std::string RunClients(World& world, Clients& clients, unsigned seed, unsigned steps)
{
    world.Restart(seed % 2 != 0 ? seed : 0);
    std::string failure = Together(clients, [&](Client& client) { return client.Run(steps); });
    if (!failure.empty())
        return failure;
    world.Restart(0);
    return Together(clients, [&](Client& client) { return client.Run(0); });
}

std::string RunSeed(unsigned seed)
{
    World world(1 + seed % 3);
    Clients clients;
    for (unsigned number = 0; number < 3; ++number)
        clients.emplace_back(world, seed, number, 300'000);
    std::string failure = RunClients(world, clients, seed, 40);
    world.Stop();
    for (Client& client : clients)
        failure += failure.empty() ? client.CompareFiles() : "";
    return failure;
}

bool RunSeeds(unsigned first, unsigned count)
{
    std::atomic<unsigned> next = first;
    std::atomic<unsigned> passed = 0;
    std::mutex output;
    std::list<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (unsigned seed = next++; seed < first + count; seed = next++)
            {
                const auto failure = RunSeed(seed);
                passed += failure.empty() ? 1U : 0U;
                const std::lock_guard guard(output);
                if (!failure.empty())
                    std::cout << "seed " << seed << " failed; 'seeds " << seed << " 1' repeats it\n" << failure << std::flush;
            }
        });
    threads.clear();
    std::cout << passed << " of " << count << " seeds passed\n";
    return passed == count;
}

/// What the process holds: KiB of memory, descriptors, threads.
std::array<std::size_t, 3> Holdings()
{
    const auto count = [](const char* folder) {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
    };
    ::malloc_trim(0);
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return {pages * 4, count("/proc/self/fd"), count("/proc/self/task")};
}

bool Soak(std::uint64_t requests, std::uint64_t mib)
{
    ::mallopt(M_MMAP_THRESHOLD, 64 * 1024); // file contents go back to the system, so that what is left is what is held
    World world(1);
    std::array<std::size_t, 3> atStart = {};
    const auto share = [&] { return std::min(world.requests * 100 / requests, world.bytes * 100 / (mib << 20U)); };
    std::uint64_t tenths = 0;
    for (unsigned round = 1; share() < 100; ++round)
    {
        Clients clients;
        for (unsigned number = 0; number < 4; ++number)
            clients.emplace_back(world, round, number, 8'000'000);
        std::string failure = RunClients(world, clients, round, 50);
        failure += failure.empty() ? Together(clients, [](Client& client) { return client.Remove(); }) : "";
        std::cout << failure << std::flush;
        if (!failure.empty())
            return false;
        clients.clear();
        if (share() / 10 < tenths)
            continue;
        const auto now = Holdings();
        atStart = tenths == 1 ? now : atStart;
        ++tenths;
        std::cout << world.requests << " requests, " << (world.bytes >> 20U) << " MiB: " << now[0] / 1024 << " MiB of memory, " << now[1]
                  << " descriptors, " << now[2] << " threads" << std::endl;
    }
    const auto atEnd = Holdings();
    // The server keeps up to a thousand sessions, and the allocator gives not all back that is free.
    return atEnd[0] < atStart[0] * 5 / 4 + 32 * 1024 && atEnd[1] < atStart[1] + 50 && atEnd[2] < atStart[2] + 10;
}

bool RunThreads(unsigned count, unsigned steps)
{
    World world(1);
    Clients clients;
    for (unsigned number = 0; number < count; ++number)
        clients.emplace_back(world, 1, number, 1000);
    const auto failure = Together(clients, [&](Client& client) { return client.Mix(steps); });
    std::cout << failure << world.requests << " operations on " << count << " threads\n";
    return failure.empty();
}
} // namespace

int main(int count, char** arguments)
{
    const std::string mode = count == 4 ? arguments[1] : "";
    const auto number = [&](int index) { return static_cast<unsigned>(std::stoul(arguments[index])); };
    bool passed = false;
    if (mode == "seeds")
        passed = RunSeeds(number(2), number(3));
    else if (mode == "soak")
        passed = Soak(number(2), number(3));
    else if (mode == "threads")
        passed = RunThreads(number(2), number(3));
    return passed ? 0 : 1;
}
