// SPDX-License-Identifier: MIT
#include "BlurReference.h"
#include "support/DrawSteps.h"
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <GL/GLStatistics.h>
#include <RenderPasses/BlurAndCombineRenderPass.h>

#include <QtCore/QRect>
#include <QtCore/QRegularExpression>

namespace Velmora::Kvz {

namespace {

using Glow = BlurAndCombineRenderPass;

class BlurAndCombineRenderPassTest : public GLTest
{
protected:
    Glow pass;
    PooledTextures pool;

    static void set(
        Glow *glow, Texture *normal, Texture *blur, const QSize &size, float radius, float amount, float threshold = 0)
    {
        glow->setInput(Glow::Viewport, QRect(QPoint(), size));
        glow->setInput(Glow::NormalFrame, QVariant::fromValue(normal));
        glow->setInput(Glow::BlurFrame, QVariant::fromValue(blur));
        glow->setInput(Glow::BlurRadius, radius);
        glow->setInput(Glow::GlowAmount, amount);
        glow->setInput(Glow::GlowThreshold, threshold);
    }
    void set(Texture *normal, Texture *blur, const QSize &size, float radius, float amount, float threshold = 0)
    {
        set(&pass, normal, blur, size, radius, amount, threshold);
    }
    Texture *result() const { return pass.output(Glow::Result).value<Texture *>(); }
};

double luma(const Color &color)
{
    return 0.2125 * color[0] + 0.7154 * color[1] + 0.0721 * color[2];
}

/// The normal frame plus a direct Gaussian of the bright parts, weighted by the square of the amount.
Image glowing(const Image &normal, const Image &blur, double radius, double amount, double threshold)
{
    const int reach = reachOf(float(radius), 3.0f);
    Image result(normal.width, normal.height);
    for (int y = 0; y < normal.height; ++y) {
        for (int x = 0; x < normal.width; ++x) {
            Color color = gaussianSum(radius, reach, [&](int dx, int dy) {
                const Color bright = texel(blur, x + dx, y + dy);
                return threshold > 0 && luma(bright) < threshold ? Color{} : bright;
            });
            for (size_t k = 0; k < 4; ++k)
                color[k] = texel(normal, x, y)[k] + amount * amount * color[k];
            setTexel(&result, x, y, color);
        }
    }
    return result;
}

} // namespace

TEST_F(BlurAndCombineRenderPassTest, addsABlurredPhotographAsADirectGaussianDoes)
{
    const Image normal = photograph(96, 72, 1, 5);
    const Image blur = photograph(96, 72, 6, 9);
    const auto normalTexture = makeTexture(normal, GL_RGBA32F);
    const auto blurTexture = makeTexture(blur, GL_RGBA32F);
    struct Case
    {
        float radius;
        float amount;
        float threshold;
        int draws;
    };
    for (const Case &c : {Case{2.0f, 0.7f, 0.0f, 2}, Case{0.8f, 1.0f, -1.0f, 2}, Case{5.5f, 1.2f, 0.8f, 3}}) {
        set(normalTexture.get(), blurTexture.get(), QSize(96, 72), c.radius, c.amount, c.threshold);
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        pass.start(nullptr);
        EXPECT_EQ(int(draws.calls.size()), c.draws);
        EXPECT_EQ(result()->internalFormat(0), GL_RGBA16F);
        const Image image = readTexture(result());
        const QString name =
            QStringLiteral("glow-radius-%1-threshold-%2").arg(double(c.radius)).arg(double(c.threshold));
        saveForViewing(image, name);
        const Image direct = glowing(normal, blur, double(c.radius), double(c.amount), double(c.threshold));
        // The normal frame is rounded to half floats once more than the glow alone.
        const double amount = double(c.amount);
        EXPECT_LE(deviation(name.toStdString(), image, direct).largest, blurTolerance(1.0 + 6.0 * amount * amount));
        EXPECT_GT(maximumDifference(image, normal), 0.3) << "a glow that is none";
    }
}

TEST_F(BlurAndCombineRenderPassTest, appliesTheAmountTwice)
{
    const auto normal = makeTexture(plain(8, 8, QVector4D(0.25f, 0.5f, 0, 0.5f)), GL_RGBA32F);
    const auto blur = makeTexture(plain(8, 8, QVector4D(1, 0.5f, 2, 1)), GL_RGBA32F);
    set(normal.get(), blur.get(), QSize(8, 8), 2.0f, 0.5f);
    pass.start(nullptr);
    const QVector4D color = readTexture(result()).pixel(3, 3);
    const QVector4D expected(0.5f, 0.625f, 0.5f, 0.75f);
    for (int k = 0; k < 4; ++k)
        EXPECT_NEAR(color[k], expected[k], 2e-3f) << k;
}

TEST_F(BlurAndCombineRenderPassTest, keepsWhatReachesTheThreshold)
{
    // Green alone, so that the luma is a single product and exact.
    float green = 0.5f / 0.7154f;
    while (0.7154f * green > 0.5f)
        green = std::nextafter(green, 0.0f);
    while (0.7154f * green < 0.5f)
        green = std::nextafter(green, 1.0f);
    ASSERT_EQ(0.7154f * green, 0.5f);
    const auto blur = makeTexture(plain(8, 8, QVector4D(0, green, 0, 0.75f)), GL_RGBA32F);
    const auto glow = [&](float threshold) {
        set(nullptr, blur.get(), QSize(8, 8), 2.0f, 1.0f, threshold);
        pass.start(nullptr);
        return readTexture(result()).pixel(4, 4);
    };
    EXPECT_NEAR(glow(0.5f).y(), green, 2e-3f) << "equal counts as reached";
    EXPECT_NEAR(glow(0.5f).w(), 0.75f, 2e-3f) << "alpha is kept with the colour";
    EXPECT_EQ(glow(std::nextafter(0.5f, 1.0f)), QVector4D(0, 0, 0, 0)) << "alpha goes with the colour";
    EXPECT_NEAR(glow(0.25f).y(), green, 2e-3f);
}

TEST_F(BlurAndCombineRenderPassTest, handsTheNormalFrameOnUndrawnWithoutRadiusOrAmount)
{
    struct Case
    {
        const char *name;
        QVariant radius;
        QVariant amount;
    };
    const Case cases[] = {{"as constructed", 2.0f, QVariant()}, {"no amount", 2.0f, 0.0f},
        {"amount below 0", 2.0f, -1.0f}, {"amount that is none", 2.0f, QStringLiteral("much")},
        {"no radius", 0.0f, 1.0f}, {"radius below 0", -2.0f, 1.0f},
        {"radius that is none", QStringLiteral("wide"), 1.0f}, {"null radius", QVariant(), 1.0f}};
    for (const Case &c : cases) {
        for (int users : {0, 1, 2}) {
            PooledTextures textures;
            Texture *const normal = textures.take(TextureFormat::HighDynamicRange, photograph(8, 8), 2);
            Texture *const blur = textures.take(TextureFormat::HighDynamicRange, photograph(8, 8), 2);
            const QVector<int> sampling = samplingOf(normal);
            Glow glow;
            set(&glow, normal, blur, QSize(8, 8), 0, 0);
            glow.setInput(Glow::BlurRadius, c.radius);
            glow.setInput(Glow::GlowAmount, c.amount);
            glow.setNumOutputUsers(0, users);
            GLCallRecorder<&epoxy_glDrawArrays> draws;
            GLCallRecorder<&epoxy_glLinkProgram> links;
            glow.start(nullptr);
            EXPECT_TRUE(draws.calls.empty()) << c.name;
            EXPECT_TRUE(links.calls.empty()) << c.name;
            EXPECT_EQ(glow.output(0).userType(), int(QMetaType::QObjectStar)) << c.name;
            EXPECT_EQ(glow.output(0).value<QObject *>(), static_cast<QObject *>(normal)) << c.name;
            EXPECT_EQ(textures.references(normal), 1 + users) << c.name;
            EXPECT_EQ(textures.references(blur), 1) << c.name;
            EXPECT_EQ(samplingOf(normal), sampling) << c.name;
        }
    }
    const Glow untouched;
    EXPECT_FALSE(untouched.defaultValue(Glow::GlowAmount).isValid());
}

TEST_F(BlurAndCombineRenderPassTest, handsOnANullNormalFrame)
{
    pass.start(nullptr);
    EXPECT_EQ(pass.output(0).userType(), int(QMetaType::QObjectStar));
    EXPECT_EQ(pass.output(0).value<QObject *>(), nullptr);
    EXPECT_EQ(pool.allReferences(), 0);
}

TEST_F(BlurAndCombineRenderPassTest, aConsumerTakesTheFrameThatIsHandedOn)
{
    const Image image = photograph(8, 8);
    Texture *const normal = pool.take(TextureFormat::HighDynamicRange, image, 2);
    set(normal, nullptr, QSize(8, 8), 0, 1);
    pass.setNumOutputUsers(0, 1);
    pass.start(nullptr);
    Glow consumer;
    set(&consumer, nullptr, nullptr, QSize(8, 8), 2, 1);
    consumer.setInput(Glow::NormalFrame, pass.output(0));
    consumer.start(nullptr);
    EXPECT_LE(maximumDifference(readTexture(consumer.output(0).value<Texture *>()), readTexture(normal)), 1e-3);
    EXPECT_EQ(pool.references(normal), 1);
}

TEST_F(BlurAndCombineRenderPassTest, aNullBlurFrameLeavesTheNormalFrame)
{
    const Image normal = photograph(24, 18);
    const auto texture = makeTexture(normal, GL_RGBA32F);
    for (float threshold : {0.0f, 0.5f}) {
        for (const QSize &size : {QSize(24, 18), QSize(36, 30), QSize(10, 9)}) {
            set(texture.get(), nullptr, size, 2.0f, 1.0f, threshold);
            pass.start(nullptr);
            EXPECT_LE(maximumDifference(readTexture(result()), resampled(normal, size)), blurTolerance(1.0));
            EXPECT_EQ(pool.allReferences(), 0) << "the substitute is free again";
        }
    }
}

TEST_F(BlurAndCombineRenderPassTest, aNullNormalFrameLeavesTheGlow)
{
    const Image blur = photograph(24, 18);
    const auto texture = makeTexture(blur, GL_RGBA32F);
    set(nullptr, texture.get(), QSize(24, 18), 2.0f, 1.0f);
    glClearColor(1, 1, 1, 1);
    pass.start(nullptr);
    const Image direct = glowing(Image(24, 18), blur, 2.0, 1.0, 0.0);
    EXPECT_LE(maximumDifference(readTexture(result()), direct), blurTolerance(1.0));
    EXPECT_EQ(pool.allReferences(), 0);

    set(nullptr, nullptr, QSize(24, 18), 2.0f, 1.0f, 0.5f);
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(result()), Image(24, 18)), 0.0);
    EXPECT_EQ(pool.allReferences(), 0);
}

