// SPDX-License-Identifier: MIT
#include "../RenderPasses/FxaaReference.h"
#include "../RenderPasses/SmaaReference.h"
#include "CutoutChart.h"
#include "support/MultisampleTextures.h"
#include "support/PassTest.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/CutoutAntiAliasingRenderPass.h>

#include <QtGui/QVector2D>
#include <QtGui/QVector3D>

#include <cmath>
#include <map>

namespace Velmora::Kvz {

namespace {

using Mode = CutoutAntiAliasingRenderPass::Mode;

const QSize size(96, 72);
const Mode allModes[] = {Mode::Fxaa, Mode::Smaa1x, Mode::SmaaS2x, Mode::SmaaT2x, Mode::Smaa4x};
const QVector3D backgrounds[] = {QVector3D(0, 0, 0), QVector3D(1, 1, 1), QVector3D(0.8f, 0.1f, 0.5f)};

bool isTemporal(Mode mode)
{
    return mode == Mode::SmaaT2x || mode == Mode::Smaa4x;
}

bool hasTwoSamples(Mode mode)
{
    return mode == Mode::SmaaS2x || mode == Mode::Smaa4x;
}

/// Where sample `sample` of frame `frame` lies in its pixel, by the table of the header.
QVector2D placeOf(Mode mode, int frame, int sample)
{
    const QVector2D two[] = {{0.75f, 0.75f}, {0.25f, 0.25f}};
    const QVector2D four[] = {{0.875f, 0.625f}, {0.375f, 0.125f}, {0.625f, 0.875f}, {0.125f, 0.375f}};
    switch (mode) {
    case Mode::SmaaS2x:
        return two[sample];
    case Mode::SmaaT2x:
        return two[frame];
    case Mode::Smaa4x:
        return four[2 * frame + sample];
    default:
        return {0.5f, 0.5f};
    }
}

SmaaSlices slicesOf(Mode mode, int frame, int sample)
{
    const SmaaSlices two[] = {{1, 1, 1, 0}, {2, 2, 2, 0}};
    const SmaaSlices four[] = {{5, 3, 1, 3}, {4, 6, 2, 3}, {3, 5, 1, 4}, {6, 4, 2, 4}};
    return mode == Mode::Smaa1x ? SmaaSlices{0, 0, 0, 0}
        : mode == Mode::SmaaS2x ? two[sample]
        : mode == Mode::SmaaT2x ? two[frame]
                                : four[2 * frame + sample];
}

Image chart(Mode mode, int frame, int sample)
{
    const QVector2D place = placeOf(mode, frame, sample);
    return sampledCutout(size.width(), size.height(), double(place.x()), double(place.y()));
}

Image mean(const Image &a, const Image &b)
{
    Image result = a;
    for (int i = 0; i < result.data.size(); ++i)
        result.data[i] = 0.5f * (a.data[i] + b.data[i]);
    return result;
}

double meanDifference(const Image &a, const Image &b)
{
    double sum = 0;
    for (int i = 0; i < a.data.size(); ++i)
        sum += double(std::abs(a.data[i] - b.data[i]));
    return sum / a.data.size();
}

class CutoutAntiAliasingRenderPassTest : public PassTest<CutoutAntiAliasingRenderPass>
{
protected:
    void SetUp() override
    {
        PassTest::SetUp();
        setViewport(size);
        pass->setInput(Port::RenderInHDR, true);
    }
    Texture *give(int input, const Image &content)
    {
        Texture *const texture = textures.take(TextureFormat::HighDynamicRange, content, 64);
        setTexture(input, texture);
        return texture;
    }
    Image filter()
    {
        pass->setNumOutputUsers(Port::Frame, 1);
        pass->start(nullptr);
        if (!texture(Port::Frame)) {
            ADD_FAILURE() << "there is no picture";
            return {};
        }
        const Image picture = image(Port::Frame);
        TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 1);
        return picture;
    }
    /// The chart after the frames that a mode wants.
    Image filterChart(Mode mode)
    {
        pass->setMode(mode);
        Image result;
        for (int frame = 0; frame < (isTemporal(mode) ? 2 : 1); ++frame) {
            pass->setInput(Port::JitterIndex, frame);
            give(Port::FrameIn, chart(mode, frame, 0));
            if (hasTwoSamples(mode))
                give(Port::SecondFrame, chart(mode, frame, 1));
            result = filter();
        }
        return result;
    }

