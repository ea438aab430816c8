// SPDX-License-Identifier: MIT
#include "support/BlendReference.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <GL/GLStatistics.h>
#include <RenderPasses/BlendRenderPass.h>

#include <QtCore/QRect>
#include <QtCore/QRegularExpression>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>

#include <array>
#include <cmath>
#include <random>

namespace Velmora::Kvz {

namespace {

constexpr int modeCount = 26;

class BlendRenderPassTest : public GLTest
{
protected:
    BlendRenderPass pass{BlendRenderPass::SrcOver};
    PooledTextures pool;

    void setViewport(const QRect &viewport) { pass.setInput(BlendRenderPass::Viewport, viewport); }
    void setFrames(Texture *frameA, Texture *frameB)
    {
        pass.setInput(BlendRenderPass::FrameA, QVariant::fromValue(frameA));
        pass.setInput(BlendRenderPass::FrameB, QVariant::fromValue(frameB));
    }
    Texture *frame() const { return pass.output(BlendRenderPass::Frame).value<Texture *>(); }
    Image result(int mode)
    {
        pass.setInput(BlendRenderPass::Mode, mode);
        pass.start(nullptr);
        return readTexture(frame());
    }
    /// Blends two colours over 2 by 2 pixels and returns one pixel of the result.
    QVector4D blended(int mode, const QVector4D &source, const QVector4D &destination);
};

/// Premultiplied colours, a different one in each texel; all channels are exact in half floats.
Image pattern(int width, int height, int seed)
{
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto channel = [&](int k) { return float((x * 37 + y * 101 + k * 53 + seed * 17) % 64) / 64.0f; };
            const float alpha = 0.25f * float(1 + (x + 2 * y + seed) % 4);
            image.setPixel(x, y, QVector4D(channel(0), channel(1), channel(2), 1.0f) * alpha);
        }
    }
    return image;
}

QVector4D BlendRenderPassTest::blended(int mode, const QVector4D &source, const QVector4D &destination)
{
    const auto frameA = makeTexture(filled(2, 2, source), GL_RGBA32F);
    const auto frameB = makeTexture(filled(2, 2, destination), GL_RGBA32F);
    setViewport(QRect(0, 0, 2, 2));
    setFrames(frameA.get(), frameB.get());
    const QVector4D color = result(mode).pixel(1, 1);
    setFrames(nullptr, nullptr);
    return color;
}

/// How far the result may lie from the exact value. It is stored as a half float, rounded or cut off after 11 significant
/// bits, or at 2^-24 below the smallest normal number. The formulas run in floats: where a quotient is scaled by up to 64,
/// as `(1 - Dca / Da) * Sa / Sca` with these inputs, its rounding of 2^-24 grows to 2^-18.
double tolerance(double exact)
{
    return std::abs(exact) * std::ldexp(1.0, -10) + std::ldexp(1.0, -24) + std::ldexp(1.0, -17);
}

/// The first texel that lies too far from the reference, in words; empty when none does.
std::string mismatch(int mode, const Image &result, const Image &source, const Image &destination)
{
    for (int i = 0; i < result.width * result.height; ++i) {
        const QVector4D s = source.pixel(i % result.width, i / result.width);
        const QVector4D d = destination.pixel(i % result.width, i / result.width);
        const QVector4D actual = result.pixel(i % result.width, i / result.width);
        const std::array<double, 4> expected = blendReference(mode, s, d);
        for (int k = 0; k < 4; ++k) {
            const double exact = expected[size_t(k)];
            if (!(std::abs(double(actual[k]) - exact) <= tolerance(exact))) {
                std::ostringstream text;
                text << "texel " << i << " channel " << k << ": " << actual[k] << " instead of " << exact << " for S "
                     << s[k] << " Sa " << s[3] << " D " << d[k] << " Da " << d[3];
                return text.str();
            }
        }
    }
    return {};
}

/// Premultiplied colours whose alpha, above 0, and whose shares of alpha are multiples of 1/64. They are exact in
/// floats, and the equalities that the operators test for occur often.
Image randomColors(int size, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> share(0, 64);
    std::uniform_int_distribution<int> alpha(1, 64);
    Image image(size, size);
    for (int i = 0; i < size * size; ++i) {
        const float a = float(alpha(random)) / 64.0f;
        QVector4D color(0, 0, 0, a);
        for (int k = 0; k < 3; ++k)
            color[k] = a * float(share(random)) / 64.0f;
        image.setPixel(i % size, i / size, color);
    }
    return image;
}

} // namespace

