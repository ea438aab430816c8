// SPDX-License-Identifier: MIT
#include "CutoutChart.h"
#include "support/Cameras.h"
#include "support/PassTest.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/AccumulationJitterPass.h>
#include <ExtraPasses/AccumulationRenderPass.h>

#include <QtGui/QVector2D>
#include <QtGui/QVector3D>

#include <cmath>
#include <limits>

namespace Velmora::Kvz {

namespace {

const QSize size(48, 36);

class AccumulationRenderPassTest : public PassTest<AccumulationRenderPass>
{
protected:
    void SetUp() override
    {
        PassTest::SetUp();
        setViewport(size);
    }
    /// Adds a frame, and gives the mean.
    Image add(const Image &frame)
    {
        setTexture(Port::FrameIn, textures.take(TextureFormat::Position, frame, 4));
        return add();
    }
    Image add()
    {
        pass->setNumOutputUsers(Port::Frame, 1);
        pass->start(nullptr);
        if (!texture(Port::Frame))
            return {};
        const Image picture = image(Port::Frame);
        TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 1);
        return picture;
    }
    int framesInMean() const { return pass->output(Port::FramesInMean).toInt(); }
    bool isDone() const { return pass->output(Port::IsDone).toBool(); }

    PooledTextures textures;
};

Image wall(float value)
{
    return filled(size.width(), size.height(), QVector4D(value, 2 * value, -value, value / 4));
}

} // namespace

TEST_F(AccumulationRenderPassTest, isTheMeanOfAllFramesUntilItIsDone)
{
    pass->setInput(Port::AccumulatedFrames, 5);
    float sum = 0;
    for (int i = 1; i <= 5; ++i) {
        EXPECT_FALSE(isDone());
        const auto value = float(i * i % 7) / 8;
        sum += value;
        EXPECT_LE(maximumDifference(add(wall(value)), wall(sum / float(i))), 1e-6) << i;
        EXPECT_EQ(framesInMean(), i);
    }
    EXPECT_TRUE(isDone());
    for (int i = 0; i < 3; ++i)
        EXPECT_LE(maximumDifference(add(wall(100)), wall(sum / 5)), 1e-6) << "it holds";
    EXPECT_EQ(framesInMean(), 5);
    pass->setInput(Port::AccumulatedFrames, 6);
    EXPECT_LE(maximumDifference(add(wall(100)), wall((sum + 100) / 6)), 1e-4) << "more are asked for";
    pass->setInput(Port::AccumulatedFrames, 0);
    pass->setInput(Port::Restart, true);
    EXPECT_LE(maximumDifference(add(wall(0.5f)), wall(0.5f)), 0) << "below 1 counts as 1";
    EXPECT_TRUE(isDone());
}

TEST_F(AccumulationRenderPassTest, aThousandFramesWeighAlike)
{
    pass->setInput(Port::AccumulatedFrames, 1000);
    const auto dark = makeTexture(wall(0), GL_RGBA16F);
    const auto bright = makeTexture(wall(1), GL_RGBA16F);
    for (int i = 0; i < 1000; ++i) {
        setTexture(Port::FrameIn, i < 900 ? dark.get() : bright.get());
        pass->start(nullptr);
    }
    pass->setNumOutputUsers(Port::Frame, 1);
    setTexture(Port::FrameIn, nullptr);
    EXPECT_LE(maximumDifference(add(), wall(0.1f)), 2e-5) << "8 bits or half floats would lose the late frames";
}

TEST_F(AccumulationRenderPassTest, beginsAnewWhenTheViewChanges)
{
    add(wall(1));
    const auto expectRestarted = [this](float value) {
        EXPECT_LE(maximumDifference(add(wall(value)), wall(value)), 0);
        EXPECT_EQ(framesInMean(), 1);
        add(wall(value));
        EXPECT_EQ(framesInMean(), 2);
    };
    pass->setInput(Port::CameraMatrix, lookAt(QVector3D(0, 0, 5), QVector3D()));
    expectRestarted(0.25f);
    pass->setInput(Port::ProjectionMatrix, perspective(size, 1, 40));
    expectRestarted(0.5f);
    pass->setInput(Port::Restart, true);
    EXPECT_LE(maximumDifference(add(wall(0.125f)), wall(0.125f)), 0);
    pass->setInput(Port::Restart, false);
    setViewport(QSize(20, 10));
    EXPECT_EQ(maximumDifference(add(wall(0.75f)), filled(20, 10, wall(0.75f).pixel(0, 0))), 0);
    EXPECT_EQ(framesInMean(), 1);
}

