// SPDX-License-Identifier: MIT
#include "BlurReference.h"
#include "support/DrawSteps.h"
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <GL/GLStatistics.h>
#include <RenderPasses/StencilBlurAndBlendRenderPass.h>

#include <QtCore/QRect>
#include <QtCore/QRegularExpression>

namespace Velmora::Kvz {

namespace {

using MaskedBlur = StencilBlurAndBlendRenderPass;

class StencilBlurAndBlendRenderPassTest : public GLTest
{
protected:
    MaskedBlur pass;
    PooledTextures pool;

    static void set(MaskedBlur *blur, Texture *normal, Texture *blurred, const QSize &size, float radius)
    {
        blur->setInput(MaskedBlur::Viewport, QRect(QPoint(), size));
        blur->setInput(MaskedBlur::NormalFrame, QVariant::fromValue(normal));
        blur->setInput(MaskedBlur::BlurFrame, QVariant::fromValue(blurred));
        blur->setInput(MaskedBlur::BlurRadius, radius);
    }
    void set(Texture *normal, Texture *blurred, const QSize &size, float radius)
    {
        set(&pass, normal, blurred, size, radius);
    }
    Texture *result() const { return pass.output(MaskedBlur::Result).value<Texture *>(); }
};

/// A photograph with an alpha above 0 in a disc and in the lowest rows, 0 in a ring, below 0 at the left edge.
Image maskedPhotograph(int width, int height, unsigned seed)
{
    Image image = photograph(width, height, 1, seed);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const QVector2D fromCentre(
                (float(x) - 0.5f * float(width)) / float(height), float(y) / float(height) - 0.5f);
            const float distance = fromCentre.length();
            const bool isMasked = (distance > 0.2f && distance < 0.28f) || distance > 0.4f;
            image.at(x, y)[3] = x < 4 ? -0.5f : isMasked && y > 2 ? 0.0f : 0.3f + 0.7f * float(y) / float(height);
        }
    }
    return image;
}

/// The sum of the normal frame and the blurred one: a direct Gaussian where its alpha is above 0, unchanged elsewhere.
Image combined(const Image &normal, const Image &blurred, double radius, int reach)
{
    const auto isBlurred = [&](int x, int y) { return texel(blurred, x, y)[3] > 0; };
    Image result(normal.width, normal.height);
    for (int y = 0; y < normal.height; ++y) {
        for (int x = 0; x < normal.width; ++x) {
            Color color = texel(blurred, x, y);
            if (isBlurred(x, y)) {
                // Texels that the first draw did not blur are read as they are.
                color = gaussianSum(radius, reach,
                    [&](int dx, int dy) { return texel(blurred, isBlurred(x, y + dy) ? x + dx : x, y + dy); });
            }
            for (size_t k = 0; k < 4; ++k)
                color[k] += texel(normal, x, y)[k];
            setTexel(&result, x, y, color);
        }
    }
    return result;
}

} // namespace

TEST_F(StencilBlurAndBlendRenderPassTest, addsABlurredPhotographAsADirectGaussianDoes)
{
    const Image normal = photograph(96, 72, 1, 5);
    const Image blurred = photograph(96, 72, 1, 9);
    const auto normalTexture = makeTexture(normal, GL_RGBA32F);
    const auto blurTexture = makeTexture(blurred, GL_RGBA32F);
    for (float radius : {1.0f, 2.0f, 5.3f, 11.0f}) {
        set(normalTexture.get(), blurTexture.get(), QSize(96, 72), radius);
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        pass.start(nullptr);
        EXPECT_EQ(draws.calls.size(), 2u);
        EXPECT_EQ(result()->internalFormat(0), GL_RGBA16F);
        const Image image = readTexture(result());
        const std::string name = "radius " + std::to_string(radius);
        const Image direct = combined(normal, blurred, double(radius), reachOf(radius, 2.0f));
        EXPECT_LE(deviation(name + ", a Gaussian of this reach", image, direct).largest, blurTolerance(2.0));
        // An endless Gaussian has 4.6 per cent of its weight beyond two standard deviations on each axis; moving that
        // share changes an edge of full contrast by at most twice as much.
        const Image endless = combined(normal, blurred, double(radius), int(std::ceil(6.0f * radius)));
        EXPECT_LE(deviation(name + ", an endless Gaussian", image, endless).largest, blurTolerance(2.0) + 4 * 0.046);
    }
}

