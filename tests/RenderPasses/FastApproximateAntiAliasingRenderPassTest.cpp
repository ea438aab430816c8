// SPDX-License-Identifier: MIT
#include "FxaaReference.h"
#include "support/Cameras.h"
#include "support/ChangedShaders.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/PooledTextures.h"

#include <GL/GLSLMacroProcessor.h>
#include <GL/GLStatistics.h>
#include <GL/ShaderProgram.h>
#include <RenderPasses/FastApproximateAntiAliasingRenderPass.h>
#include <RenderPasses/ForwardRenderPass.h>
#include <Scene/GPUModel.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <cmath>
#include <random>

namespace Velmora::Kvz {

namespace {

using Port = FastApproximateAntiAliasingRenderPass;

class FxaaTest : public GLTest
{
protected:
    std::unique_ptr<FastApproximateAntiAliasingRenderPass> pass =
        std::make_unique<FastApproximateAntiAliasingRenderPass>();
    PooledTextures textures;

    void setFrame(Texture *texture) { pass->setInput(Port::Frame, QVariant::fromValue(texture)); }
    Texture *frame() const { return pass->output(Port::FrameOut).value<Texture *>(); }

    /// The pass's result for an image of the viewport's size.
    Image filter(const Image &image, int internalFormat = GL_RGBA32F)
    {
        const std::unique_ptr<Texture> texture = makeTexture(image, internalFormat);
        pass->setInput(Port::Viewport, QRect(5, 9, image.width, image.height));
        setFrame(texture.get());
        pass->setNumOutputUsers(0, 1);
        pass->start(nullptr);
        Image result = readTexture(frame());
        TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
        setFrame(nullptr);
        return result;
    }
};

/// The image rounded to multiples of 1/256. In images whose sides are powers of two, sums and mixtures are then exact
/// in single precision, and a tie on the CPU is a tie on the GPU.
Image exact(Image image)
{
    for (float &channel : image.data)
        channel = std::round(channel * 255) / 256;
    return image;
}

/// Boxes and a sphere, in front and behind one another, shaded.
Image renderedScene(const QSize &size)
{
    GPUModelBuilder builder;
    MaterialData light, dark;
    light.kd = QVector3D(0.9f, 0.8f, 0.7f);
    dark.kd = QVector3D(0.2f, 0.3f, 0.5f);
    dark.d = 0.5f;
    QMatrix4x4 matrix;
    matrix.rotate(20, 0.3f, 1, 0.4f);
    builder.addItem(builder.addMesh(boxMesh(1)), builder.addMaterial(light), matrix);
    matrix.translate(1.3f, 0.7f, 1.1f);
    matrix.scale(0.7f);
    builder.addItem(builder.addMesh(sphereMesh(9)), builder.addMaterial(dark), matrix);
    matrix.translate(-3.9f, -0.2f, 0.4f);
    matrix.scale(0.05f, 3, 0.05f);
    builder.addItem(builder.addMesh(boxMesh(1)), builder.addMaterial(light), matrix);
    const QSharedPointer<GPUModel> model = builder.build();
    ForwardRenderPass forward;
    forward.setInput(ForwardRenderPass::Viewport, QRect(QPoint(0, 0), size));
    forward.setInput(ForwardRenderPass::ProjectionMatrix, perspective(size, 0.5f, 30));
    forward.setInput(ForwardRenderPass::CameraMatrix, lookAt(QVector3D(1.5f, 1.2f, 4), QVector3D(0.2f, 0, 0)));
    forward.setInput(ForwardRenderPass::Geometry, QVariant::fromValue(model.data()));
    glViewport(0, 0, size.width(), size.height());
    forward.start(nullptr);
    return exact(readTexture(forward.output(ForwardRenderPass::Frame).value<Texture *>()));
}

Image noise(int width, int height, unsigned int seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> value(0, 1);
    Image image(width, height);
    for (float &channel : image.data)
        channel = value(random);
    return exact(image);
}

/// A flight of stairs, dark above and light below, with steps one pixel high that grow in length from 1 to 40 pixels.
/// Every third one leads down.
Image stairs()
{
    Image image(1024, 64);
    int top = 20, length = 1, left = 1;
    for (int x = 0; x < image.width; ++x) {
        for (int y = 0; y < image.height; ++y) {
            const bool isLight = y < top;
            image.setPixel(x, y, isLight ? QVector4D(0.875f, 0.75f, 0.5f, 1) : QVector4D(0.125f, 0.25f, 0.0625f, 0.5f));
        }
        if (--left == 0) {
            top += length % 3 == 0 ? -1 : 1;
            length = std::min(length + 1, 40);
            left = length;
        }
    }
    return image;
}

Image transposed(const Image &image)
{
    Image result(image.height, image.width);
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x)
            result.setPixel(y, x, image.pixel(x, y));
    }
    return result;
}