TEST_F(BlendRenderPassTest, numbersItsModes)
{
    EXPECT_EQ(BlendRenderPass::Clear, 0);
    EXPECT_EQ(BlendRenderPass::Src, 1);
    EXPECT_EQ(BlendRenderPass::Dst, 2);
    EXPECT_EQ(BlendRenderPass::SrcOver, 3);
    EXPECT_EQ(BlendRenderPass::DstOver, 4);
    EXPECT_EQ(BlendRenderPass::SrcIn, 5);
    EXPECT_EQ(BlendRenderPass::DstIn, 6);
    EXPECT_EQ(BlendRenderPass::SrcOut, 7);
    EXPECT_EQ(BlendRenderPass::DstOut, 8);
    EXPECT_EQ(BlendRenderPass::SrcAtop, 9);
    EXPECT_EQ(BlendRenderPass::DstAtop, 10);
    EXPECT_EQ(BlendRenderPass::Xor, 11);
    EXPECT_EQ(BlendRenderPass::Add, 12);
    EXPECT_EQ(BlendRenderPass::Multiply, 13);
    EXPECT_EQ(BlendRenderPass::Screen, 14);
    EXPECT_EQ(BlendRenderPass::Overlay, 15);
    EXPECT_EQ(BlendRenderPass::Darken, 16);
    EXPECT_EQ(BlendRenderPass::Lighten, 17);
    EXPECT_EQ(BlendRenderPass::ColorDodge, 18);
    EXPECT_EQ(BlendRenderPass::ColorBurn, 19);
    EXPECT_EQ(BlendRenderPass::HardLight, 20);
    EXPECT_EQ(BlendRenderPass::SoftLight, 21);
    EXPECT_EQ(BlendRenderPass::Exclusion, 22);
    EXPECT_EQ(BlendRenderPass::Difference, 23);
    EXPECT_EQ(BlendRenderPass::InvertAndAdd, 24);
    EXPECT_EQ(BlendRenderPass::MultiplyKeepAlpha, 25);
}

TEST_F(BlendRenderPassTest, blendsRandomColoursByEveryModeAsTheFormulasSay)
{
    constexpr int size = 96;
    const Image source = randomColors(size, 1);
    const Image destination = randomColors(size, 2);
    const auto frameA = makeTexture(source, GL_RGBA32F);
    const auto frameB = makeTexture(destination, GL_RGBA32F);
    setViewport(QRect(0, 0, size, size));
    setFrames(frameA.get(), frameB.get());
    for (int mode = 0; mode < modeCount; ++mode)
        EXPECT_EQ(mismatch(mode, result(mode), source, destination), std::string()) << "mode " << mode;
    EXPECT_EQ(frame()->internalFormat(0), GL_RGBA16F);
    EXPECT_EQ(frame()->width(0), size);
    EXPECT_EQ(frame()->height(0), size);
}

TEST_F(BlendRenderPassTest, blendsTransparentSourcesAndOpaqueColoursAsTheFormulasSay)
{
    // Every pair of these alphas, with colours from nothing to all of the alpha.
    const float alphas[] = {0.0f, 0.25f, 1.0f};
    Image source(36, 24);
    Image destination(36, 24);
    std::mt19937 random(3);
    std::uniform_int_distribution<int> share(0, 4);
    for (int i = 0; i < 36 * 24; ++i) {
        const float Sa = alphas[i % 3];
        const float Da = alphas[1 + i / 3 % 2];
        const auto color = [&](float alpha) { return alpha * float(share(random)) / 4.0f; };
        source.setPixel(i % 36, i / 36, QVector4D(color(Sa), color(Sa), color(Sa), Sa));
        destination.setPixel(i % 36, i / 36, QVector4D(color(Da), color(Da), color(Da), Da));
    }
    const auto frameA = makeTexture(source, GL_RGBA32F);
    const auto frameB = makeTexture(destination, GL_RGBA32F);
    setViewport(QRect(0, 0, 36, 24));
    setFrames(frameA.get(), frameB.get());
    for (int mode = 0; mode < modeCount; ++mode)
        EXPECT_EQ(mismatch(mode, result(mode), source, destination), std::string()) << "mode " << mode;
}

TEST_F(BlendRenderPassTest, doesNotClampBrightColours)
{
    const QVector4D source(4.0f, 0.5f, 16.0f, 1.0f);
    const QVector4D destination(2.0f, 8.0f, 0.25f, 0.5f);
    for (int mode : {BlendRenderPass::SrcOver, BlendRenderPass::Add, BlendRenderPass::Multiply, BlendRenderPass::Screen,
             BlendRenderPass::Overlay, BlendRenderPass::Lighten, BlendRenderPass::HardLight, BlendRenderPass::Exclusion,
             BlendRenderPass::Difference, BlendRenderPass::InvertAndAdd, BlendRenderPass::MultiplyKeepAlpha}) {
        const QVector4D actual = blended(mode, source, destination);
        const std::array<double, 4> expected = blendReference(mode, source, destination);
        for (int k = 0; k < 4; ++k)
            EXPECT_NEAR(actual[k], expected[size_t(k)], tolerance(expected[size_t(k)])) << "mode " << mode;
    }
}

