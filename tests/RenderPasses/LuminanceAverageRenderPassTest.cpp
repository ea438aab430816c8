// SPDX-License-Identifier: MIT
#include "BlurReference.h"
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <GL/GLStatistics.h>
#include <RenderPasses/LuminanceAverageRenderPass.h>

#include <QtCore/QRect>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Luminance = LuminanceAverageRenderPass;

class LuminanceAverageRenderPassTest : public GLTest
{
protected:
    Luminance pass;
    PooledTextures pool;

    void set(const QRect &viewport, Texture *texture)
    {
        pass.setInput(Luminance::Viewport, viewport);
        pass.setInput(Luminance::SourceTexture, QVariant::fromValue(texture));
    }
    float measure(const Image &image)
    {
        const auto texture = makeTexture(image, GL_RGBA32F);
        set(QRect(0, 0, image.width, image.height), texture.get());
        pass.start(nullptr);
        pass.setInput(Luminance::SourceTexture, QVariant());
        return average();
    }
    Texture *frame() const { return pass.output(Luminance::Frame).value<Texture *>(); }
    float average() const { return pass.output(Luminance::AverageLuminance).toFloat(); }
};

/// One draw, with the steps and the precision of the program.
Image boxFiltered(const Image &source, int side)
{
    const float stepX = float(source.width) / float(side);
    const float stepY = float(source.height) / float(side);
    Image result(side, side);
    for (int v = 0; v < side; ++v) {
        for (int u = 0; u < side; ++u) {
            const int baseX = int(float(u) * stepX);
            const int baseY = int(float(v) * stepY);
            QVector4D sum;
            for (int x = 0; float(x) < stepX; ++x) {
                for (int y = 0; float(y) < stepY; ++y)
                    sum += source.pixel(baseX + x, baseY + y);
            }
            result.setPixel(u, v, sum / (stepX * stepY));
        }
    }
    return result;
}

/// Both draws.
QVector4D averageOf(const Image &source)
{
    return boxFiltered(boxFiltered(source, source.width / 8), 1).pixel(0, 0);
}

float luminanceOf(const QVector4D &color)
{
    return float(0.2126 * double(color.x()) + 0.7152 * double(color.y()) + 0.0722 * double(color.z()));
}

/// The pass sums up to 57,600 values in one float, the last of them in steps of about 2^-8; this is the precision lost.
constexpr float summed = 1e-3f;

QVector4D trueAverage(const Image &image)
{
    double sums[4] = {};
    for (int i = 0; i < image.data.size(); ++i)
        sums[i % 4] += double(image.data[i]);
    const double count = image.width * image.height;
    return QVector4D(float(sums[0] / count), float(sums[1] / count), float(sums[2] / count), float(sums[3] / count));
}

Image gradient(int width, int height)
{
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const float u = float(x) / float(width);
            const float v = float(y) / float(height);
            image.setPixel(x, y, QVector4D(u, 0.25f + 0.5f * v, 1.0f - u * v, v));
        }
    }
    return image;
}

Image checkerboard(int width, int height, int cell)
{
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool isLight = (x / cell + y / cell) % 2 == 0;
            image.setPixel(x, y, isLight ? QVector4D(1, 0.75f, 0.5f, 1) : QVector4D(0, 0.125f, 0, 0.25f));
        }
    }
    return image;
}

} // namespace

TEST_F(LuminanceAverageRenderPassTest, emulatesItsTwoDraws)
{
    const QSize sizes[] = {
        {64, 64}, {1024, 768}, {1920, 1080}, {100, 50}, {97, 61}, {240, 135}, {8, 8}, {15, 300}, {333, 222}, {17, 3}};
    for (const QSize &size : sizes) {
        SCOPED_TRACE(testing::Message() << size.width() << " x " << size.height());
        const Image images[] = {plain(size.width(), size.height(), QVector4D(0.25f, 0.5f, 0.75f, 0.5f)),
            gradient(size.width(), size.height()), checkerboard(size.width(), size.height(), 1),
            checkerboard(size.width(), size.height(), 5)};
        for (const Image &image : images) {
            const float luminance = measure(image);
            const QVector4D expected = averageOf(image);
            const QVector4D color = readTexture(frame()).pixel(0, 0);
            for (int k = 0; k < 4; ++k)
                EXPECT_NEAR(color[k], expected[k], 2e-5f * expected[k]) << k;
            EXPECT_EQ(luminance, luminanceOf(color));
            EXPECT_GT(luminance, 0.1f);
        }
    }
}

