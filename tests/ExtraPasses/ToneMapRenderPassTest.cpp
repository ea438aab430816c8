// SPDX-License-Identifier: MIT
#include "LitFixture.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/ToneMapRenderPass.h>

#include <QtCore/QRect>
#include <QtGui/QVector2D>

#include <epoxy/gl.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace Velmora::Kvz {

namespace {

using Operator = ToneMapRenderPass::Operator;
using Colour = std::array<double, 3>;

const QSize size(24, 16);
/// Half a step of 8 bits, the dither, and what single precision adds.
constexpr double ditheredStep = (0.5 + 0.48) / 255 + 1e-4;

/// The operator for products, as its publisher writes it down.
Colour neutral(Colour colour)
{
    const double start = 0.76;
    const double least = std::min({colour[0], colour[1], colour[2]});
    const double offset = least < 0.08 ? least - 6.25 * least * least : 0.04;
    for (double &channel : colour)
        channel -= offset;
    const double peak = std::max({colour[0], colour[1], colour[2]});
    if (peak < start)
        return colour;
    const double compressed = 1 - (1 - start) * (1 - start) / (peak + 1 - 2 * start);
    const double grey = 1 - 1 / (0.15 * (peak - compressed) + 1);
    for (double &channel : colour)
        channel = channel * compressed / peak * (1 - grey) + compressed * grey;
    return colour;
}

Colour mapped(const Colour &colour, Operator toneMapping)
{
    if (toneMapping == Operator::Neutral)
        return neutral(colour);
    Colour result = colour;
    if (toneMapping == Operator::Filmic) {
        for (double &x : result)
            x = (2.51 * x * x + 0.03 * x) / (2.43 * x * x + 0.59 * x + 0.14);
    }
    return result;
}

double encoded(double linear)
{
    linear = std::clamp(linear, 0.0, 1.0);
    return linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
}

/// The expected pixel for linear light that is multiplied by its alpha.
QVector4D displayed(const QVector4D &light, double stops, Operator toneMapping)
{
    const auto alpha = double(light.w());
    if (alpha == 0)
        return {};
    const double factor = std::exp2(stops) / alpha;
    const Colour display =
        mapped({double(light.x()) * factor, double(light.y()) * factor, double(light.z()) * factor}, toneMapping);
    return {float(encoded(display[0]) * alpha), float(encoded(display[1]) * alpha), float(encoded(display[2]) * alpha),
        light.w()};
}

/// Radiance from 2^-9 to 2^6, some of it partly covered, some not at all.
Image radiance(const QSize &imageSize = size, unsigned int seed = 1)
{
    Image image(imageSize.width(), imageSize.height());
    const QImage noise = speckledImage(imageSize.width(), imageSize.height(), seed);
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const QColor texel = noise.pixelColor(x, y);
            const float alpha = texel.alpha() < 60 ? 0 : texel.alpha() > 150 ? 1 : float(texel.alphaF());
            const auto light = [alpha](int step) { return alpha * std::exp2(float(step) / 17 - 9); };
            image.setPixel(x, y, QVector4D(light(texel.red()), light(texel.green()), light(texel.blue()), alpha));
        }
    }
    return image;
}

/// The stops that bring the logarithmic mean of an image to middle grey.
double automaticStops(const Image &image)
{
    double sum = 0;
    double weight = 0;
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const QVector4D texel = image.pixel(x, y);
            if (texel.w() <= 0)
                continue;
            const double luminance =
                (0.2126 * double(texel.x()) + 0.7152 * double(texel.y()) + 0.0722 * double(texel.z()))
                / double(texel.w());
            sum += double(texel.w()) * std::log2(std::max(luminance, 1e-4));
            weight += double(texel.w());
        }
    }
    return std::log2(0.18) - sum / weight;
}

class ToneMapRenderPassTest : public PassTest<ToneMapRenderPass>
{
protected:
    void SetUp() override
    {
        PassTest::SetUp();
        setViewport(size);
    }
    /// Sets an image on a port, and returns it as half floats hold it.
    Image give(int input, const Image &content)
    {
        Texture *const texture = textures.take(TextureFormat::HighDynamicRange, content, 64);
        setTexture(input, texture);
        return readTexture(texture);
    }
    Image map(int users = 1)
    {
        pass->setNumOutputUsers(Port::Frame, users);
        pass->start(nullptr);
        if (!texture(Port::Frame)) {
            ADD_FAILURE() << "there is no picture";
            return {};
        }
        const Image picture = image(Port::Frame);
        TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), users);
        return picture;
    }
    double exposure() const { return double(pass->output(Port::AppliedExposure).toFloat()); }

    PooledTextures textures;
};