TEST_F(BlendRenderPassTest, aTransparentSourceLeavesTheDestination)
{
    const QVector4D color = blended(BlendRenderPass::SrcOver, QVector4D(0, 0, 0, 0), QVector4D(0.2f, 0.4f, 0.6f, 1.0f));
    EXPECT_NEAR(color.x(), 0.2, tolerance(0.2));
    EXPECT_NEAR(color.y(), 0.4, tolerance(0.4));
    EXPECT_NEAR(color.z(), 0.6, tolerance(0.6));
    EXPECT_EQ(color.w(), 1.0f);
}

TEST_F(BlendRenderPassTest, takesTheBranchThatEachComparisonNames)
{
    struct Case
    {
        const char *name;
        int mode;
        double S, Sa, D, Da;
        double expected; // Worked out by hand.
    };
    const Case cases[] = {
        // 2 * D is compared with 1, not with Da.
        {"overlay, D below one half but above half of Da", BlendRenderPass::Overlay, 0.125, 0.5, 0.375, 0.5, 0.34375},
        {"overlay, D of one half", BlendRenderPass::Overlay, 0.125, 0.5, 0.5, 0.5, 0.4375},
        {"overlay, D just above one half", BlendRenderPass::Overlay, 0.125, 0.5, 0.5009765625, 0.5, 0.563720703125},
        {"overlay, Da of 1, D of one half", BlendRenderPass::Overlay, 0.25, 0.5, 0.5, 1.0, 0.5},
        {"dodge, source full, destination black", BlendRenderPass::ColorDodge, 0.5, 0.5, 0.0, 0.25, 0.375},
        {"dodge, source full", BlendRenderPass::ColorDodge, 0.5, 0.5, 0.125, 0.25, 0.5625},
        {"dodge, source transparent", BlendRenderPass::ColorDodge, 0.0, 0.0, 0.125, 0.25, 0.125},
        {"dodge, quotient below 1", BlendRenderPass::ColorDodge, 0.25, 0.5, 0.0625, 0.25, 0.28125},
        {"dodge, quotient of 1", BlendRenderPass::ColorDodge, 0.25, 0.5, 0.125, 0.25, 0.375},
        {"dodge, quotient above 1", BlendRenderPass::ColorDodge, 0.25, 0.5, 0.25, 0.25, 0.4375},
        {"dodge, source just below full", BlendRenderPass::ColorDodge, 0.4375, 0.5, 0.0, 0.25, 0.328125},
        {"burn, source black, destination full", BlendRenderPass::ColorBurn, 0.0, 0.5, 0.25, 0.25, 0.25},
        {"burn, source black", BlendRenderPass::ColorBurn, 0.0, 0.5, 0.125, 0.25, 0.0625},
        {"burn, quotient below 1", BlendRenderPass::ColorBurn, 0.25, 0.5, 0.1875, 0.25, 0.34375},
        {"burn, quotient of 1", BlendRenderPass::ColorBurn, 0.25, 0.5, 0.125, 0.25, 0.25},
        {"burn, quotient above 1", BlendRenderPass::ColorBurn, 0.125, 0.5, 0.0625, 0.25, 0.125},
        {"burn, destination full", BlendRenderPass::ColorBurn, 0.125, 0.5, 0.25, 0.25, 0.34375},
        {"hard light, source dark", BlendRenderPass::HardLight, 0.125, 0.5, 0.25, 0.5, 0.25},
        {"hard light, source of half its alpha", BlendRenderPass::HardLight, 0.25, 0.5, 0.125, 0.5, 0.25},
        {"hard light, source bright", BlendRenderPass::HardLight, 0.5, 0.5, 0.125, 0.5, 0.5625},
        {"soft light, source dark", BlendRenderPass::SoftLight, 0.125, 0.5, 0.25, 0.5, 0.28125},
        {"soft light, source of half its alpha", BlendRenderPass::SoftLight, 0.25, 0.5, 0.125, 0.5, 0.25},
        {"soft light, source bright, destination dark", BlendRenderPass::SoftLight, 0.5, 0.5, 0.0625, 0.5, 0.1796875},
        // The two branches for a bright source do not meet at a quarter.
        {"soft light, source bright, D of a quarter", BlendRenderPass::SoftLight, 0.5, 0.5, 0.125, 0.5, 0.0625},
        {"soft light, source bright, D above a quarter", BlendRenderPass::SoftLight, 0.5, 0.5, 0.28125, 0.5, 0.578125},
        {"soft light, source bright, destination full", BlendRenderPass::SoftLight, 0.5, 0.5, 0.5, 0.5, 0.75},
        {"soft light, destination black", BlendRenderPass::SoftLight, 0.5, 0.5, 0.0, 0.5, 0.25},
    };
    for (const Case &c : cases) {
        const auto vector = [](double color, double alpha) {
            return QVector4D(float(color), float(color), float(color), float(alpha));
        };
        const QVector4D actual = blended(c.mode, vector(c.S, c.Sa), vector(c.D, c.Da));
        EXPECT_NEAR(actual.x(), c.expected, tolerance(c.expected)) << c.name;
        EXPECT_NEAR(actual.w(), c.Sa + c.Da - c.Sa * c.Da, tolerance(1)) << c.name;
        EXPECT_NEAR(blendReferenceChannel(c.mode, c.S, c.Sa, c.D, c.Da), c.expected, 1e-12) << c.name;
    }
}