TEST_F(StencilBlurAndBlendRenderPassTest, blursWhereTheAlphaIsAboveZero)
{
    // Texture coordinates are exact for powers of two. Elsewhere the linear filter may mix a trace of a neighbour's alpha
    // into a pixel that has none, which then counts as above 0.
    const Image normal = photograph(128, 64, 1, 5);
    const Image blurred = maskedPhotograph(128, 64, 9);
    const auto normalTexture = makeTexture(normal, GL_RGBA32F);
    const auto blurTexture = makeTexture(blurred, GL_RGBA32F);
    for (float radius : {2.0f, 4.0f}) {
        set(normalTexture.get(), blurTexture.get(), QSize(128, 64), radius);
        pass.start(nullptr);
        const Image image = readTexture(result());
        saveForViewing(image, QStringLiteral("masked-blur-%1").arg(double(radius)));
        // Near the negative alpha at the left edge the alpha of the first draw decides, which the formula leaves out.
        const Image direct = combined(normal, blurred, double(radius), reachOf(radius, 2.0f));
        double largest = 0;
        int compared = 0;
        for (int y = 0; y < 64; ++y) {
            for (int x = 0; x < 128; ++x) {
                if (x >= 4 && x < 4 + 2 * reachOf(radius, 2.0f))
                    continue;
                ++compared;
                for (int k = 0; k < 4; ++k)
                    largest = std::max(largest, double(std::abs(image.at(x, y)[k] - direct.at(x, y)[k])));
            }
        }
        std::printf("             masked, radius %g: largest difference %.5f\n", double(radius), largest);
        EXPECT_LE(largest, blurTolerance(2.0));
        EXPECT_GT(compared, 100 * 64);
    }
}

TEST_F(StencilBlurAndBlendRenderPassTest, addsAFrameWithoutAlphaAsItIs)
{
    const Image normal = photograph(24, 18, 1, 5);
    Image blurred = photograph(24, 18, 1, 9);
    Image sum(24, 18);
    for (int i = 0; i < 24 * 18; ++i) {
        blurred.data[4 * i + 3] = 0;
        for (int k = 0; k < 4; ++k)
            sum.data[4 * i + k] = normal.data[4 * i + k] + blurred.data[4 * i + k];
    }
    const auto normalTexture = makeTexture(normal, GL_RGBA32F);
    const auto blurTexture = makeTexture(blurred, GL_RGBA32F);
    set(normalTexture.get(), blurTexture.get(), QSize(24, 18), 8.0f);
    pass.start(nullptr);
    EXPECT_LE(maximumDifference(readTexture(result()), sum), blurTolerance(2.0));
}

TEST_F(StencilBlurAndBlendRenderPassTest, handsTheNormalFrameOnUndrawnWithoutARadius)
{
    for (const QVariant &radius : {QVariant(0.0f), QVariant(-2.0f), QVariant(), QVariant(QStringLiteral("wide"))}) {
        for (int users : {0, 1, 2}) {
            PooledTextures textures;
            Texture *const normal = textures.take(TextureFormat::HighDynamicRange, photograph(8, 8), 2);
            Texture *const blurred = textures.take(TextureFormat::HighDynamicRange, photograph(8, 8), 2);
            const QVector<int> sampling = samplingOf(blurred);
            MaskedBlur blur;
            set(&blur, normal, blurred, QSize(8, 8), 0);
            blur.setInput(MaskedBlur::BlurRadius, radius);
            blur.setNumOutputUsers(0, users);
            GLCallRecorder<&epoxy_glDrawArrays> draws;
            GLCallRecorder<&epoxy_glLinkProgram> links;
            blur.start(nullptr);
            EXPECT_TRUE(draws.calls.empty());
            EXPECT_TRUE(links.calls.empty());
            EXPECT_EQ(blur.output(0).userType(), int(QMetaType::QObjectStar));
            EXPECT_EQ(blur.output(0).value<QObject *>(), static_cast<QObject *>(normal));
            EXPECT_EQ(textures.references(normal), 1 + users);
            EXPECT_EQ(textures.references(blurred), 1);
            EXPECT_EQ(samplingOf(blurred), sampling);
        }
    }
}

