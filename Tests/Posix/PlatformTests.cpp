// The Win32 calls outside WinHTTP, over POSIX.

#include "CaseFile.h"
#include "JsonText.h"
#include "Posix/HttpSupport.h"
#include "TextConversion.h"
#include "TransferSupport.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
using namespace std::string_literals;
using HttpCalls::ErrorOfCall;

HANDLE Open(const std::wstring& path, DWORD access = GENERIC_READ, DWORD disposition = OPEN_EXISTING)
{
    return CreateFileW(path.c_str(), access, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

TEST(PosixFiles, AreWrittenReadAndTruncated)
{
    const TemporaryFolder folder;
    const auto path = (folder / "").wstring() + L"n\u00e4me \U0001F600";
    constexpr LONGLONG kFar = 5'000'000'000;
    DWORD count = 0;
    LARGE_INTEGER number = {};
    std::array<char, 10> text = {};
    const auto read = [&](HANDLE file) {
        EXPECT_NE(FALSE, ReadFile(file, text.data(), 10, &count, nullptr));
        return std::string(text.data(), count);
    };
    HANDLE file = Open(path, GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);
    EXPECT_TRUE(std::filesystem::exists(folder / "n\xC3\xA4me \xF0\x9F\x98\x80"));
    ASSERT_NE(FALSE, SetFilePointerEx(file, {.QuadPart = kFar}, nullptr, FILE_BEGIN));
    ASSERT_NE(FALSE, WriteFile(file, "end", 3, &count, nullptr));
    ASSERT_NE(FALSE, GetFileSizeEx(file, &number));
    EXPECT_EQ(kFar + 3, number.QuadPart);
    ASSERT_NE(FALSE, SetFilePointerEx(file, {.QuadPart = kFar + 1}, &number, FILE_BEGIN));
    EXPECT_EQ(kFar + 1, number.QuadPart);
    EXPECT_EQ("nd", read(file));
    EXPECT_EQ("", read(file));
    EXPECT_NE(FALSE, CloseHandle(file));

    file = Open(path, GENERIC_WRITE, CREATE_ALWAYS);
    ASSERT_NE(FALSE, GetFileSizeEx(file, &number));
    EXPECT_EQ(0, number.QuadPart);
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfCall(ReadFile(file, text.data(), 1, &count, nullptr)));
    EXPECT_EQ(ERROR_NEGATIVE_SEEK, ErrorOfCall(SetFilePointerEx(file, {.QuadPart = -1}, nullptr, FILE_BEGIN)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(WriteFile(file, "x", 1, &count, &count)));
    CloseHandle(file);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOfCall(GetFileSizeEx(file, &number)));
}

TEST(PosixFiles, KeepWhatFindsRoomOnAFullDisk)
{
    const TemporaryFolder folder;
    const HANDLE file = Open((folder / "file").wstring(), GENERIC_WRITE, CREATE_ALWAYS);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit unlimited{};
    ::getrlimit(RLIMIT_FSIZE, &unlimited);
    const rlimit limit{4, unlimited.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    DWORD count = 0;
    const DWORD error = ErrorOfCall(WriteFile(file, "abcdef", 6, &count, nullptr));
    ::setrlimit(RLIMIT_FSIZE, &unlimited); // also for what is told of a failure
    EXPECT_EQ(ERROR_DISK_FULL, error);
    EXPECT_EQ("abcd", folder.Read("file"));
    CloseHandle(file);
}

TEST(PosixFiles, KeepToTheirSharingAndLoseNothingWhereItIsRefused)
{
    const TemporaryFolder folder;
    const auto path = folder.Write("file", "kept");
    constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const auto open = [&](DWORD sharing) {
        const DWORD access = sharing == 0 ? GENERIC_WRITE : GENERIC_READ;
        return CreateFileW(path.c_str(), access, sharing, nullptr, sharing == 0 ? CREATE_ALWAYS : OPEN_EXISTING, 0, nullptr);
    };
    for (const auto& [first, second, error] : {std::tuple{kAll, kAll, ERROR_SUCCESS},
                                               {kAll, 0U, ERROR_SHARING_VIOLATION},
                                               {0U, kAll, ERROR_SHARING_VIOLATION},
                                               {0U, 0U, ERROR_SHARING_VIOLATION}})
    {
        const HANDLE one = open(first);
        EXPECT_NE(INVALID_HANDLE_VALUE, one);
        std::filesystem::resize_file(folder / "file", 4);
        const HANDLE other = open(second);
        EXPECT_EQ(error, ErrorOfCall(other != INVALID_HANDLE_VALUE));
        EXPECT_EQ(4U, std::filesystem::file_size(folder / "file"));
        CloseHandle(one);
        CloseHandle(other);
    }
    // A device belongs to everybody.
    const HANDLE all[] = {Open(L"/dev/null", GENERIC_WRITE), Open(L"/dev/null", GENERIC_WRITE)};
    for (const HANDLE one : all)
        EXPECT_NE(FALSE, CloseHandle(one));
}

TEST(PosixFiles, PathsAreMadeAbsolute)
{
    const std::wstring here = std::filesystem::current_path().wstring();
    for (const auto& [path, expected] : {std::pair{L"/a/../b", std::wstring(L"/a/../b")}, {L"\u00e4/./b", here + L"/\u00e4/./b"}})
    {
        std::wstring full(expected.size() + 1, L'x');
        const auto length = static_cast<DWORD>(expected.size());
        EXPECT_EQ(length + 1, GetFullPathNameW(path, length, full.data(), nullptr)) << "no room for the terminator";
        EXPECT_EQ(length, GetFullPathNameW(path, length + 1, full.data(), nullptr));
        EXPECT_EQ(expected + L'\0', full);
    }
    wchar_t* part = nullptr;
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(GetFullPathNameW(L"a", 0, nullptr, &part) != 0));
    EXPECT_EQ(ERROR_INVALID_NAME, ErrorOfCall(GetFullPathNameW(L"", 0, nullptr, nullptr) != 0));
}

TEST(PosixFiles, FailWithTheirErrorValuesAndLeaveNothingOpen)
{
    const TemporaryFolder folder;
    const auto file = folder.Write("file", "x");
    const auto secret = folder.Write("secret", "x");
    ::chmod((folder / "secret").c_str(), 0);
    const auto above = (folder / "").wstring();
    const auto pipe = (folder / "pipe").wstring();
    ASSERT_EQ(0, ::mkfifo((folder / "pipe").c_str(), 0600));
    std::filesystem::create_symlink("loop", folder / "loop");
    const auto descriptors = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto before = descriptors();
    const std::tuple<std::wstring, DWORD, DWORD, DWORD> cases[] = {
        {above + L"missing", GENERIC_READ, OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
        {above + L"no/such/file", GENERIC_WRITE, CREATE_ALWAYS, ERROR_PATH_NOT_FOUND},
        {file + L"/below", GENERIC_READ, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
        {L"", GENERIC_READ, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
        {above, GENERIC_READ, OPEN_EXISTING, ERROR_ACCESS_DENIED},
        {above, GENERIC_WRITE, CREATE_ALWAYS, ERROR_ACCESS_DENIED},
        {secret, GENERIC_READ, OPEN_EXISTING, ERROR_ACCESS_DENIED},
        {above + std::wstring(300, L'x'), GENERIC_READ, OPEN_EXISTING, ERROR_FILENAME_EXCED_RANGE},
        {above + static_cast<wchar_t>(0xD800), GENERIC_WRITE, CREATE_ALWAYS, ERROR_INVALID_NAME},
        {file, GENERIC_READ, 99, ERROR_INVALID_PARAMETER},
        {above + L"loop", GENERIC_READ, OPEN_EXISTING, ERROR_INVALID_NAME},
        {pipe, GENERIC_READ, OPEN_EXISTING, ERROR_NOT_SUPPORTED},
        {pipe, GENERIC_WRITE, CREATE_ALWAYS, ERROR_NOT_SUPPORTED},
        {pipe, GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING, ERROR_NOT_SUPPORTED},
        {L"/dev/ptmx", GENERIC_WRITE, OPEN_EXISTING, ERROR_NOT_SUPPORTED},
        {L"/dev/null", GENERIC_WRITE, CREATE_ALWAYS, ERROR_SUCCESS},
    };
    for (const auto& [path, access, disposition, error] : cases)
    {
        const uid_t user = ::geteuid();
        ASSERT_EQ(0, ::seteuid(path == secret && user == 0 ? 65534 : user)); // root may read it
        const HANDLE handle = Open(path, access, disposition);
        EXPECT_EQ(error, ErrorOfCall(handle != INVALID_HANDLE_VALUE));
        CloseHandle(handle);
        ASSERT_EQ(0, ::seteuid(user));
    }
    EXPECT_EQ(before, descriptors());

    const HANDLE open = Open(file);
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(GetFileSizeEx(open, nullptr)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(SetFilePointerEx(open, {}, nullptr, FILE_BEGIN + 1)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(ReadFile(open, nullptr, 1, nullptr, nullptr)));
    // NOLINTNEXTLINE(cert-env33-c): the test's own words
    EXPECT_NE(0, std::system(("ls -l /proc/self/fd | grep -q " + (folder / "file").string()).c_str())) << "inherited by a program";
    CloseHandle(open);
}

TEST(PosixEvents, AreTakenByOneOrSeenByAll)
{
    for (const auto& [manual, initially, first, second] : {std::tuple{FALSE, FALSE, WAIT_TIMEOUT, WAIT_TIMEOUT},
                                                           {FALSE, TRUE, WAIT_OBJECT_0, WAIT_TIMEOUT},
                                                           {TRUE, TRUE, WAIT_OBJECT_0, WAIT_OBJECT_0}})
    {
        const HANDLE event = CreateEventW(nullptr, manual, initially, nullptr);
        EXPECT_EQ(first, WaitForSingleObject(event, 0));
        EXPECT_EQ(second, WaitForSingleObject(event, 1));
        // All who wait for a manual event, one who waits for another.
        std::vector<std::thread> waiters(manual != FALSE ? 4 : 1);
        for (auto& waiter : waiters)
            waiter = std::thread([event] { EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, INFINITE)); });
        EXPECT_NE(FALSE, SetEvent(event));
        for (auto& waiter : waiters)
            waiter.join();
        EXPECT_EQ(manual != FALSE ? WAIT_OBJECT_0 : WAIT_TIMEOUT, WaitForSingleObject(event, 0));
        EXPECT_NE(FALSE, ResetEvent(event));
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event, 0));
        EXPECT_NE(FALSE, CloseHandle(event));
        EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(event, 0));
        for (const HANDLE closed : {event, HANDLE{nullptr}, INVALID_HANDLE_VALUE})
            EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOfCall(CloseHandle(closed)));
    }
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(CreateEventW(nullptr, TRUE, TRUE, L"name") != nullptr));
}