TEST_F(BlendRenderPassTest, aDestinationWithoutAlphaGivesWhatTheGpuMakesOfTheDivision)
{
    const QVector4D source(0.25f, 0.25f, 0.25f, 0.5f);
    const QVector4D bright(0.375f, 0.375f, 0.375f, 0.5f);
    const QVector4D nothing(0, 0, 0, 0);
    struct Case
    {
        const char *name;
        int mode;
        QVector4D source;
    };
    for (const Case &c : {Case{"dodge", BlendRenderPass::ColorDodge, source},
             Case{"burn", BlendRenderPass::ColorBurn, source}, Case{"soft light", BlendRenderPass::SoftLight, source},
             Case{"soft light, bright", BlendRenderPass::SoftLight, bright}}) {
        const QVector4D color = blended(c.mode, c.source, nothing);
        // On llvmpipe dodge and burn leave the source, since min(1.0, NaN) is 1.0 there, and soft light is NaN.
        EXPECT_TRUE(!std::isfinite(color.x()) || color.x() == c.source.x()) << c.name << ": " << color.x();
        EXPECT_EQ(color.w(), 0.5f) << c.name << ": alpha has no division";
    }
}

TEST_F(BlendRenderPassTest, aModeOutsideTheTableGivesTransparentBlack)
{
    for (int mode : {26, 27, 1000, -1, std::numeric_limits<int>::min()})
        EXPECT_EQ(blended(mode, QVector4D(1, 1, 1, 1), QVector4D(1, 1, 1, 1)), QVector4D(0, 0, 0, 0)) << mode;
    BlendRenderPass unknown(BlendRenderPass::BlendMode(26));
    const auto white = makeTexture(filled(2, 2, QVector4D(1, 1, 1, 1)), GL_RGBA32F);
    unknown.setInput(BlendRenderPass::Viewport, QRect(0, 0, 2, 2));
    unknown.setInput(BlendRenderPass::FrameA, QVariant::fromValue(white.get()));
    unknown.start(nullptr);
    EXPECT_EQ(readTexture(unknown.output(0).value<Texture *>()).pixel(0, 0), QVector4D(0, 0, 0, 0));
}

TEST_F(BlendRenderPassTest, theModePortReplacesTheModeUntilItIsSetAgain)
{
    const auto frameA = makeTexture(filled(2, 2, QVector4D(0.25f, 0.5f, 0.125f, 0.5f)), GL_RGBA32F);
    const auto frameB = makeTexture(filled(2, 2, QVector4D(0.5f, 0.25f, 0.5f, 0.5f)), GL_RGBA32F);
    const QVector4D over(0.5f, 0.625f, 0.375f, 0.75f);
    const QVector4D sum(0.75f, 0.75f, 0.625f, 1.0f);
    setViewport(QRect(0, 0, 2, 2));
    setFrames(frameA.get(), frameB.get());
    pass.start(nullptr);
    EXPECT_EQ(readTexture(frame()).pixel(0, 0), over) << "the mode of the constructor";
    pass.setInput(BlendRenderPass::Mode, 12);
    pass.start(nullptr);
    EXPECT_EQ(readTexture(frame()).pixel(0, 0), sum);
    for (const QVariant &null : {QVariant(), QVariant(QVariant::Int)}) {
        pass.setInput(BlendRenderPass::Mode, null);
        pass.start(nullptr);
        EXPECT_EQ(readTexture(frame()).pixel(0, 0), sum);
    }
    pass.setInput(BlendRenderPass::Mode, QStringLiteral("3"));
    pass.start(nullptr);
    EXPECT_EQ(readTexture(frame()).pixel(0, 0), over);
    pass.setInput(BlendRenderPass::Mode, QStringLiteral("over"));
    pass.start(nullptr);
    EXPECT_EQ(readTexture(frame()).pixel(0, 0), QVector4D(0, 0, 0, 0)) << "no number counts as 0, which clears";
}