TEST_F(BlurAndCombineRenderPassTest, buildsTheBlurForEachRadiusAndTheThresholdOnce)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(texture.get(), texture.get(), QSize(8, 8), 2.0f, 1.0f, 0.5f);
    pass.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    {
        Glow other;
        const auto start = [&](float radius, float threshold) {
            GLCallRecorder<&epoxy_glLinkProgram> links;
            set(&other, texture.get(), texture.get(), QSize(8, 8), radius, 1.0f, threshold);
            other.start(nullptr);
            return int(links.calls.size());
        };
        EXPECT_EQ(start(0.0f, 0.5f), 0) << "none for a frame that is handed on";
        EXPECT_EQ(start(2.0f, 0.0f), 3) << "the threshold's also without a threshold";
        EXPECT_EQ(start(2.0f, 0.5f), 0);
        EXPECT_EQ(start(3.0f, 0.5f), 2);
        EXPECT_EQ(start(3.0f, 0.7f), 0);
        EXPECT_EQ(start(0.0f, 0.5f), 0);
        EXPECT_EQ(start(3.0f, 0.5f), 0) << "the radius in force is that of the last blur";
        EXPECT_EQ(start(2.0f, 0.5f), 2);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 7) << "old ones are kept";
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays + 1);
        const GLObjectCounts running = glObjectCounts();
        other.teardown(nullptr);
        other.teardownContextData(nullptr);
        EXPECT_TRUE(glObjectCounts() == running);
    }
    EXPECT_EQ(glObjectCounts().programs, before.programs + 4) << "the last three are deleted";
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays);
}

