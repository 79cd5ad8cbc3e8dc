#include "PathUtilities.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(PathUtilitiesTests, NormalizePathGivesTheExtendedForm)
{
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"", L""},
        {L"\\", L"\\"},
        {L"C:", L"\\\\?\\C:"},
        {L"C:\\dir", L"\\\\?\\C:\\dir"},
        {L"C:\\dir\\", L"\\\\?\\C:\\dir"},
        {L"C:\\dir\\\\", L"\\\\?\\C:\\dir\\"},
        {L"\\\\server\\share\\x", L"\\\\?\\UNC\\server\\share\\x"},
        {L"\\\\server\\share\\", L"\\\\?\\UNC\\server\\share"},
        {L"\\\\", L"\\\\?\\UNC"},
        {L"\\\\?\\C:\\dir\\", L"\\\\?\\C:\\dir"},
        {L"\\\\?\\", L"\\\\?"},
        {L"\\\\?\\UNC\\server\\??", L"\\\\?\\UNC\\server\\??"},
        {L"\\??\\C:\\a??b", L"\\\\?\\C:\\a\\?b"},
        {L"\\??\\C:\\a???\\", L"\\\\?\\C:\\a\\??"},
        {L"\\??\\C:\\\u00e9\u4e16\\", L"\\\\?\\C:\\\u00e9\u4e16"},
    };
    TraceCapture trace;
    for (const auto& [path, expected] : cases)
        EXPECT_EQ(PathUtilities::NormalizePath(path), expected);
    EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>());
}

TEST(PathUtilitiesTests, NormalizePathTracesOtherPathsAndLeavesThemAlone)
{
    for (const std::wstring path : {L"relative\\path\\", L"\\single", L"/unix/path", L"\\?\\C:\\dir"})
    {
        TraceCapture trace;
        EXPECT_EQ(PathUtilities::NormalizePath(path), path);
        const std::string narrow(path.begin(), path.end());
        EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>{"Unknown path format [" + narrow + "]"});
    }
}