TEST_F(BlendRenderPassTest, brightnessScalesAllChannelsOfTheDestination)
{
    const auto frameA = makeTexture(filled(2, 2, QVector4D(0.25f, 0.25f, 0.25f, 0.25f)), GL_RGBA32F);
    const auto frameB = makeTexture(filled(2, 2, QVector4D(0.5f, 0.25f, 0.125f, 0.5f)), GL_RGBA32F);
    setViewport(QRect(0, 0, 2, 2));
    setFrames(frameA.get(), frameB.get());
    const auto destination = [this](const QVariant &brightness) {
        pass.setInput(BlendRenderPass::Brightness, brightness);
        return result(BlendRenderPass::Dst).pixel(1, 0);
    };
    const QVector4D plain(0.5f, 0.25f, 0.125f, 0.5f);
    EXPECT_EQ(destination(QVariant()), plain);
    EXPECT_EQ(destination(QVariant(QVariant::Double)), plain) << "null, though of a type";
    EXPECT_EQ(destination(QVariant(QVariant::String)), plain);
    EXPECT_EQ(destination(2.0f), plain * 2.0f);
    EXPECT_EQ(destination(0.5), plain * 0.5f);
    EXPECT_EQ(destination(QStringLiteral("4")), plain * 4.0f);
    EXPECT_EQ(destination(QStringLiteral("bright")), QVector4D(0, 0, 0, 0));
    EXPECT_EQ(destination(QVariantList{2.0f}), QVector4D(0, 0, 0, 0));
    // The source is not scaled.
    EXPECT_EQ(result(BlendRenderPass::Src).pixel(0, 0), QVector4D(0.25f, 0.25f, 0.25f, 0.25f));
}

TEST_F(BlendRenderPassTest, combinesPicturesInPlace)
{
    // Two overlapping disks with empty corners around them.
    constexpr int size = 64;
    const auto disk = [](QVector2D centre, QVector3D color) {
        Image image(size, size);
        for (int y = 0; y < size; ++y) {
            for (int x = 0; x < size; ++x) {
                const float distance = (QVector2D(float(x), float(y)) - centre).length();
                const float alpha = std::round(qBound(0.0f, 22.0f - distance, 8.0f)) / 8.0f;
                const QVector3D shade = color * (0.5f + float(y) / 128.0f) * alpha;
                image.setPixel(x, y, QVector4D(shade, alpha));
            }
        }
        return image;
    };
    const Image source = disk(QVector2D(40, 40), QVector3D(1.0f, 0.5f, 0.125f));
    const Image destination = disk(QVector2D(24, 24), QVector3D(0.125f, 0.5f, 1.0f));
    const auto frameA = makeTexture(source, GL_RGBA32F);
    const auto frameB = makeTexture(destination, GL_RGBA32F);
    setViewport(QRect(0, 0, size, size));
    setFrames(frameA.get(), frameB.get());
    Image sheet(7 * size, 4 * size);
    for (int mode = 0; mode < modeCount; ++mode) {
        const Image image = result(mode);
        for (int i = 0; i < size * size; ++i)
            sheet.setPixel(
                mode % 7 * size + i % size, (3 - mode / 7) * size + i / size, image.pixel(i % size, i / size));
        const bool divides = mode == BlendRenderPass::ColorDodge || mode == BlendRenderPass::ColorBurn
            || mode == BlendRenderPass::SoftLight;
        if (!divides) {
            EXPECT_EQ(mismatch(mode, image, source, destination), std::string()) << "mode " << mode;
        }
    }
    saveForViewing(sheet, QStringLiteral("blend-modes"));
}

TEST_F(BlendRenderPassTest, aNullFrameIsTransparent)
{
    const Image image = pattern(4, 4, 1);
    const Image nothing(4, 4);
    const auto texture = makeTexture(image, GL_RGBA32F);
    setViewport(QRect(0, 0, 4, 4));
    setFrames(texture.get(), nullptr);
    for (int mode : {BlendRenderPass::SrcOver, BlendRenderPass::Xor, BlendRenderPass::Dst, BlendRenderPass::Add})
        EXPECT_EQ(mismatch(mode, result(mode), image, nothing), std::string()) << "mode " << mode;
    setFrames(nullptr, texture.get());
    for (int mode : {BlendRenderPass::SrcOver, BlendRenderPass::Xor, BlendRenderPass::Src, BlendRenderPass::Add})
        EXPECT_EQ(mismatch(mode, result(mode), nothing, image), std::string()) << "mode " << mode;
}