TEST_F(StencilBlurAndBlendRenderPassTest, blursAtARadiusOfOne)
{
    Image dot(9, 9);
    for (int i = 0; i < 81; ++i)
        dot.setPixel(i % 9, i / 9, QVector4D(0, 0, 0, 1));
    dot.setPixel(4, 4, QVector4D(1, 1, 1, 1));
    const auto texture = makeTexture(dot, GL_RGBA32F);
    set(nullptr, texture.get(), QSize(9, 9), 1.0f);
    pass.start(nullptr);
    const Image image = readTexture(result());
    EXPECT_LE(maximumDifference(image, gaussianBlurred(dot, 1.0, 2)), blurTolerance(1.0));
    EXPECT_LT(image.pixel(4, 4).x(), 0.2f);
    EXPECT_GT(image.pixel(5, 4).x(), 0.05f);
}

TEST_F(StencilBlurAndBlendRenderPassTest, aNullBlurFrameLeavesTheNormalFrame)
{
    const Image normal = photograph(24, 18);
    const auto texture = makeTexture(normal, GL_RGBA32F);
    set(texture.get(), nullptr, QSize(24, 18), 2.0f);
    pass.start(nullptr);
    EXPECT_LE(maximumDifference(readTexture(result()), normal), blurTolerance(1.0));
    EXPECT_EQ(pool.allReferences(), 0) << "the substitute is free again";

    // The normal frame keeps its own filters, here nearest.
    const QVector<int> sampling = samplingOf(texture.get());
    set(texture.get(), nullptr, QSize(48, 36), 2.0f);
    pass.start(nullptr);
    const Image image = readTexture(result());
    for (int y = 0; y < 36; ++y) {
        for (int x = 0; x < 48; ++x)
            ASSERT_LE((image.pixel(x, y) - normal.pixel(x / 2, y / 2)).length(), 4e-3f) << x << " " << y;
    }
    EXPECT_EQ(samplingOf(texture.get()), sampling);
}

TEST_F(StencilBlurAndBlendRenderPassTest, aNullNormalFrameLeavesTheBlur)
{
    const Image blurred = photograph(24, 18);
    const auto texture = makeTexture(blurred, GL_RGBA32F);
    glClearColor(1, 1, 1, 1);
    set(nullptr, texture.get(), QSize(24, 18), 2.0f);
    pass.start(nullptr);
    const Image direct = combined(Image(24, 18), blurred, 2.0, reachOf(2.0f, 2.0f));
    EXPECT_LE(maximumDifference(readTexture(result()), direct), blurTolerance(1.0));
    EXPECT_EQ(pool.allReferences(), 0);

    set(nullptr, nullptr, QSize(24, 18), 2.0f);
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(result()), Image(24, 18)), 0.0);
    EXPECT_EQ(pool.allReferences(), 0);
}

TEST_F(StencilBlurAndBlendRenderPassTest, buildsItsProgramsForEachNewRadiusAndKeepsTheOldOnes)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(texture.get(), texture.get(), QSize(8, 8), 2.0f);
    pass.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    {
        MaskedBlur other;
        const auto start = [&](float radius) {
            GLCallRecorder<&epoxy_glLinkProgram> links;
            set(&other, texture.get(), texture.get(), QSize(8, 8), radius);
            other.start(nullptr);
            return int(links.calls.size());
        };
        EXPECT_EQ(start(2.0f), 2);
        EXPECT_EQ(start(2.0f), 0);
        EXPECT_EQ(start(0.5f), 2);
        EXPECT_EQ(start(0.0f), 0);
        EXPECT_EQ(start(0.5f), 0);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 4);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        const GLObjectCounts running = glObjectCounts();
        other.teardown(nullptr);
        other.teardownContextData(nullptr);
        EXPECT_TRUE(glObjectCounts() == running);
    }
    EXPECT_EQ(glObjectCounts().programs, before.programs + 2) << "the last two are deleted";
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays);
}