/// A half float step below 1, where a driver may truncate, plus what single precision leaves open in a position between
/// two texels of an image of up to 1024.
constexpr double tolerance = 1.0 / 2048 + 1.0 / 32768;

/// The largest difference of a filtered image from the reference. Where the contrast at an end of an edge equals the
/// threshold but for the last bits, GPU and CPU may decide differently: there the nearest of the possible results
/// counts. `draws` is the number of such pixels.
double differenceBesideDraws(const Image &filtered, const Image &image, FxaaSettings settings, int *draws)
{
    std::vector<Image> sides;
    for (const double before : {-2e-5, 2e-5}) {
        for (const double behind : {-2e-5, 2e-5}) {
            settings.biasBefore = before;
            settings.biasBehind = behind;
            sides.push_back(fxaaReference(image, settings));
        }
    }
    const auto difference = [](const float *a, const float *b) {
        double most = 0;
        for (int i = 0; i < 4; ++i)
            most = std::max(most, std::abs(double(a[i]) - double(b[i])));
        return most;
    };
    double most = 0;
    *draws = 0;
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            double nearest = 1e9;
            double apart = 0;
            for (const Image &side : sides) {
                nearest = std::min(nearest, difference(filtered.at(x, y), side.at(x, y)));
                apart = std::max(apart, difference(side.at(x, y), sides[0].at(x, y)));
            }
            most = std::max(most, nearest);
            *draws += int(apart > 0);
        }
    }
    return most;
}

} // namespace

TEST_F(FxaaTest, matchesTheReferenceOnARenderedFrame)
{
    const Image image = renderedScene(QSize(512, 256));
    saveForViewing(image, QStringLiteral("fxaa-before"));
    const struct
    {
        FxaaSettings settings;
        const char *name;
    } cases[] = {{{}, "constructed"}, {{0.75, 1.0, 0.166, 0.0}, "usual"}, {{0, 1.3, 0.063, 0.0312}, "edges"}};
    for (const auto &[settings, name] : cases) {
        SCOPED_TRACE(name);
        pass->setInput(Port::SubPixelQuality, float(settings.subpix));
        pass->setInput(Port::RcpFrameQuality, float(settings.rcpFrame));
        pass->setInput(Port::EdgeThresholdQuality, float(settings.edgeThreshold));
        pass->setInput(Port::EdgeThresholdMinQuality, float(settings.edgeThresholdMin));
        const Image filtered = filter(image);
        saveForViewing(filtered, QStringLiteral("fxaa-%1").arg(QLatin1String(name)));
        FxaaTally tally;
        const Image reference = fxaaReference(image, settings, &tally);
        EXPECT_LE(maximumDifference(filtered, reference), tolerance);
        EXPECT_GT(maximumDifference(filtered, image), 0.2);
        EXPECT_GT(tally.flat, 60000);
        EXPECT_GT(tally.horizontal, 300);
        EXPECT_GT(tally.vertical, 300);
        EXPECT_GT(tally.byEdge, 300);
        EXPECT_GT(tally.endNotFound, 50);
        if (settings.subpix > 0) {
            EXPECT_GT(tally.bySubpixel, 100);
        }
    }
}

TEST_F(FxaaTest, matchesTheReferenceOnNoise)
{
    for (const unsigned int seed : {1u, 3u, 44u, 58u}) {
        SCOPED_TRACE(seed);
        const Image image = noise(128, 64, seed);
        FxaaTally tally;
        fxaaReference(image, {}, &tally);
        int draws = 0;
        EXPECT_LE(differenceBesideDraws(filter(image), image, {}, &draws), tolerance);
        EXPECT_LE(draws, 12) << "of 8192 pixels";
        EXPECT_GT(tally.bySubpixel, 1000);
        EXPECT_GT(tally.byEdge, 500);
        EXPECT_GT(tally.horizontal, 1000);
        EXPECT_GT(tally.vertical, 1000);
    }
}

