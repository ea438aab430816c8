// SPDX-License-Identifier: MIT
#include "BlurReference.h"
#include "support/DrawSteps.h"
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <GL/GLStatistics.h>
#include <RenderPasses/GaussianBlurRenderPass.h>

#include <QtCore/QRect>

#include <limits>

namespace Velmora::Kvz {

namespace {

class GaussianBlurRenderPassTest : public GLTest
{
protected:
    GaussianBlurRenderPass pass{0.0f};
    PooledTextures pool;

    static void set(GaussianBlurRenderPass *blur, Texture *input, const QSize &size, float radius, float divider = 1)
    {
        blur->setInput(GaussianBlurRenderPass::Viewport, QRect(QPoint(), size));
        blur->setInput(GaussianBlurRenderPass::Source, QVariant::fromValue(input));
        blur->setInput(GaussianBlurRenderPass::BlurRadius, radius);
        blur->setInput(GaussianBlurRenderPass::ResolutionDivider, divider);
    }
    void set(Texture *input, const QSize &size, float radius, float divider = 1)
    {
        set(&pass, input, size, radius, divider);
    }
    void setStencil(Texture *stencil, const QVariant &material)
    {
        pass.setInput(GaussianBlurRenderPass::Stencil, QVariant::fromValue(stencil));
        pass.setInput(GaussianBlurRenderPass::StencilMaterial, material);
    }
    Texture *result() const { return pass.output(GaussianBlurRenderPass::Result).value<Texture *>(); }
};

/// A depth-stencil texture of the pool with these stencil values.
Texture *stencilTexture(PooledTextures *pool, int width, int height, const QVector<int> &values, int references)
{
    Texture *const texture = pool->take(TextureFormat::DepthStencil, width, height, references);
    QVector<quint32> texels;
    for (int value : values)
        texels.append(0x7fffff00u | quint32(value));
    AutoBinder binder(texture);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, texels.constData());
    return texture;
}

/// Stencil values: `inside` in an ellipse and in a bar at the lower edge, another outside.
QVector<int> stencilPattern(int width, int height, int inside)
{
    QVector<int> values;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double u = (x + 0.5) / width - 0.55;
            const double v = (y + 0.5) / height - 0.5;
            const bool isInside = u * u / 0.09 + v * v / 0.12 < 1.0 || y < 3;
            values.append(isInside ? inside : (x / 4 + y / 4) % 2 == 0 ? inside + 1 : 0);
        }
    }
    return values;
}

/// Sums the taps of a kernel one by one, first over the input, then over the result of the first draw.
Image blurredByTaps(const Image &input, const QSize &size, const Kernel &kernel)
{
    const auto draw = [&](const Image &source, int stepX, int stepY) {
        Image target(size.width(), size.height());
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const auto at = [&](double offset) {
                    return texelBetween(source, (x + 0.5 + stepX * offset) * source.width / size.width() - 0.5,
                        (y + 0.5 + stepY * offset) * source.height / size.height() - 0.5);
                };
                Color sum = {};
                for (int i = 0; i < kernel.weights.size(); ++i) {
                    for (double side : {1.0, -1.0}) {
                        const Color tap = at(side * kernel.offsets[i]);
                        for (size_t k = 0; k < 4; ++k)
                            sum[k] += tap[k] * kernel.weights[i] * (i == 0 ? 0.5 : 1.0);
                    }
                }
                setTexel(&target, x, y, sum);
            }
        }
        return target;
    };
    return draw(draw(input, 1, 0), 0, 1);
}

} // namespace

