// SPDX-License-Identifier: MIT
#include "support/GLTest.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/TextureManager.h>
#include <Host/TextureCapture.h>

#include <QtGui/QColor>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

/// An array of layers of 2 by 1 texels, each with this red on the left and 0 on the right; `format` is the format of
/// the floats given.
std::unique_ptr<Texture> arrayTexture(const QVector<float> &reds, int internalFormat, GLenum format)
{
    auto texture = std::make_unique<Texture>(GL_TEXTURE_2D_ARRAY, internalFormat, 2, 1, reds.size(), nullptr);
    QVector<float> texels;
    for (const float red : reds) {
        if (format == GL_DEPTH_COMPONENT)
            texels << red << 0;
        else
            texels << red << red * red << 0 << 0; // Two channels of two texels.
    }
    AutoBinder binder(texture.get());
    glTexImage3D(GL_TEXTURE_2D_ARRAY, 0, internalFormat, 2, 1, reds.size(), 0, format, GL_FLOAT, texels.constData());
    return texture;
}

/// A texture of 2 by 2 texels, given row by row from the bottom left.
std::unique_ptr<Texture> texture2x2(const QVector<QVector4D> &texels, int internalFormat)
{
    Image image(2, 2);
    for (int i = 0; i < 4; ++i)
        image.setPixel(i % 2, i / 2, texels[i]);
    return makeTexture(image, internalFormat);
}

} // namespace

using TextureCaptureTest = GLTest;

TEST_F(TextureCaptureTest, pairsOfNumbersAreShownByTheFirst)
{
    Texture texture(GL_TEXTURE_2D, GL_RG32UI, 3, 1, 0, nullptr);
    const GLuint numbers[] = {0, 7, 1, 2, 1, 3};
    {
        AutoBinder binder(&texture);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RG32UI, 3, 1, 0, GL_RG_INTEGER, GL_UNSIGNED_INT, numbers);
    }
    const QImage image = captureTexture(&texture, TextureDisplay::Id);
    ASSERT_EQ(image.size(), QSize(3, 1));
    EXPECT_EQ(image.pixelColor(0, 0), QColor(Qt::black));
    EXPECT_NE(image.pixelColor(1, 0), QColor(Qt::black));
    EXPECT_EQ(image.pixelColor(2, 0), image.pixelColor(1, 0));
}

TEST_F(TextureCaptureTest, coloursComeTopRowFirstWithTheirAlpha)
{
    const auto texture = texture2x2({{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 1}, {1, 1, 1, 0.2f}}, GL_RGBA8);
    const QImage image = captureTexture(texture.get(), TextureDisplay::Colour);
    ASSERT_EQ(image.size(), QSize(2, 2));
    EXPECT_EQ(image.format(), QImage::Format_RGBA8888);
    EXPECT_EQ(image.pixelColor(0, 1), QColor(255, 0, 0));
    EXPECT_EQ(image.pixelColor(1, 1), QColor(0, 255, 0));
    EXPECT_EQ(image.pixelColor(0, 0), QColor(0, 0, 255));
    EXPECT_EQ(image.pixelColor(1, 0), QColor(255, 255, 255, 51));
}

TEST_F(TextureCaptureTest, floatingPointColoursAreClamped)
{
    const auto texture = texture2x2({{3, -1, 0.5f, 2}, {NAN, 0, INFINITY, 1}, {}, {}}, GL_RGBA32F);
    const QImage image = captureTexture(texture.get(), TextureDisplay::Colour);
    EXPECT_EQ(image.pixelColor(0, 1), QColor(255, 0, 128));
    EXPECT_EQ(image.pixelColor(1, 1), QColor(0, 0, 255));
}

TEST_F(TextureCaptureTest, normalsAndCoordinatesAreShownAsColours)
{
    const auto texture = texture2x2({{1, 0, -1, 1}, {0, 0, 0, 1}, {1.25f, -0.25f, 7, 1}, {}}, GL_RGBA32F);
    const QImage normals = captureTexture(texture.get(), TextureDisplay::Normal);
    EXPECT_EQ(normals.pixelColor(0, 1), QColor(255, 128, 0));
    EXPECT_EQ(normals.pixelColor(1, 1), QColor(0, 0, 0));
    const QImage coordinates = captureTexture(texture.get(), TextureDisplay::TexCoord);
    EXPECT_EQ(coordinates.pixelColor(0, 0), QColor(64, 191, 0));
}