TEST_F(FxaaTest, readsLumaFromAlphaUnderTheMacroOfIts)
{
    // The pass uses green as luma.
    ChangedShaders shaders("#define FXAA_GREEN_AS_LUMA 1", "#define FXAA_GREEN_AS_LUMA 0");
    const Image image = noise(128, 64, 5);
    const Image filtered = filter(image);
    EXPECT_EQ(shaders.changed, 2) << "the pass's own text and the algorithm's";
    FxaaSettings settings;
    settings.isLumaInAlpha = true;
    int draws = 0;
    EXPECT_LE(differenceBesideDraws(filtered, image, settings, &draws), tolerance);
    EXPECT_LE(draws, 12) << "of 8192 pixels";
    EXPECT_GT(maximumDifference(filtered, fxaaReference(image, {})), 0.5) << "green gives another image";
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x)
            ASSERT_EQ(filtered.at(x, y)[3], image.at(x, y)[3]) << "luma stays luma";
    }
}

TEST_F(FxaaTest, matchesTheReferenceWithEveryPreset)
{
    // With it all sample positions are exact in single precision, and there are no ties.
    constexpr double rcpFrame = 1.0625;
    const struct
    {
        const char *name;
        std::vector<double> steps;
    } presets[] = {
        {"10", {1.5, 3, 12}},
        {"11", {1, 1.5, 3, 12}},
        {"12", {1, 1.5, 2, 4, 12}},
        {"13", {1, 1.5, 2, 2, 4, 12}},
        {"14", {1, 1.5, 2, 2, 2, 4, 12}},
        {"15", {1, 1.5, 2, 2, 2, 2, 4, 12}},
        {"20", {1.5, 2, 8}},
        {"21", {1, 1.5, 2, 8}},
        {"22", {1, 1.5, 2, 2, 8}},
        {"23", {1, 1.5, 2, 2, 2, 8}},
        {"24", {1, 1.5, 2, 2, 2, 3, 8}},
        {"25", {1, 1.5, 2, 2, 2, 2, 4, 8}},
        {"26", {1, 1.5, 2, 2, 2, 2, 2, 4, 8}},
        {"27", {1, 1.5, 2, 2, 2, 2, 2, 2, 4, 8}},
        {"28", {1, 1.5, 2, 2, 2, 2, 2, 2, 2, 4, 8}},
        {"29", {1, 1.5, 2, 2, 2, 2, 2, 2, 2, 2, 4, 8}},
        {"39", {1, 1, 1, 1, 1, 1.5, 2, 2, 2, 2, 4, 8}},
    };
    for (const bool isAlongX : {true, false}) {
        const Image image = isAlongX ? stairs() : transposed(stairs());
        std::vector<Image> references;
        for (const auto &preset : presets) {
            SCOPED_TRACE(preset.name);
            ChangedShaders shaders(
                "#define FXAA_QUALITY_PRESET 12", QByteArray("#define FXAA_QUALITY_PRESET ") + preset.name);
            pass = std::make_unique<Port>();
            pass->setInput(Port::SubPixelQuality, 0.0f);
            pass->setInput(Port::RcpFrameQuality, float(rcpFrame));
            const Image filtered = filter(image);
            EXPECT_EQ(shaders.changed, 2) << "the pass's own text and the algorithm's";
            FxaaSettings settings;
            settings.subpix = 0;
            settings.rcpFrame = rcpFrame;
            settings.steps = preset.steps;
            FxaaTally tally;
            const Image reference = fxaaReference(image, settings, &tally);
            EXPECT_LE(maximumDifference(filtered, reference), tolerance);
            EXPECT_GT(tally.byEdge, 500);
            EXPECT_GT(tally.endNotFound, 100);
            for (const Image &other : references)
                EXPECT_GT(maximumDifference(reference, other), 0.02) << "the image tells the presets apart";
            references.push_back(reference);
            saveForViewing(filtered,
                QStringLiteral("fxaa-stairs-%1-%2").arg(isAlongX ? 'x' : 'y').arg(QLatin1String(preset.name)));
        }
    }
}