TEST_F(BlurAndCombineRenderPassTest, resolvesMultisampledFramesWithOneWarningForEachInput)
{
    const Image normal = photograph(32, 24, 1, 3);
    const Image blur = photograph(32, 24, 1, 4);
    const auto normalTexture = makeMultisampleTexture(normal, GL_RGBA16F, 4);
    const auto blurTexture = makeMultisampleTexture(blur, GL_RGBA16F, 4);
    log.clear();
    set(normalTexture.get(), blurTexture.get(), QSize(32, 24), 2.0f, 1.0f, 0.4f);
    pass.start(nullptr);
    const Image image = readTexture(result());
    EXPECT_LE(maximumDifference(image, glowing(normal, blur, 2.0, 1.0, 0.4)), blurTolerance(2.0));

    ASSERT_EQ(log.messages().size(), 2);
    const QRegularExpression form(QStringLiteral("^\\[BlurAndCombineRenderPass:[1-9][0-9]*\\] (.*)$"));
    const QString texts[] = {QStringLiteral("Multisample frame texture downsampled."),
        QStringLiteral("Multisample blur texture downsampled.")};
    for (int i = 0; i < 2; ++i) {
        const LogCapture::Message &message = log.messages()[i];
        EXPECT_EQ(message.type, QtWarningMsg);
        EXPECT_EQ(message.category, QStringLiteral("default"));
        EXPECT_TRUE(message.file.isEmpty());
        EXPECT_EQ(form.match(message.text).captured(1), texts[i]) << qPrintable(message.text);
    }
    log.clear();
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(result()), image), 0.0);
    EXPECT_TRUE(log.messages().isEmpty()) << "the first frame alone warns";

    // Every input of every object warns once.
    Glow other;
    const auto single = makeTexture(normal, GL_RGBA32F);
    set(&other, single.get(), blurTexture.get(), QSize(32, 24), 2.0f, 1.0f);
    other.start(nullptr);
    EXPECT_EQ(log.takeWarnings().filter(texts[1]).size(), 1);
    set(&other, normalTexture.get(), blurTexture.get(), QSize(32, 24), 2.0f, 1.0f);
    other.start(nullptr);
    const QStringList warnings = log.takeWarnings();
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings[0].endsWith(texts[0]));
}

