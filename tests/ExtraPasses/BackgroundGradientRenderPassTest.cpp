// SPDX-License-Identifier: MIT
#include "support/GLTest.h"

#include <ExtraPasses/BackgroundGradientRenderPass.h>
#include <GL/GLStatistics.h>
#include <GL/Texture.h>

#include <QtCore/QRect>
#include <QtGui/QColor>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

using Port = BackgroundGradientRenderPass;

/// Half a step of 8 bits and what floats add to it.
constexpr double rounding = 0.5 / 255 + 1e-6;

class BackgroundGradientRenderPassTest : public GLTest
{
protected:
    void draw(const QVariant &top, const QVariant &bottom, const QSize &size)
    {
        pass.setInput(Port::Viewport, QRect(QPoint(3, 5), size));
        pass.setInput(Port::ColorTop, top);
        pass.setInput(Port::ColorBottom, bottom);
        pass.start(nullptr);
    }

    Texture *frame() const { return pass.output(Port::Frame).value<Texture *>(); }

    BackgroundGradientRenderPass pass;
};

QVector4D premultiplied(const QColor &color)
{
    const auto alpha = float(color.alphaF());
    return {float(color.redF()) * alpha, float(color.greenF()) * alpha, float(color.blueF()) * alpha, alpha};
}

Image expectedGradient(const QColor &top, const QColor &bottom, const QSize &size)
{
    Image image(size.width(), size.height());
    for (int y = 0; y < size.height(); ++y) {
        const float t = (float(y) + 0.5f) / float(size.height());
        for (int x = 0; x < size.width(); ++x)
            image.setPixel(x, y, premultiplied(bottom) * (1 - t) + premultiplied(top) * t);
    }
    return image;
}

} // namespace

TEST_F(BackgroundGradientRenderPassTest, drawsItsColoursMultipliedByTheirAlpha)
{
    pass.setInput(Port::Viewport, QRect(0, 0, 9, 31));
    pass.start(nullptr);
    ASSERT_NE(frame(), nullptr);
    EXPECT_EQ(frame()->internalFormat(0), GL_RGBA8);
    EXPECT_LE(
        maximumDifference(readTexture(frame()), expectedGradient({64, 64, 64}, {153, 153, 153}, {9, 31})), rounding);
    const QColor top(255, 0, 100, 51);
    const QColor bottom(0, 40, 255, 204);
    draw(top, bottom, {5, 17});
    const Image image = readTexture(frame());
    saveForViewing(image, QStringLiteral("background-gradient"));
    EXPECT_LE(maximumDifference(image, expectedGradient(top, bottom, {5, 17})), rounding);
}

TEST_F(BackgroundGradientRenderPassTest, nullColours)
{
    const QColor top(10, 200, 90);
    for (const QVariant &none : {QVariant(), QVariant(QColor())}) {
        draw(top, none, {4, 4});
        EXPECT_LE(maximumDifference(readTexture(frame()), expectedGradient(top, top, {4, 4})), rounding);
        draw(none, top, {4, 4});
        EXPECT_LE(maximumDifference(readTexture(frame()), expectedGradient(QColor(0, 0, 0, 0), top, {4, 4})), rounding);
        draw(none, none, {4, 4});
        EXPECT_EQ(maximumDifference(readTexture(frame()), Image(4, 4)), 0);
    }
}

TEST_F(BackgroundGradientRenderPassTest, setsTheStateThatItNeeds)
{
    const GLenum capabilities[] = {GL_DEPTH_TEST, GL_STENCIL_TEST, GL_SCISSOR_TEST, GL_BLEND, GL_CULL_FACE};
    for (const GLenum capability : capabilities)
        glEnable(capability);
    glScissor(0, 0, 1, 1);
    glCullFace(GL_FRONT_AND_BACK);
    glStencilFunc(GL_NEVER, 0, 0);
    glColorMask(GL_FALSE, GL_TRUE, GL_FALSE, GL_TRUE);
    glViewport(0, 0, 1, 1);
    const QColor top(255, 255, 0);
    draw(top, QColor(Qt::blue), {6, 5});
    EXPECT_LE(maximumDifference(readTexture(frame()), expectedGradient(top, QColor(Qt::blue), {6, 5})), rounding);
    for (const GLenum capability : capabilities)
        EXPECT_FALSE(glFlag(capability)) << capability;
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    glCullFace(GL_BACK);
    glStencilFunc(GL_ALWAYS, 0, ~0u);
}

TEST_F(BackgroundGradientRenderPassTest, followsTheViewportAndTakesItsObjectsAlong)
{
    const GLObjectCounts before = glObjectCounts();
    {
        BackgroundGradientRenderPass other;
        EXPECT_TRUE(glObjectCounts() == before) << "no GL in the constructor";
        other.setInput(Port::Viewport, QRect(0, 0, 4, 4));
        other.start(nullptr);
        auto *const first = other.output(Port::Frame).value<Texture *>();
        other.start(nullptr);
        EXPECT_EQ(other.output(Port::Frame).value<Texture *>(), first);
        const GLObjectCounts drawn = glObjectCounts();
        other.setInput(Port::Viewport, QRect(0, 0, 7, 3));
        other.start(nullptr);
        auto *const second = other.output(Port::Frame).value<Texture *>();
        ASSERT_NE(second, nullptr);
        EXPECT_EQ(QSize(second->width(0), second->height(0)), QSize(7, 3));
        EXPECT_TRUE(glObjectCounts() == drawn);
        other.setInput(Port::Viewport, QRect(0, 0, 0, 3));
        other.start(nullptr);
        EXPECT_EQ(other.output(Port::Frame).value<Texture *>(), nullptr);
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        other.setInput(Port::Viewport, QRect(0, 0, 7, 3));
        other.start(nullptr);
        EXPECT_NE(other.output(Port::Frame).value<Texture *>(), nullptr);
        other.skip(nullptr);
        EXPECT_EQ(other.output(Port::Frame).value<Texture *>(), nullptr);
    }
    const GLObjectCounts after = glObjectCounts();
    EXPECT_EQ(after.textures, before.textures);
    EXPECT_EQ(after.framebuffers, before.framebuffers);
    EXPECT_EQ(after.programs, before.programs);
    EXPECT_EQ(after.vertexArrays, before.vertexArrays);
}

} // namespace Velmora::Kvz