TEST_F(FxaaTest, leavesFlatImagesAsTheyAre)
{
    for (const QVector4D &color :
        {QVector4D(0.5f, 0.25f, 0.75f, 1), QVector4D(0, 0, 0, 0), QVector4D(3, 7, 0.125f, 0.5f)}) {
        const Image flat = filled(31, 17, color);
        EXPECT_EQ(maximumDifference(filter(flat), flat), 0);
    }
    // Contrast below the absolute floor, and below the share of the brightest.
    Image gentle = filled(32, 32, QVector4D(0.25f, 0.25f, 0.25f, 1));
    for (int i = 0; i < 32; ++i)
        gentle.setPixel(i, i, QVector4D(0.296875f, 0.296875f, 0.296875f, 1));
    EXPECT_EQ(maximumDifference(filter(gentle), gentle), 0);
    Image bright = filled(32, 32, QVector4D(8, 8, 8, 1));
    for (int i = 0; i < 32; ++i)
        bright.setPixel(i, i, QVector4D(8.5f, 8.5f, 8.5f, 1));
    EXPECT_EQ(maximumDifference(filter(bright), bright), 0);
    // Green stands in for luma.
    Image red = filled(32, 32, QVector4D(0.25f, 0.5f, 0.25f, 1));
    for (int i = 0; i < 32; ++i)
        red.setPixel(i, i, QVector4D(1, 0.5f, 0, 1));
    EXPECT_EQ(maximumDifference(filter(red), red), 0);
}

TEST_F(FxaaTest, leavesFlatImagesOfBytesAsTheyAre)
{
    pass->setInput(Port::RenderInHDR, false);
    for (const QSize &size : {QSize(31, 17), QSize(16, 32)}) {
        for (int byte = 0; byte < 256; ++byte) {
            const QVector4D color(float(byte), float(255 - byte), float(byte * 7 % 256), float(byte * 3 % 256));
            const Image flat = filled(size.width(), size.height(), color / 255);
            const Image stored = readTexture(makeTexture(flat, GL_RGBA8).get());
            ASSERT_LE(maximumDifference(stored, flat), 1e-6);
            EXPECT_EQ(maximumDifference(filter(flat, GL_RGBA8), stored), 0) << byte;
        }
    }
}

TEST_F(FxaaTest, stretchesHorizontalStepsAlone)
{
    // A step that rises by one pixel in the middle, along x and along y.
    Image along(64, 64), across(64, 64);
    for (int i = 0; i < 64; ++i) {
        for (int j = 0; j < 64; ++j) {
            const float value = j < (i < 32 ? 32 : 33) ? 1.0f : 0.0f;
            along.setPixel(i, j, QVector4D(value, value, value, 1));
            across.setPixel(j, i, QVector4D(value, value, value, 1));
        }
    }
    pass->setInput(Port::SubPixelQuality, 0.0f);
    pass->setInput(Port::RcpFrameQuality, 1.0f);
    const Image alongPlain = filter(along);
    const Image acrossPlain = filter(across);
    for (int x = 0; x < 64; ++x) {
        for (int y = 0; y < 64; ++y)
            EXPECT_NEAR(alongPlain.pixel(x, y).x(), acrossPlain.pixel(y, x).x(), tolerance);
    }
    pass->setInput(Port::RcpFrameQuality, 1.6f);
    const Image alongWide = filter(along);
    const Image acrossWide = filter(across);
    EXPECT_GT(maximumDifference(alongWide, alongPlain), 0.05) << "the search";
    EXPECT_GT(maximumDifference(acrossWide, acrossPlain), 0.05) << "the shift across the edge";
    EXPECT_LE(maximumDifference(alongWide, fxaaReference(along, {0, 1.6, 0.125, 0.0625})), tolerance);
    EXPECT_LE(maximumDifference(acrossWide, fxaaReference(across, {0, 1.6, 0.125, 0.0625})), tolerance);
}

