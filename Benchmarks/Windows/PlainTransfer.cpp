#include "PlainTransfer.h"

#include "TextConversion.h"

#include "Platform/Platform.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace
{

constexpr DWORD kUploadBlock = 16384; // the library's own

struct CloseInternet
{
    void operator()(HINTERNET handle) const { WinHttpCloseHandle(handle); }
};
using Internet = std::unique_ptr<std::remove_pointer_t<HINTERNET>, CloseInternet>;

struct CloseKernelObject
{
    void operator()(HANDLE object) const { CloseHandle(object); }
};
using File = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseKernelObject>;
using Event = File;

void Require(bool succeeded, const char* step)
{
    if (!succeeded)
        throw std::runtime_error(std::string(step) + " failed: " + std::to_string(GetLastError()));
}

File Open(const std::string& path, DWORD access, DWORD disposition)
{
    const HANDLE file = CreateFileW(ToWide(path).c_str(), access, FILE_SHARE_READ, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    Require(file != INVALID_HANDLE_VALUE, "CreateFile");
    return File(file);
}

class WinHttpTransfer final : public PlainTransfer
{
public:
    WinHttpTransfer(const BenchmarkServer& server, bool testsEvent)
        : m_cancel(testsEvent ? CreateEventW(nullptr, TRUE, FALSE, nullptr) : nullptr),
          m_session(WinHttpOpen(L"bare", WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0)),
          m_connection(
              WinHttpConnect(m_session.get(), ToWide(server.origin.substr(std::string_view("http://").size())).c_str(), server.port, 0))
    {
        Require(m_connection != nullptr, "WinHttpConnect");
    }

    std::string Get(const std::string& path) override
    {
        std::string body;
        const Internet request = Send(L"GET", path, 0);
        Receive(request.get(), [&](const char* bytes, DWORD count) { body.append(bytes, count); });
        return body;
    }

    void Download(const std::string& path, const std::string& file) override
    {
        const File target = Open(file, GENERIC_WRITE, CREATE_ALWAYS);
        const Internet request = Send(L"GET", path, 0);
        Receive(request.get(), [&](const char* bytes, DWORD count) {
            DWORD written = 0;
            Require(WriteFile(target.get(), bytes, count, &written, nullptr), "WriteFile");
        });
    }

    void Upload(const std::string& path, const std::string& file) override
    {
        const File source = Open(file, GENERIC_READ, OPEN_EXISTING);
        LARGE_INTEGER length{};
        Require(GetFileSizeEx(source.get(), &length), "GetFileSizeEx");
        const Internet request = Send(L"POST", path, static_cast<DWORD>(length.QuadPart));
        std::vector<char> block(kUploadBlock);
        for (std::int64_t left = length.QuadPart; left > 0;)
        {
            DWORD read = 0;
            DWORD written = 0;
            Require(ReadFile(source.get(), block.data(), kUploadBlock, &read, nullptr) && read != 0, "ReadFile");
            Require(WinHttpWriteData(request.get(), block.data(), read, &written), "WinHttpWriteData");
            left -= written;
            TestEvent();
        }
        Receive(request.get(), [](const char*, DWORD) {});
    }

private:
    Internet Send(const wchar_t* verb, const std::string& path, DWORD bodyLength)
    {
        Internet request(WinHttpOpenRequest(m_connection.get(), verb, ToWide(path).c_str(), nullptr, WINHTTP_NO_REFERER,
                                            WINHTTP_DEFAULT_ACCEPT_TYPES, 0));
        Require(request != nullptr, "WinHttpOpenRequest");
        Require(WinHttpSendRequest(request.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, bodyLength, 0),
                "WinHttpSendRequest");
        return request;
    }

    void TestEvent() const { Require(!m_cancel || WaitForSingleObject(m_cancel.get(), 0) == WAIT_TIMEOUT, "The test of the event"); }

    template <typename Take> void Receive(HINTERNET request, const Take& take) const
    {
        Require(WinHttpReceiveResponse(request, nullptr), "WinHttpReceiveResponse");
        std::vector<char> block;
        for (DWORD available = 1; available != 0;)
        {
            Require(WinHttpQueryDataAvailable(request, &available), "WinHttpQueryDataAvailable");
            block.resize(std::max<std::size_t>(block.size(), available));
            DWORD read = 0;
            Require(WinHttpReadData(request, block.data(), available, &read), "WinHttpReadData");
            take(block.data(), read);
            TestEvent();
        }
    }

    const Event m_cancel;
    Internet m_session;
    Internet m_connection;
};

} // namespace

std::unique_ptr<PlainTransfer> ConnectPlainly(const BenchmarkServer& server, bool testsEvent)
{
    return std::make_unique<WinHttpTransfer>(server, testsEvent);
}

double ProcessorSeconds()
{
    FILETIME created{};
    FILETIME exited{};
    FILETIME kernel{};
    FILETIME user{};
    GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user);
    const auto ticks = [](const FILETIME& time) { return (std::uint64_t{time.dwHighDateTime} << 32U) | time.dwLowDateTime; };
    return static_cast<double>(ticks(kernel) + ticks(user)) * 1e-7;
}