TEST_F(StencilBlurAndBlendRenderPassTest, resolvesMultisampledFramesWithOneWarningForEachInput)
{
    const Image normal = photograph(32, 24, 1, 3);
    const Image blurred = maskedPhotograph(32, 24, 4);
    const auto normalTexture = makeMultisampleTexture(normal, GL_RGBA16F, 4);
    const auto blurTexture = makeMultisampleTexture(blurred, GL_RGBA16F, 4);
    const auto plainNormal = makeTexture(normal, GL_RGBA16F);
    const auto plainBlurred = makeTexture(blurred, GL_RGBA16F);
    log.clear();
    set(normalTexture.get(), blurTexture.get(), QSize(32, 24), 2.0f);
    pass.start(nullptr);
    const Image image = readTexture(result());

    ASSERT_EQ(log.messages().size(), 2);
    const QRegularExpression form(QStringLiteral("^\\[StencilBlurAndBlendRenderPass:[1-9][0-9]*\\] (.*)$"));
    const QString texts[] = {QStringLiteral("Multisample blur texture downsampled."),
        QStringLiteral("Multisample base texture downsampled.")};
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
    MaskedBlur other;
    set(&other, plainNormal.get(), blurTexture.get(), QSize(32, 24), 2.0f);
    other.start(nullptr);
    EXPECT_EQ(log.takeWarnings().filter(texts[0]).size(), 1);
    set(&other, normalTexture.get(), plainBlurred.get(), QSize(32, 24), 2.0f);
    other.start(nullptr);
    EXPECT_EQ(log.takeWarnings().filter(texts[1]).size(), 1);

    set(&other, plainNormal.get(), plainBlurred.get(), QSize(32, 24), 2.0f);
    other.start(nullptr);
    EXPECT_LE(maximumDifference(readTexture(other.output(0).value<Texture *>()), image), blurTolerance(2.0));
}

TEST_F(StencilBlurAndBlendRenderPassTest, resolvesToTheViewportsSize)
{
    TextureManager *const manager = TextureManager::Instance();
    manager->deleteUnusedTempTextures();
    const Image flat = filled(32, 24, QVector4D(0.25f, 0.5f, 0.125f, 1));
    const auto normal = makeMultisampleTexture(flat, GL_RGBA16F, 4);
    const auto blurred = makeMultisampleTexture(flat, GL_RGBA16F, 4);
    set(normal.get(), blurred.get(), QSize(16, 12), 2.0f);
    pass.start(nullptr);
    EXPECT_EQ(log.takeWarnings().size(), 2);
    EXPECT_EQ(readTexture(result()).width, 16);
    EXPECT_LE(maximumDifference(readTexture(result()), filled(16, 12, QVector4D(0.5f, 1, 0.25f, 2))), 4e-3);
    const auto textures = manager->pooledTextures();
    EXPECT_FALSE(textures.isEmpty());
    for (const TextureManager::PooledTexture &texture : textures)
        EXPECT_EQ(texture.width, 16) << "the copies have the viewport's size, not the frame's";
}

TEST_F(StencilBlurAndBlendRenderPassTest, givesMultisampledInputsAndTheirCopiesBack)
{
    Texture *const normal = pool.take(TextureFormat::HighDynamicRange, 8, 8, 2, 4);
    Texture *const blurred = pool.take(TextureFormat::LowDynamicRange, 8, 8, 3, 4);
    set(normal, blurred, QSize(8, 8), 2.0f);
    pass.setNumOutputUsers(0, 1);
    pass.start(nullptr);
    EXPECT_EQ(log.takeWarnings().size(), 2);
    EXPECT_EQ(pool.references(normal), 1);
    EXPECT_EQ(pool.references(blurred), 2);
    EXPECT_EQ(pool.allReferences(), 4) << "the two copies are free again";
    TextureManager::Instance()->releaseTempTextureRef(result(), 1);
}

TEST_F(StencilBlurAndBlendRenderPassTest, givesItsInputsBackAndHandsTheResultOn)
{
    for (int users : {0, 1, 2}) {
        PooledTextures textures;
        Texture *const normal = textures.take(TextureFormat::HighDynamicRange, photograph(8, 8), 2);
        Texture *const blurred = textures.take(TextureFormat::HighDynamicRange, photograph(8, 8), 3);
        set(normal, blurred, QSize(8, 8), 2.0f);
        pass.setNumOutputUsers(0, users);
        pass.start(nullptr);
        EXPECT_EQ(pass.output(0).userType(), qMetaTypeId<Texture *>());
        EXPECT_EQ(textures.references(normal), 1);
        EXPECT_EQ(textures.references(blurred), 2);
        EXPECT_EQ(textures.references(result()), users);
        EXPECT_EQ(textures.allReferences(), 3 + users);
        TextureManager::Instance()->releaseTempTextureRef(result(), users);
    }
}