// A transfer asks its cancel event once a block: a question that put the thread to sleep would cost more than the block.
TEST(PosixEvents, AreAskedWithoutAThreadThatGivesUpTheProcessor)
{
    for (const BOOL manual : {TRUE, FALSE})
    {
        const HANDLE event = CreateEventW(nullptr, manual, FALSE, nullptr);
        rusage before = {};
        rusage after = {};
        ASSERT_EQ(0, ::getrusage(RUSAGE_THREAD, &before));
        for (int call = 0; call < 1000; ++call)
            EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event, 0));
        ASSERT_EQ(0, ::getrusage(RUSAGE_THREAD, &after));
        EXPECT_GT(100, after.ru_nvcsw - before.ru_nvcsw);
        CloseHandle(event);
    }
}

// Who asks an automatic event and who waits for it share its signals: each is taken once.
TEST(PosixEvents, LoseNoSignalBetweenOneWhoAsksAndOneWhoWaits)
{
    constexpr int kSignals = 2000;
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::atomic<int> taken = 0;
    const auto take = [&](DWORD wait) {
        while (taken < kSignals)
            taken += WaitForSingleObject(event, wait) == WAIT_OBJECT_0 ? 1 : 0;
    };
    std::thread asker(take, 0);
    std::thread waiter(take, 1);
    for (int signal = 0; signal < kSignals; ++signal)
    {
        SetEvent(event);
        while (taken == signal)
            std::this_thread::yield();
    }
    asker.join();
    waiter.join();
    EXPECT_EQ(kSignals, taken);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event, 0));
    CloseHandle(event);
}

