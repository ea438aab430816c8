// SPDX-License-Identifier: MIT
#include <RenderPasses/RenderPassesVersions.h>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

TEST(RenderPassesVersionsTest, namesTheBuild)
{
    EXPECT_EQ(RenderPassesVersions::getVersion(), QStringLiteral("1.0.0"));
    EXPECT_EQ(RenderPassesVersions::getGitHash(), QString());
    EXPECT_EQ(RenderPassesVersions::getMd5Sum(), QStringLiteral("1"));
}

} // namespace Velmora::Kvz