TEST_F(GaussianBlurRenderPassTest, blursAPhotographAsADirectGaussianDoes)
{
    const Image input = photograph(96, 72);
    const auto texture = makeTexture(input, GL_RGBA32F);
    saveForViewing(input, QStringLiteral("gaussian-input"));
    for (float radius : {1.25f, 2.0f, 5.3f, 11.0f}) {
        set(texture.get(), QSize(96, 72), radius);
        pass.start(nullptr);
        EXPECT_EQ(result()->internalFormat(0), GL_RGBA16F);
        const Image image = readTexture(result());
        const std::string name = "radius " + std::to_string(radius);
        saveForViewing(image, QStringLiteral("gaussian-%1").arg(double(radius)));

        const int reach = reachOf(radius, 3.0f);
        const Image direct = gaussianBlurred(input, double(radius), reach);
        EXPECT_LE(deviation(name + ", a Gaussian of this reach", image, direct).largest, blurTolerance(1.0));
        // An endless Gaussian has 0.3 per cent of its weight beyond three standard deviations on each axis; moving that
        // share changes an edge of full contrast by at most twice as much.
        const Image endless = gaussianBlurred(input, double(radius), int(std::ceil(6.0f * radius)));
        EXPECT_LE(deviation(name + ", an endless Gaussian", image, endless).largest, blurTolerance(1.0) + 4 * 0.0027);
        EXPECT_GT(maximumDifference(image, input), 0.3) << "a blur that is none";
    }
}

TEST_F(GaussianBlurRenderPassTest, keepsBrightAndNegativeColours)
{
    Image input = photograph(48, 40, 12.0f);
    for (int x = 0; x < 20; ++x)
        input.setPixel(x, 5, QVector4D(-2.0f, -1.0f, 3.0f, 0.25f));
    const auto texture = makeTexture(input, GL_RGBA32F);
    set(texture.get(), QSize(48, 40), 3.0f);
    pass.start(nullptr);
    const Image direct = gaussianBlurred(input, 3.0, reachOf(3.0f, 3.0f));
    EXPECT_LE(deviation("up to 12", readTexture(result()), direct).largest, blurTolerance(12.0));
}

TEST_F(GaussianBlurRenderPassTest, worksAtALowerResolution)
{
    const Image input = photograph(120, 96);
    const auto texture = makeTexture(input, GL_RGBA32F);
    struct Case
    {
        float divider;
        QSize size;
        double largest; // Difference from a direct Gaussian: where the input is larger, taps skip texels.
        double mean;
    };
    for (const Case &c : {Case{2.0f, QSize(60, 48), 0.05, 0.004}, Case{3.0f, QSize(40, 32), 0.08, 0.006},
             Case{1.7f, QSize(70, 56), 0.08, 0.004}}) {
        set(texture.get(), QSize(120, 96), 2.5f, c.divider);
        pass.start(nullptr);
        const Image image = readTexture(result());
        const std::string name = "divider " + std::to_string(c.divider);
        saveForViewing(image, QStringLiteral("gaussian-divider-%1").arg(double(c.divider)));
        const Image taps = blurredByTaps(input, c.size, foldedKernel(2.5f, 3.0f));
        EXPECT_LE(deviation(name + ", its taps", image, taps).largest, blurTolerance(1.0));

        Image direct(c.size.width(), c.size.height());
        const double sigmaX = 2.5 * input.width / c.size.width();
        const double scale = double(input.width) / c.size.width();
        for (int y = 0; y < direct.height; ++y) {
            for (int x = 0; x < direct.width; ++x) {
                // Centred on the pixel, whose centre lies between texels.
                const double centreX = (x + 0.5) * scale - 0.5;
                const double centreY = (y + 0.5) * input.height / c.size.height() - 0.5;
                Color sum = {};
                double total = 0;
                const int reach = int(std::ceil(4 * sigmaX));
                for (int v = int(centreY) - reach; v <= int(centreY) + reach; ++v) {
                    for (int u = int(centreX) - reach; u <= int(centreX) + reach; ++u) {
                        const double distance = (u - centreX) * (u - centreX) + (v - centreY) * (v - centreY);
                        const double weight = std::exp(-distance / (2 * sigmaX * sigmaX));
                        const Color color = texel(input, u, v);
                        for (size_t k = 0; k < 4; ++k)
                            sum[k] += weight * color[k];
                        total += weight;
                    }
                }
                for (double &channel : sum)
                    channel /= total;
                setTexel(&direct, x, y, sum);
            }
        }
        const Deviation fromDirect = deviation(name + ", a Gaussian", image, direct);
        EXPECT_LE(fromDirect.largest, c.largest);
        EXPECT_LE(fromDirect.mean, c.mean);
    }
}

