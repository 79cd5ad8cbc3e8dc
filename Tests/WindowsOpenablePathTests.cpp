// Local paths in all forms, also longer than MAX_PATH, and paths of pipes and devices.

#include "TextConversion.h"
#include "TransferSupport.h"
#include "Transport/FileHandle.h"
#include "Transport/OpenablePath.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace
{

TEST(OpenablePath, TakesTheExtendedFormWhereAPathIsTooLongWithoutIt)
{
    const std::wstring longName(250, L'n');
    const std::wstring here = std::filesystem::current_path().wstring();
    const std::pair<std::wstring, std::wstring> rows[] = {
        {L"C:\\a/../b", L"C:\\a/../b"},
        {L"C:\\" + std::wstring(244, L'n'), L"C:\\" + std::wstring(244, L'n')},
        {L"C:\\" + std::wstring(245, L'n'), L"\\\\?\\C:\\" + std::wstring(245, L'n')},
        {L"C:/a/..\\b//" + longName, L"\\\\?\\C:\\b\\" + longName},
        {L"\\\\server\\share\\" + longName, L"\\\\?\\UNC\\server\\share\\" + longName},
        {L"//server/share/./" + longName, L"\\\\?\\UNC\\server\\share\\" + longName},
        {longName, L"\\\\?\\" + here + L"\\" + longName},
        {L"\\" + longName, L"\\\\?\\" + here.substr(0, 2) + L"\\" + longName},
        {L"\\\\?\\C:\\a\\" + longName, L"\\\\?\\C:\\a\\" + longName},
        {L"\\\\.\\pipe\\" + longName, L"\\\\.\\pipe\\" + longName},
        {L"\\\\.\\C:\\a/../b", L"\\\\.\\C:\\a/../b"},
        {L"//./pipe/" + longName, L"//./pipe/" + longName},
        {L"//?/C:/a/../" + longName, L"\\\\?\\C:\\" + longName},
        {L"\\??\\C:\\a", L"\\\\?\\C:\\a"},
        {L"\\??\\C:\\" + longName, L"\\\\?\\C:\\" + longName},
        {L"\\??\\UNC\\server\\share\\" + longName, L"\\\\?\\UNC\\server\\share\\" + longName},
    };
    for (const auto& [path, expected] : rows)
        EXPECT_EQ(ToNarrow(OpenablePath(path)), ToNarrow(expected));
}

TEST(OpenablePath, OpensEveryFormShortAndLong)
{
    const TemporaryFolder folder;
    const std::wstring above = std::filesystem::canonical(folder / "").wstring();
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(above);
    for (const std::size_t length : {5U, 230U})
        for (const std::wstring prefix : {L"\\\\?\\", L"\\??\\", L"\\\\.\\", L"", L"relative"})
        {
            const std::wstring name(length, L'n');
            const std::wstring path = prefix == L"relative" ? L".\\" + name : prefix + above + L"\\" + name;
            SCOPED_TRACE(ToNarrow(path));
            EXPECT_TRUE(FileHandle(path, GENERIC_WRITE, 0, CREATE_ALWAYS).IsOpen()) << GetLastError();
            EXPECT_TRUE(FileHandle(path, GENERIC_READ, kShareAll, OPEN_EXISTING).IsOpen()) << GetLastError();
            EXPECT_TRUE(DeleteFileW((L"\\\\?\\" + above + L"\\" + name).c_str()));
        }
    std::filesystem::current_path(before);
}

TEST(FileHandle, RefusesPipesAndToReadFromDevices)
{
    const std::wstring pipe = L"\\\\.\\pipe\\quendra-" + std::to_wstring(GetCurrentProcessId());
    const HANDLE server = CreateNamedPipeW(pipe.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 2, 100, 100, 0, nullptr);
    const HANDLE second = CreateNamedPipeW(pipe.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 2, 100, 100, 0, nullptr);
    for (const auto& [path, access, error] : {std::tuple{pipe, GENERIC_READ, ERROR_NOT_SUPPORTED},
                                              {pipe, GENERIC_WRITE, ERROR_NOT_SUPPORTED},
                                              {L"nul", GENERIC_READ, ERROR_NOT_SUPPORTED},
                                              {L"nul", GENERIC_WRITE, ERROR_SUCCESS}})
    {
        SetLastError(ERROR_SUCCESS);
        const FileHandle file(path, static_cast<DWORD>(access), 0, OPEN_EXISTING);
        EXPECT_EQ(file.IsOpen() ? ERROR_SUCCESS : GetLastError(), static_cast<DWORD>(error));
    }
    CloseHandle(server);
    CloseHandle(second);
}

} // namespace
