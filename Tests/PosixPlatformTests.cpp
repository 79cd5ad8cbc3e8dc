/// @file
/// The Win32 calls outside WinHTTP, over POSIX.

#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
DWORD ErrorOf(BOOL result)
{
    return result != FALSE ? ERROR_SUCCESS : GetLastError();
}

class PosixFiles : public testing::Test
{
protected:
    PosixFiles()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "quendra-files-XXXXXX";
        m_folder = ::mkdtemp(pattern.data());
    }
    ~PosixFiles() override { std::filesystem::remove_all(m_folder); }

    std::wstring Path(const std::wstring& name) const { return m_folder.wstring() + L"/" + name; }

    static HANDLE Open(const std::wstring& path, DWORD access, DWORD disposition)
    {
        return CreateFileW(path.c_str(), access, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    }

    static DWORD OpenError(const std::wstring& path, DWORD access = GENERIC_READ, DWORD disposition = OPEN_EXISTING)
    {
        const HANDLE handle = Open(path, access, disposition);
        const DWORD error = handle == INVALID_HANDLE_VALUE ? GetLastError() : ERROR_SUCCESS;
        CloseHandle(handle);
        return error;
    }

    std::filesystem::path m_folder;
};

TEST_F(PosixFiles, AreWrittenReadAndTruncated)
{
    const auto path = Path(L"n\u00e4me \U0001F600");
    constexpr LONGLONG kFar = 5'000'000'000;
    DWORD count = 0;
    HANDLE file = Open(path, GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);
    EXPECT_TRUE(std::filesystem::exists(m_folder / "n\xC3\xA4me \xF0\x9F\x98\x80"));
    ASSERT_NE(FALSE, SetFilePointerEx(file, {.QuadPart = kFar}, nullptr, FILE_BEGIN));
    ASSERT_NE(FALSE, WriteFile(file, "end", 3, &count, nullptr));
    EXPECT_EQ(3U, count);
    LARGE_INTEGER size = {};
    ASSERT_NE(FALSE, GetFileSizeEx(file, &size));
    EXPECT_EQ(kFar + 3, size.QuadPart);
    LARGE_INTEGER position = {};
    ASSERT_NE(FALSE, SetFilePointerEx(file, {.QuadPart = kFar + 1}, &position, FILE_BEGIN));
    EXPECT_EQ(kFar + 1, position.QuadPart);
    std::array<char, 10> text = {};
    ASSERT_NE(FALSE, ReadFile(file, text.data(), 10, &count, nullptr));
    EXPECT_EQ(2U, count);
    EXPECT_STREQ("nd", text.data());
    ASSERT_NE(FALSE, ReadFile(file, text.data(), 10, &count, nullptr));
    EXPECT_EQ(0U, count);
    EXPECT_NE(FALSE, CloseHandle(file));

    file = Open(path, GENERIC_WRITE, CREATE_ALWAYS);
    ASSERT_NE(FALSE, GetFileSizeEx(file, &size));
    EXPECT_EQ(0, size.QuadPart);
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(ReadFile(file, text.data(), 1, &count, nullptr)));
    EXPECT_EQ(ERROR_NEGATIVE_SEEK, ErrorOf(SetFilePointerEx(file, {.QuadPart = -1}, nullptr, FILE_BEGIN)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(WriteFile(file, "x", 1, &count, &count)));
    CloseHandle(file);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(GetFileSizeEx(file, &size)));
}

TEST_F(PosixFiles, FailWithTheirErrorValues)
{
    std::ofstream(m_folder / "file") << "x";
    std::ofstream(m_folder / "secret") << "x";
    ::chmod((m_folder / "secret").c_str(), 0);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, OpenError(Path(L"missing")));
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, OpenError(Path(L"no/such/file"), GENERIC_WRITE, CREATE_ALWAYS));
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, OpenError(Path(L"file/below")));
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, OpenError(L""));
    EXPECT_EQ(ERROR_ACCESS_DENIED, OpenError(m_folder.wstring()));
    EXPECT_EQ(ERROR_ACCESS_DENIED, OpenError(m_folder.wstring(), GENERIC_WRITE, CREATE_ALWAYS));
    EXPECT_EQ(::geteuid() == 0 ? ERROR_SUCCESS : ERROR_ACCESS_DENIED, OpenError(Path(L"secret")));
    EXPECT_EQ(ERROR_FILENAME_EXCED_RANGE, OpenError(Path(std::wstring(300, L'x'))));
    EXPECT_EQ(ERROR_INVALID_NAME, OpenError(Path({L'x', static_cast<wchar_t>(0xD800)}), GENERIC_WRITE, CREATE_ALWAYS));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, OpenError(Path(L"file"), GENERIC_READ, 99));

    DWORD count = 0;
    const HANDLE full = Open(L"/dev/full", GENERIC_WRITE, OPEN_EXISTING);
    EXPECT_EQ(ERROR_DISK_FULL, ErrorOf(WriteFile(full, "x", 1, &count, nullptr)));
    EXPECT_EQ(0U, count);
    CloseHandle(full);
}