TEST_F(GaussianBlurRenderPassTest, blursASmoothPictureAlikeAtALowerResolution)
{
    // No grain and no edges finer than the distance of taps.
    const Image input = gaussianBlurred(photograph(120, 96), 3.0, 9);
    const auto texture = makeTexture(input, GL_RGBA32F);
    set(texture.get(), QSize(120, 96), 2.0f, 2.0f);
    pass.start(nullptr);
    const Image image = readTexture(result());
    const Image direct = resampled(gaussianBlurred(input, 4.0, 14), QSize(60, 48));
    EXPECT_LE(deviation("divider 2, smooth", image, direct).largest, 0.01);
    EXPECT_GT(deviation("divider 2, no blur", image, resampled(input, QSize(60, 48))).largest, 0.1);
}

TEST_F(GaussianBlurRenderPassTest, stepsByTheTexelsOfItsOwnResolution)
{
    const auto texture = makeTexture(plain(8, 8, QVector4D(0.5f, 0.25f, 0.125f, 1)), GL_RGBA32F);
    set(texture.get(), QSize(800, 600), 2.0f, 2.0f);
    VectorUniforms steps;
    GLCallRecorder<&epoxy_glDrawArrays> draws;
    QVector<QSize> viewports;
    draws.onCall = [&viewports](GLenum, GLint, GLsizei) {
        GLint viewport[4];
        glGetIntegerv(GL_VIEWPORT, viewport);
        EXPECT_EQ(viewport[0], 0);
        EXPECT_EQ(viewport[1], 0);
        viewports.append(QSize(viewport[2], viewport[3]));
    };
    glViewport(1, 2, 3, 4);
    pass.start(nullptr);
    ASSERT_EQ(steps.values.size(), 2);
    EXPECT_EQ(steps.values[0], QVector2D(0.0025f, 0.0f));
    EXPECT_EQ(steps.values[1], QVector2D(0.0f, float(1.0 / 300.0)));
    EXPECT_EQ(viewports, QVector<QSize>({QSize(400, 300), QSize(400, 300)}));
    EXPECT_EQ(result()->width(0), 400);
    EXPECT_EQ(result()->height(0), 300);
    int ofThisSize = 0;
    for (const auto &pooled : TextureManager::Instance()->pooledTextures())
        ofThisSize += pooled.width == 400 && pooled.height == 300 && pooled.format == TextureFormat::HighDynamicRange;
    EXPECT_EQ(ofThisSize, 2);
    EXPECT_NEAR(readTexture(result()).pixel(200, 299).x(), 0.5f, 1e-3f);
}

TEST_F(GaussianBlurRenderPassTest, truncatesTheSizeAndKeepsTheDividerAboveZero)
{
    const auto texture = makeTexture(plain(2, 2, QVector4D(1, 1, 1, 1)), GL_RGBA32F);
    const auto size = [&](const QVariant &divider, int width, int height) {
        set(texture.get(), QSize(width, height), 2.0f);
        pass.setInput(GaussianBlurRenderPass::ResolutionDivider, divider);
        pass.start(nullptr);
        return QSize(result()->width(0), result()->height(0));
    };
    EXPECT_EQ(size(2.0f, 15, 9), QSize(7, 4));
    EXPECT_EQ(size(1.5f, 10, 10), QSize(6, 6));
    EXPECT_EQ(size(0.5f, 10, 7), QSize(20, 14));
    EXPECT_EQ(size(0.01f, 4, 3), QSize(400, 300)) << "as a float it is a little less than 0.01, and stays";
    EXPECT_EQ(size(0.0101f, 4, 3), QSize(396, 297));
    EXPECT_EQ(size(0.0f, 4, 3), QSize(400, 300));
    EXPECT_EQ(size(-5.0f, 4, 3), QSize(400, 300));
    EXPECT_EQ(size(QStringLiteral("half"), 4, 3), QSize(400, 300));
    EXPECT_EQ(size(QVariant(), 4, 3), QSize(400, 300));
    EXPECT_EQ(size(QStringLiteral("2"), 15, 9), QSize(7, 4));
}

