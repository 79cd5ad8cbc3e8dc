#include "VersionNumberUtil.h"

#include <gtest/gtest.h>

TEST(VersionNumbers, OfAModuleAreThoseOfTheBuild)
{
    const VersionNumber version = VersionNumberUtil::GetModuleVersion();
    EXPECT_EQ(version.count, 3U);
    EXPECT_EQ(version.components, VersionNumberUtil::FromText(QUENDRA_VERSION).components);
}