TEST_F(LuminanceAverageRenderPassTest, isExactForWholeSteps)
{
    for (const QSize &size : {QSize(64, 64), QSize(1024, 768), QSize(80, 200)}) {
        for (const Image &image :
            {gradient(size.width(), size.height()), checkerboard(size.width(), size.height(), 3)}) {
            measure(image);
            const QVector4D color = readTexture(frame()).pixel(0, 0);
            const QVector4D expected = trueAverage(image);
            for (int k = 0; k < 4; ++k)
                EXPECT_NEAR(color[k], expected[k], summed) << k;
        }
        EXPECT_NEAR(measure(plain(size.width(), size.height(), QVector4D(1, 1, 1, 1))), 1.0f, summed);
    }
}

TEST_F(LuminanceAverageRenderPassTest, isTooLargeForFractionalSteps)
{
    // Steps of 8 by 4.5 read 8 by 5 texels.
    EXPECT_NEAR(measure(plain(1920, 1080, QVector4D(1, 1, 1, 1))), 5.0f / 4.5f, summed);
    // 12 by 12 pixels with steps of 8.33 by 4.17 read 9 by 5 texels.
    EXPECT_NEAR(measure(plain(100, 50, QVector4D(1, 1, 1, 1))), 45.0f / (100.0f * 50.0f / 144.0f), 2e-5f);
    // A step of one half reads one texel.
    const auto texture = makeTexture(plain(4, 4, QVector4D(1, 1, 1, 1)), GL_RGBA32F);
    set(QRect(0, 0, 64, 64), texture.get());
    pass.start(nullptr);
    EXPECT_NEAR(average(), 4.0f, 2e-5f);
}

TEST_F(LuminanceAverageRenderPassTest, weighsTheColoursAndClampsNothing)
{
    EXPECT_NEAR(measure(plain(16, 16, QVector4D(1, 0, 0, 1))), 0.2126f, 1e-6f);
    EXPECT_NEAR(measure(plain(16, 16, QVector4D(0, 1, 0, 0))), 0.7152f, 1e-6f);
    EXPECT_NEAR(measure(plain(16, 16, QVector4D(0, 0, 1, 1))), 0.0722f, 1e-6f);
    EXPECT_NEAR(measure(plain(16, 16, QVector4D(100, 100, 100, 1))), 100.0f, 1e-3f);
    EXPECT_NEAR(measure(plain(16, 16, QVector4D(-1, -1, -1, 1))), -1.0f, 1e-5f);
    EXPECT_EQ(pass.output(Luminance::AverageLuminance).userType(), int(QMetaType::Float));
}

TEST_F(LuminanceAverageRenderPassTest, readsTheWholeFrameWhateverTheViewport)
{
    const Image image = gradient(64, 48);
    const auto texture = makeTexture(image, GL_RGBA32F);
    set(QRect(0, 0, 16, 16), texture.get());
    pass.start(nullptr);
    const QVector4D color = readTexture(frame()).pixel(0, 0);
    const QVector4D expected = trueAverage(image);
    for (int k = 0; k < 4; ++k)
        EXPECT_NEAR(color[k], expected[k], 2e-5f) << k;
}