TEST_F(StencilBlurAndBlendRenderPassTest, skipGivesItsInputsBackAndClearsTheOutput)
{
    Texture *const normal = pool.take(TextureFormat::HighDynamicRange, photograph(8, 8), 3);
    Texture *const blurred = pool.take(TextureFormat::HighDynamicRange, photograph(8, 8), 3);
    set(normal, blurred, QSize(8, 8), 2.0f);
    pass.start(nullptr);
    pass.skip(nullptr);
    EXPECT_EQ(pool.references(normal), 1);
    EXPECT_EQ(pool.references(blurred), 1);
    EXPECT_FALSE(pass.output(0).isValid());
}

TEST_F(StencilBlurAndBlendRenderPassTest, leavesTheStateThatItSets)
{
    const auto normal = makeTexture(photograph(8, 8), GL_RGBA32F);
    const auto blurred = makeTexture(photograph(8, 8), GL_RGBA32F);
    const QVector<int> sampling = samplingOf(normal.get());
    set(normal.get(), blurred.get(), QSize(8, 6), 2.0f);
    for (GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_CULL_FACE, GL_STENCIL_TEST})
        glEnable(capability);
    glClearColor(0.25f, 0.5f, 0.75f, 1.0f);
    glViewport(1, 2, 3, 4);
    GLCallRecorder<&epoxy_glClear> clears;
    GLCallRecorder<&epoxy_glClearColor> colors;
    pass.start(nullptr);
    EXPECT_EQ(clears.calls.size(), 2u);
    EXPECT_TRUE(colors.calls.empty());
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    for (GLenum capability : {GL_BLEND, GL_CULL_FACE, GL_STENCIL_TEST})
        EXPECT_TRUE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DEPTH_WRITEMASK), GL_FALSE);
    EXPECT_EQ(glInteger(GL_STENCIL_WRITEMASK), 0xff);
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QRect(0, 0, 8, 6));
    EXPECT_EQ(samplingOf(normal.get()), sampling);
    EXPECT_EQ(samplingOf(blurred.get()), linearAndClamped());
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
}

TEST_F(StencilBlurAndBlendRenderPassTest, attachesEachTargetForItsDrawAlone)
{
    const auto frame = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(frame.get(), frame.get(), QSize(8, 8), 2.0f);
    DrawSteps steps;
    pass.start(nullptr);
    const QStringList draw{QStringLiteral("attach colour"), QStringLiteral("draw"), QStringLiteral("detach colour")};
    EXPECT_EQ(steps.taken, draw + draw);
}

TEST_F(StencilBlurAndBlendRenderPassTest, stepsByThePixelsOfTheViewport)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(texture.get(), texture.get(), QSize(80, 60), 2.0f);
    VectorUniforms steps;
    pass.start(nullptr);
    EXPECT_EQ(steps.values, QVector<QVector2D>({QVector2D(0.0125f, 0.0f), QVector2D(0.0f, float(1.0 / 60.0))}));
}

TEST_F(StencilBlurAndBlendRenderPassTest, readsAsManyTexelsAsItsTapsHaveSidesWhereItBlurs)
{
    const auto opaque = makeTexture(photograph(8, 8), GL_RGBA32F);
    for (float radius : {0.5f, 2.0f, 7.0f}) {
        MaskedBlur blur;
        TextureReads reads;
        set(&blur, opaque.get(), opaque.get(), QSize(8, 8), radius);
        blur.start(nullptr);
        const int taps = foldedKernel(radius, 2.0f).weights.size();
        EXPECT_EQ(reads.counts, QVector<int>({2 * taps - 1, 2 * taps - 1 + 1})) << radius;
    }
    const auto transparent = makeTexture(Image(8, 8), GL_RGBA32F);
    MaskedBlur blur;
    TextureReads reads;
    set(&blur, opaque.get(), transparent.get(), QSize(8, 8), 7.0f);
    blur.start(nullptr);
    EXPECT_EQ(reads.counts[0], 1) << "a pixel without alpha skips the taps";
}

TEST_F(StencilBlurAndBlendRenderPassTest, anEmptyViewportGivesAnEmptyResult)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(texture.get(), texture.get(), QSize(), 2.0f);
    pass.setInput(MaskedBlur::Viewport, QVariant());
    pass.start(nullptr);
    ASSERT_NE(result(), nullptr);
    EXPECT_EQ(result()->width(0), 0);
    EXPECT_FALSE(takeGLErrors().isEmpty()) << "there is nothing to clear";
    EXPECT_EQ(pass.errorCode(), 0u);
}

} // namespace Velmora::Kvz