TEST_F(GaussianBlurRenderPassTest, blursThePixelsOfOneMaterial)
{
    const Image input = photograph(96, 72);
    const QVector<int> values = stencilPattern(96, 72, 4);
    const auto isInside = [&](int x, int y) { return values[qBound(0, y, 71) * 96 + x] == 4; };
    const auto texture = makeTexture(input, GL_RGBA32F);
    Texture *const stencil = stencilTexture(&pool, 96, 72, values, 1);
    set(texture.get(), QSize(96, 72), 3.0f);
    setStencil(stencil, 3);
    for (const Color &clear : {Color{0, 0, 0, 0}, Color{0.25, 0.5, 0.75, 1}}) {
        TextureManager::Instance()->addTempTextureRef(stencil, 1);
        glClearColor(float(clear[0]), float(clear[1]), float(clear[2]), float(clear[3]));
        pass.start(nullptr);
        const Image image = readTexture(result());
        saveForViewing(image, QStringLiteral("gaussian-stencil-%1").arg(clear[3]));

        Image direct = plain(96, 72, QVector4D(0, 0, 0, 1));
        for (int y = 0; y < 72; ++y) {
            for (int x = 0; x < 96; ++x) {
                if (!isInside(x, y))
                    continue;
                // Texels that the first draw left out hold the clear colour.
                setTexel(&direct, x, y, gaussianSum(3.0, reachOf(3.0f, 3.0f), [&](int dx, int dy) {
                    return isInside(x, y + dy) ? texel(input, x + dx, y + dy) : clear;
                }));
            }
        }
        EXPECT_LE(
            deviation("stencil, clear alpha " + std::to_string(clear[3]), image, direct).largest, blurTolerance(1.0));
    }
    EXPECT_EQ(readStencil(stencil), values);
}

TEST_F(GaussianBlurRenderPassTest, doesNotScaleTheStencil)
{
    const auto texture = makeTexture(plain(8, 8, QVector4D(1, 1, 1, 1)), GL_RGBA32F);
    QVector<int> values(8 * 8, 0);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 2; ++x)
            values[y * 8 + x] = 1;
    }
    set(texture.get(), QSize(8, 8), 2.0f, 2.0f);
    setStencil(stencilTexture(&pool, 8, 8, values, 2), 0);
    pass.start(nullptr);
    const Image image = readTexture(result());
    ASSERT_EQ(image.width, 4);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 4; ++x)
            EXPECT_NEAR(image.pixel(x, y).x(), x < 2 ? 1.0f : 0.0f, 2e-3f) << x << " " << y;
    }
}

TEST_F(GaussianBlurRenderPassTest, aMaterialThatDoesNotConvertIsMaterialZero)
{
    const auto texture = makeTexture(plain(4, 4, QVector4D(1, 1, 1, 1)), GL_RGBA32F);
    QVector<int> values(16, 0);
    values[5] = 1;
    set(texture.get(), QSize(4, 4), 2.0f);
    for (const QVariant &material : {QVariant(QStringLiteral("wood")), QVariant(), QVariant(0)}) {
        setStencil(stencilTexture(&pool, 4, 4, values, 2), material);
        glClearColor(1, 1, 1, 1);
        pass.start(nullptr);
        const Image image = readTexture(result());
        EXPECT_NEAR(image.pixel(1, 1).x(), 1.0f, 2e-3f);
        EXPECT_EQ(image.pixel(0, 1), QVector4D(0, 0, 0, 1));
    }
}