TEST_F(LuminanceAverageRenderPassTest, drawsIntoASquareAndIntoOnePixel)
{
    const auto texture = makeTexture(plain(192, 108, QVector4D(1, 1, 1, 1)), GL_RGBA32F);
    set(QRect(0, 0, 1920, 1080), texture.get());
    struct Draw
    {
        QRect viewport;
        QSize target;
        GLint format;
    };
    QVector<Draw> draws;
    GLCallRecorder<&epoxy_glDrawArrays> recorder;
    recorder.onCall = [&draws](GLenum, GLint, GLsizei) {
        GLint viewport[4];
        glGetIntegerv(GL_VIEWPORT, viewport);
        GLint name = 0;
        glGetFramebufferAttachmentParameteriv(
            GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &name);
        GLint previous = 0;
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &previous);
        glBindTexture(GL_TEXTURE_2D, GLuint(name));
        GLint width = 0;
        GLint height = 0;
        GLint format = 0;
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &format);
        glBindTexture(GL_TEXTURE_2D, GLuint(previous));
        draws.append({QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QSize(width, height), format});
    };
    VectorUniforms sizes;
    pass.start(nullptr);
    ASSERT_EQ(draws.size(), 2);
    EXPECT_EQ(draws[0].viewport, QRect(0, 0, 1920, 1080)) << "not the square's";
    EXPECT_EQ(draws[0].target, QSize(240, 240));
    EXPECT_EQ(draws[0].format, GL_RGBA32F);
    EXPECT_EQ(draws[1].viewport, QRect(0, 0, 1, 1));
    EXPECT_EQ(draws[1].target, QSize(1, 1));
    EXPECT_EQ(draws[1].format, GL_RGBA32F);
    EXPECT_EQ(sizes.values, QVector<QVector2D>({QVector2D(240, 240), QVector2D(1, 1)}));
}

TEST_F(LuminanceAverageRenderPassTest, recreatesTheSquareWhenAnEighthOfTheViewportChanges)
{
    const auto texture = makeTexture(gradient(64, 64), GL_RGBA32F);
    const auto made = [&](int width, int height) {
        GLCallRecorder<&epoxy_glTexImage2D> images;
        set(QRect(0, 0, width, height), texture.get());
        pass.start(nullptr);
        return int(images.calls.size());
    };
    EXPECT_EQ(made(192, 108), 2) << "the pixel's too";
    EXPECT_EQ(made(192, 108), 0);
    EXPECT_EQ(made(199, 111), 0);
    EXPECT_EQ(made(192, 112), 1) << "the height alone, although the square stays as large";
    EXPECT_EQ(made(200, 112), 1);
}

TEST_F(LuminanceAverageRenderPassTest, givesTheSquareMipLevelsThatNobodyReads)
{
    const auto texture = makeTexture(gradient(64, 64), GL_RGBA32F);
    set(QRect(0, 0, 64, 64), texture.get());
    GLCallRecorder<&epoxy_glTexParameteri> parameters;
    GLCallRecorder<&epoxy_glGenerateMipmap> mipmaps;
    pass.start(nullptr);
    EXPECT_EQ(mipmaps.calls.size(), 2u) << "when it is made and when it is drawn";
    int filters = 0;
    for (const auto &call : parameters.calls)
        filters += std::get<2>(call) == GL_NEAREST_MIPMAP_NEAREST;
    EXPECT_EQ(filters, 1);
    pass.start(nullptr);
    EXPECT_EQ(mipmaps.calls.size(), 3u);
    EXPECT_EQ(samplingOf(frame()).mid(0, 2), (QVector<int>{GL_NEAREST, GL_NEAREST}));
}

TEST_F(LuminanceAverageRenderPassTest, measuresNothingAsBlack)
{
    set(QRect(0, 0, 64, 64), nullptr);
    const GLObjectCounts before = glObjectCounts();
    pass.start(nullptr);
    EXPECT_EQ(average(), 0.0f);
    ASSERT_NE(frame(), nullptr);
    EXPECT_EQ(readTexture(frame()).pixel(0, 0), QVector4D(0, 0, 0, 0));
    EXPECT_EQ(glObjectCounts().textures, before.textures + 3) << "the square, the pixel, the black texel";
    pass.start(nullptr);
    EXPECT_EQ(glObjectCounts().textures, before.textures + 3);
    QObject object;
    pass.setInput(Luminance::SourceTexture, QVariant::fromValue<QObject *>(&object));
    pass.start(nullptr);
    EXPECT_EQ(average(), 0.0f);
}