TEST_F(BlendRenderPassTest, twoNullFramesAreBlendedToo)
{
    setViewport(QRect(0, 0, 4, 4));
    pass.setNumOutputUsers(0, 1);
    glClearColor(1, 1, 1, 1);
    QVector<Texture *> results;
    for (int mode = 0; mode < modeCount; ++mode) {
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        const Image image = result(mode);
        EXPECT_EQ(draws.calls.size(), 1u);
        EXPECT_FALSE(results.contains(frame())) << "a new texture while the others are in use";
        results.append(frame());
        // Soft light divides 0 by 0.
        if (mode == BlendRenderPass::SoftLight)
            EXPECT_EQ(image.pixel(0, 0).w(), 0.0f);
        else
            EXPECT_EQ(maximumDifference(image, Image(4, 4)), 0.0) << "mode " << mode;
    }
    for (Texture *texture : qAsConst(results))
        TextureManager::Instance()->releaseTempTextureRef(texture, 1);
}

TEST_F(BlendRenderPassTest, aValueOfAnotherClassCountsAsNull)
{
    setViewport(QRect(0, 0, 2, 2));
    QObject object;
    pass.setInput(BlendRenderPass::FrameA, QVariant::fromValue<QObject *>(&object));
    pass.setInput(BlendRenderPass::FrameB, 12);
    EXPECT_EQ(maximumDifference(result(BlendRenderPass::Add), Image(2, 2)), 0.0);
}

TEST_F(BlendRenderPassTest, oneTextureCanStandOnBothInputs)
{
    Texture *const texture = pool.take(TextureFormat::Position, pattern(4, 4, 1), 3);
    setViewport(QRect(0, 0, 4, 4));
    setFrames(texture, texture);
    const Image image = result(BlendRenderPass::Multiply);
    EXPECT_EQ(mismatch(BlendRenderPass::Multiply, image, pattern(4, 4, 1), pattern(4, 4, 1)), std::string());
    EXPECT_EQ(pool.references(texture), 1) << "given back once for each input";
}

TEST_F(BlendRenderPassTest, resolvesMultisampledFramesWithOneWarningForEachInput)
{
    const Image source = pattern(8, 6, 1);
    const Image destination = pattern(8, 6, 2);
    const auto frameA = makeMultisampleTexture(source, GL_RGBA16F, 4);
    const auto frameB = makeMultisampleTexture(destination, GL_RGBA16F, 4);
    log.clear();
    setViewport(QRect(0, 0, 8, 6));
    setFrames(frameA.get(), frameB.get());
    const Image image = result(BlendRenderPass::SrcOver);
    EXPECT_EQ(mismatch(BlendRenderPass::SrcOver, image, source, destination), std::string());

    ASSERT_EQ(log.messages().size(), 2);
    const QRegularExpression form(QStringLiteral("^\\[BlendRenderPass:([0-9]+)\\] (.*)$"));
    int lines[2];
    for (int i = 0; i < 2; ++i) {
        const LogCapture::Message &message = log.messages()[i];
        EXPECT_EQ(message.type, QtWarningMsg);
        EXPECT_EQ(message.category, QStringLiteral("default"));
        EXPECT_TRUE(message.file.isEmpty());
        const QRegularExpressionMatch match = form.match(message.text);
        ASSERT_TRUE(match.hasMatch()) << qPrintable(message.text);
        EXPECT_EQ(match.captured(2),
            QStringLiteral("Multisample Frame%1 texture downsampled.").arg(QLatin1Char(i == 0 ? 'A' : 'B')));
        lines[i] = match.captured(1).toInt();
    }
    EXPECT_LT(lines[0], lines[1]);
    log.clear();

    EXPECT_EQ(maximumDifference(result(BlendRenderPass::SrcOver), image), 0.0);
    EXPECT_TRUE(log.messages().isEmpty()) << "the first frame alone warns";

    // Every input of every object warns once.
    BlendRenderPass other(BlendRenderPass::Src);
    const auto single = makeTexture(source, GL_RGBA32F);
    other.setInput(BlendRenderPass::Viewport, QRect(0, 0, 8, 6));
    other.setInput(BlendRenderPass::FrameA, QVariant::fromValue(single.get()));
    other.setInput(BlendRenderPass::FrameB, QVariant::fromValue(frameB.get()));
    other.start(nullptr);
    EXPECT_EQ(log.takeWarnings().filter(QStringLiteral("FrameB")).size(), 1);
    other.setInput(BlendRenderPass::FrameA, QVariant::fromValue(frameA.get()));
    other.start(nullptr);
    EXPECT_EQ(log.takeWarnings().filter(QStringLiteral("FrameA")).size(), 1);
}

