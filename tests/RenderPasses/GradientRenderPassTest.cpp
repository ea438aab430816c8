// SPDX-License-Identifier: MIT
#include "support/GLTest.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>
#include <RenderPasses/GradientRenderPass.h>

#include <QtCore/QPointer>
#include <QtCore/QRect>
#include <QtGui/QColor>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

class GradientRenderPassTest : public GLTest
{
protected:
    GradientRenderPass pass;

    void setViewport(int width, int height) { pass.setInput(GradientRenderPass::Viewport, QRect(0, 0, width, height)); }
    Texture *frame() const { return pass.output(GradientRenderPass::Frame).value<Texture *>(); }
};

/// The gradient at the middle of a row, as the rasteriser interpolates between the corner values.
QVector4D expectedRow(const QColor &top, const QColor &bottom, int y, int height)
{
    const float t = (float(y) + 0.5f) / float(height);
    const auto vector = [](const QColor &c) {
        return QVector4D(float(c.redF()), float(c.greenF()), float(c.blueF()), float(c.alphaF()));
    };
    return vector(bottom) * (1.0f - t) + vector(top) * t;
}

Image expectedGradient(const QColor &top, const QColor &bottom, int width, int height)
{
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, expectedRow(top, bottom, y, height));
    }
    return image;
}

} // namespace

TEST_F(GradientRenderPassTest, drawsTheDefaultGradient)
{
    setViewport(31, 17);
    pass.start(nullptr);
    ASSERT_NE(frame(), nullptr);
    EXPECT_EQ(frame()->internalFormat(0), GL_RGBA32F);
    const Image image = readTexture(frame());
    saveForViewing(image, QStringLiteral("gradient-default"));
    EXPECT_LE(maximumDifference(image, expectedGradient(QColor(64, 64, 64), QColor(153, 153, 153), 31, 17)), 1e-6);
    EXPECT_EQ(pass.errorCode(), 0u);
}

TEST_F(GradientRenderPassTest, writesTheAlphaOfItsColours)
{
    setViewport(8, 8);
    const QColor top(255, 0, 0, 51);
    const QColor bottom(0, 0, 255, 204);
    pass.setInput(1, top);
    pass.setInput(2, bottom);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE);
    pass.start(nullptr);
    // Qt keeps 16 bits per channel, and 51 / 255 has no exact binary form.
    EXPECT_LE(maximumDifference(readTexture(frame()), expectedGradient(top, bottom, 8, 8)), 1e-6);
    EXPECT_FALSE(glFlag(GL_BLEND));
}

TEST_F(GradientRenderPassTest, fillsFlatAndOpaqueWithoutABottomColour)
{
    setViewport(4, 4);
    pass.setInput(1, QColor(51, 102, 204, 10));
    pass.setInput(2, QVariant());
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    pass.start(nullptr);
    EXPECT_FALSE(glFlag(GL_SCISSOR_TEST));
    Image expected(4, 4);
    for (int i = 0; i < 16; ++i)
        expected.setPixel(i % 4, i / 4, QVector4D(0.2f, 0.4f, 0.8f, 1.0f));
    EXPECT_LE(maximumDifference(readTexture(frame()), expected), 1e-6);
}

TEST_F(GradientRenderPassTest, keepsItsImageWithoutATopColour)
{
    setViewport(4, 4);
    pass.start(nullptr);
    const Image before = readTexture(frame());
    pass.setInput(1, QVariant());
    pass.setInput(2, QColor(Qt::red));
    pass.start(nullptr);
    ASSERT_NE(frame(), nullptr);
    EXPECT_EQ(maximumDifference(readTexture(frame()), before), 0.0);
}

TEST_F(GradientRenderPassTest, publishesNullWithoutAViewport)
{
    pass.start(nullptr);
    ASSERT_TRUE(pass.output(0).isValid());
    EXPECT_EQ(pass.output(0).userType(), qMetaTypeId<Texture *>());
    EXPECT_EQ(frame(), nullptr);
    // There are no texels to draw to, so the draw fails. The driver may log it; no GL error is left behind.
    EXPECT_EQ(pass.errorCode(), 4294967295u);
    log.takeCategory(QStringLiteral("kvz.gl"));
}