TEST_F(PosixFiles, DoNotLeakIntoOtherProgramsOrBeyondTheirHandles)
{
    std::ofstream(m_folder / "file") << "x";
    const auto descriptors = [] {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
            names.insert(entry.path().filename());
        return names.size();
    };
    const auto before = descriptors();
    OpenError(m_folder.wstring());
    CloseHandle(Open(Path(L"file"), GENERIC_READ, OPEN_EXISTING));
    EXPECT_EQ(before, descriptors());

    const HANDLE file = Open(Path(L"file"), GENERIC_READ, OPEN_EXISTING);
    const auto command = "ls -l /proc/self/fd | grep -q " + m_folder.filename().string();
    EXPECT_NE(0, std::system(command.c_str())); // NOLINT(cert-env33-c): the test's own words
    CloseHandle(file);
}

TEST(PosixEvents, AreTakenByOneOrSeenByAll)
{
    struct Case
    {
        BOOL manual;
        BOOL initially;
        DWORD first;
        DWORD second;
    };
    const Case cases[] = {
        {FALSE, FALSE, WAIT_TIMEOUT, WAIT_TIMEOUT}, {FALSE, TRUE, WAIT_OBJECT_0, WAIT_TIMEOUT}, {TRUE, TRUE, WAIT_OBJECT_0, WAIT_OBJECT_0}};
    for (const auto& test : cases)
    {
        const HANDLE event = CreateEventW(nullptr, test.manual, test.initially, nullptr);
        EXPECT_EQ(test.first, WaitForSingleObject(event, 0));
        EXPECT_EQ(test.second, WaitForSingleObject(event, 1));
        EXPECT_NE(FALSE, SetEvent(event));
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, INFINITE));
        EXPECT_NE(FALSE, ResetEvent(event));
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event, 0));
        EXPECT_NE(FALSE, CloseHandle(event));
        EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CloseHandle(event)));
        EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(event, 0));
    }
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CloseHandle(nullptr)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CloseHandle(INVALID_HANDLE_VALUE)));
    EXPECT_EQ(nullptr, CreateEventW(nullptr, TRUE, TRUE, L"name"));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
}

TEST(PosixEvents, WakeOtherThreads)
{
    constexpr int kWaiters = 4;
    const HANDLE automatic = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const HANDLE manual = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE taken = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::vector<std::thread> waiters;
    for (int waiter = 0; waiter < kWaiters; ++waiter)
    {
        waiters.emplace_back([&] {
            EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(manual, 20'000));
            EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(automatic, 20'000));
            SetEvent(taken);
        });
    }
    SetEvent(manual);
    for (int waiter = 0; waiter < kWaiters; ++waiter)
    {
        SetEvent(automatic);
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(taken, 20'000));
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(taken, 0));
    }
    for (auto& waiter : waiters)
        waiter.join();
    CloseHandle(automatic);
    CloseHandle(manual);
    CloseHandle(taken);
}

TEST(PosixLastError, IsEachThreadsOwn)
{
    SetLastError(7);
    std::thread([] {
        EXPECT_EQ(ERROR_SUCCESS, GetLastError());
        SetLastError(8);
    }).join();
    EXPECT_EQ(7U, GetLastError());
}

// The encodings themselves are shown over the library's own conversion, on both platforms.
TEST(PosixText, ReplacesWhatNoCharacterIs)
{
    struct Case
    {
        std::string utf8;
        std::wstring wide;
    };
    for (const auto& [utf8, wide] :
         {Case{"a\xFFz", L"a\ufffdz"}, Case{"\xC3", L"\ufffd"}, Case{"\xC0\xAF", L"\ufffd"}, Case{"\xED\xA0\x80", L"\ufffd"},
          Case{"\xF4\x90\x80\x80", L"\ufffd"}, Case{"\x80\x80", L"\ufffd\ufffd"}})
    {
        wchar_t text[8] = {};
        EXPECT_EQ(static_cast<int>(wide.size()), MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0));
        EXPECT_EQ(static_cast<int>(wide.size()),
                  MultiByteToWideChar(CP_THREAD_ACP, 0, utf8.data(), static_cast<int>(utf8.size()), text, 8));
        EXPECT_EQ(wide, text);
    }
    const wchar_t beyond[] = {0x110000, static_cast<wchar_t>(-1)};
    char narrow[8] = {};
    EXPECT_EQ(6, WideCharToMultiByte(CP_ACP, 0, beyond, 2, narrow, 8, nullptr, nullptr));
    EXPECT_STREQ("\xEF\xBF\xBD\xEF\xBF\xBD", narrow);
}

TEST(PosixText, ChecksSizesAndArguments)
{
    std::array<wchar_t, 4> wide = {};
    std::array<char, 4> narrow = {};
    EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide.data(), 4));
    EXPECT_STREQ(L"abc", wide.data());
    EXPECT_EQ(4, WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, narrow.data(), 4, nullptr, nullptr));
    EXPECT_STREQ("abc", narrow.data());
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOf(MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide.data(), 3)));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOf(WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, narrow.data(), 3, nullptr, nullptr)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(MultiByteToWideChar(CP_UTF8, 0, "abc", 0, wide.data(), 4)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(MultiByteToWideChar(CP_UTF8, 0, nullptr, 1, wide.data(), 4)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(MultiByteToWideChar(1252, 0, "abc", -1, wide.data(), 4)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, narrow.data(), -1, nullptr, nullptr)));
    BOOL used = FALSE;
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, narrow.data(), 4, nullptr, &used)));
}