TEST_F(TextureCaptureTest, motionIsShownAroundGrey)
{
    const auto texture =
        texture2x2({{0, 0, 0, 1}, {0.03125f, -0.03125f, 0, 1}, {-0.0625f, 0.0625f, 5, 1}, {1, -1, 0, 1}}, GL_RGBA32F);
    const QImage image = captureTexture(texture.get(), TextureDisplay::Motion);
    EXPECT_EQ(image.pixelColor(0, 1), QColor(128, 128, 128)) << "still";
    EXPECT_EQ(image.pixelColor(1, 1), QColor(191, 64, 128)) << "to the right and down";
    EXPECT_EQ(image.pixelColor(0, 0), QColor(0, 255, 128)) << "to the left and up";
    EXPECT_EQ(image.pixelColor(1, 0), QColor(255, 0, 128)) << "beyond the range";
}

TEST_F(TextureCaptureTest, idsHaveColoursOfTheirOwnAndNoneIsBlack)
{
    const auto texture = texture2x2({{0, 0, 0, 1}, {1, 0, 0, 1}, {2, 0, 0, 1}, {100000, 0, 0, 1}}, GL_RGBA32F);
    const QImage image = captureTexture(texture.get(), TextureDisplay::Id);
    EXPECT_EQ(image.pixelColor(0, 1), QColor(0, 0, 0));
    const QColor first = image.pixelColor(1, 1), second = image.pixelColor(0, 0), third = image.pixelColor(1, 0);
    EXPECT_NE(first, second);
    EXPECT_NE(second, third);
    EXPECT_NE(first, third);
    for (const QColor &color : {first, second, third})
        EXPECT_GT(color.value(), 200);
}

TEST_F(TextureCaptureTest, depthIsShownByItsDistance)
{
    QMatrix4x4 projection;
    projection.perspective(60, 1, 1, 100);
    const auto depthAt = [&](float distance) {
        const QVector4D clip = projection * QVector4D(0, 0, -distance, 1);
        return clip.z() / clip.w() / 2 + 0.5f;
    };
    Image depths(2, 2, 1);
    *depths.at(0, 0) = depthAt(2);
    *depths.at(1, 0) = depthAt(6);
    *depths.at(0, 1) = depthAt(10);
    *depths.at(1, 1) = 1;
    for (int format : {GL_DEPTH_COMPONENT32F, GL_DEPTH24_STENCIL8}) {
        const auto texture = makeTexture(depths, format);
        const QImage image = captureTexture(texture.get(), TextureDisplay::Depth, projection);
        EXPECT_NEAR(image.pixelColor(0, 1).red(), 255, 1);
        EXPECT_NEAR(image.pixelColor(1, 1).red(), 255 * 0.6, 1);
        EXPECT_NEAR(image.pixelColor(0, 0).red(), 255 * 0.2, 1);
        EXPECT_EQ(image.pixelColor(1, 0), QColor(0, 0, 0));
    }
}

TEST_F(TextureCaptureTest, multisampledColoursAreResolved)
{
    Image image(2, 2);
    image.setPixel(1, 1, {0, 0.5f, 1, 1});
    const auto texture = makeMultisampleTexture(image, GL_RGBA8, 4);
    const int references = TextureManager::Instance()->poolStatistics().references;
    const QImage captured = captureTexture(texture.get(), TextureDisplay::Colour);
    EXPECT_EQ(captured.pixelColor(1, 0), QColor(0, 128, 255));
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, references);
}