TEST(PosixLastError, IsEachThreadsOwn)
{
    SetLastError(7);
    std::thread([] { SetLastError(8); }).join();
    EXPECT_EQ(7U, GetLastError());
}

// The encodings themselves are shown over the library's own conversion, on both platforms.
TEST(PosixText, ChecksSizesAndArguments)
{
    std::array<wchar_t, 4> wide = {};
    std::array<char, 8> narrow = {};
    const wchar_t beyond[] = {0x110000, static_cast<wchar_t>(-1)};
    BOOL used = FALSE;
    EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide.data(), 4));
    EXPECT_STREQ(L"abc", wide.data());
    EXPECT_EQ(4, WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, narrow.data(), 4, nullptr, nullptr));
    EXPECT_STREQ("abc", narrow.data());
    EXPECT_EQ(6, WideCharToMultiByte(CP_ACP, 0, beyond, 2, narrow.data(), 8, nullptr, nullptr));
    EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBD", std::string(narrow.data(), 6));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOfCall(MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide.data(), 3)));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOfCall(WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, narrow.data(), 3, nullptr, nullptr)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(MultiByteToWideChar(CP_UTF8, 0, "abc", 0, wide.data(), 4)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(MultiByteToWideChar(1252, 0, "abc", -1, wide.data(), 4)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, narrow.data(), -1, nullptr, nullptr)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, narrow.data(), 4, nullptr, &used)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(CompareStringOrdinal(nullptr, 0, L"", 0, TRUE)));
}

