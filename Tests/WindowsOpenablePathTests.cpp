// Local paths beyond the classic limit.

#include "OpenablePath.h"
#include "TextConversion.h"

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
    };
    for (const auto& [path, expected] : rows)
        EXPECT_EQ(ToNarrow(OpenablePath(path)), ToNarrow(expected));
}

} // namespace
