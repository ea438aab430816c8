// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <GL/GLStatistics.h>
#include <RenderPasses/CameraJitterRenderPass.h>
#include <RenderPasses/TemporalAARenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <cmath>
#include <limits>
#include <random>

namespace Velmora::Kvz {

namespace {

using Port = TemporalAARenderPass;

class TemporalAARenderPassTest : public GLTest
{
protected:
    TemporalAARenderPassTest()
    {
        pass->setInput(Port::Viewport, QRect(4, 5, 16, 8));
        pass->setInput(Port::ProjectionMatrix, perspective(QSize(16, 8), 0.5f, 30));
        pass->setInput(Port::CameraMatrix, lookAt(QVector3D(1, 2, 4), QVector3D()));
        pass->setInput(Port::ResetTemporal, false);
        pass->setNumOutputUsers(0, 1);
    }

    std::unique_ptr<TemporalAARenderPass> pass = std::make_unique<TemporalAARenderPass>();
    PooledTextures textures;

    Texture *output() const { return pass->output(0).value<Texture *>(); }
    /// Runs one frame; its output goes back to the pool at once.
    void start(Texture *frame)
    {
        pass->setInput(Port::Frame, QVariant::fromValue(frame));
        pass->start(nullptr);
        if (output() != frame)
            TextureManager::Instance()->releaseTempTextureRef(output(), 1);
    }
    Image add(const Image &image)
    {
        const std::unique_ptr<Texture> texture = makeTexture(image, GL_RGBA32F);
        start(texture.get());
        return readTexture(output());
    }
    QVector4D add(const QVector4D &color) { return add(filled(16, 8, color)).pixel(7, 3); }
    QVector4D add(float value) { return add(QVector4D(value, value, value, value)); }
};

/// A value rounded to a channel of 8 bits.
double rounded(double value)
{
    return std::round(std::clamp(value, 0.0, 1.0) * 255) / 255;
}

} // namespace

TEST_F(TemporalAARenderPassTest, theSecondFrameReplacesTheFirst)
{
    EXPECT_EQ(add(1.0f).x(), 1.0f);
    EXPECT_EQ(add(0.0f).x(), 0.0f) << "the first one has no share";
    EXPECT_NEAR(add(1.0f).x(), 0.5f, 0.51f / 255);
    EXPECT_NEAR(add(1.0f).x(), 2.0f / 3, 1.01f / 255);
    EXPECT_NEAR(add(0.0f).x(), 2.0f / 4, 1.51f / 255);
}

TEST_F(TemporalAARenderPassTest, blendsByTheShareOfEachFrameUpTo300)
{
    GLCallRecorder<&epoxy_glBlendColor> colors;
    GLCallRecorder<&epoxy_glBlendFunc> functions;
    const std::unique_ptr<Texture> texture = makeTexture(filled(16, 8, QVector4D(1, 1, 1, 1)), GL_RGBA8);
    start(texture.get());
    EXPECT_TRUE(colors.calls.empty()) << "the first frame is not blended";
    for (int n = 0; n < 300; ++n)
        start(texture.get());
    ASSERT_EQ(colors.calls.size(), 300u);
    for (int n = 0; n < 300; ++n) {
        const float c = float(n) / float(n + 1);
        EXPECT_EQ(colors.calls[size_t(n)], std::make_tuple(c, c, c, c)) << n;
        EXPECT_EQ(functions.calls[size_t(n)],
            std::make_tuple(GLenum(GL_ONE_MINUS_CONSTANT_COLOR), GLenum(GL_CONSTANT_COLOR)));
    }
}

TEST_F(TemporalAARenderPassTest, isTheRunningMeanOf300Frames)
{
    std::mt19937 random(11);
    std::uniform_real_distribution<float> value(0, 1);
    Image image(16, 8);
    QVector<double> mean(image.data.size(), 0);
    QVector<double> steps(image.data.size(), 0);
    double worst = 0, worstStep = 0;
    for (int frame = 0; frame <= 300; ++frame) {
        for (float &channel : image.data)
            channel = value(random);
        const Image result = add(image);
        // The target holds 8 bits: each frame rounds by up to half a step, and earlier rounding fades with the rest.
        const double n = std::max(0, frame - 1);
        const double c = n / (n + 1);
        for (int i = 0; i < image.data.size(); ++i) {
            mean[i] = frame < 2 ? double(image.data[i]) : double(image.data[i]) * (1 - c) + mean[i] * c;
            steps[i] =
                frame < 2 ? rounded(double(image.data[i])) : rounded(double(image.data[i]) * (1 - c) + steps[i] * c);
            worst = std::max(worst, std::abs(double(result.data[i]) - mean[i]));
            worstStep = std::max(worstStep, std::abs(double(result.data[i]) - steps[i]));
            // The arithmetic of 8 bits, frame by frame: at most one step off where a half is rounded the other way.
            steps[i] = double(result.data[i]);
        }
    }
    std::printf("[ COMPARED ] %.4f off the exact mean, %.4f off that of 8 bits\n", worst, worstStep);
    EXPECT_LE(worstStep, 1.01 / 255);
    // Rounding errors are averaged like frames: half a step in each of n frames makes n / 4 steps if all have one sign,
    // 75 here. Most of them cancel.
    EXPECT_LE(worst, 19.0 / 255);
}

TEST_F(TemporalAARenderPassTest, averagesAllFourChannels)
{
    add(0.3f);
    add(QVector4D(1, 0, 0.2f, 0));
    const QVector4D mean = add(QVector4D(0, 1, 0.6f, 1));
    EXPECT_LT((mean - QVector4D(0.5f, 0.5f, 0.4f, 0.5f)).length(), 1.5f / 255);
}

TEST_F(TemporalAARenderPassTest, laterFramesStopCounting)
{
    for (int i = 0; i < 300; ++i)
        add(1.0f);
    // 1 / 300 of the difference is less than half a step of 8 bits, so the result no longer changes.
    for (int i = 0; i < 5; ++i)
        EXPECT_GE(add(0.9f).x(), 0.999f);
}

TEST_F(TemporalAARenderPassTest, anyChangeOfViewStartsOver)
{
    const QMatrix4x4 projection = perspective(QSize(16, 8), 0.5f, 30);
    const QMatrix4x4 camera = lookAt(QVector3D(1, 2, 4), QVector3D());
    for (int element = 0; element < 32; ++element) {
        const int port = element < 16 ? Port::ProjectionMatrix : Port::CameraMatrix;
        QMatrix4x4 matrix = element < 16 ? projection : camera;
        add(0.0f);
        add(0.0f);
        EXPECT_NEAR(add(1.0f).x(), 0.5f, 0.6f / 255);
        float &value = matrix.data()[element % 16];
        value = std::nextafter(value, 100.0f);
        pass->setInput(port, matrix);
        EXPECT_EQ(add(1.0f).x(), 1.0f) << element << ": the first frame of a new mean";
        EXPECT_NEAR(add(0.2f).x(), 51.0f / 255, 1e-6) << element << ": which the second replaces";
        pass->setInput(port, element < 16 ? projection : camera);
    }
}

TEST_F(TemporalAARenderPassTest, aMatrixThatIsNotANumberNeverAccumulates)
{
    QMatrix4x4 matrix;
    matrix(1, 2) = std::numeric_limits<float>::quiet_NaN();
    pass->setInput(Port::CameraMatrix, matrix);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(add(i % 2 ? 1.0f : 0.0f).x(), i % 2 ? 1.0f : 0.0f);
    // Zeros of either sign are equal.
    matrix(1, 2) = 0.0f;
    pass->setInput(Port::CameraMatrix, matrix);
    add(0.0f);
    matrix(1, 2) = -0.0f;
    pass->setInput(Port::CameraMatrix, matrix);
    add(0.0f);
    EXPECT_NEAR(add(1.0f).x(), 0.5f, 0.6f / 255);
}

TEST_F(TemporalAARenderPassTest, aJitteredProjectionNeverAccumulates)
{
    const QMatrix4x4 projection = perspective(QSize(16, 8), 0.5f, 30);
    CameraJitterPass jitter;
    jitter.setInput(CameraJitterPass::Viewport, QRect(4, 5, 16, 8));
    jitter.setInput(CameraJitterPass::ProjectionMatrix, projection);
    jitter.setInput(CameraJitterPass::ResetTemporal, false);
    for (const int mode : {int(JitterAntiDiagonal), int(JitterDiagonal)}) {
        jitter.setInput(CameraJitterPass::Mode, mode);
        for (int i = 0; i < 8; ++i) {
            jitter.start(nullptr);
            pass->setInput(Port::ProjectionMatrix, jitter.output(CameraJitterPass::ProjectionMatrixOut));
            const float value = i % 3 ? 0.0f : 1.0f;
            EXPECT_EQ(add(value).x(), value) << "mode " << mode << ", frame " << i;
        }
        // With the same jitter at work, the projection without it lets the mean continue.
        pass->setInput(Port::ProjectionMatrix, projection);
        double mean = 0;
        for (int i = 0; i < 8; ++i) {
            jitter.start(nullptr);
            const float value = i % 3 ? 0.0f : 1.0f;
            mean = i < 2 ? double(value) : (mean * (i - 1) + double(value)) / i;
            EXPECT_NEAR(double(add(value).x()), mean, 0.51 / 255 * std::max(1, i))
                << "mode " << mode << ", frame " << i;
        }
        EXPECT_GT(mean, 0.2);
    }
}

TEST_F(TemporalAARenderPassTest, aConsumerThatHoldsTheResultSeesTheNextFrame)
{
    pass->setNumOutputUsers(0, 2);
    const auto startWith = [this](float value) {
        const std::unique_ptr<Texture> texture =
            makeTexture(filled(16, 8, QVector4D(value, value, value, 1)), GL_RGBA8);
        pass->setInput(Port::Frame, QVariant::fromValue(texture.get()));
        pass->start(nullptr);
        return output();
    };
    Texture *const held = startWith(1);
    EXPECT_EQ(readTexture(held).pixel(7, 3).x(), 1.0f);
    EXPECT_EQ(PooledTextures::references(held), 3) << "two users and the pass";
    startWith(0);
    EXPECT_EQ(PooledTextures::references(held), 5) << "the users of the first frame still hold it";
    EXPECT_EQ(readTexture(held).pixel(7, 3).x(), 0.0f) << "there is only one texture";
    startWith(1);
    EXPECT_NEAR(readTexture(held).pixel(7, 3).x(), 0.5f, 0.51f / 255);
    TextureManager::Instance()->releaseTempTextureRef(held, 6);
}

TEST_F(TemporalAARenderPassTest, aChangeOfSizeTakesANewTexture)
{
    add(1.0f);
    Texture *const first = output();
    EXPECT_EQ(first->internalFormat(0), GL_RGBA8);
    EXPECT_EQ(PooledTextures::references(first), 1) << "the pass keeps it";
    add(1.0f);
    EXPECT_EQ(output(), first);
    pass->setInput(Port::CameraMatrix, QMatrix4x4());
    add(1.0f);
    EXPECT_EQ(output(), first) << "matrices alone keep it";
    pass->setInput(Port::Viewport, QRect(9, 9, 16, 8));
    add(0.0f);
    EXPECT_EQ(add(0.0f).x(), 0) << "where the viewport lies does not count";

    pass->setInput(Port::Viewport, QRect(0, 0, 10, 6));
    add(filled(10, 6, QVector4D(1, 1, 1, 1)));
    EXPECT_NE(output(), first);
    EXPECT_EQ(output()->width(0), 10);
    EXPECT_EQ(output()->height(0), 6);
    EXPECT_EQ(PooledTextures::references(first), 0) << "the old one went back";
    EXPECT_EQ(PooledTextures::references(output()), 1);
}

TEST_F(TemporalAARenderPassTest, resetHandsTheFrameOnAsItIs)
{
    TemporalAARenderPass fresh; // As constructed, resets are on.
    fresh.setInput(Port::Viewport, QRect(0, 0, 16, 8));
    fresh.setNumOutputUsers(0, 3);
    Texture *const frame = textures.take(TextureFormat::HighDynamicRange, filled(4, 4, QVector4D(1, 0, 0, 1)), 2);
    fresh.setInput(Port::Frame, QVariant::fromValue(frame));
    const GLObjectCounts before = glObjectCounts();
    GLCallRecorder<&epoxy_glViewport> viewports;
    fresh.start(nullptr);
    EXPECT_EQ(fresh.output(0).value<Texture *>(), frame);
    EXPECT_EQ(PooledTextures::references(frame), 4) << "three users more, its own use less";
    EXPECT_TRUE(viewports.calls.empty());
    EXPECT_TRUE(glObjectCounts() == before) << "nothing is made for that";
    EXPECT_EQ(frame->width(0), 4);
}

TEST_F(TemporalAARenderPassTest, resetForgetsTheMeanButNotTheView)
{
    add(0.0f);
    for (int i = 0; i < 4; ++i)
        add(1.0f);
    Texture *const accumulation = output();
    const std::unique_ptr<Texture> passing = makeTexture(filled(16, 8, QVector4D(0.5f, 0.5f, 0.5f, 1)), GL_RGBA8);
    pass->setInput(Port::ResetTemporal, true);
    start(passing.get());
    EXPECT_EQ(output(), passing.get());
    EXPECT_EQ(PooledTextures::references(accumulation), 1) << "it stays attached";
    pass->setInput(Port::ResetTemporal, false);
    // The view has not changed since, so the next frame continues the mean, with a count of 0.
    EXPECT_NEAR(add(0.2f).x(), 51.0f / 255, 1e-6);
    EXPECT_EQ(output(), accumulation);
    EXPECT_NEAR(add(1.0f).x(), 0.6f, 0.6f / 255);

    // The view of a frame that is passed through is not remembered.
    pass->setInput(Port::ResetTemporal, true);
    pass->setInput(Port::CameraMatrix, QMatrix4x4());
    start(passing.get());
    pass->setInput(Port::ResetTemporal, false);
    GLCallRecorder<&epoxy_glBlendColor> colors;
    start(passing.get());
    EXPECT_TRUE(colors.calls.empty()) << "its view is new";
}

TEST_F(TemporalAARenderPassTest, withoutAFrameTheMeanIsBlack)
{
    add(0.0f);
    for (int i = 0; i < 3; ++i)
        add(1.0f);
    GLCallRecorder<&epoxy_glBlendColor> colors;
    glClearColor(1, 1, 1, 1);
    for (const QVariant &nothing : {QVariant(), QVariant::fromValue<Texture *>(nullptr), QVariant(3)}) {
        pass->setInput(Port::Frame, nothing);
        pass->start(nullptr);
        EXPECT_EQ(readTexture(output()).pixel(3, 3), QVector4D(0, 0, 0, 0));
        TextureManager::Instance()->releaseTempTextureRef(output(), 1);
    }
    EXPECT_TRUE(colors.calls.empty());
    // The count stays, so the next frame has a weight of 1/4.
    EXPECT_NEAR(add(1.0f).x(), 0.25f, 0.6f / 255);

    pass->setInput(Port::ResetTemporal, true);
    start(nullptr);
    EXPECT_TRUE(pass->output(0).isValid());
    EXPECT_EQ(output(), nullptr);
    EXPECT_EQ(PooledTextures::allReferences(), 1);
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(TemporalAARenderPassTest, aMissingFrameOfANewViewKeepsTheCount)
{
    for (int i = 0; i < 3; ++i)
        add(1.0f);
    pass->setInput(Port::CameraMatrix, lookAt(QVector3D(1, 2, 4), QVector3D()));
    pass->setInput(Port::Frame, QVariant());
    pass->start(nullptr);
    EXPECT_EQ(readTexture(output()).pixel(3, 3), QVector4D(0, 0, 0, 0));
    TextureManager::Instance()->releaseTempTextureRef(output(), 1);
    // The view is known by now, so the next frame continues the mean, over black, as the fourth frame.
    EXPECT_NEAR(add(1.0f).x(), 1.0f / 3, 0.6f / 255);

    // The same in another size, on a new texture.
    pass->setInput(Port::Viewport, QRect(0, 0, 6, 5));
    pass->setInput(Port::Frame, QVariant());
    pass->start(nullptr);
    EXPECT_EQ(readTexture(output()).pixel(3, 3), QVector4D(0, 0, 0, 0));
    EXPECT_EQ(output()->width(0), 6);
    TextureManager::Instance()->releaseTempTextureRef(output(), 1);
    EXPECT_NEAR(add(1.0f).x(), 1.0f / 4, 0.6f / 255);
}

TEST_F(TemporalAARenderPassTest, theScaleDividesTheSize)
{
    const auto gradient = [](int width, int height) {
        Image image(width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                image.setPixel(x, y, QVector4D(float(x) / float(width), float(y) / float(height), 0, 1));
        }
        return image;
    };
    Image image = gradient(16, 8);
    const auto expectSize = [&](const QVariant &scale, const QVariant &enabled, int width, int height) {
        pass->setInput(Port::ViewportScale, scale);
        pass->setInput(Port::ViewportScaleEnable, enabled);
        const Image result = add(image);
        EXPECT_EQ(output()->width(0), width);
        EXPECT_EQ(output()->height(0), height);
        // The whole input is read, whatever the sizes.
        for (int y = 0; y < result.height; ++y) {
            for (int x = 0; x < result.width; ++x) {
                // The texel under the pixel's centre; on a border, either of the two.
                const float halfX = 0.5f / float(image.width);
                const float halfY = 0.5f / float(image.height);
                EXPECT_NEAR(result.pixel(x, y).x(), (x + 0.5f) / float(width) - halfX, halfX + 0.003f);
                EXPECT_NEAR(result.pixel(x, y).y(), (y + 0.5f) / float(height) - halfY, halfY + 0.003f);
            }
        }
    };
    expectSize(2.0f, true, 8, 4);
    expectSize(3.0f, true, 5, 2);
    expectSize(0.5f, true, 32, 16);
    expectSize(QStringLiteral("2"), 1, 8, 4);
    for (const QVariant &disabled : {QVariant(false), QVariant(), QVariant(QRect())})
        expectSize(2.0f, disabled, 16, 8);
    // The size of the input has no effect on that of the output.
    for (const QSize &size : {QSize(40, 24), QSize(5, 30), QSize(1, 1)}) {
        image = gradient(size.width(), size.height());
        expectSize(2.0f, true, 8, 4);
        expectSize(2.0f, false, 16, 8);
    }
}

TEST_F(TemporalAARenderPassTest, aScaleOfNothingMakesNoPictureAndNoHarm)
{
    for (const QVariant &scale : {QVariant(0.0f), QVariant(), QVariant(std::numeric_limits<float>::quiet_NaN())}) {
        pass->setInput(Port::ViewportScale, scale);
        start(nullptr);
        ASSERT_NE(output(), nullptr);
        EXPECT_EQ(output()->width(0), 0);
        takeGLErrors(); // From the clear of a framebuffer without texels.
    }
}

TEST_F(TemporalAARenderPassTest, setsItsStateAndLeavesTheRest)
{
    const auto expectState = [this](bool blends) {
        glEnable(GL_DEPTH_TEST);
        glEnable(GL_CULL_FACE);
        glEnable(GL_BLEND);
        glDepthMask(GL_FALSE);
        glViewport(1, 2, 3, 4);
        const std::unique_ptr<Texture> texture = makeTexture(filled(16, 8, QVector4D(1, 1, 1, 1)), GL_RGBA8);
        GLCallRecorder<&epoxy_glViewport> viewports;
        GLCallRecorder<&epoxy_glDepthMask> masks;
        start(texture.get());
        EXPECT_EQ(viewports.calls.back(), std::make_tuple(0, 0, 16, 8));
        EXPECT_EQ(masks.calls.size(), 2u);
        EXPECT_EQ(std::get<0>(masks.calls[0]), GL_FALSE);
        EXPECT_EQ(std::get<0>(masks.calls[1]), GL_TRUE);
        EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
        EXPECT_EQ(glInteger(GL_DEPTH_WRITEMASK), 1);
        EXPECT_FALSE(glFlag(GL_BLEND));
        EXPECT_TRUE(glFlag(GL_CULL_FACE));
        EXPECT_EQ(glInteger(GL_BLEND_EQUATION_RGB), blends ? GL_FUNC_ADD : GL_FUNC_SUBTRACT);
        EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
        EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
        EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
        EXPECT_EQ(texture->unit(), 0);
    };
    glBlendEquation(GL_FUNC_SUBTRACT);
    expectState(false);
    expectState(true);
}

TEST_F(TemporalAARenderPassTest, givesFreshReferencesForTheSameTexture)
{
    pass->setNumOutputUsers(0, 2);
    Texture *const frame = textures.take(TextureFormat::HighDynamicRange, filled(16, 8, QVector4D(1, 0, 0, 1)), 5);
    pass->setInput(Port::Frame, QVariant::fromValue(frame));
    pass->start(nullptr);
    Texture *const mean = output();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(output(), mean);
        EXPECT_EQ(PooledTextures::references(mean), 3) << "two users and the pass";
        EXPECT_EQ(PooledTextures::references(frame), 4 - i);
        TextureManager::Instance()->releaseTempTextureRef(mean, 2);
        pass->start(nullptr);
    }
    TextureManager::Instance()->releaseTempTextureRef(mean, 2);

    // A skipped frame adds nothing and keeps the mean.
    GLCallRecorder<&epoxy_glBlendColor> colors;
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(0).isValid());
    EXPECT_EQ(PooledTextures::references(frame), 0);
    EXPECT_EQ(PooledTextures::references(mean), 1);
    pass->setNumOutputUsers(0, 1);
    add(1.0f);
    EXPECT_EQ(output(), mean);
    ASSERT_EQ(colors.calls.size(), 1u);
    EXPECT_EQ(std::get<0>(colors.calls[0]), 3.0f / 4) << "as if it had not been there";
}

TEST_F(TemporalAARenderPassTest, takesItsObjectsAlong)
{
    add(1.0f);
    const GLObjectCounts before = glObjectCounts();
    Texture *kept = nullptr;
    {
        TemporalAARenderPass other;
        other.setInput(Port::Viewport, QRect(0, 0, 16, 8));
        other.setInput(Port::ResetTemporal, false);
        other.start(nullptr);
        kept = other.output(0).value<Texture *>();
        EXPECT_EQ(PooledTextures::references(kept), 1);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        other.teardownContextData(nullptr);
    }
    EXPECT_EQ(PooledTextures::references(kept), 0);
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    // A pass that never ran has nothing to give back.
    const TemporalAARenderPass unused;
}

} // namespace Velmora::Kvz
