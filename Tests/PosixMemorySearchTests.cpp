// The memory of a process holds no password after the login, and no token after it was replaced.

#include "LibraryOverWire.h"
#include "Wiping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

// Written backwards, so that the search does not find the program's own text.
constexpr std::string_view kPassword = "drowssap-gnol-yrev-a-6f1d9c3b7a";
constexpr std::string_view kToken = "nekot-noisses-gnol-yrev-a-5e0c8b2a";

template <typename Text> Text Spelled(std::string_view secret)
{
    return Text(secret.rbegin(), secret.rend());
}

// How often memory holds a secret, in characters of this type, which are aligned as they were allocated.
template <typename Character> std::ptrdiff_t CountIn(std::uintptr_t begin, std::uintptr_t end, std::string_view secret)
{
    const auto* const last = reinterpret_cast<const Character*>(end);
    const auto find = [&](const Character* from) { return std::search(from, last, secret.rbegin(), secret.rend()); };
    std::ptrdiff_t count = 0;
    for (const auto* at = find(reinterpret_cast<const Character*>(begin)); at != last; at = find(at + 1))
        ++count;
    return count;
}

std::ptrdiff_t CountInMemory(std::string_view secret)
{
    secret.remove_suffix(4); // without its first characters, which a shorter text may have replaced
    std::vector<std::pair<std::uintptr_t, std::uintptr_t>> ranges;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
    {
        unsigned long begin = 0;
        unsigned long end = 0;
        char readable = 0;
        char writable = 0;
        if (std::sscanf(line.c_str(), "%lx-%lx %c%c", &begin, &end, &readable, &writable) == 4 && readable == 'r' && writable == 'w')
            ranges.emplace_back(begin, end);
    }
    std::ptrdiff_t count = 0;
    for (const auto& [begin, end] : ranges)
        count += CountIn<char>(begin, end, secret) + CountIn<wchar_t>(begin, end, secret);
    return count;
}

// Logs in and out; which step shows that it was no success, or left something behind. None: 0.
int LogInAndOut(const RawServer& server)
{
    std::ptrdiff_t left = 0;
    {
        const Instance library(CreateInstanceFor(server));
        static_cast<void>(library.ShakeHands());
        auto password = Spelled<std::wstring>(kPassword);
        std::wstring policy;
        std::uint32_t value = 0;
        if (library->Login(L"ann", password, L"", L"host", policy, value, {}, {}) != 0)
            return 1;
        WipeMemory(password.data(), password.size() * sizeof(wchar_t));
        std::shared_ptr<IServerAttributes> item;
        if (library->GetPathAttributes(L"/", item) != 13 || CountInMemory(kToken) == 0)
            return 2;
        library->SetSessionToken(L"");
        left = CountInMemory(kToken);
    }
    std::printf("token: %td, behind the instance %td; password: %td\n", left, CountInMemory(kToken), CountInMemory(kPassword));
    std::fflush(stdout);
    return left + CountInMemory(kToken) + CountInMemory(kPassword) == 0 ? 0 : 3;
}

// Once in a process, whose own copies the child would find otherwise.
void ExpectNothingFound(const std::string& version)
{
    std::string cookie;
    std::string body;
    RawServer server(AfterHandshake(
        [&](RawConnection& connection, const std::string& head) {
        const std::string form = connection.Read(BodyLength(head));
        body += form;
        cookie += HeaderValue(head, "Cookie");
        // So large that no later allocation happens to overwrite it.
        const std::string reply =
            R"({"padding":")" + std::string(20'000, 'x') + R"(","session_token":")" + Spelled<std::string>(kToken) + "\"}";
        connection.Send(HttpReply(200, form.empty() ? "[]" : reply));
        },
        version));
    // The server's copies stay with this process.
    const pid_t child = fork();
    if (child == 0)
        _exit(LogInAndOut(server));
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_NE(body.find("password=" + Spelled<std::string>(kPassword)), std::string::npos);
    EXPECT_EQ(cookie, "session_token=" + Spelled<std::string>(kToken));
}

TEST(MemorySearch, FindsNothingOfAPasswordOrOfATokenThatWasGivenUp)
{
    ExpectNothingFound("1.3");
}

TEST(MemorySearch, FindsNothingOfATokenInAPath)
{
    ExpectNothingFound("1.0");
}

} // namespace