/// The largest difference from what light gives.
double errorOf(const Image &picture, const Image &light, double stops, Operator toneMapping)
{
    double error = 0;
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            const QVector4D difference = picture.pixel(x, y) - displayed(light.pixel(x, y), stops, toneMapping);
            for (int k = 0; k < 4; ++k)
                error = std::max(error, double(std::abs(difference[k])));
        }
    }
    return error;
}

} // namespace

TEST_F(ToneMapRenderPassTest, mapsByTheFormulas)
{
    const Image light = give(Port::FrameIn, radiance());
    for (const Operator toneMapping : {Operator::Neutral, Operator::Filmic, Operator::Clamp}) {
        pass->setOperator(toneMapping);
        for (const float stops : {0.0f, -2.5f, 4.0f}) {
            SCOPED_TRACE(testing::Message() << "operator " << int(toneMapping) << ", " << stops << " stops");
            pass->setInput(Port::Exposure, stops);
            pass->setInput(Port::RenderInHDR, false);
            // Clamped values are not dithered.
            EXPECT_LT(errorOf(map(), light, double(stops), toneMapping),
                toneMapping == Operator::Clamp ? halfStep : ditheredStep);
            EXPECT_EQ(exposure(), double(stops));
            pass->setDither(false);
            EXPECT_LT(errorOf(map(), light, double(stops), toneMapping), halfStep);
            pass->setDither(true);
            pass->setInput(Port::RenderInHDR, true);
            EXPECT_LT(errorOf(map(), light, double(stops), toneMapping), 1.0 / 2048 + 1e-4)
                << "half floats below 1 have 11 bits";
        }
    }
}

TEST_F(ToneMapRenderPassTest, theNeutralOperatorKeepsBaseColoursAndCompressesTheRest)
{
    pass->setInput(Port::RenderInHDR, true);
    // A base colour under white light with the 4 % of a dielectric on it; and white of ever more radiance.
    Image light(size.width(), size.height());
    light.setPixel(0, 0, QVector4D(0.5f + 0.04f, 0.2f + 0.04f, 0.1f + 0.04f, 1));
    for (int i = 1; i < 16; ++i)
        light.setPixel(i, 0, QVector4D(1, 1, 1, 0) * std::exp2(float(i) - 1) + QVector4D(0, 0, 0, 1));
    give(Port::FrameIn, light);
    const Image picture = map();
    EXPECT_NEAR(double(picture.at(0, 0)[0]), encoded(0.5), 1e-3);
    EXPECT_NEAR(double(picture.at(0, 0)[1]), encoded(0.2), 1e-3);
    EXPECT_NEAR(double(picture.at(0, 0)[2]), encoded(0.1), 1e-3);
    for (int i = 2; i < 12; ++i) {
        EXPECT_GE(picture.at(i, 0)[0], picture.at(i - 1, 0)[0]);
        EXPECT_LT(picture.at(i, 0)[0], 1);
    }
    EXPECT_GT(picture.at(1, 0)[0], 0.9f);
}

TEST_F(ToneMapRenderPassTest, addsTheIndirectImageByItsVisibility)
{
    const Image light = give(Port::FrameIn, radiance());
    const Image indirect = give(Port::Indirect, radiance(size, 7));
    Image visible(size.width(), size.height());
    for (int y = 0; y < visible.height; ++y) {
        for (int x = 0; x < visible.width; ++x)
            visible.setPixel(x, y, QVector4D(float(x % 5) / 4, 0.5f, float(y % 3) / 2, 1));
    }
    const auto sum = [&](bool isVisible) {
        Image result = light;
        for (int i = 0; i < result.data.size(); ++i) {
            if (i % 4 < 3)
                result.data[i] += indirect.data[i] * (isVisible ? 1 : visible.data[i]);
        }
        return result;
    };
    EXPECT_LT(errorOf(map(), sum(true), 0, Operator::Neutral), ditheredStep);
    give(Port::Visibility, visible);
    EXPECT_LT(errorOf(map(), sum(false), 0, Operator::Neutral), ditheredStep);
    setTexture(Port::Indirect, nullptr);
    EXPECT_LT(errorOf(map(), light, 0, Operator::Neutral), ditheredStep) << "visibility alone is of no use";
}