TEST_F(GaussianBlurRenderPassTest, aStencilWithoutAMaterialIsDroppedAndNotGivenBack)
{
    const Image input = photograph(16, 12);
    const auto texture = makeTexture(input, GL_RGBA32F);
    Texture *const stencil = stencilTexture(&pool, 16, 12, stencilPattern(16, 12, 4), 2);
    set(texture.get(), QSize(16, 12), 2.0f);
    setStencil(stencil, -1);
    GLCallRecorder<&epoxy_glDrawArrays> draws;
    draws.onCall = [stencil](GLenum, GLint, GLsizei) {
        EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
        GLint name = 0;
        glGetFramebufferAttachmentParameteriv(
            GL_DRAW_FRAMEBUFFER, GL_STENCIL_ATTACHMENT, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &name);
        EXPECT_NE(name, 0) << "a substitute";
        EXPECT_NE(GLuint(name), stencil->textureID());
    };
    pass.start(nullptr);
    EXPECT_EQ(draws.calls.size(), 2u);
    EXPECT_EQ(pool.references(stencil), 2);
    EXPECT_EQ(pool.allReferences(), 2) << "the substitute is free again";
    const Image direct = gaussianBlurred(input, 2.0, reachOf(2.0f, 3.0f));
    EXPECT_LE(maximumDifference(readTexture(result()), direct), blurTolerance(1.0));
}

TEST_F(GaussianBlurRenderPassTest, aMaterialWithoutAStencilIsIgnored)
{
    const Image input = photograph(16, 12);
    const auto texture = makeTexture(input, GL_RGBA32F);
    set(texture.get(), QSize(16, 12), 2.0f);
    setStencil(nullptr, 3);
    pass.start(nullptr);
    const Image direct = gaussianBlurred(input, 2.0, reachOf(2.0f, 3.0f));
    EXPECT_LE(maximumDifference(readTexture(result()), direct), blurTolerance(1.0));
    EXPECT_EQ(pool.allReferences(), 0);
}

TEST_F(GaussianBlurRenderPassTest, leavesPixelsWithoutAlphaWithAStencilMask)
{
    // Texture coordinates are exact for powers of two. Elsewhere the linear filter may mix a trace of a neighbour's alpha
    // into a pixel that has none, which then counts as above 0.
    Image input = photograph(128, 64);
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 128; ++x) {
            const QVector2D fromCentre(float(x) - 70.0f, float(y) - 32.0f);
            input.at(x, y)[3] = fromCentre.length() < 28.0f ? 0.25f + 0.75f * float(x) / 128.0f : 0.0f;
        }
    }
    const auto texture = makeTexture(input, GL_RGBA32F);
    const auto direct = [&](bool isMasked) {
        const auto passes = [&](int x, int y) { return !isMasked || texel(input, x, y)[3] > 0; };
        Image image(128, 64);
        for (int y = 0; y < 64; ++y) {
            for (int x = 0; x < 128; ++x) {
                setTexel(&image, x, y,
                    !passes(x, y) ? texel(input, x, y) : gaussianSum(4.0, reachOf(4.0f, 3.0f), [&](int dx, int dy) {
                        // Texels that the first draw did not blur are read as they are.
                        return texel(input, passes(x, y + dy) ? x + dx : x, y + dy);
                    }));
            }
        }
        return image;
    };
    for (float mask : {0.0f, 1.0f, -0.5f}) {
        GaussianBlurRenderPass masked(mask);
        set(&masked, texture.get(), QSize(128, 64), 4.0f);
        masked.start(nullptr);
        const Image image = readTexture(masked.output(0).value<Texture *>());
        saveForViewing(image, QStringLiteral("gaussian-alpha-mask-%1").arg(double(mask)));
        EXPECT_LE(deviation("mask " + std::to_string(mask), image, direct(mask != 0.0f)).largest, blurTolerance(1.0));
    }
    EXPECT_GT(maximumDifference(direct(true), direct(false)), 0.2);
}