    PooledTextures textures;
};

} // namespace

TEST_F(CutoutAntiAliasingRenderPassTest, smoothsAsTheReferenceOfShapesDoes)
{
    for (const Mode mode : {Mode::Smaa1x, Mode::SmaaS2x, Mode::SmaaT2x, Mode::Smaa4x}) {
        SCOPED_TRACE(testing::Message() << "mode " << int(mode));
        const Image picture = filterChart(mode);
        saveForViewing(laidOver(picture, backgrounds[1]), QStringLiteral("cutout-%1").arg(int(mode)));
        Image expected;
        for (int frame = 0; frame < (isTemporal(mode) ? 2 : 1); ++frame) {
            for (int sample = 0; sample < (hasTwoSamples(mode) ? 2 : 1); ++sample) {
                const Image input = chart(mode, frame, sample);
                const Image blended = smaaBlended(
                    input, quantised(smaaWeights(cutoutEdges(input), slicesOf(mode, frame, sample))), nullptr);
                if (frame + sample == 0) {
                    expected = blended;
                    continue;
                }
                // Two of two, or the four of 4x in pairs, which come in equal shares.
                const float share = mode == Mode::Smaa4x ? 1 / float(2 * frame + sample + 1) : 0.5f;
                for (int i = 0; i < expected.data.size(); ++i)
                    expected.data[i] += share * (blended.data[i] - expected.data[i]);
            }
        }
        // As for SMAARenderPass: weights may be stored a step of 8 bits apart, and ties go another way.
        EXPECT_LE(meanDifference(picture, expected), 0.0004);
        EXPECT_LE(pixelsBeyond(picture, expected, 4.0 / 255), 6);
        EXPECT_GT(pixelsBeyond(chart(mode, 0, 0), expected, 0.1), 100) << "there is something to smooth";
    }
}

TEST_F(CutoutAntiAliasingRenderPassTest, smoothsAsTheReferenceOfFxaaDoes)
{
    FxaaSettings settings;
    settings.subpix = 0.75;
    settings.rcpFrame = 1;
    settings.edgeThresholdMin = 0.0312;
    settings.steps = {1, 1.5, 2, 2, 2, 2, 2, 2, 2, 2, 4, 8};
    pass->setMode(Mode::Fxaa);
    setViewport(QSize(128, 64));
    // Multiples of 1/256, so that what ties on the CPU ties on the GPU.
    Image grey = sampledCutout(128, 64);
    for (int i = 0; i < grey.data.size(); i += 4) {
        const float value = std::round(255 * grey.data[i]) / 256;
        grey.data[i] = grey.data[i + 1] = grey.data[i + 2] = value;
        grey.data[i + 3] = 1;
    }
    give(Port::FrameIn, grey);
    FxaaTally tally;
    const Image byLuma = fxaaReference(grey, settings, &tally);
    EXPECT_GT(tally.byEdge + tally.bySubpixel, 200);
    EXPECT_LE(pixelsBeyond(filter(), byLuma, 2.0 / 255), 8);

    // Where colour is a part of alpha, alpha changes more, and leads.
    Image dark = grey;
    for (int i = 0; i < dark.data.size(); i += 4) {
        dark.data[i + 3] = dark.data[i] > 0.1f ? 1 : dark.data[i] > 0 ? 0.5f : 0;
        for (int k = 0; k < 3; ++k)
            dark.data[i + k] = 0.25f * dark.data[i + 3];
    }
    give(Port::FrameIn, dark);
    settings.isLumaInAlpha = true;
    const Image byAlpha = fxaaReference(dark, settings);
    const Image picture = filter();
    int wrong = 0;
    int changed = 0;
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            wrong += std::abs(picture.at(x, y)[0] - byAlpha.at(x, y)[0]) > 0.5f / 255;
            changed += std::abs(picture.at(x, y)[0] - dark.at(x, y)[0]) > 0.01f;
            EXPECT_NEAR(double(picture.at(x, y)[3]), 4 * double(picture.at(x, y)[0]), 2e-3) << "filtered alike";
        }
    }
    EXPECT_LE(wrong, 8);
    EXPECT_GT(changed, 200);
}