TEST_F(BlurAndCombineRenderPassTest, resolvesToTheViewportsSize)
{
    TextureManager *const manager = TextureManager::Instance();
    manager->deleteUnusedTempTextures();
    const Image flat = filled(32, 24, QVector4D(0.25f, 0.5f, 0.125f, 1));
    const auto normal = makeMultisampleTexture(flat, GL_RGBA16F, 4);
    const auto blurred = makeMultisampleTexture(flat, GL_RGBA16F, 4);
    set(normal.get(), blurred.get(), QSize(16, 12), 2.0f, 1.0f);
    pass.start(nullptr);
    EXPECT_EQ(log.takeWarnings().size(), 2);
    EXPECT_EQ(readTexture(result()).width, 16);
    EXPECT_LE(maximumDifference(readTexture(result()), filled(16, 12, QVector4D(0.5f, 1, 0.25f, 2))), 4e-3);
    const auto textures = manager->pooledTextures();
    EXPECT_FALSE(textures.isEmpty());
    for (const TextureManager::PooledTexture &texture : textures)
        EXPECT_EQ(texture.width, 16) << "the copies have the viewport's size, not the frame's";
}

TEST_F(BlurAndCombineRenderPassTest, givesMultisampledInputsAndTheirCopiesBack)
{
    Texture *const normal = pool.take(TextureFormat::HighDynamicRange, 8, 8, 2, 4);
    Texture *const blur = pool.take(TextureFormat::LowDynamicRange, 8, 8, 3, 4);
    for (float threshold : {0.0f, 0.5f}) {
        TextureManager::Instance()->addTempTextureRef(normal, 1);
        TextureManager::Instance()->addTempTextureRef(blur, 1);
        set(normal, blur, QSize(8, 8), 2.0f, 1.0f, threshold);
        pass.setNumOutputUsers(0, 1);
        pass.start(nullptr);
        log.takeWarnings();
        EXPECT_EQ(pool.references(normal), 2);
        EXPECT_EQ(pool.references(blur), 3);
        EXPECT_EQ(pool.allReferences(), 6) << "the two copies are free again";
        TextureManager::Instance()->releaseTempTextureRef(result(), 1);
    }
}

