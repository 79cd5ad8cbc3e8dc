/// @file
/// Passwords and tokens that went through WinHTTP's calls are nowhere in memory when their requests are closed.

#include "PosixHttpSupport.h"

#include <array>
#include <cstring>
#include <fstream>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace HttpCalls;

namespace
{
/// A text that no memory holds: each character is one less than that of the secret.
using Masked = std::string;

Masked MakeSecret()
{
    std::random_device random;
    Masked masked(40, 'a');
    for (char& character : masked)
        character = static_cast<char>(character + static_cast<char>(random() % 25));
    return masked;
}

/// Text around a secret; it is wiped when its scope ends.
template <class Character> struct Spelled
{
    Spelled(const char* before, const Masked& masked, const char* after)
    {
        text.reserve(500);
        text.append(before, before + std::strlen(before));
        for (const char character : masked)
            text.push_back(static_cast<Character>(character + 1));
        text.append(after, after + std::strlen(after));
    }
    ~Spelled() { ::explicit_bzero(text.data(), text.size() * sizeof(Character)); }

    std::basic_string<Character> text;
};

/// Where the secret stands as text of 1 or of 4 bytes a character, in the memory that this process may write to.
std::size_t CountInMemory(const Masked& masked)
{
    std::size_t found = 0;
    std::ifstream maps("/proc/self/maps");
    std::ifstream memory("/proc/self/mem", std::ios::binary);
    for (std::string line; std::getline(maps, line);)
    {
        std::size_t end = 0;
        const auto from = std::stoull(line, &end, 16);
        const auto to = std::stoull(line.substr(end + 1), nullptr, 16);
        if (line.find(" rw") == std::string::npos)
            continue;
        std::vector<char> block(1 << 20);
        for (auto at = from; at < to; at += block.size() - 4 * masked.size()) // pieces overlap by the length of a secret
        {
            memory.clear();
            memory.seekg(static_cast<std::streamoff>(at));
            memory.read(block.data(), static_cast<std::streamsize>(std::min<std::uint64_t>(block.size(), to - at)));
            const auto size = static_cast<std::size_t>(memory.gcount());
            for (const std::size_t width : {1U, 4U})
                for (std::size_t start = 0; start + width * masked.size() <= size; ++start)
                {
                    std::size_t same = 0;
                    while (same < masked.size() && block[start + width * same] == masked[same] + 1)
                        ++same;
                    found += same == masked.size() ? 1U : 0U;
                }
        }
        ::explicit_bzero(block.data(), block.size());
    }
    return found;
}

/// Serves one connection in a process of its own, whose memory is not searched: answers each request, which ends with "!", with a token.
std::uint16_t ServeInOtherProcess(const Masked& token)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in name = {};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof name;
    EXPECT_EQ(0, ::bind(listener, reinterpret_cast<sockaddr*>(&name), size));
    EXPECT_EQ(0, ::listen(listener, 1));
    EXPECT_EQ(0, ::getsockname(listener, reinterpret_cast<sockaddr*>(&name), &size));
    if (::fork() == 0)
    {
        const int connection = ::accept(listener, nullptr, nullptr);
        const Spelled<char> reply("HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n", token, "");
        std::array<char, 4096> block = {};
        for (ssize_t count = 0; (count = ::read(connection, block.data(), block.size())) > 0;)
            if (block[static_cast<std::size_t>(count) - 1] == '!')
                static_cast<void>(!::write(connection, reply.text.data(), reply.text.size()));
        ::_exit(0);
    }
    ::close(listener);
    return ntohs(name.sin_port);
}

TEST(PosixSecrets, AreNowhereInMemoryWhenTheirRequestsAreClosed)
{
    const Masked password = MakeSecret();
    const Masked token = MakeSecret();
    {
        const HttpClient client(ServeInOtherProcess(token));
        for (const bool writes : {false, true})
        {
            const Spelled<wchar_t> path("/api/", token, "/folders?\u00e9");
            const Spelled<wchar_t> cookie("Cookie: session_token=", token, "");
            const Spelled<char> body("user=ann&password=", password, "!");
            const auto size = static_cast<DWORD>(body.text.size());
            const auto length = L"Content-Length: " + std::to_wstring(size);
            const auto request = client.Open(L"POST", path.text.c_str());
            ASSERT_NE(FALSE, WinHttpAddRequestHeaders(request.get(), cookie.text.c_str(), DWORD(-1), WINHTTP_ADDREQ_FLAG_ADD));
            ASSERT_NE(FALSE, WinHttpSendRequest(request.get(), length.c_str(), DWORD(-1),
                                                writes ? nullptr : const_cast<char*>(body.text.data()), writes ? 0 : size, size, 0));
            EXPECT_EQ(ERROR_SUCCESS, writes ? WriteBody(request.get(), body.text) : ERROR_SUCCESS);
            Spelled<char> reply("", token, "");
            DWORD count = 0;
            ASSERT_NE(FALSE, WinHttpReceiveResponse(request.get(), nullptr));
            ASSERT_NE(FALSE, WinHttpReadData(request.get(), reply.text.data(), 40, &count));
            EXPECT_EQ(40U, count);
            EXPECT_NE(0U, CountInMemory(token)) << "the search finds what is there";
        }
    }
    EXPECT_EQ(0U, CountInMemory(password));
    EXPECT_EQ(0U, CountInMemory(token));
    int status = 0;
    ::wait(&status);
    EXPECT_EQ(0, status);
}
} // namespace