TEST_F(CutoutAntiAliasingRenderPassTest, coverageComesNearerInTheOrderOfTheModes)
{
    const Image truth = trueCutout(size.width(), size.height());
    const Image plain = sampledCutout(size.width(), size.height());
    std::map<Mode, Image> results;
    for (const Mode mode : allModes)
        results[mode] = filterChart(mode);
    // In steps of 8 bits, laid over three colours.
    const auto errorOf = [&](const Image &picture) {
        double sum = 0;
        for (const QVector3D &background : backgrounds)
            sum += meanError(laidOver(picture, background), laidOver(truth, background));
        return sum / 3;
    };
    const double none = errorOf(plain);
    const double fxaa = errorOf(results[Mode::Fxaa]);
    const double shapes = errorOf(results[Mode::Smaa1x]);
    const double samples = errorOf(results[Mode::SmaaS2x]);
    const double frames = errorOf(results[Mode::SmaaT2x]);
    const double both = errorOf(results[Mode::Smaa4x]);
    SCOPED_TRACE(testing::Message() << "none " << none << ", fxaa " << fxaa << ", 1x " << shapes << ", S2x " << samples
                                    << ", T2x " << frames << ", 4x " << both);
    EXPECT_LT(fxaa, 0.7 * none);
    EXPECT_LT(shapes, 0.95 * fxaa);
    EXPECT_LT(samples, 0.98 * shapes);
    EXPECT_LT(frames, 0.98 * shapes);
    EXPECT_LT(both, 0.92 * std::min(samples, frames));
}

TEST_F(CutoutAntiAliasingRenderPassTest, noRimIsDarkerOrLighterThanBothSides)
{
    for (const Mode mode : allModes) {
        SCOPED_TRACE(testing::Message() << "mode " << int(mode));
        const Image picture = filterChart(mode);
        for (const QVector3D &background : backgrounds) {
            const Image over = laidOver(picture, background);
            std::vector<Image> inputs;
            for (int frame = 0; frame < 2; ++frame) {
                for (int sample = 0; sample < 2; ++sample)
                    inputs.push_back(laidOver(chart(mode, frame, sample), background));
            }
            int outside = 0;
            for (int y = 1; y < size.height() - 1; ++y) {
                for (int x = 1; x < size.width() - 1; ++x) {
                    for (int k = 0; k < 3; ++k) {
                        float least = 1;
                        float most = 0;
                        for (const Image &input : inputs) {
                            for (int n = 0; n < 9; ++n) {
                                const float value = input.at(x + n % 3 - 1, y + n / 3 - 1)[k];
                                least = std::min(least, value);
                                most = std::max(most, value);
                            }
                        }
                        const float value = over.at(x, y)[k];
                        outside += value < least - 1.0f / 255 || value > most + 1.0f / 255;
                    }
                }
            }
            EXPECT_EQ(outside, 0);
        }
    }
}

TEST_F(CutoutAntiAliasingRenderPassTest, aDarkSilhouetteIsSmoothedLikeABrightOne)
{
    for (const Mode mode : {Mode::Fxaa, Mode::Smaa1x}) {
        pass->setMode(mode);
        Image alphas[2];
        for (const int brightness : {0, 1}) {
            Image silhouette = sampledCutout(size.width(), size.height());
            for (int i = 0; i < silhouette.data.size(); i += 4) {
                silhouette.data[i + 3] = silhouette.data[i + 3] > 0.9f ? 1 : 0;
                for (int k = 0; k < 3; ++k)
                    silhouette.data[i + k] = float(brightness) * silhouette.data[i + 3];
            }
            give(Port::FrameIn, silhouette);
            const Image picture = filter();
            alphas[brightness] = picture;
            int smoothed = 0;
            for (int i = 0; i < picture.data.size(); i += 4) {
                smoothed += picture.data[i + 3] > 0.05f && picture.data[i + 3] < 0.95f;
                ASSERT_NEAR(double(picture.data[i]), brightness * double(picture.data[i + 3]), 1e-3);
                alphas[brightness].data[i] = 0;
                alphas[brightness].data[i + 1] = 0;
                alphas[brightness].data[i + 2] = 0;
            }
            EXPECT_GT(smoothed, 200);
        }
        // Luma of white has rounding of its own, which may decide a tie.
        EXPECT_LE(pixelsBeyond(alphas[0], alphas[1], 1.0 / 255), 8);
    }
}