TEST_F(FxaaTest, alphaIsNeverBelowTheInputs)
{
    const auto expectNotBelow = [this](const Image &image, double loss) {
        const Image filtered = filter(image);
        int larger = 0;
        for (int y = 0; y < image.height; ++y) {
            for (int x = 0; x < image.width; ++x) {
                const double alpha = double(image.at(x, y)[3]);
                // One half float step below the value; at full coverage it is less than 5e-4.
                const double step =
                    loss > 0 ? std::min(std::ldexp(1.0, std::ilogb(std::max(alpha, 1e-4)) - 10), 5e-4) : 0;
                ASSERT_GE(double(filtered.at(x, y)[3]), alpha - step) << x << ' ' << y;
                larger += int(double(filtered.at(x, y)[3]) > alpha + 0.01);
            }
        }
        EXPECT_GT(larger, 500) << "what is covered spreads";
    };
    expectNotBelow(noise(128, 64, 8), 0);
    // Where pixel positions are rounded, a float frame is read with an error in the last bit, which a driver that
    // truncates half floats makes a whole step.
    expectNotBelow(noise(90, 70, 8), 1.0 / 1024);
    // 8-bit targets are rounded.
    pass->setInput(Port::RenderInHDR, false);
    Image bytes = noise(90, 70, 8);
    for (float &channel : bytes.data)
        channel = channel * 256 / 255;
    expectNotBelow(readTexture(makeTexture(bytes, GL_RGBA8).get()), 0);

    // Opaque stays opaque.
    for (const bool isHdr : {false, true}) {
        pass->setInput(Port::RenderInHDR, isHdr);
        Image image = noise(90, 70, 8);
        for (int i = 0; i < 90 * 70; ++i)
            image.at(i % 90, i / 90)[3] = 1;
        const Image opaque = filter(image);
        for (int i = 0; i < 90 * 70; ++i)
            ASSERT_EQ(opaque.at(i % 90, i / 90)[3], 1) << i;
    }
}

TEST_F(FxaaTest, invalidValuesGiveASecondSetOfNumbers)
{
    const Image image = renderedScene(QSize(128, 128));
    const auto expectSettings = [&](const FxaaSettings &settings) {
        EXPECT_LE(maximumDifference(filter(image), fxaaReference(image, settings)), tolerance);
    };
    const int ports[] = {
        Port::SubPixelQuality, Port::RcpFrameQuality, Port::EdgeThresholdQuality, Port::EdgeThresholdMinQuality};
    expectSettings({1.0, 1.1, 0.125, 0.0625});
    const Image constructed = filter(image);
    for (const int port : ports)
        pass->setInput(port, QVariant());
    expectSettings({0.75, 1.0, 0.166, 0.0});
    EXPECT_GT(maximumDifference(constructed, filter(image)), 0.02) << "the two sets differ";

    // Defaults depend on the input being invalid: a valid value that does not convert is 0, and one that converts is
    // used.
    for (const int port : ports)
        pass->setInput(port, QStringLiteral("1.25"));
    pass->setInput(Port::EdgeThresholdQuality, 0.3);
    pass->setInput(Port::EdgeThresholdMinQuality, QRect());
    expectSettings({1.25, 1.25, 0.3, 0.0});
}

TEST_F(FxaaTest, anInvalidSubPixelQualityAloneIs075)
{
    const Image image = renderedScene(QSize(128, 128));
    pass->setInput(Port::SubPixelQuality, QVariant());
    const Image filtered = filter(image);
    EXPECT_LE(maximumDifference(filtered, fxaaReference(image, {0.75, 1.1, 0.125, 0.0625})), tolerance);
    const Image other = fxaaReference(image, {1.0, 1.1, 0.125, 0.0625});
    EXPECT_GT(maximumDifference(filtered, other), 0.02);
    EXPECT_GT(pixelsBeyond(filtered, other, 1e-3), 50);
}

TEST_F(FxaaTest, hdrChangesTheFormatAlone)
{
    const Image image = noise(40, 30, 21);
    const Image hdr = filter(image);
    const std::unique_ptr<Texture> texture = makeTexture(image, GL_RGBA32F);
    setFrame(texture.get());
    pass->setNumOutputUsers(0, 1);
    for (const auto &[value, format] : {std::pair{QVariant(true), GL_RGBA16F}, {QVariant(false), GL_RGBA8},
             {QVariant(), GL_RGBA8}, {QVariant(QRect()), GL_RGBA8}, {QVariant(1), GL_RGBA16F}}) {
        pass->setInput(Port::RenderInHDR, value);
        pass->start(nullptr);
        EXPECT_EQ(frame()->internalFormat(0), format);
        EXPECT_EQ(frame()->width(0), 40);
        EXPECT_EQ(frame()->height(0), 30);
        EXPECT_LE(maximumDifference(readTexture(frame()), hdr), 0.5 / 255 + tolerance);
        TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
    }
}