TEST_F(TextureCaptureTest, multisampledDepthIsResolved)
{
    for (const GLenum format : {GL_DEPTH_COMPONENT32F, GL_DEPTH24_STENCIL8, GL_DEPTH_COMPONENT24}) {
        Texture texture(GL_TEXTURE_2D_MULTISAMPLE, int(format), 2, 1, 0, nullptr);
        {
            AutoBinder binder(&texture);
            glTexImage2DMultisample(GL_TEXTURE_2D_MULTISAMPLE, 4, format, 2, 1, GL_TRUE);
        }
        {
            FramebufferObject framebuffer;
            AutoBinder binder(&framebuffer);
            framebuffer.attach(&texture, GL_DEPTH_ATTACHMENT, 0);
            framebuffer.setDrawBuffers();
            glClearDepth(0.25);
            glClear(GL_DEPTH_BUFFER_BIT);
            glEnable(GL_SCISSOR_TEST);
            glScissor(1, 0, 1, 1);
            glClearDepth(0.75);
            glClear(GL_DEPTH_BUFFER_BIT);
            glDisable(GL_SCISSOR_TEST);
            framebuffer.detach(GL_DEPTH_ATTACHMENT);
        }
        const QImage image = captureTexture(&texture, TextureDisplay::Depth);
        ASSERT_EQ(image.size(), QSize(2, 1)) << format;
        EXPECT_EQ(image.pixelColor(0, 0), QColor(255, 255, 255)) << "the nearest";
        EXPECT_EQ(image.pixelColor(1, 0), QColor(51, 51, 51)) << "the farthest";
    }
}

TEST_F(TextureCaptureTest, whatIsNotAPictureGivesNone)
{
    EXPECT_TRUE(captureTexture(nullptr, TextureDisplay::Colour).isNull());
    const auto texture = texture2x2({{}, {}, {}, {}}, GL_RGBA8);
    EXPECT_TRUE(captureTexture(texture.get(), TextureDisplay::Hidden).isNull());
    Texture empty;
    EXPECT_TRUE(captureTexture(&empty, TextureDisplay::Colour).isNull());
    Texture array(GL_TEXTURE_2D_ARRAY, GL_RGBA8, 2, 2, 2, nullptr);
    EXPECT_TRUE(captureTexture(&array, TextureDisplay::Colour).isNull());
    const auto noLayers = arrayTexture({}, GL_RG32F, GL_RG);
    EXPECT_TRUE(captureTexture(noLayers.get(), TextureDisplay::Colour).isNull());
    Texture cube(GL_TEXTURE_CUBE_MAP, GL_RGBA8, 2, 2, 0, nullptr);
    EXPECT_TRUE(captureTexture(&cube, TextureDisplay::Colour).isNull());
}

TEST_F(TextureCaptureTest, anArrayBecomesAContactSheetOfItsLayers)
{
    const int gap = captureGap();
    const auto texture = arrayTexture({0.1f, 0.2f, 0.3f, 0.4f, 0.5f}, GL_RG32F, GL_RG);
    const QImage image = captureTexture(texture.get(), TextureDisplay::Scalar);
    // Three layers per row.
    ASSERT_EQ(image.size(), QSize(3 * 2 + 2 * gap, 2 * 1 + gap));
    for (int layer = 0; layer < 5; ++layer) {
        const int x = layer % 3 * (2 + gap);
        const int y = layer / 3 * (1 + gap);
        EXPECT_NEAR(image.pixelColor(x, y).red(), 25.5 * (layer + 1), 1) << layer;
        EXPECT_EQ(image.pixelColor(x + 1, y), QColor(0, 0, 0)) << layer;
    }
    EXPECT_EQ(image.pixelColor(2, 0).alpha(), 0) << "the gap";
    EXPECT_EQ(image.pixelColor(0, 1).alpha(), 0) << "the gap";
    EXPECT_EQ(image.pixelColor(2 * (2 + gap), 1 + gap).alpha(), 0) << "there is no sixth layer";

    // Only the first layers are captured.
    EXPECT_EQ(captureTexture(texture.get(), TextureDisplay::Scalar, QMatrix4x4(), 1).size(), QSize(2, 1));
    EXPECT_EQ(captureTexture(texture.get(), TextureDisplay::Scalar, QMatrix4x4(), 2).size(), QSize(4 + gap, 1));
    EXPECT_EQ(captureTexture(texture.get(), TextureDisplay::Scalar, QMatrix4x4(), 9).size(), image.size());
}

