// The versions that a client tells at its login, as a program finds them out.

#include "VersionNumberUtil.h"

#include <gtest/gtest.h>

namespace
{

std::string TextOf(const VersionNumber& version)
{
    std::string text;
    for (std::uint32_t i = 0; i < version.count; ++i)
        text += (i == 0 ? "" : ".") + std::to_string(version.components.at(i));
    return text;
}

TEST(VersionNumbers, AreReadFromTheBeginningOfATextAsFarAsTheyGo)
{
    const std::pair<const char*, const char*> cases[] = {
        {"10.0.19045", "10.0.19045"},
        {"6.1.0-13-amd64", "6.1.0"},
        {"1.2.3.4.5", "1.2.3.4"},
        {"7", "7"},
        {"7.", "7"},
        {"7..8", "7"},
        {"007.08", "7.8"},
        {"5.4-rc1", "5.4"},
        {"4294967295.4294967296.1", "4294967295"},
        {"", ""},
        {".1", ""},
        {"-1", ""},
        {"+1", ""},
        {" 1", ""},
        {"v1.2", ""},
    };
    for (const auto& [text, version] : cases)
        EXPECT_EQ(TextOf(VersionNumberUtil::FromText(text)), version) << text;
}

TEST(VersionNumbers, OfTheSystemAreFoundOnEveryCall)
{
    const VersionNumber version = VersionNumberUtil::GetOsVersion();
    EXPECT_GE(version.count, 2U);
    EXPECT_NE(version.components[0], 0U);
    EXPECT_EQ(TextOf(VersionNumberUtil::GetOsVersion()), TextOf(version));
}

} // namespace