TEST_F(FxaaTest, putsTheInputsFiltersBack)
{
    const std::unique_ptr<Texture> texture = makeTexture(noise(16, 16, 1), GL_RGBA16F);
    pass->setInput(Port::Viewport, QRect(0, 0, 16, 16));
    setFrame(texture.get());
    for (const auto &[minFilter, magFilter] : {std::pair{GL_NEAREST, GL_NEAREST}, {GL_LINEAR, GL_NEAREST},
             {GL_NEAREST_MIPMAP_LINEAR, GL_LINEAR}, {GL_NEAREST, GL_LINEAR}}) {
        texture->bind();
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, minFilter);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, magFilter);
        texture->unbind();
        GLint during[2] = {};
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        GLCallRecorder<&epoxy_glDrawElements> indexedDraws;
        const auto look = [&during] {
            glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &during[0]);
            glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, &during[1]);
        };
        draws.onCall = [look](GLenum, GLint, GLsizei) { look(); };
        indexedDraws.onCall = [look](GLenum, GLsizei, GLenum, const void *) { look(); };
        pass->start(nullptr);
        EXPECT_EQ(draws.calls.size() + indexedDraws.calls.size(), 1u);
        EXPECT_EQ(during[0], GL_LINEAR);
        EXPECT_EQ(during[1], GL_LINEAR);
        GLint after[2] = {};
        texture->bind();
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &after[0]);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, &after[1]);
        texture->unbind();
        EXPECT_EQ(after[0], minFilter);
        EXPECT_EQ(after[1], magFilter);
    }
}

TEST_F(FxaaTest, isEmptyWithoutAFrame)
{
    filter(noise(8, 8, 1));
    const GLObjectCounts before = glObjectCounts();
    for (const QVariant &nothing : {QVariant(), QVariant::fromValue<Texture *>(nullptr), QVariant(3)}) {
        pass->setInput(Port::Frame, nothing);
        GLCallRecorder<&epoxy_glClear> clears;
        pass->start(nullptr);
        EXPECT_FALSE(pass->output(0).isValid());
        EXPECT_TRUE(clears.calls.empty());
    }
    FastApproximateAntiAliasingRenderPass untouched;
    untouched.start(nullptr);
    EXPECT_FALSE(untouched.output(0).isValid());
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_EQ(PooledTextures::allReferences(), 0);
    EXPECT_EQ(pass->errorCode(), 0u);
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(FxaaTest, aMultisampledFrameGivesNoPictureAndNoError)
{
    const std::unique_ptr<Texture> texture = makeMultisampleTexture(noise(8, 8, 2), GL_RGBA8, 4);
    pass->setInput(Port::Viewport, QRect(0, 0, 8, 8));
    setFrame(texture.get());
    pass->setNumOutputUsers(0, 1);
    pass->start(nullptr);
    ASSERT_NE(frame(), nullptr);
    const Image result = readTexture(frame());
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(result.pixel(i % 8, i / 8).toVector3D(), QVector3D(0, 0, 0));
    TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
}

TEST_F(FxaaTest, handsOnOneReferenceForEachUser)
{
    Texture *const input = textures.take(TextureFormat::HighDynamicRange, noise(6, 6, 1), 3);
    pass->setInput(Port::Viewport, QRect(0, 0, 6, 6));
    setFrame(input);
    pass->setNumOutputUsers(Port::FrameOut, 2);
    pass->start(nullptr);
    Texture *const first = frame();
    EXPECT_EQ(PooledTextures::references(first), 2);
    EXPECT_EQ(PooledTextures::references(input), 2) << "the pass gave its use back";
    TextureManager::Instance()->releaseTempTextureRef(first, 2);

    pass->setNumOutputUsers(Port::FrameOut, 0);
    pass->start(nullptr);
    EXPECT_EQ(frame(), first);
    EXPECT_EQ(PooledTextures::references(first), 0);
    EXPECT_EQ(PooledTextures::references(input), 1);

    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::FrameOut).isValid());
    EXPECT_EQ(PooledTextures::references(input), 0) << "a skipped pass gives it back too";
    EXPECT_EQ(PooledTextures::allReferences(), 0);
}