TEST_F(TextureCaptureTest, depthsOfAnArrayAreStretchedInEachLayer)
{
    for (const auto &[format, internalFormat] :
        {std::pair<GLenum, int>{GL_DEPTH_COMPONENT, GL_DEPTH_COMPONENT32F}, std::pair<GLenum, int>{GL_RG, GL_RG32F}}) {
        const auto texture = arrayTexture({0.25f, 0.75f, 1}, internalFormat, format);
        const QImage image = captureTexture(texture.get(), TextureDisplay::Depth);
        ASSERT_EQ(image.width(), 4 + captureGap());
        for (const int x : {0, 2 + captureGap()}) {
            EXPECT_EQ(image.pixelColor(x, 0), QColor(51, 51, 51));
            EXPECT_EQ(image.pixelColor(x + 1, 0), QColor(255, 255, 255));
        }
        EXPECT_EQ(image.pixelColor(0, 1 + captureGap()), QColor(0, 0, 0)) << "nothing is black";
    }
}

TEST_F(TextureCaptureTest, texelsComeAsNumbersTopRowFirst)
{
    const auto colours = texture2x2({{1, 2, 3, 4}, {-5, 6, 7, 8}, {9, 10, 11, 12}, {13, 14, 15, 16}}, GL_RGBA32F);
    const TexelImage texels = captureTexels(colours.get());
    ASSERT_EQ(texels.width * texels.height * texels.channels, 16);
    EXPECT_EQ(texels.floats, (std::vector<float>{9, 10, 11, 12, 13, 14, 15, 16, 1, 2, 3, 4, -5, 6, 7, 8}));
    EXPECT_TRUE(texels.integers.empty());

    Texture pairs(GL_TEXTURE_2D, GL_RG32UI, 1, 2, 0, nullptr);
    const GLuint numbers[] = {1, 4000000001u, 3, 4};
    {
        AutoBinder binder(&pairs);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RG32UI, 1, 2, 0, GL_RG_INTEGER, GL_UNSIGNED_INT, numbers);
    }
    const TexelImage ids = captureTexels(&pairs);
    EXPECT_EQ(ids.channels, 2);
    EXPECT_EQ(ids.integers, (std::vector<quint32>{3, 4, 1, 4000000001u})) << "no float could hold it";

    EXPECT_TRUE(captureTexels(nullptr).isNull());
    EXPECT_TRUE(captureTexels(arrayTexture({0.5f}, GL_RGBA16F, GL_RG).get()).isNull());
}

TEST_F(TextureCaptureTest, depthBecomesTheDistanceFromTheCamerasPlane)
{
    QMatrix4x4 projection;
    projection.perspective(60, 1, 2, 10);
    // z' = (10 + 2) / 8 - 2 * 2 * 10 / 8 / z at distance 5 is 0.5, which is stored as 0.75.
    TexelImage depth{4, 1, 1, {0, 0.75f, 1, 0.999999f}, {}};
    distancesFromDepth(&depth, projection);
    EXPECT_NEAR(depth.floats[0], 2, 1e-5f);
    EXPECT_NEAR(depth.floats[1], 5, 1e-5f);
    EXPECT_TRUE(std::isinf(depth.floats[2]));
    EXPECT_NEAR(depth.floats[3], 10, 1e-3f);
}

TEST_F(TextureCaptureTest, bindingsAndPixelStoreStayAsTheyWere)
{
    const auto texture = texture2x2({{}, {}, {}, {}}, GL_RGBA8);
    glPixelStorei(GL_PACK_ALIGNMENT, 2);
    glPixelStorei(GL_PACK_ROW_LENGTH, 7);
    glActiveTexture(GL_TEXTURE3);
    captureTexture(texture.get(), TextureDisplay::Colour);
    EXPECT_EQ(glInteger(GL_PACK_ALIGNMENT), 2);
    EXPECT_EQ(glInteger(GL_PACK_ROW_LENGTH), 7);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE3);
    EXPECT_EQ(glInteger(GL_TEXTURE_BINDING_2D), 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
}

} // namespace Velmora::Kvz