TEST_F(CutoutAntiAliasingRenderPassTest, averagesWithTheLastFrameWhereTheSurfaceWas)
{
    pass->setMode(Mode::SmaaT2x);
    const auto moved = [](int pixels) {
        Image image(size.width(), size.height());
        const Image whole = sampledCutout(size.width(), size.height());
        for (int y = 0; y < image.height; ++y) {
            for (int x = std::max(0, pixels); x < image.width; ++x)
                image.setPixel(x, y, whole.pixel(x - pixels, y));
        }
        return image;
    };
    const auto velocity = [](int pixels) {
        return filled(size.width(), size.height(), QVector4D(float(pixels) / float(size.width()), 0, 0, 0));
    };
    const auto smoothed = [](const Image &image, int frame) {
        return smaaBlended(
            image, quantised(smaaWeights(cutoutEdges(image), slicesOf(Mode::SmaaT2x, frame, 0))), nullptr);
    };
    give(Port::Velocity, velocity(3));
    pass->setInput(Port::JitterIndex, 0);
    give(Port::FrameIn, moved(0));
    const Image first = filter();
    EXPECT_LE(pixelsBeyond(first, smoothed(moved(0), 0), 4.0 / 255), 4) << "resolved with itself";

    pass->setInput(Port::JitterIndex, 1);
    give(Port::FrameIn, moved(3));
    const Image second = filter();
    Image followed(size.width(), size.height());
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            followed.setPixel(x, y, first.pixel(std::max(0, x - 3), y));
    }
    EXPECT_LE(pixelsBeyond(second, mean(smoothed(moved(3), 1), followed), 4.0 / 255), 6);

    // Another speed: another surface was there.
    give(Port::Velocity, velocity(0));
    pass->setInput(Port::JitterIndex, 0);
    give(Port::FrameIn, moved(6));
    EXPECT_LE(pixelsBeyond(filter(), smoothed(moved(6), 0), 4.0 / 255), 6);

    // The jitter that the velocity has is taken out of it.
    give(Port::Velocity, velocity(2));
    pass->setInput(Port::JitterAmount, QVector2D(4.0f / float(size.width()), 0));
    give(Port::FrameIn, moved(6));
    filter();
    pass->forgetPast();
    const Image alone = filter();
    EXPECT_LE(pixelsBeyond(alone, smoothed(moved(6), 0), 4.0 / 255), 4) << "nothing of the past is left";
    pass->setInput(Port::JitterAmount, QVector2D());
    give(Port::Velocity, velocity(-2));
    EXPECT_LE(pixelsBeyond(filter(), alone, 1.0 / 255), 0) << "-2 pixels of velocity are the change of the jitter";
}

TEST_F(CutoutAntiAliasingRenderPassTest, takesBothSamplesOfAMultisampledFrame)
{
    pass->setMode(Mode::SmaaS2x);
    const Image first = chart(Mode::SmaaS2x, 0, 0);
    const Image second = chart(Mode::SmaaS2x, 0, 1);
    give(Port::FrameIn, first);
    give(Port::SecondFrame, second);
    const Image fromTwo = filter();
    setTexture(Port::SecondFrame, nullptr);
    const auto multisampled = makeMultisampleTexture(first, second, GL_RGBA16F, 2);
    setTexture(Port::FrameIn, multisampled.get());
    EXPECT_LE(maximumDifference(filter(), fromTwo), 1e-6);
    give(Port::SecondFrame, first);
    EXPECT_LE(maximumDifference(filter(), fromTwo), 1e-6) << "samples of the frame come first";
}

