// The versions that a client sends with its login.

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
    std::string read;
    for (const char* text : {"6.1.0-13-amd64", "1.2.3.4.5", "7.", "7..08", "07.08", "4294967295.4294967296.1", "", ".1", "-1", " 1", "v1"})
        read += std::string(text) + " is " + TextOf(VersionNumberUtil::FromText(text)) + "; ";
    EXPECT_EQ(read, "6.1.0-13-amd64 is 6.1.0; 1.2.3.4.5 is 1.2.3.4; 7. is 7; 7..08 is 7; 07.08 is 7.8; "
                    "4294967295.4294967296.1 is 4294967295;  is ; .1 is ; -1 is ;  1 is ; v1 is ; ");
}

TEST(VersionNumbers, OfTheSystemAreFoundOnEveryCall)
{
    const VersionNumber version = VersionNumberUtil::GetOsVersion();
    EXPECT_GE(version.count, 2U);
    EXPECT_NE(version.components[0], 0U);
    EXPECT_EQ(TextOf(VersionNumberUtil::GetOsVersion()), TextOf(version));
}

} // namespace
