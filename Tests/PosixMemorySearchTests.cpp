// The memory of a process holds no password after the login, and no token after it was replaced.

#include "LibraryOverWire.h"
#include "Wiping.h"

#include <gtest/gtest.h>

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

// How often the process's memory holds a secret, as characters of a width.
int CountIn(const unsigned char* begin, const unsigned char* end, std::string_view secret, std::size_t width)
{
    int count = 0;
    const std::size_t bytes = secret.size() * width;
    for (const unsigned char* at = begin; at + bytes <= end; ++at)
    {
        std::size_t same = 0;
        while (same < bytes && at[same] == (same % width == 0 ? static_cast<unsigned char>(secret[secret.size() - 1 - same / width]) : 0))
            ++same;
        count += same == bytes ? 1 : 0;
    }
    return count;
}

int CountInMemory(std::string_view secret)
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
    int count = 0;
    for (const auto& [begin, end] : ranges)
        for (const std::size_t width : {sizeof(char), sizeof(wchar_t)})
            count += CountIn(reinterpret_cast<const unsigned char*>(begin), reinterpret_cast<const unsigned char*>(end), secret, width);
    return count;
}

// Logs in and out; which step shows that it was no success, or left something behind. None: 0.
int LogInAndOut(const RawServer& server)
{
    int left = 0;
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
    std::printf("token: %d, behind the instance %d; password: %d\n", left, CountInMemory(kToken), CountInMemory(kPassword));
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
        connection.Send(HttpReply(200, form.empty() ? "[]" : R"({"session_token":")" + Spelled<std::string>(kToken) + "\"}"));
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
