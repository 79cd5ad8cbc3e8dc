// Local paths in all forms, also longer than MAX_PATH, and paths of pipes and devices.

#include "CaseFile.h"
#include "TextConversion.h"
#include "TransferSupport.h"
#include "Transport/FileHandle.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace
{

// "$n" stands for 250 characters, "$244" and "$245" for so many, "$here" for the working folder and "$drive" for its drive.
TEST(OpenablePath, TakesTheExtendedFormWhereAPathIsTooLongWithoutIt)
{
    const std::string here = std::filesystem::current_path().string();
    const std::pair<std::string, std::string> values[] = {{"$244", std::string(244, 'n')},
                                                          {"$245", std::string(245, 'n')},
                                                          {"$n", std::string(250, 'n')},
                                                          {"$here", here},
                                                          {"$drive", here.substr(0, 2)}};
    const auto fill = [&](std::string text) {
        for (const auto& [name, value] : values)
            if (const std::size_t at = text.find(name); at != std::string::npos)
                text.replace(at, name.size(), value);
        return text;
    };
    Json::Value groups;
    for (Json::Value row : ReadCaseFile("WindowsPaths.json"))
    {
        row[1] = fill(row[1].asString());
        groups["paths"].append(row);
    }
    ExpectCases(groups, {{"paths", [&](const Json::Value& given) { return ToNarrow(OpenablePath(ToWide(fill(given[0].asString())))); }}});
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