TEST_F(BlurAndCombineRenderPassTest, givesItsInputsBackAndHandsTheResultOn)
{
    for (float threshold : {0.0f, 0.5f}) {
        for (int users : {0, 1, 2}) {
            PooledTextures textures;
            Texture *const normal = textures.take(TextureFormat::HighDynamicRange, photograph(8, 8), 2);
            Texture *const blur = textures.take(TextureFormat::HighDynamicRange, photograph(8, 8), 3);
            set(normal, blur, QSize(8, 8), 2.0f, 1.0f, threshold);
            pass.setNumOutputUsers(0, users);
            pass.start(nullptr);
            EXPECT_EQ(pass.output(0).userType(), qMetaTypeId<Texture *>());
            EXPECT_EQ(textures.references(normal), 1);
            EXPECT_EQ(textures.references(blur), 2);
            EXPECT_EQ(textures.references(result()), users);
            EXPECT_EQ(textures.allReferences(), 3 + users);
            EXPECT_NE(result(), normal);
            EXPECT_NE(result(), blur);
            TextureManager::Instance()->releaseTempTextureRef(result(), users);
        }
    }
}

TEST_F(BlurAndCombineRenderPassTest, oneTextureCanStandOnBothInputs)
{
    const Image image = photograph(24, 18);
    // The pass is the last reader of the frame on both inputs, each of which holds one reference; the pool must not
    // hand the frame out before the end.
    Texture *const texture = TextureManager::Instance()->tempTexture(TextureFormat::HighDynamicRange, 24, 18, 1, 1);
    TextureManager::Instance()->addTempTextureRef(texture, 1);
    {
        AutoBinder binder(texture);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 24, 18, GL_RGBA, GL_FLOAT, image.data.constData());
    }
    set(texture, texture, QSize(24, 18), 2.0f, 1.0f, 0.4f);
    pass.start(nullptr);
    EXPECT_NE(result(), texture);
    EXPECT_EQ(pool.references(texture), 0) << "given back once for each input";
    EXPECT_LE(maximumDifference(readTexture(result()), glowing(image, image, 2.0, 1.0, 0.4)), 2 * blurTolerance(2.0));
}

TEST_F(BlurAndCombineRenderPassTest, skipGivesItsInputsBackAndClearsTheOutput)
{
    Texture *const normal = pool.take(TextureFormat::HighDynamicRange, photograph(8, 8), 3);
    Texture *const blur = pool.take(TextureFormat::HighDynamicRange, photograph(8, 8), 3);
    set(normal, blur, QSize(8, 8), 2.0f, 1.0f);
    pass.start(nullptr);
    pass.skip(nullptr);
    EXPECT_EQ(pool.references(normal), 1);
    EXPECT_EQ(pool.references(blur), 1);
    EXPECT_FALSE(pass.output(0).isValid());
}