TEST_F(GaussianBlurRenderPassTest, handsTheInputOnUndrawnUpToARadiusOfOne)
{
    const Image image = photograph(8, 8);
    for (const QVariant &radius : {QVariant(1.0f), QVariant(0.5f), QVariant(0.0f), QVariant(-3.0f),
             QVariant(QStringLiteral("wide")), QVariant()}) {
        for (int users : {0, 1, 2}) {
            PooledTextures textures;
            Texture *const input = textures.take(TextureFormat::HighDynamicRange, image, 2);
            Texture *const stencil = stencilTexture(&textures, 8, 8, QVector<int>(64, 1), 2);
            const QVector<int> sampling = samplingOf(input);
            set(input, QSize(8, 8), 2.0f);
            pass.setInput(GaussianBlurRenderPass::BlurRadius, radius);
            setStencil(stencil, -1);
            pass.setNumOutputUsers(0, users);
            GLCallRecorder<&epoxy_glDrawArrays> draws;
            GLCallRecorder<&epoxy_glClear> clears;
            pass.start(nullptr);
            EXPECT_TRUE(draws.calls.empty());
            EXPECT_TRUE(clears.calls.empty());
            EXPECT_EQ(result(), input);
            EXPECT_EQ(pass.output(0).userType(), qMetaTypeId<Texture *>());
            EXPECT_EQ(textures.references(input), 1 + users);
            EXPECT_EQ(textures.references(stencil), 1) << "given back whatever the material";
            EXPECT_EQ(samplingOf(input), sampling);
        }
    }
}

TEST_F(GaussianBlurRenderPassTest, handsOnNothingUpToARadiusOfOne)
{
    set(nullptr, QSize(8, 8), 1.0f);
    pass.start(nullptr);
    EXPECT_EQ(pass.output(0).userType(), qMetaTypeId<Texture *>());
    EXPECT_EQ(result(), nullptr);
    EXPECT_EQ(pool.allReferences(), 0);
}

TEST_F(GaussianBlurRenderPassTest, buildsAProgramForEachNewRadiusAndKeepsTheOldOnes)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(texture.get(), QSize(8, 8), 2.0f);
    pass.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    {
        GaussianBlurRenderPass other(0.0f);
        const auto start = [&](float radius) {
            set(&other, texture.get(), QSize(8, 8), radius);
            other.start(nullptr);
            return glObjectCounts().programs - before.programs;
        };
        EXPECT_EQ(start(0.0f), 1) << "the first frame makes one also without a blur";
        EXPECT_EQ(start(0.0f), 1);
        EXPECT_EQ(start(1.0f), 2);
        EXPECT_EQ(start(2.0f), 3);
        EXPECT_EQ(start(2.0f), 3);
        EXPECT_EQ(start(1.0f), 4) << "none is found again";
        EXPECT_EQ(start(2.0f), 5);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays + 1);
    }
    EXPECT_EQ(glObjectCounts().programs, before.programs + 4) << "the last one alone is deleted";
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays);
}

TEST_F(GaussianBlurRenderPassTest, followsAChangeOfRadius)
{
    const Image input = photograph(32, 24);
    const auto texture = makeTexture(input, GL_RGBA32F);
    for (float radius : {4.0f, 1.5f, 8.0f}) {
        set(texture.get(), QSize(32, 24), radius);
        pass.start(nullptr);
        const Image direct = gaussianBlurred(input, double(radius), reachOf(radius, 3.0f));
        EXPECT_LE(maximumDifference(readTexture(result()), direct), blurTolerance(1.0)) << radius;
    }
}