TEST_F(BlendRenderPassTest, aMultisampledFrameIsResolvedToTheViewportsSize)
{
    const auto frameA = makeMultisampleTexture(filled(8, 8, QVector4D(0.25f, 0.5f, 0.75f, 1.0f)), GL_RGBA16F, 4);
    setViewport(QRect(0, 0, 4, 3));
    setFrames(frameA.get(), nullptr);
    const Image image = result(BlendRenderPass::Src);
    EXPECT_EQ(log.takeWarnings().size(), 1);
    EXPECT_EQ(maximumDifference(image, filled(4, 3, QVector4D(0.25f, 0.5f, 0.75f, 1.0f))), 0.0);
}

TEST_F(BlendRenderPassTest, givesItsInputsBackAndHandsTheResultOn)
{
    for (int users : {0, 1, 2}) {
        PooledTextures textures;
        Texture *const frameA = textures.take(TextureFormat::HighDynamicRange, pattern(4, 4, 1), 2);
        Texture *const frameB = textures.take(TextureFormat::HighDynamicRange, pattern(4, 4, 2), 3);
        setViewport(QRect(0, 0, 4, 4));
        setFrames(frameA, frameB);
        pass.setNumOutputUsers(0, users);
        pass.start(nullptr);
        EXPECT_EQ(textures.references(frameA), 1);
        EXPECT_EQ(textures.references(frameB), 2);
        EXPECT_EQ(textures.references(frame()), users);
        EXPECT_NE(frame(), frameA);
        EXPECT_NE(frame(), frameB);
        EXPECT_EQ(textures.allReferences(), 3 + users) << "the substitute and all else is not counted";
        TextureManager::Instance()->releaseTempTextureRef(frame(), users);
    }
}

TEST_F(BlendRenderPassTest, givesMultisampledInputsAndTheirCopiesBack)
{
    Texture *const frameA = pool.take(TextureFormat::HighDynamicRange, 4, 4, 2, 4);
    Texture *const frameB = pool.take(TextureFormat::LowDynamicRange, 4, 4, 3, 4);
    setViewport(QRect(0, 0, 4, 4));
    setFrames(frameA, frameB);
    pass.setNumOutputUsers(0, 1);
    pass.start(nullptr);
    EXPECT_EQ(log.takeWarnings().size(), 2);
    EXPECT_EQ(pool.references(frameA), 1);
    EXPECT_EQ(pool.references(frameB), 2);
    EXPECT_EQ(pool.references(frame()), 1);
    EXPECT_EQ(pool.allReferences(), 4) << "the two copies are free again";
    TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
}

TEST_F(BlendRenderPassTest, skipGivesItsInputsBackAndClearsTheOutput)
{
    Texture *const frameA = pool.take(TextureFormat::HighDynamicRange, pattern(4, 4, 1), 3);
    Texture *const frameB = pool.take(TextureFormat::HighDynamicRange, pattern(4, 4, 2), 3);
    setViewport(QRect(0, 0, 4, 4));
    setFrames(frameA, frameB);
    pass.start(nullptr);
    pass.skip(nullptr);
    EXPECT_EQ(pool.references(frameA), 1);
    EXPECT_EQ(pool.references(frameB), 1);
    EXPECT_FALSE(pass.output(0).isValid());
}

TEST_F(BlendRenderPassTest, theViewportsCornerShiftsThePictureWithinTheResult)
{
    const Image source = pattern(4, 3, 1);
    const auto frameA = makeTexture(source, GL_RGBA32F);
    setViewport(QRect(1, 2, 4, 3));
    setFrames(frameA.get(), nullptr);
    const QVector4D clearColor(0.125f, 0.625f, 0.375f, 0.875f);
    glClearColor(clearColor.x(), clearColor.y(), clearColor.z(), clearColor.w());
    const Image image = result(BlendRenderPass::Src);
    ASSERT_EQ(image.width, 4);
    ASSERT_EQ(image.height, 3);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 4; ++x) {
            const QVector4D expected = x >= 1 && y >= 2 ? source.pixel(x - 1, y - 2) : clearColor;
            EXPECT_LE((image.pixel(x, y) - expected).length(), 2e-3f) << x << ", " << y;
        }
    }
}

TEST_F(BlendRenderPassTest, stretchesAFrameOfAnotherSize)
{
    const Image source = pattern(2, 2, 1);
    const auto frameA = makeTexture(source, GL_RGBA32F);
    setViewport(QRect(0, 0, 6, 4));
    setFrames(frameA.get(), nullptr);
    const Image image = result(BlendRenderPass::Src);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x)
            EXPECT_LE((image.pixel(x, y) - source.pixel(x / 3, y / 2)).length(), 2e-3f) << x << ", " << y;
    }
}