TEST_F(LuminanceAverageRenderPassTest, keepsItsTextureAndOverwritesIt)
{
    measure(plain(16, 16, QVector4D(1, 1, 1, 1)));
    Texture *const texture = frame();
    EXPECT_EQ(texture->width(0), 1);
    EXPECT_EQ(texture->height(0), 1);
    EXPECT_EQ(pool.references(texture), -1) << "not the pool's";
    measure(plain(80, 40, QVector4D(0.5f, 0.5f, 0.5f, 1)));
    EXPECT_EQ(frame(), texture);
    EXPECT_NEAR(average(), 0.5f, 1e-5f);
}

TEST_F(LuminanceAverageRenderPassTest, readsTheCornerAlsoWhenTheViewportLiesElsewhere)
{
    EXPECT_NEAR(measure(plain(64, 64, QVector4D(1, 1, 1, 1))), 1.0f, 1e-5f);
    const auto dark = makeTexture(plain(64, 64, QVector4D(0.25f, 0.25f, 0.25f, 1)), GL_RGBA32F);
    for (const QPoint &corner : {QPoint(1, 0), QPoint(0, 1), QPoint(5, 3)}) {
        set(QRect(corner, QSize(64, 64)), dark.get());
        pass.start(nullptr);
        EXPECT_NEAR(average(), 1.0f, 1e-5f) << "the pixel of the frame before";
    }
    set(QRect(0, 0, 64, 64), dark.get());
    pass.start(nullptr);
    EXPECT_NEAR(average(), 0.25f, 1e-5f);
}

TEST_F(LuminanceAverageRenderPassTest, hasNoSquareBelowAWidthOfEight)
{
    const auto texture = makeTexture(gradient(64, 64), GL_RGBA32F);
    for (const QVariant &viewport : {QVariant(QRect(0, 0, 7, 100)), QVariant(), QVariant(QStringLiteral("64x64"))}) {
        pass.setInput(Luminance::Viewport, viewport);
        pass.setInput(Luminance::SourceTexture, QVariant::fromValue(texture.get()));
        pass.start(nullptr);
        ASSERT_NE(frame(), nullptr);
        EXPECT_EQ(frame()->width(0), 1);
        EXPECT_TRUE(pass.output(Luminance::AverageLuminance).isValid()) << "though undefined";
        EXPECT_EQ(pass.errorCode(), 0u);
        takeGLErrors();
    }
    set(QRect(0, 0, 64, 64), texture.get());
    pass.start(nullptr);
    EXPECT_NEAR(average(), luminanceOf(trueAverage(gradient(64, 64))), 2e-5f) << "it recovers";
}

TEST_F(LuminanceAverageRenderPassTest, startsWithAFrameTooSmallForASquare)
{
    const auto texture = makeTexture(gradient(64, 64), GL_RGBA32F);
    for (const QVariant &viewport : {QVariant(), QVariant(QRect(0, 0, 7, 7)), QVariant(QRect(0, 0, 4, 4))}) {
        LuminanceAverageRenderPass fresh;
        fresh.setInput(Luminance::Viewport, viewport);
        fresh.setInput(Luminance::SourceTexture, QVariant::fromValue(texture.get()));
        const GLObjectCounts before = glObjectCounts();
        fresh.start(nullptr);
        EXPECT_EQ(glObjectCounts().textures, before.textures + 2) << "a square of side 0, and the average";
        EXPECT_TRUE(fresh.output(Luminance::AverageLuminance).isValid()) << "though undefined";
        takeGLErrors();
        fresh.setInput(Luminance::Viewport, QRect(0, 0, 64, 64));
        fresh.start(nullptr);
        EXPECT_NEAR(
            fresh.output(Luminance::AverageLuminance).toFloat(), luminanceOf(trueAverage(gradient(64, 64))), 2e-5f);
    }
}