// The calendar and the text of an identifier are shown over the library's own, on both platforms.
// But for what Wine takes for dates.
TEST(PosixTime, KnowsLeapYearsAndItsEnd)
{
    for (const auto& time :
         {SYSTEMTIME{2023, 2, 0, 29, 0, 0, 0, 0}, SYSTEMTIME{1900, 2, 0, 29, 0, 0, 0, 0}, SYSTEMTIME{30828, 1, 0, 1, 0, 0, 0, 0}})
    {
        FILETIME fileTime = {};
        EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(SystemTimeToFileTime(&time, &fileTime))) << time.wYear;
    }
}

TEST(PosixTime, IsNow)
{
    FILETIME now = {};
    GetSystemTimeAsFileTime(&now);
    const auto ticks = static_cast<std::int64_t>(std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_NEAR(static_cast<double>(seconds), static_cast<double>(ticks / 10'000'000 - 11'644'473'600), 5.0);
}

class PosixRegistry : public testing::Test
{
protected:
    PosixRegistry()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "quendra-registry-XXXXXX";
        m_folder = ::mkdtemp(pattern.data());
        m_file = m_folder / "registry.json";
        ::setenv("QUENDRA_REGISTRY", m_file.c_str(), 1);
    }
    ~PosixRegistry() override
    {
        ::unsetenv("QUENDRA_REGISTRY");
        ::unsetenv("XDG_CONFIG_HOME");
        std::filesystem::remove_all(m_folder);
    }

    void Write(const std::string& text) const { std::ofstream(m_file) << text; }

    struct Value
    {
        DWORD error = 0;
        DWORD type = 0;
        std::string data;
    };

    /// Asks for the size, then for the data, as the library does.
    static Value Query(HKEY root, const wchar_t* path, const wchar_t* name)
    {
        HKEY key = nullptr;
        Value value;
        value.error = static_cast<DWORD>(RegOpenKeyExW(root, path, 0, KEY_QUERY_VALUE, &key));
        if (value.error != ERROR_SUCCESS)
            return value;
        DWORD size = 0;
        value.error = static_cast<DWORD>(RegQueryValueExW(key, name, nullptr, &value.type, nullptr, &size));
        if (value.error == ERROR_SUCCESS)
        {
            value.data.resize(size);
            EXPECT_EQ(0, RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(value.data.data()), &size));
            DWORD small = size - 1;
            EXPECT_EQ(static_cast<LSTATUS>(ERROR_MORE_DATA),
                      RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(value.data.data()), &small));
            EXPECT_EQ(size, small);
        }
        EXPECT_EQ(0, RegCloseKey(key));
        EXPECT_EQ(static_cast<LSTATUS>(ERROR_INVALID_HANDLE), RegCloseKey(key));
        return value;
    }

    static std::string Bytes(std::wstring_view text) { return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)}; }

    std::filesystem::path m_folder;
    std::filesystem::path m_file;
};