TEST_F(GaussianBlurRenderPassTest, keepsItsObjectsThroughTeardown)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(texture.get(), QSize(8, 8), 2.0f);
    pass.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    pass.teardown(nullptr);
    pass.teardownContextData(nullptr);
    EXPECT_TRUE(glObjectCounts() == before);
    GLCallRecorder<&epoxy_glLinkProgram> links;
    pass.start(nullptr);
    EXPECT_TRUE(links.calls.empty());
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(GaussianBlurRenderPassTest, blursNothingToOpaqueBlack)
{
    set(nullptr, QSize(6, 4), 2.0f);
    glClearColor(1, 1, 1, 1);
    pass.start(nullptr);
    EXPECT_LE(maximumDifference(readTexture(result()), plain(6, 4, QVector4D(0, 0, 0, 1))), 1e-3);
    EXPECT_EQ(pool.allReferences(), 0) << "the substitute is free again";
    QObject object;
    pass.setInput(GaussianBlurRenderPass::Source, QVariant::fromValue<QObject *>(&object));
    pass.start(nullptr);
    EXPECT_LE(maximumDifference(readTexture(result()), plain(6, 4, QVector4D(0, 0, 0, 1))), 1e-3);
    // The next user of the pool finds the substitute's texture with its own content.
    Texture *const texel = pool.take(TextureFormat::HighDynamicRange, plain(1, 1, QVector4D(0.5f, 2, -1, 0.25f)), 1);
    EXPECT_EQ(readTexture(texel).pixel(0, 0), QVector4D(0.5f, 2, -1, 0.25f));
}

TEST_F(GaussianBlurRenderPassTest, givesItsInputsBackAndHandsTheResultOn)
{
    for (int users : {0, 1, 2}) {
        PooledTextures textures;
        Texture *const input = textures.take(TextureFormat::HighDynamicRange, photograph(8, 8), 2);
        Texture *const stencil = stencilTexture(&textures, 8, 8, QVector<int>(64, 1), 3);
        set(input, QSize(8, 8), 2.0f);
        setStencil(stencil, 0);
        pass.setNumOutputUsers(0, users);
        pass.start(nullptr);
        EXPECT_EQ(textures.references(input), 1);
        EXPECT_EQ(textures.references(stencil), 2);
        EXPECT_EQ(textures.references(result()), users);
        EXPECT_EQ(textures.allReferences(), 3 + users);
        TextureManager::Instance()->releaseTempTextureRef(result(), users);
    }
}

TEST_F(GaussianBlurRenderPassTest, skipGivesItsInputsBackAndClearsTheOutput)
{
    Texture *const input = pool.take(TextureFormat::HighDynamicRange, photograph(8, 8), 3);
    Texture *const stencil = stencilTexture(&pool, 8, 8, QVector<int>(64, 1), 3);
    set(input, QSize(8, 8), 2.0f);
    setStencil(stencil, 0);
    pass.start(nullptr);
    pass.skip(nullptr);
    EXPECT_EQ(pool.references(input), 1);
    EXPECT_EQ(pool.references(stencil), 1);
    EXPECT_FALSE(pass.output(0).isValid());
}