TEST_F(FxaaTest, unbindsAfterTheResultIsHandedOn)
{
    Texture *const input = textures.take(TextureFormat::HighDynamicRange, noise(6, 6, 1), 2);
    pass->setInput(Port::Viewport, QRect(0, 0, 6, 6));
    setFrame(input);
    pass->start(nullptr); // Creates the objects.
    TextureManager::Instance()->addTempTextureRef(input, 1);
    int detached = 0;
    GLCallRecorder<&epoxy_glFramebufferTexture> changes;
    changes.onCall = [&](GLenum, GLenum, GLuint texture, GLint) {
        if (texture != 0)
            return;
        ++detached;
        EXPECT_NE(input->unit(), 0);
        EXPECT_NE(glInteger(GL_CURRENT_PROGRAM), 0);
        EXPECT_NE(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
        EXPECT_NE(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    };
    pass->start(nullptr);
    EXPECT_EQ(detached, 1);
    EXPECT_EQ(input->unit(), 0);
}

TEST_F(FxaaTest, setsItsStateAndLeavesTheRest)
{
    const std::unique_ptr<Texture> texture = makeTexture(noise(12, 7, 1), GL_RGBA16F);
    pass->setInput(Port::Viewport, QRect(30, 40, 12, 7));
    setFrame(texture.get());
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_CULL_FACE);
    glViewport(1, 2, 3, 4);
    glClearColor(0.1f, 0.2f, 0.3f, 0.4f);
    GLCallRecorder<&epoxy_glClear> clears;
    GLCallRecorder<&epoxy_glViewport> viewports;
    pass->start(nullptr);
    EXPECT_EQ(clears.calls.size(), 1u);
    EXPECT_EQ(std::get<0>(clears.calls[0]), GLbitfield(GL_COLOR_BUFFER_BIT));
    EXPECT_EQ(viewports.calls.back(), std::make_tuple(0, 0, 12, 7)) << "the rectangle's origin does not count";
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_TRUE(glFlag(GL_CULL_FACE));
    GLfloat clearColor[4] = {};
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clearColor);
    EXPECT_EQ(clearColor[3], 0.4f);
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(texture->unit(), 0);
}

TEST_F(FxaaTest, takesItsObjectsAlong)
{
    const std::unique_ptr<Texture> texture = makeTexture(noise(4, 4, 1), GL_RGBA16F);
    pass->setInput(Port::Viewport, QRect(0, 0, 4, 4));
    setFrame(texture.get());
    pass->start(nullptr); // Creates what the device and the pool keep.
    const GLObjectCounts before = glObjectCounts();
    {
        FastApproximateAntiAliasingRenderPass other;
        other.setInput(Port::Viewport, QRect(0, 0, 4, 4));
        other.setInput(Port::Frame, QVariant::fromValue(texture.get()));
        for (int i = 0; i < 3; ++i)
            other.start(nullptr);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        EXPECT_EQ(glObjectCounts().textures, before.textures);
        other.teardownContextData(nullptr);
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(FxaaTest, everyPresetCompiles)
{
    const QString main = QStringLiteral(R"(#version 150
uniform sampler2D u_Input;
in vec2 vo_TexCoord;
out vec4 out_FragColor;
#include "FXAA.glslh"
void main()
{
    vec4 zero = vec4(0.0);
    out_FragColor = FxaaPixelShader(vo_TexCoord, zero, u_Input, u_Input, u_Input, vec2(0.01), zero, zero, zero, 1.0, 0.1,
        0.1, 8.0, 0.125, 0.05, zero);
}
)");
    const QString vertex =
        QStringLiteral("#version 150\nin vec3 va_Vertex;\nin vec2 va_TexCoord;\nout vec2 vo_TexCoord;\n"
                       "void main() { gl_Position = vec4(va_Vertex, 1.0); vo_TexCoord = va_TexCoord; }\n");
    const auto links = [&](const char *preset, const char *green) {
        GLSLMacroProcessor macros;
        macros.addDefine(QStringLiteral("FXAA_QUALITY_PRESET"), QString::fromUtf8(preset));
        macros.addDefine(QStringLiteral("FXAA_GREEN_AS_LUMA"), QString::fromUtf8(green));
        ShaderProgram program(nullptr);
        program.setMacroProcessor(&macros);
        program.addShader(GL_VERTEX_SHADER, vertex, QString());
        program.addShader(GL_FRAGMENT_SHADER, main, QString());
        program.addShaderFromFile(GL_FRAGMENT_SHADER, QStringLiteral("FXAA.glslc"));
        return program.compile() && program.link();
    };
    for (const char *preset :
        {"10", "11", "12", "13", "14", "15", "20", "21", "22", "23", "24", "25", "26", "27", "28", "29", "39"}) {
        EXPECT_TRUE(links(preset, "1")) << preset;
        EXPECT_TRUE(links(preset, "0")) << preset;
    }
    EXPECT_FALSE(links("16", "1"));
    log.clear();
}

} // namespace Velmora::Kvz