// The calendar and the text of an identifier are shown over the library's own, on both platforms, but for what Wine takes for dates.
TEST(PosixTime, KnowsLeapYearsItsEndAndNow)
{
    FILETIME time = {};
    for (const auto& date :
         {SYSTEMTIME{2023, 2, 0, 29, 0, 0, 0, 0}, SYSTEMTIME{1900, 2, 0, 29, 0, 0, 0, 0}, SYSTEMTIME{30828, 1, 0, 1, 0, 0, 0, 0}})
        EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(SystemTimeToFileTime(&date, &time))) << date.wYear;
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(SystemTimeToFileTime(nullptr, &time)));
    GetSystemTimeAsFileTime(&time);
    const auto ticks = static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
    EXPECT_NEAR(static_cast<double>(std::time(nullptr)), static_cast<double>(ticks / 10'000'000 - 11'644'473'600), 5.0);
}

class PosixRegistry : public testing::Test
{
protected:
    PosixRegistry() { ::setenv("QUENDRA_REGISTRY", (m_folder / "registry.json").c_str(), 1); }

    void Write(const std::string& text) const { static_cast<void>(m_folder.Write("registry.json", text)); }

    // The value's type and data, or the error value; asks for the size, then for the data, as the library does.
    static std::string Query(HKEY root, const std::wstring& path, const std::wstring& name)
    {
        HKEY key = nullptr;
        if (const LSTATUS error = RegOpenKeyExW(root, path.c_str(), 0, KEY_QUERY_VALUE, &key); error != 0)
            return "no key, " + std::to_string(error);
        DWORD type = 0;
        DWORD size = 0;
        const LSTATUS error = RegQueryValueExW(key, name.c_str(), nullptr, &type, nullptr, &size);
        std::string data(size, '\0');
        auto* const bytes = reinterpret_cast<BYTE*>(data.data());
        EXPECT_EQ(error, RegQueryValueExW(key, name.c_str(), nullptr, nullptr, bytes, &size));
        DWORD small = size - 1;
        EXPECT_TRUE(error != 0 ||
                    (RegQueryValueExW(key, name.c_str(), nullptr, nullptr, bytes, &small) == ERROR_MORE_DATA && small == size));
        EXPECT_EQ(0, RegCloseKey(key));
        EXPECT_EQ(static_cast<LSTATUS>(ERROR_INVALID_HANDLE), RegCloseKey(key));
        if (error != 0)
            return "no value, " + std::to_string(error);
        std::string shown = std::to_string(type) + ":";
        const bool isText = type != REG_DWORD && type != REG_BINARY;
        for (std::size_t at = 0; at < size; at += isText ? sizeof(wchar_t) : 1)
            shown += isText ? ' ' + ToNarrow({reinterpret_cast<const wchar_t*>(data.data() + at), 1}) : ' ' + std::to_string(bytes[at]);
        return shown;
    }

    const TemporaryFolder m_folder;
};

TEST_F(PosixRegistry, ReadsFilesAsRegistryJsonSays)
{
    EXPECT_EQ("no key, 2", Query(HKEY_CURRENT_USER, L"K", L"V")) << "no file";
    Json::Value cases = ReadCaseFile("Registry.json");
    Json::Value file;
    cases.removeMember("file", &file);
    const std::map<std::string, HKEY> roots = {
        {"user", HKEY_CURRENT_USER}, {"users", HKEY_USERS}, {"machine", HKEY_LOCAL_MACHINE}, {"", nullptr}};
    const auto query = [&](const Json::Value& given) {
        Write(JsonLine(file));
        return Query(roots.at(given[0].asString()), ToWide(given[1].asString()), ToWide(given[2].asString()));
    };
    const auto queryFile = [&](const Json::Value& given) {
        Write(given[0].asString());
        return Query(HKEY_CURRENT_USER, L"K", L"V");
    };
    ExpectCases(cases, {{"values", query}, {"files", queryFile}});
    const auto deep = std::string(100'000, '[') + std::string(100'000, ']');
    for (const auto& text : {deep, "{\"HKEY_CURRENT_USER\":" + deep + "}", "\xFF\0"s,
                             R"({"HKEY_CURRENT_USER": {"K": {"V": 1}}})" + std::string(2'000'000, ' ')})
    {
        Write(text);
        EXPECT_EQ("no key, 2", Query(HKEY_CURRENT_USER, L"K", L"V")) << text.substr(0, 40);
    }
    EXPECT_EQ(static_cast<LSTATUS>(ERROR_INVALID_PARAMETER), RegOpenKeyExW(HKEY_CURRENT_USER, L"K", 0, KEY_QUERY_VALUE, nullptr));
    EXPECT_EQ(static_cast<LSTATUS>(ERROR_INVALID_HANDLE), RegQueryValueExW(nullptr, L"V", nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(0, RegCloseKey(HKEY_CURRENT_USER)) << "a root is never closed";
    ::setenv("QUENDRA_REGISTRY", (m_folder / "").c_str(), 1);
    EXPECT_EQ("no key, 2", Query(HKEY_CURRENT_USER, L"K", L"V")) << "a folder";
}

TEST_F(PosixRegistry, LiesInTheUsersConfiguration)
{
    ::unsetenv("QUENDRA_REGISTRY");
    ::setenv("XDG_CONFIG_HOME", (m_folder / "").c_str(), 1);
    std::filesystem::create_directory(m_folder / "quendra");
    std::ofstream(m_folder / "quendra/registry.json") << R"({"HKEY_CURRENT_USER": {"K": {"V": 1}}, "HKEY_LOCAL_MACHINE": {"K": {"V": 1}}})";
    EXPECT_EQ("4: 1 0 0 0", Query(HKEY_CURRENT_USER, L"K", L"V"));
    EXPECT_EQ("no key, 2", Query(HKEY_LOCAL_MACHINE, L"K", L"V"));
}
} // namespace