TEST_F(BlendRenderPassTest, leavesTheStateThatItSets)
{
    setViewport(QRect(1, 2, 6, 5));
    const GLenum untouched[] = {GL_STENCIL_TEST, GL_CULL_FACE};
    for (GLenum capability : untouched)
        glEnable(capability);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    pass.start(nullptr);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_FALSE(glFlag(GL_BLEND));
    for (GLenum capability : untouched)
        EXPECT_TRUE(glFlag(capability));
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QRect(1, 2, 6, 5));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
}

TEST_F(BlendRenderPassTest, bindsNothingThatThePoolMayHandOut)
{
    setViewport(QRect(0, 0, 4, 4));
    GLCallRecorder<&epoxy_glFramebufferTexture2D> attachments;
    GLCallRecorder<&epoxy_glFramebufferTexture> detachments;
    pass.start(nullptr);
    ASSERT_FALSE(attachments.calls.empty());
    EXPECT_EQ(std::get<3>(attachments.calls.back()), frame()->textureID());
    ASSERT_EQ(detachments.calls.size(), 1u);
    EXPECT_EQ(std::get<1>(detachments.calls[0]), GLenum(GL_COLOR_ATTACHMENT0));
    EXPECT_EQ(std::get<2>(detachments.calls[0]), 0u);
}

TEST_F(BlendRenderPassTest, anEmptyViewportGivesAnEmptyResult)
{
    pass.start(nullptr);
    ASSERT_NE(frame(), nullptr);
    EXPECT_EQ(frame()->width(0), 0);
    EXPECT_EQ(frame()->height(0), 0);
    // A framebuffer without texels cannot be cleared.
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION});
    EXPECT_EQ(pass.errorCode(), 0u);
}

TEST_F(BlendRenderPassTest, aViewportThatDoesNotConvertCountsAsEmpty)
{
    pass.setInput(BlendRenderPass::Viewport, QStringLiteral("640x480"));
    pass.start(nullptr);
    ASSERT_NE(frame(), nullptr);
    EXPECT_EQ(frame()->width(0), 0);
    takeGLErrors();
}

TEST_F(BlendRenderPassTest, allModesShareOneProgram)
{
    GLCallRecorder<&epoxy_glLinkProgram> links;
    setViewport(QRect(0, 0, 2, 2));
    for (int mode = 0; mode < modeCount; ++mode)
        result(mode);
    EXPECT_EQ(links.calls.size(), 1u);
}

TEST_F(BlendRenderPassTest, keepsItsObjectsThroughTeardownAndDeletesThemAtTheEnd)
{
    // From here on the objects exist that the device and the texture manager share among passes.
    setViewport(QRect(0, 0, 2, 2));
    pass.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    {
        BlendRenderPass other(BlendRenderPass::Add);
        other.setInput(BlendRenderPass::Viewport, QRect(0, 0, 2, 2));
        other.start(nullptr);
        const GLObjectCounts running = glObjectCounts();
        EXPECT_EQ(running.programs, before.programs + 1);
        EXPECT_EQ(running.framebuffers, before.framebuffers + 1);
        EXPECT_EQ(running.vertexArrays, before.vertexArrays + 1);
        EXPECT_EQ(running.textures, before.textures);
        other.teardown(nullptr);
        other.teardownContextData(nullptr);
        EXPECT_TRUE(glObjectCounts() == running);
        other.start(nullptr);
        EXPECT_TRUE(glObjectCounts() == running);
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(BlendRenderPassTest, changesNothingWithoutAPortThatItLooksFor)
{
    class Incomplete : public BlendRenderPass
    {
    public:
        explicit Incomplete(int port)
            : BlendRenderPass(Add)
        {
            m_inputs[port].name = m_inputs[port].name.toUpper();
            m_outputs[0].value = 7;
        }
    };
    for (int port = 0; port < 5; ++port) {
        Incomplete incomplete(port);
        Texture *const texture = pool.take(TextureFormat::HighDynamicRange, 2, 2, 2);
        incomplete.setInput(BlendRenderPass::Viewport, QRect(0, 0, 2, 2));
        incomplete.setInput(BlendRenderPass::FrameA, QVariant::fromValue(texture));
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        incomplete.start(nullptr);
        EXPECT_TRUE(draws.calls.empty()) << port;
        EXPECT_EQ(incomplete.output(0), QVariant(7)) << port;
        EXPECT_EQ(pool.references(texture), 2) << port;
    }
}

} // namespace Velmora::Kvz