TEST_F(PosixRegistry, ReadsValuesOfEveryType)
{
    using namespace std::string_view_literals;
    Write(R"({
        "HKEY_CURRENT_USER": {"Software\\Ostvalen\\Quendra": {
            "Number": 5, "Most": 4294967295, "Text": "x\u00e9", "List": ["a", "b"], "None": [],
            "Expand": {"type": "REG_EXPAND_SZ", "data": "%HOME%"}, "Binary": {"type": "REG_BINARY", "data": "00fF"},
            "TooBig": 4294967296, "Negative": -1, "Part": 1.5, "Flag": true, "Null": null, "Mixed": ["a", 1],
            "BadHex": {"type": "REG_BINARY", "data": "0g"}, "BadType": {"type": "REG_QWORD", "data": 1}, "NoData": {"type": "REG_SZ"}}},
        "HKEY_USERS": {"S-1\\Software": {"": "unnamed"}},
        "HKEY_LOCAL_MACHINE": 5})");
    struct Case
    {
        const wchar_t* name;
        DWORD type;
        std::string data;
    };
    const Case cases[] = {
        {L"Number", REG_DWORD, std::string("\x05\0\0\0", 4)},
        {L"mOST", REG_DWORD, "\xFF\xFF\xFF\xFF"},
        {L"Text", REG_SZ, Bytes(L"x\u00e9\0"sv)},
        {L"List", REG_MULTI_SZ, Bytes(L"a\0b\0\0"sv)},
        {L"None", REG_MULTI_SZ, Bytes(L"\0"sv)},
        {L"Expand", REG_EXPAND_SZ, Bytes(L"%HOME%\0"sv)},
        {L"Binary", REG_BINARY, std::string("\0\xFF", 2)},
    };
    for (const auto& test : cases)
    {
        const auto value = Query(HKEY_CURRENT_USER, L"software\\OSTVALEN\\Quendra", test.name);
        EXPECT_EQ(ERROR_SUCCESS, value.error) << test.name;
        EXPECT_EQ(test.type, value.type);
        EXPECT_EQ(test.data, value.data);
    }
    for (const wchar_t* const name :
         {L"TooBig", L"Negative", L"Part", L"Flag", L"Null", L"Mixed", L"BadHex", L"BadType", L"NoData", L"Other"})
        EXPECT_EQ(ERROR_FILE_NOT_FOUND, Query(HKEY_CURRENT_USER, L"Software\\Ostvalen\\Quendra", name).error) << name;
    EXPECT_EQ(Bytes(L"unnamed\0"sv), Query(HKEY_USERS, L"S-1\\Software", nullptr).data);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, Query(HKEY_LOCAL_MACHINE, L"Software", L"x").error);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, Query(HKEY_CURRENT_USER, L"Software", L"x").error);
    EXPECT_EQ(ERROR_INVALID_HANDLE, Query(nullptr, L"Software", L"x").error);
}

TEST_F(PosixRegistry, HasNothingWhereTheFileIsBad)
{
    const auto deep = std::string(100'000, '[') + std::string(100'000, ']');
    for (const auto& text : {std::string(), std::string("{"), std::string("5"), std::string("[1]"), deep,
                             "{\"HKEY_CURRENT_USER\":" + deep + "}", std::string("{\"HKEY_CURRENT_USER\": {\"K\": 1}}"),
                             std::string("{\"HKEY_CURRENT_USER\": [1]}"), std::string("\xFF\0", 2), std::string(2'000'000, ' ')})
    {
        Write(text);
        EXPECT_EQ(ERROR_FILE_NOT_FOUND, Query(HKEY_CURRENT_USER, L"K", L"V").error) << text.substr(0, 40);
    }
    std::filesystem::remove(m_file);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, Query(HKEY_CURRENT_USER, L"K", L"V").error);
    std::filesystem::create_directory(m_file);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, Query(HKEY_CURRENT_USER, L"K", L"V").error);
}

TEST_F(PosixRegistry, LiesInTheUsersConfiguration)
{
    ::unsetenv("QUENDRA_REGISTRY");
    ::setenv("XDG_CONFIG_HOME", m_folder.c_str(), 1);
    std::filesystem::create_directory(m_folder / "quendra");
    std::ofstream(m_folder / "quendra/registry.json") << R"({"HKEY_CURRENT_USER": {"K": {"V": 1}}, "HKEY_LOCAL_MACHINE": {"K": {"V": 1}}})";
    EXPECT_EQ(ERROR_SUCCESS, Query(HKEY_CURRENT_USER, L"K", L"V").error);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, Query(HKEY_LOCAL_MACHINE, L"K", L"V").error);
}
} // namespace