TEST_F(LuminanceAverageRenderPassTest, countsNoReferences)
{
    Texture *const input = pool.take(TextureFormat::HighDynamicRange, gradient(16, 16), 3);
    set(QRect(0, 0, 16, 16), input);
    pass.setNumOutputUsers(0, 2);
    pass.start(nullptr);
    EXPECT_EQ(pool.references(input), 3) << "neither given back";
    EXPECT_EQ(pool.allReferences(), 3) << "nor taken";
    pass.skip(nullptr);
    EXPECT_EQ(pool.references(input), 2) << "a skipped pass gives its input back";
    EXPECT_FALSE(pass.output(0).isValid());
    EXPECT_FALSE(pass.output(1).isValid());
}

TEST_F(LuminanceAverageRenderPassTest, leavesTheStateThatItSets)
{
    const auto texture = makeTexture(gradient(64, 64), GL_RGBA32F);
    const QVector<int> sampling = samplingOf(texture.get());
    set(QRect(0, 0, 64, 48), texture.get());
    for (GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_CULL_FACE, GL_STENCIL_TEST})
        glEnable(capability);
    glStencilFunc(GL_NEVER, 0, 0xff);
    glColorMask(GL_FALSE, GL_TRUE, GL_FALSE, GL_FALSE);
    pass.start(nullptr);
    EXPECT_NEAR(average(), luminanceOf(trueAverage(gradient(64, 64))), 2e-5f);
    for (GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_CULL_FACE, GL_STENCIL_TEST})
        EXPECT_FALSE(glFlag(capability));
    GLboolean mask[4];
    glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    for (GLboolean channel : mask)
        EXPECT_TRUE(channel);
    EXPECT_EQ(glInteger(GL_DEPTH_WRITEMASK), GL_TRUE);
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QRect(0, 0, 1, 1));
    EXPECT_EQ(samplingOf(texture.get()), sampling);
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
    glStencilFunc(GL_ALWAYS, 0, 0xff);
}

TEST_F(LuminanceAverageRenderPassTest, keepsItsObjectsThroughTeardownAndDeletesThemAtTheEnd)
{
    set(QRect(0, 0, 64, 64), nullptr);
    pass.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    {
        Luminance other;
        other.setInput(Luminance::Viewport, QRect(0, 0, 64, 64));
        other.start(nullptr);
        const GLObjectCounts running = glObjectCounts();
        EXPECT_EQ(running.programs, before.programs + 1);
        EXPECT_EQ(running.framebuffers, before.framebuffers + 2);
        EXPECT_EQ(running.textures, before.textures + 3);
        other.teardown(nullptr);
        other.teardownContextData(nullptr);
        EXPECT_TRUE(glObjectCounts() == running);
        other.setInput(Luminance::Viewport, QRect(0, 0, 128, 64));
        other.start(nullptr);
        EXPECT_TRUE(glObjectCounts() == running) << "the square before is deleted";
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(LuminanceAverageRenderPassTest, changesNothingWithoutAPortThatItLooksFor)
{
    class Incomplete : public Luminance
    {
    public:
        Incomplete(int input, int output)
        {
            if (input >= 0)
                m_inputs[input].name = m_inputs[input].name.toUpper();
            if (output >= 0)
                m_outputs[output].name = m_outputs[output].name.toUpper();
            m_outputs[0].value = 7;
            m_outputs[1].value = 8;
        }
    };
    const int missing[][2] = {{0, -1}, {1, -1}, {-1, 0}, {-1, 1}};
    for (const auto &ports : missing) {
        Incomplete incomplete(ports[0], ports[1]);
        incomplete.setInput(0, QRect(0, 0, 16, 16));
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        incomplete.start(nullptr);
        EXPECT_TRUE(draws.calls.empty());
        EXPECT_EQ(incomplete.output(0), QVariant(7));
        EXPECT_EQ(incomplete.output(1), QVariant(8));
    }
}

} // namespace Velmora::Kvz