TEST_F(ToneMapRenderPassTest, layersLieOverTheFrameAndTheBackgroundUnderIt)
{
    const Image light = give(Port::FrameIn, radiance());
    const Image indirect = give(Port::Indirect, radiance(size, 7));
    // Alpha is what comes through: none, all of it, and parts.
    const Image layers = give(Port::Layers, radiance(size, 11));
    const Image background = radiance(size, 13);
    const auto laid = [&](bool isOnBackground) {
        Image result(size.width(), size.height());
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const QVector4D front = layers.pixel(x, y);
                const float through = front.w();
                const QVector4D frame = light.pixel(x, y);
                QVector4D sum = front + through * (frame + indirect.pixel(x, y));
                sum.setW(1 - through * (1 - frame.w()));
                if (isOnBackground)
                    sum += (1 - sum.w()) * background.pixel(x, y);
                result.setPixel(x, y, sum);
            }
        }
        return result;
    };
    EXPECT_LT(errorOf(map(), laid(false), 0, Operator::Neutral), ditheredStep);
    give(Port::Background, background);
    EXPECT_LT(errorOf(map(), laid(true), 0, Operator::Neutral), ditheredStep + 1e-3);
    pass->setInput(Port::AutoExposure, true);
    EXPECT_LT(errorOf(map(), laid(true), automaticStops(laid(false)), Operator::Neutral), ditheredStep + 1e-3)
        << "the background is not measured";
}

TEST_F(ToneMapRenderPassTest, ditherKeepsWhatEightBitsHoldAndTheMeanOfTheRest)
{
    // Filmic values are multiples of a step nowhere, so find the radiance for given display values by bisection.
    const auto radianceOf = [](double value) {
        double low = 0;
        double high = 64;
        for (int i = 0; i < 100; ++i) {
            const double middle = (low + high) / 2;
            (encoded(mapped({middle, middle, middle}, Operator::Neutral)[0]) < value ? low : high) = middle;
        }
        return float(low);
    };
    setViewport(QSize(64, 64));
    for (const double step : {100.0, 100.25, 100.5, 100.8, 200.0}) {
        const float light = radianceOf(step / 255);
        const auto wall = makeTexture(filled(64, 64, QVector4D(light, light, light, 1)), GL_RGBA32F);
        setTexture(Port::FrameIn, wall.get());
        const Image picture = map();
        double sum = 0;
        double least = 1;
        double most = 0;
        for (int i = 0; i < picture.data.size(); i += 4) {
            sum += double(picture.data[i]);
            least = std::min(least, double(picture.data[i]));
            most = std::max(most, double(picture.data[i]));
        }
        if (step == std::floor(step)) {
            EXPECT_EQ(least, most) << step;
        } else {
            EXPECT_NEAR(most - least, 1.0 / 255, 1e-6) << step;
        }
        EXPECT_NEAR(sum / (64 * 64) * 255, step, 0.03) << "the mean of the noise";
    }
    for (const QVector4D &kept : {QVector4D(0, 0, 0, 1), QVector4D(0, 0, 0, 0)}) {
        const auto wall = makeTexture(filled(64, 64, kept), GL_RGBA32F);
        setTexture(Port::FrameIn, wall.get());
        EXPECT_EQ(maximumDifference(map(), filled(64, 64, kept)), 0);
    }
}

TEST_F(ToneMapRenderPassTest, noColourIsBrighterThanItsAlpha)
{
    for (int step = 1; step < 256; step += 2) {
        const float alpha = (float(step) + 0.4f) / 256;
        const auto wall = makeTexture(filled(24, 16, QVector4D(90, 90, 90, 1) * alpha), GL_RGBA32F);
        setTexture(Port::FrameIn, wall.get());
        const Image picture = map();
        for (int i = 0; i < picture.data.size(); i += 4)
            ASSERT_LE(picture.data[i], picture.data[i + 3]) << "alpha " << alpha;
    }
}

TEST_F(ToneMapRenderPassTest, thePatternFollowsTheWholePicture)
{
    const auto wall = makeTexture(filled(24, 16, QVector4D(0.2f, 0.3f, 0.4f, 1)), GL_RGBA32F);
    setTexture(Port::FrameIn, wall.get());
    const Image whole = map();
    pass->setInput(Port::PatternOrigin, QVector2D(5, 3));
    setViewport(QSize(24 - 5, 16 - 3));
    const Image tile = map();
    int changes = 0;
    for (int y = 0; y < tile.height; ++y) {
        for (int x = 0; x < tile.width; ++x) {
            ASSERT_EQ(tile.pixel(x, y), whole.pixel(x + 5, y + 3)) << x << ", " << y;
            changes += tile.pixel(x, y) != whole.pixel(x, y);
        }
    }
    EXPECT_GT(changes, 10) << "there is a pattern to follow";
}

