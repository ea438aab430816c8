// SPDX-License-Identifier: MIT
#include <GL/InternalFormat.h>

#include <epoxy/gl.h>
#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

struct Expected
{
    GLenum internalFormat;
    GLenum format;
    GLenum type;
    int bytes;
};

} // namespace

TEST(FormatsTest, namesThePixelsOfEveryFormatThatPassesUse)
{
    const Expected table[] = {
        {GL_RGBA, GL_RGBA, GL_UNSIGNED_BYTE, 4},
        {GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 4},
        {GL_RG8, GL_RG, GL_UNSIGNED_BYTE, 2},
        {GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1},
        {GL_RGBA16F, GL_RGBA, GL_HALF_FLOAT, 8},
        {GL_R32F, GL_RED, GL_FLOAT, 4},
        {GL_RG32F, GL_RG, GL_FLOAT, 8},
        {GL_RGBA32F, GL_RGBA, GL_FLOAT, 16},
        {GL_R32UI, GL_RED_INTEGER, GL_UNSIGNED_INT, 4},
        {GL_RGBA32UI, GL_RGBA_INTEGER, GL_UNSIGNED_INT, 16},
        {GL_R32I, GL_RED_INTEGER, GL_INT, 4},
        {GL_DEPTH_COMPONENT, GL_DEPTH_COMPONENT, GL_UNSIGNED_INT, 4},
        {GL_DEPTH_COMPONENT16, GL_DEPTH_COMPONENT, GL_UNSIGNED_SHORT, 2},
        {GL_DEPTH_COMPONENT24, GL_DEPTH_COMPONENT, GL_UNSIGNED_INT, 4},
        {GL_DEPTH_COMPONENT32F, GL_DEPTH_COMPONENT, GL_FLOAT, 4},
        {GL_DEPTH24_STENCIL8, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, 4},
        {GL_DEPTH32F_STENCIL8, GL_DEPTH_STENCIL, GL_FLOAT_32_UNSIGNED_INT_24_8_REV, 8},
    };
    for (const Expected &row : table) {
        EXPECT_EQ(formatFromInternalFormat(row.internalFormat), row.format) << std::hex << row.internalFormat;
        EXPECT_EQ(typeFromInternalFormat(row.internalFormat), row.type) << std::hex << row.internalFormat;
        EXPECT_EQ(bytesPerTexel(row.internalFormat), row.bytes) << std::hex << row.internalFormat;
    }
}

TEST(FormatsTest, takesAnUnknownFormatForEightBitColour)
{
    for (GLenum format : {GLenum(0), GLenum(4), GLenum(0x12345)}) {
        EXPECT_EQ(formatFromInternalFormat(format), GLenum(GL_RGBA));
        EXPECT_EQ(typeFromInternalFormat(format), GLenum(GL_UNSIGNED_BYTE));
        EXPECT_EQ(bytesPerTexel(format), 4);
        EXPECT_FALSE(isDepthFormat(format));
    }
}

TEST(FormatsTest, tellsDepthAndStencilApart)
{
    for (GLenum format : {GL_DEPTH_COMPONENT16, GL_DEPTH_COMPONENT24, GL_DEPTH_COMPONENT32, GL_DEPTH_COMPONENT32F}) {
        EXPECT_TRUE(isDepthFormat(format));
        EXPECT_FALSE(hasStencil(format));
    }
    for (GLenum format : {GL_DEPTH24_STENCIL8, GL_DEPTH32F_STENCIL8, GL_DEPTH_STENCIL}) {
        EXPECT_TRUE(isDepthFormat(format));
        EXPECT_TRUE(hasStencil(format));
    }
    EXPECT_FALSE(isDepthFormat(GL_RGBA8));
    EXPECT_FALSE(hasStencil(GL_R32F));
}

TEST(FormatsTest, keepsTheNumbersOfThePoolsFormats)
{
    EXPECT_EQ(int(TextureFormat::LowDynamicRange), 3);
    EXPECT_EQ(int(TextureFormat::Velocity), 5);
    EXPECT_EQ(int(TextureFormat::ResolvedVelocity), 6);
    EXPECT_EQ(int(TextureFormat::Position), 7);
    EXPECT_EQ(int(TextureFormat::HighDynamicRange), 8);
    EXPECT_EQ(int(TextureFormat::DepthStencil), 24);
    EXPECT_EQ(internalFormatOf(TextureFormat(3)), GLenum(GL_RGBA8));
    EXPECT_EQ(internalFormatOf(TextureFormat(5)), GLenum(GL_RGBA8));
    EXPECT_EQ(internalFormatOf(TextureFormat(6)), GLenum(GL_RGBA16F));
    EXPECT_EQ(internalFormatOf(TextureFormat(7)), GLenum(GL_RGBA32F));
    EXPECT_EQ(internalFormatOf(TextureFormat(8)), GLenum(GL_RGBA16F));
    EXPECT_EQ(internalFormatOf(TextureFormat(24)), GLenum(GL_DEPTH24_STENCIL8));
    for (int number : {-1, 0, 4, 9, 25})
        EXPECT_EQ(internalFormatOf(TextureFormat(number)), 0u) << number;
}

} // namespace Velmora::Kvz