TEST_F(GaussianBlurRenderPassTest, leavesTheStateThatItSets)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(texture.get(), QSize(8, 6), 2.0f);
    setStencil(stencilTexture(&pool, 8, 6, QVector<int>(48, 1), 2), 0);
    const GLenum untouched[] = {GL_CULL_FACE, GL_BLEND};
    glFrontFace(GL_CCW);
    glBlendFunc(GL_ONE, GL_ZERO);
    for (GLenum capability : untouched)
        glEnable(capability);
    glEnable(GL_DEPTH_TEST);
    glClearColor(1, 1, 1, 0);
    GLCallRecorder<&epoxy_glStencilFunc> functions;
    pass.start(nullptr);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
    for (GLenum capability : untouched)
        EXPECT_TRUE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DEPTH_WRITEMASK), GL_FALSE);
    EXPECT_EQ(glInteger(GL_STENCIL_WRITEMASK), 0);
    // Querying GL would clamp the reference to the stencil bits of the framebuffer bound now, which has none.
    EXPECT_EQ(functions.calls, (decltype(functions.calls){{GL_EQUAL, 1, 0xffu}}));
    for (GLenum operation : {GL_STENCIL_FAIL, GL_STENCIL_PASS_DEPTH_FAIL, GL_STENCIL_PASS_DEPTH_PASS})
        EXPECT_EQ(glInteger(operation), GL_KEEP);
    GLfloat clear[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
    EXPECT_EQ(QVector4D(clear[0], clear[1], clear[2], clear[3]), QVector4D(0, 0, 0, 1));
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QRect(0, 0, 8, 6));
    EXPECT_EQ(samplingOf(texture.get()), linearAndClamped());
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
}

TEST_F(GaussianBlurRenderPassTest, leavesTheStencilStateAloneWithoutAMaterial)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(texture.get(), QSize(8, 8), 2.0f);
    GLCallRecorder<&epoxy_glStencilFunc> functions;
    GLCallRecorder<&epoxy_glStencilMask> masks;
    pass.start(nullptr);
    EXPECT_TRUE(functions.calls.empty());
    EXPECT_TRUE(masks.calls.empty());
    EXPECT_EQ(glInteger(GL_STENCIL_WRITEMASK), 0xff);
}

TEST_F(GaussianBlurRenderPassTest, readsAsManyTexelsAsItsTapsHaveSides)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    for (float radius : {1.5f, 2.0f, 7.0f, 20.0f}) {
        TextureReads reads;
        set(texture.get(), QSize(8, 8), radius);
        pass.start(nullptr);
        const int taps = foldedKernel(radius, 3.0f).weights.size();
        EXPECT_EQ(reads.counts, QVector<int>(2, 2 * taps - 1)) << radius;
    }
}

TEST_F(GaussianBlurRenderPassTest, attachesItsTargetsForTheirDrawsAlone)
{
    const auto frame = makeTexture(photograph(8, 8), GL_RGBA32F);
    set(frame.get(), QSize(8, 8), 2.0f);
    DrawSteps steps;
    pass.start(nullptr);
    EXPECT_EQ(steps.taken.join(QLatin1String(", ")),
        QStringLiteral("attach colour, attach stencil, draw, detach colour, attach colour, draw, detach colour, "
                       "detach stencil"));
}

TEST_F(GaussianBlurRenderPassTest, anEmptyViewportGivesAnEmptyResult)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    for (const QVariant &viewport : {QVariant(), QVariant(QStringLiteral("8x8")), QVariant(QRect(0, 0, 1, 1))}) {
        set(texture.get(), QSize(), 2.0f, 2.0f);
        pass.setInput(GaussianBlurRenderPass::Viewport, viewport);
        pass.start(nullptr);
        ASSERT_NE(result(), nullptr);
        EXPECT_EQ(result()->width(0), 0);
        EXPECT_EQ(result()->height(0), 0);
        EXPECT_FALSE(takeGLErrors().isEmpty()) << "there is nothing to clear";
        EXPECT_EQ(pass.errorCode(), 0u);
        EXPECT_EQ(pool.allReferences(), 0);
    }
}

TEST_F(GaussianBlurRenderPassTest, survivesRadiiThatNoDriverHasTapsFor)
{
    const auto texture = makeTexture(photograph(8, 8), GL_RGBA32F);
    for (float radius : {std::numeric_limits<float>::quiet_NaN(), 1e5f}) {
        set(texture.get(), QSize(8, 8), radius);
        pass.start(nullptr);
        ASSERT_NE(result(), nullptr);
        EXPECT_EQ(result()->width(0), 8);
        EXPECT_EQ(pool.allReferences(), 0);
        takeGLErrors();
    }
}

} // namespace Velmora::Kvz