TEST_F(ToneMapRenderPassTest, automaticExposureMeasuresWhatIsCovered)
{
    pass->setInput(Port::AutoExposure, true);
    pass->setInput(Port::Exposure, 0.5f);
    pass->setNumOutputUsers(Port::AppliedExposure, 1);
    // One, two and three sums in a row, and blocks that stick out of the frame.
    for (const QSize &frameSize : {QSize(7, 5), QSize(24, 16), QSize(70, 67), QSize(130, 9)}) {
        SCOPED_TRACE(testing::Message() << frameSize.width() << " by " << frameSize.height());
        pass->forgetMeasurement();
        setViewport(frameSize);
        const Image light = give(Port::FrameIn, radiance(frameSize));
        const double stops = automaticStops(light) + 0.5;
        EXPECT_GT(std::abs(stops), 0.2) << "a scene that needs it";
        EXPECT_LT(errorOf(map(), light, stops, Operator::Neutral), ditheredStep);
        EXPECT_NEAR(exposure(), stops, 1e-3) << "the first frame's number is its own";
    }
    const Image indirect = give(Port::Indirect, radiance(QSize(130, 9), 5));
    Image sum = radiance(QSize(130, 9));
    for (int i = 0; i < sum.data.size(); ++i)
        sum.data[i] += i % 4 < 3 ? indirect.data[i] : 0;
    pass->forgetMeasurement();
    EXPECT_LT(errorOf(map(), sum, automaticStops(sum) + 0.5, Operator::Neutral), ditheredStep);
}

TEST_F(ToneMapRenderPassTest, theNumberIsThatOfTheFrameBefore)
{
    pass->setInput(Port::AutoExposure, true);
    pass->setNumOutputUsers(Port::AppliedExposure, 1);
    const auto showWall = [this](float light) {
        give(Port::FrameIn, filled(24, 16, QVector4D(light, light, light, 1)));
        return map();
    };
    const Image first = showWall(0.18f / 4);
    EXPECT_NEAR(exposure(), 2, 2e-3);
    // The picture is exposed by its own measurement at once; the number follows.
    const Image second = showWall(0.18f * 8);
    EXPECT_LE(maximumDifference(first, second), 1.01 / 255);
    EXPECT_NEAR(exposure(), 2, 2e-3);
    showWall(0.18f);
    EXPECT_NEAR(exposure(), -3, 2e-3);
    pass->forgetMeasurement();
    showWall(0.18f);
    EXPECT_NEAR(exposure(), 0, 2e-3);
    // What was measured before automatic exposure was off for a while is as good as forgotten.
    pass->setInput(Port::AutoExposure, false);
    showWall(0.18f);
    pass->setInput(Port::AutoExposure, true);
    showWall(0.18f * 2);
    EXPECT_NEAR(exposure(), -1, 2e-3);
    // No light is made darker than by 16 stops.
    pass->forgetMeasurement();
    showWall(60000);
    EXPECT_EQ(exposure(), -16);

    pass->setNumOutputUsers(Port::AppliedExposure, 0);
    GLCallRecorder<&epoxy_glReadPixels> reads;
    showWall(0.18f);
    EXPECT_FALSE(pass->output(Port::AppliedExposure).isValid());
    EXPECT_TRUE(reads.calls.empty()) << "nobody asks for the number";
}

TEST_F(ToneMapRenderPassTest, nothingCoveredLeavesTheExposureAlone)
{
    pass->setInput(Port::AutoExposure, true);
    pass->setInput(Port::Exposure, 1.5f);
    pass->setNumOutputUsers(Port::AppliedExposure, 1);
    give(Port::FrameIn, Image(24, 16));
    EXPECT_EQ(maximumDifference(map(), Image(24, 16)), 0);
    EXPECT_EQ(exposure(), 1.5);
}