TEST_F(AccumulationRenderPassTest, whatTheTextureHeldBeforeDoesNotShow)
{
    const float infinite = std::numeric_limits<float>::infinity();
    add(wall(infinite));
    pass->setInput(Port::Restart, true);
    EXPECT_LE(maximumDifference(add(wall(0.5f)), wall(0.5f)), 0);
}

TEST_F(AccumulationRenderPassTest, withTheJitterItComesToTheTrueCoverage)
{
    AccumulationJitterPass jitter;
    jitter.setInput(AccumulationJitterPass::Viewport, QRect(QPoint(), size));
    const Image truth = laidOver(trueCutout(size.width(), size.height()), QVector3D(1, 1, 1));
    double last = 100;
    for (const int frames : {1, 4, 16, 64}) {
        pass->setInput(Port::AccumulatedFrames, frames);
        pass->setInput(Port::Restart, true);
        jitter.setInput(AccumulationJitterPass::AccumulatedFrames, frames);
        jitter.setInput(AccumulationJitterPass::Restart, true);
        Image mean;
        for (int i = 0; i < frames; ++i) {
            jitter.start(nullptr);
            jitter.setInput(AccumulationJitterPass::Restart, false);
            const auto shift = jitter.output(AccumulationJitterPass::JitterAmount).value<QVector2D>();
            // The picture moves, and the place that is sampled the other way.
            mean = add(sampledCutout(size.width(), size.height(), 0.5 - double(shift.x()) * size.width() / 2,
                0.5 - double(shift.y()) * size.height() / 2));
            pass->setInput(Port::Restart, false);
        }
        const double error = meanError(laidOver(mean, QVector3D(1, 1, 1)), truth);
        EXPECT_LT(error, 0.65 * last) << frames << " frames";
        last = error;
    }
    EXPECT_LT(last, 0.9) << "steps of 8 bits";
}

TEST_F(AccumulationRenderPassTest, countsReferencesAndLeavesItsState)
{
    Texture *const frame = textures.take(TextureFormat::HighDynamicRange, Image(size.width(), size.height()), 4);
    const int others = PooledTextures::allReferences();
    setTexture(Port::FrameIn, frame);
    pass->setNumOutputUsers(Port::Frame, 2);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_NEVER);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    pass->start(nullptr);
    ASSERT_TRUE(texture(Port::Frame));
    Texture *const mean = texture(Port::Frame);
    EXPECT_EQ(mean->internalFormat(0), GL_RGBA32F);
    EXPECT_EQ(PooledTextures::references(frame), 3);
    EXPECT_EQ(PooledTextures::references(mean), 3) << "the pass keeps one";
    for (const GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_SCISSOR_TEST})
        EXPECT_FALSE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    TextureManager::Instance()->releaseTempTextureRef(mean, 2);
    pass->start(nullptr);
    EXPECT_EQ(texture(Port::Frame), mean) << "the same texture frame after frame";
    TextureManager::Instance()->releaseTempTextureRef(mean, 2);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_EQ(PooledTextures::references(frame), 1);
    setTexture(Port::FrameIn, nullptr);
    setViewport(QSize(0, 4));
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_EQ(PooledTextures::allReferences(), others - 3 + 1);
    pass.reset();
    EXPECT_EQ(PooledTextures::allReferences(), others - 3);
}

TEST_F(AccumulationRenderPassTest, withoutAnyFrameThereIsNoMean)
{
    pass->setNumOutputUsers(Port::Frame, 1);
    pass->start(nullptr);
    EXPECT_FALSE(texture(Port::Frame));
    EXPECT_EQ(framesInMean(), 0);
    EXPECT_FALSE(isDone());
}

} // namespace Velmora::Kvz