TEST_F(GradientRenderPassTest, followsTheViewportsSize)
{
    setViewport(4, 4);
    pass.start(nullptr);
    const unsigned int name = frame()->textureID();
    pass.start(nullptr);
    EXPECT_EQ(frame()->textureID(), name);
    setViewport(7, 3);
    pass.start(nullptr);
    EXPECT_EQ(frame()->width(0), 7);
    EXPECT_EQ(frame()->height(0), 3);
    EXPECT_EQ(glInteger(GL_VIEWPORT), 0);
    setViewport(0, 0);
    pass.start(nullptr);
    ASSERT_NE(frame(), nullptr);
    EXPECT_EQ(frame()->width(0), 0);
    EXPECT_EQ(pass.errorCode(), 4294967295u);
    log.takeCategory(QStringLiteral("kvz.gl"));
}

TEST_F(GradientRenderPassTest, deletesItsTextureWhenTheSizeChanges)
{
    setViewport(4, 4);
    pass.start(nullptr);
    const QPointer<Texture> old(frame());
    const GLObjectCounts before = glObjectCounts();
    setViewport(5, 4);
    pass.start(nullptr);
    EXPECT_TRUE(old.isNull());
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(GradientRenderPassTest, takesItsObjectsAlong)
{
    const GLObjectCounts before = glObjectCounts();
    {
        GradientRenderPass other;
        other.setInput(GradientRenderPass::Viewport, QRect(0, 0, 8, 8));
        other.start(nullptr);
        EXPECT_GT(glObjectCounts().textures, before.textures);
    }
    const GLObjectCounts after = glObjectCounts();
    EXPECT_EQ(after.textures, before.textures);
    EXPECT_EQ(after.framebuffers, before.framebuffers);
    EXPECT_EQ(after.programs, before.programs);
    EXPECT_EQ(after.vertexArrays, before.vertexArrays);
}

TEST_F(GradientRenderPassTest, filtersItsImageByTheNearestTexel)
{
    setViewport(4, 4);
    pass.start(nullptr);
    AutoBinder binder(frame());
    for (GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
        GLint value = 0;
        glGetTexParameteriv(GL_TEXTURE_2D, filter, &value);
        EXPECT_EQ(value, GL_NEAREST);
    }
}

TEST_F(GradientRenderPassTest, leavesTheStateThatItSets)
{
    setViewport(6, 5);
    for (GLenum capability : {GL_DEPTH_TEST, GL_STENCIL_TEST, GL_BLEND, GL_CULL_FACE})
        glEnable(capability);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    pass.start(nullptr);
    for (GLenum capability : {GL_DEPTH_TEST, GL_STENCIL_TEST, GL_BLEND, GL_CULL_FACE})
        EXPECT_FALSE(glFlag(capability));
    GLboolean mask[4];
    glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    for (GLboolean channel : mask)
        EXPECT_TRUE(channel);
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(viewport[2], 6);
    EXPECT_EQ(viewport[3], 5);
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
}

TEST_F(GradientRenderPassTest, skipClearsTheOutputAndKeepsTheTexture)
{
    setViewport(4, 4);
    pass.start(nullptr);
    const unsigned int name = frame()->textureID();
    pass.skip(nullptr);
    EXPECT_FALSE(pass.output(0).isValid());
    pass.start(nullptr);
    EXPECT_EQ(frame()->textureID(), name);
}

TEST_F(GradientRenderPassTest, countsNoReferences)
{
    setViewport(4, 4);
    pass.setNumOutputUsers(0, 3);
    pass.start(nullptr);
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(frame()), -1);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0);
}

TEST_F(GradientRenderPassTest, drawsAColourThatDoesNotConvertAsBlack)
{
    setViewport(2, 2);
    pass.setInput(1, QVariantList{1, 2});
    pass.setInput(2, QColor(Qt::black));
    pass.start(nullptr);
    Image expected(2, 2);
    for (int i = 0; i < 4; ++i)
        expected.setPixel(i % 2, i / 2, QVector4D(0, 0, 0, 1));
    EXPECT_LE(maximumDifference(readTexture(frame()), expected), 1e-6);
}

} // namespace Velmora::Kvz