TEST_F(ToneMapRenderPassTest, whatIsNoNumberCountsAsNothing)
{
    const float infinite = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    Image light = filled(24, 16, QVector4D(nan, -1, infinite, 1));
    light.setPixel(3, 3, QVector4D(0.5f, 0.5f, 0.5f, nan));
    const auto wall = makeTexture(light, GL_RGBA32F);
    setTexture(Port::FrameIn, wall.get());
    for (const Operator toneMapping : {Operator::Neutral, Operator::Filmic, Operator::Clamp}) {
        pass->setOperator(toneMapping);
        for (const bool isAutomatic : {false, true}) {
            pass->setInput(Port::AutoExposure, isAutomatic);
            const Image picture = map();
            // The neutral operator turns the brightest blue into white.
            EXPECT_EQ(picture.pixel(0, 0).x() > 0, toneMapping == Operator::Neutral);
            EXPECT_EQ(picture.pixel(0, 0).x(), picture.pixel(0, 0).y());
            EXPECT_GT(picture.pixel(0, 0).z(), isAutomatic ? 0.9f : 0.99f) << int(toneMapping);
            EXPECT_EQ(picture.pixel(0, 0).w(), 1);
            EXPECT_EQ(picture.pixel(3, 3), QVector4D());
        }
    }
}

TEST_F(ToneMapRenderPassTest, theExposedFrameIsMadeForThoseWhoUseIt)
{
    const Image light = give(Port::FrameIn, radiance());
    pass->setInput(Port::Exposure, 1.0f);
    map();
    EXPECT_FALSE(texture(Port::Linear));
    pass->setNumOutputUsers(Port::Linear, 1);
    EXPECT_LT(errorOf(map(), light, 1, Operator::Neutral), ditheredStep);
    ASSERT_TRUE(texture(Port::Linear));
    EXPECT_EQ(PooledTextures::references(texture(Port::Linear)), 1);
    EXPECT_EQ(texture(Port::Linear)->internalFormat(0), GL_RGBA16F);
    Image exposed = light;
    for (int i = 0; i < exposed.data.size(); ++i)
        exposed.data[i] *= i % 4 < 3 ? 2 : 1;
    EXPECT_EQ(maximumDifference(image(Port::Linear), exposed), 0) << "a power of two, exact in half floats";
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Linear), 1);
}

TEST_F(ToneMapRenderPassTest, givesEachInputBackOnceAndHandsItsPictureOn)
{
    const Image light = radiance();
    QVector<Texture *> taken;
    for (const int input : {Port::FrameIn, Port::Indirect, Port::Visibility}) {
        taken.append(textures.take(TextureFormat::HighDynamicRange, light, 3));
        setTexture(input, taken.last());
    }
    const int others = PooledTextures::allReferences();
    pass->setInput(Port::AutoExposure, true);
    pass->setNumOutputUsers(Port::AppliedExposure, 1);
    pass->setNumOutputUsers(Port::Frame, 2);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ZERO, GL_ZERO);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_NEVER);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    pass->start(nullptr);
    for (const Texture *texture : qAsConst(taken))
        EXPECT_EQ(PooledTextures::references(texture), 2);
    ASSERT_TRUE(texture(Port::Frame));
    EXPECT_EQ(PooledTextures::references(texture(Port::Frame)), 2);
    EXPECT_EQ(texture(Port::Frame)->internalFormat(0), GL_RGBA8);
    EXPECT_EQ(PooledTextures::allReferences(), others - 3 + 2) << "the sums went back";
    for (const GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_SCISSOR_TEST})
        EXPECT_FALSE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_PIXEL_PACK_BUFFER_BINDING), 0);
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 2);

    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    for (const Texture *texture : qAsConst(taken))
        EXPECT_EQ(PooledTextures::references(texture), 1);
    for (Texture *texture : qAsConst(taken))
        TextureManager::Instance()->addTempTextureRef(texture, 2);
    pass->setInput(Port::Viewport, QRect(0, 0, 0, 4));
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    setViewport(size);
    setTexture(Port::FrameIn, nullptr);
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_EQ(PooledTextures::references(taken[0]), 2);
    EXPECT_EQ(PooledTextures::references(taken[1]), 1);
    EXPECT_EQ(PooledTextures::references(taken[2]), 1);
}

TEST_F(ToneMapRenderPassTest, takesItsObjectsAlong)
{
    give(Port::FrameIn, radiance());
    map(); // Creates what the texture manager keeps.
    pass->teardownContextData(nullptr);
    const GLObjectCounts before = glObjectCounts();
    pass->setInput(Port::AutoExposure, true);
    pass->setNumOutputUsers(Port::AppliedExposure, 1);
    map();
    EXPECT_EQ(glObjectCounts().programs, before.programs + 3);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
    EXPECT_EQ(glObjectCounts().buffers, before.buffers + 1);
    pass.reset();
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    EXPECT_EQ(glObjectCounts().buffers, before.buffers);
}

} // namespace Velmora::Kvz