TEST_F(CutoutAntiAliasingRenderPassTest, saysOnceWhatItsModesWant)
{
    const Image content = chart(Mode::Smaa1x, 0, 0);
    give(Port::FrameIn, content);
    pass->setMode(Mode::SmaaS2x);
    filter();
    filter();
    EXPECT_EQ(log.takeWarnings().size(), 1);
    pass = std::make_unique<CutoutAntiAliasingRenderPass>();
    setViewport(size);
    const auto multisampled = makeMultisampleTexture(content, GL_RGBA8, 2);
    setTexture(Port::FrameIn, multisampled.get());
    pass->start(nullptr);
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_EQ(log.takeWarnings().size(), 1);
}

TEST_F(CutoutAntiAliasingRenderPassTest, flatImagesStayExactlyAsTheyAre)
{
    pass->setInput(Port::RenderInHDR, false);
    for (const Mode mode : allModes) {
        const Image flat = filled(size.width(), size.height(), QVector4D(51, 102, 17, 136) / 255);
        pass->setMode(mode);
        give(Port::FrameIn, flat);
        give(Port::SecondFrame, flat);
        const Image picture = filter();
        EXPECT_LE(maximumDifference(picture, flat), 1e-3) << int(mode);
        EXPECT_LE(maximumDifference(filter(), flat), 1e-3) << int(mode);
    }
}

TEST_F(CutoutAntiAliasingRenderPassTest, countsReferencesAndLeavesItsState)
{
    for (const Mode mode : allModes) {
        SCOPED_TRACE(testing::Message() << "mode " << int(mode));
        pass = std::make_unique<CutoutAntiAliasingRenderPass>();
        pass->setMode(mode);
        setViewport(size);
        QVector<Texture *> taken;
        for (const int input : {Port::FrameIn, Port::SecondFrame, Port::Velocity}) {
            taken.append(textures.take(TextureFormat::HighDynamicRange, Image(size.width(), size.height()), 3));
            setTexture(input, taken.last());
        }
        const int others = PooledTextures::allReferences();
        pass->setNumOutputUsers(Port::Frame, 2);
        glEnable(GL_BLEND);
        glBlendFunc(GL_ZERO, GL_ZERO);
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(GL_NEVER);
        glEnable(GL_STENCIL_TEST);
        glStencilFunc(GL_NEVER, 0, 0xff);
        glStencilMask(0);
        glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
        glEnable(GL_SCISSOR_TEST);
        glScissor(0, 0, 1, 1);
        pass->start(nullptr);
        for (const Texture *texture : qAsConst(taken))
            EXPECT_EQ(PooledTextures::references(texture), 2);
        ASSERT_TRUE(texture(Port::Frame));
        EXPECT_EQ(texture(Port::Frame)->internalFormat(0), GL_RGBA8);
        EXPECT_EQ(PooledTextures::references(texture(Port::Frame)), 2);
        EXPECT_EQ(PooledTextures::allReferences(), others - 3 + 2 + (isTemporal(mode) ? 2 : 0));
        for (const GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_SCISSOR_TEST, GL_STENCIL_TEST})
            EXPECT_FALSE(glFlag(capability));
        EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
        EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
        TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 2);
        pass->skip(nullptr);
        for (const Texture *texture : qAsConst(taken))
            EXPECT_EQ(PooledTextures::references(texture), 1);
        EXPECT_FALSE(pass->output(Port::Frame).isValid());
        for (Texture *texture : qAsConst(taken))
            TextureManager::Instance()->addTempTextureRef(texture, 1);
        setViewport(QSize(0, 5));
        pass->start(nullptr);
        EXPECT_FALSE(pass->output(Port::Frame).isValid());
        for (const Texture *texture : qAsConst(taken))
            EXPECT_EQ(PooledTextures::references(texture), 1);
        pass.reset();
        EXPECT_EQ(PooledTextures::allReferences(), others - 6) << "the last frame went back";
    }
}

TEST_F(CutoutAntiAliasingRenderPassTest, takesItsObjectsAlong)
{
    filterChart(Mode::Smaa1x); // Creates what the texture manager keeps.
    pass->teardownContextData(nullptr);
    const GLObjectCounts before = glObjectCounts();
    filterChart(Mode::Smaa4x);
    filterChart(Mode::Fxaa);
    EXPECT_EQ(glObjectCounts().programs, before.programs + 5);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
    pass.reset();
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
}

} // namespace Velmora::Kvz