TEST_F(BlurAndCombineRenderPassTest, leavesTheStateThatItSets)
{
    const auto normal = makeTexture(photograph(8, 8), GL_RGBA32F);
    const auto blur = makeTexture(photograph(8, 8), GL_RGBA32F);
    for (float threshold : {0.0f, 0.5f}) {
        set(normal.get(), blur.get(), QSize(8, 6), 2.0f, 1.0f, threshold);
        for (GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_CULL_FACE, GL_STENCIL_TEST})
            glEnable(capability);
        glDepthMask(GL_TRUE);
        glClearColor(0.25f, 0.5f, 0.75f, 1.0f);
        glViewport(1, 2, 3, 4);
        pass.start(nullptr);
        EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
        for (GLenum capability : {GL_BLEND, GL_CULL_FACE, GL_STENCIL_TEST})
            EXPECT_TRUE(glFlag(capability));
        EXPECT_EQ(glInteger(GL_DEPTH_WRITEMASK), GL_FALSE);
        EXPECT_EQ(glInteger(GL_STENCIL_WRITEMASK), 0xff);
        GLfloat clear[4];
        glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
        EXPECT_EQ(QVector4D(clear[0], clear[1], clear[2], clear[3]), QVector4D(0.25f, 0.5f, 0.75f, 1));
        GLint viewport[4];
        glGetIntegerv(GL_VIEWPORT, viewport);
        EXPECT_EQ(QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QRect(0, 0, 8, 6));
        EXPECT_EQ(samplingOf(normal.get()), linearAndClamped());
        EXPECT_EQ(samplingOf(blur.get()), linearAndClamped());
        EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
        EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), 0);
        EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
        EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
        EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
    }
}

TEST_F(BlurAndCombineRenderPassTest, clearsEachTargetWithTheColourInForce)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(texture.get(), texture.get(), QSize(8, 8), 2.0f, 1.0f, 0.5f);
    GLCallRecorder<&epoxy_glClear> clears;
    GLCallRecorder<&epoxy_glClearColor> colors;
    pass.start(nullptr);
    ASSERT_EQ(clears.calls.size(), 3u);
    for (const auto &call : clears.calls)
        EXPECT_EQ(std::get<0>(call), GLbitfield(GL_COLOR_BUFFER_BIT));
    EXPECT_TRUE(colors.calls.empty());
}

TEST_F(BlurAndCombineRenderPassTest, attachesEachTargetForItsDrawAlone)
{
    const auto frame = makeTexture(photograph(8, 8), GL_RGBA32F);
    const QStringList draw{QStringLiteral("attach colour"), QStringLiteral("draw"), QStringLiteral("detach colour")};
    for (const float threshold : {0.0f, 0.5f}) {
        set(frame.get(), frame.get(), QSize(8, 8), 2.0f, 1.0f, threshold);
        DrawSteps steps;
        pass.start(nullptr);
        EXPECT_EQ(steps.taken, threshold > 0 ? draw + draw + draw : draw + draw) << threshold;
    }
}

TEST_F(BlurAndCombineRenderPassTest, stepsByThePixelsOfTheViewport)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(texture.get(), texture.get(), QSize(80, 60), 2.0f, 1.0f);
    VectorUniforms steps;
    pass.start(nullptr);
    EXPECT_EQ(steps.values, QVector<QVector2D>({QVector2D(0.0125f, 0.0f), QVector2D(0.0f, float(1.0 / 60.0))}));
}

TEST_F(BlurAndCombineRenderPassTest, readsAsManyTexelsAsItsTapsHaveSides)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    for (float radius : {0.5f, 2.0f, 7.0f}) {
        Glow glow;
        TextureReads reads;
        set(&glow, texture.get(), texture.get(), QSize(8, 8), radius, 1.0f, 0.5f);
        glow.start(nullptr);
        const int taps = foldedKernel(radius, 3.0f).weights.size();
        EXPECT_EQ(reads.counts, QVector<int>({1, 2 * taps - 1, 2 * taps - 1 + 1})) << radius;
    }
}

TEST_F(BlurAndCombineRenderPassTest, anEmptyViewportGivesAnEmptyResult)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(texture.get(), texture.get(), QSize(), 2.0f, 1.0f, 0.5f);
    pass.setInput(Glow::Viewport, QVariant());
    pass.start(nullptr);
    ASSERT_NE(result(), nullptr);
    EXPECT_EQ(result()->width(0), 0);
    EXPECT_EQ(result()->height(0), 0);
    EXPECT_FALSE(takeGLErrors().isEmpty()) << "there is nothing to clear";
    EXPECT_EQ(pass.errorCode(), 0u);
}

} // namespace Velmora::Kvz
