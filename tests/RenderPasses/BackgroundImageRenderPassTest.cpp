// SPDX-License-Identifier: MIT
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/ImageFiles.h"
#include "support/PoolEntries.h"
#include "support/PooledTextures.h"

#include <GL/GLStatistics.h>
#include <RenderPasses/BackgroundImageRenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Port = BackgroundImageRenderPass;

constexpr int width = 8;
constexpr int height = 6;
/// Images and result are stored as half floats, which keep 11 significant bits, and sums go up to 2.
constexpr float tolerance = 4.0f / 1024;

class BackgroundImageRenderPassTest : public GLTest
{
protected:
    TemporaryFolder folder;
    PooledTextures pool;
    std::unique_ptr<BackgroundImageRenderPass> pass = std::make_unique<BackgroundImageRenderPass>();
    // As large as the viewport, so each pixel shows one texel.
    const QImage first = distinctImage(width, height, QImage::Format_ARGB32, 1);
    const QImage second = distinctImage(width, height, QImage::Format_ARGB32, 2);
    QString firstPath;
    QString secondPath;
    Image content{width, height};
    std::unique_ptr<Texture> frameTexture;
    std::unique_ptr<Texture> normalTexture;

    void SetUp() override
    {
        GLTest::SetUp();
        firstPath = writeImage(folder, "first.png", first);
        secondPath = writeImage(folder, "second.png", second);
        for (int i = 0; i < width * height; ++i)
            content.setPixel(
                i % width, i / width, QVector4D(float(i) / 64, 1 - float(i) / 64, 0.25f, float(i % 5) / 4));
        frameTexture = makeTexture(content, GL_RGBA32F);
        pass->setInput(Port::Viewport, QRect(0, 0, width, height));
        pass->setInput(Port::SourceFrame, QVariant::fromValue(frameTexture.get()));
        pass->setInput(Port::FadeImageUrl1, firstPath);
        pass->setInput(Port::FadeImageUrl2, secondPath);
    }

    /// Sets one material id per pixel, in the form in which alpha stores it.
    void setIds(const std::function<float(int, int)> &alpha)
    {
        Image normals(width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                normals.setPixel(x, y, QVector4D(0.1f, 0.2f, 0.3f, alpha(x, y)));
        }
        normalTexture = makeTexture(normals, GL_RGBA32F);
        pass->setInput(Port::Normal, QVariant::fromValue(normalTexture.get()));
    }
    void setFades(const QVariant &ratio1, const QVariant &ratio2, const QVariant &floor)
    {
        pass->setInput(Port::FadeRatio, ratio1);
        pass->setInput(Port::FadeRatio2, ratio2);
        pass->setInput(Port::FadeRatioFloor, floor);
    }
    Texture *frame() const { return pass->output(Port::Frame).value<Texture *>(); }
    Image run()
    {
        pass->start(nullptr);
        return readTexture(frame());
    }
    /// Both images upright: the file's top row is the frame's top row.
    QVector4D background(int x, int y, float ratio1, float ratio2) const
    {
        return colorAt(first, x, height - 1 - y) * ratio1 + colorAt(second, x, height - 1 - y) * ratio2;
    }
    bool matches(const Image &image, const std::function<QVector4D(int, int)> &expected)
    {
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                if ((image.pixel(x, y) - expected(x, y)).length() > tolerance) {
                    ADD_FAILURE() << "pixel " << x << ", " << y << ": " << image.pixel(x, y).x() << ", alpha "
                                  << image.pixel(x, y).w() << " instead of " << expected(x, y).x() << ", alpha "
                                  << expected(x, y).w();
                    return false;
                }
            }
        }
        return true;
    }
};

} // namespace

TEST_F(BackgroundImageRenderPassTest, crossFadesTwoImagesBehindTheFrame)
{
    setIds([](int x, int) { return x % 2 ? 4.0f : 0.0f; });
    for (const auto &fades : {std::make_pair(1.0f, 0.0f), std::make_pair(0.0f, 1.0f), std::make_pair(0.25f, 0.75f),
             std::make_pair(1.0f, 1.0f), std::make_pair(-0.5f, 0.5f)}) {
        setFades(fades.first, fades.second, 0.5f);
        const Image image = run();
        EXPECT_TRUE(matches(image,
            [&](int x, int y) { return x % 2 ? content.pixel(x, y) : background(x, y, fades.first, fades.second); }))
            << fades.first << ", " << fades.second;
    }
    EXPECT_EQ(frame()->internalFormat(0), GL_RGBA16F);
}

TEST_F(BackgroundImageRenderPassTest, everyBranchOfTheMaterialIds)
{
    // As stored; the id is the absolute integer part less 1, so 0.9 is no geometry and -3.9 is material 2.
    const float stored[] = {0.0f, 0.9f, -0.9f, 1.0f, -1.0f, 1.5f, 2.0f, -2.0f, 3.0f, -3.0f, 3.9f, -3.9f, 4.0f, -4.0f,
        256.0f, -256.0f, 100000.0f};
    constexpr int count = sizeof(stored) / sizeof(stored[0]);
    setIds([&](int x, int y) { return stored[(x + y * width) % count]; });
    setFades(0.75f, 0.25f, 0.25f);
    for (int floor : {-2, -1, 0, 1, 2, 3, 255, 99999}) {
        SCOPED_TRACE(floor);
        pass->setInput(Port::FloorMaterialId, floor);
        EXPECT_TRUE(matches(run(), [&](int x, int y) {
            const int id = std::abs(int(stored[(x + y * width) % count])) - 1;
            const QVector4D behind = background(x, y, 0.75f, 0.25f);
            if (id == -1)
                return behind;
            if (id == floor)
                return content.pixel(x, y) * 0.25f + behind * 0.75f;
            return content.pixel(x, y);
        }));
    }
}

TEST_F(BackgroundImageRenderPassTest, theFloorFadesFromTheImagesToTheFrame)
{
    setIds([](int, int) { return -3.0f; });
    pass->setInput(Port::FloorMaterialId, 2);
    for (float share : {0.0f, 0.5f, 1.0f, 1.5f}) {
        setFades(1.0f, 0.0f, share);
        EXPECT_TRUE(matches(run(), [&](int x, int y) {
            return content.pixel(x, y) * share + background(x, y, 1, 0) * (1 - share);
        })) << share;
    }
}

TEST_F(BackgroundImageRenderPassTest, unsetRatiosAreZero)
{
    setIds([](int x, int) { return x % 2 ? 1.0f : 0.0f; });
    setFades(QVariant(), QVariant(), QVariant());
    EXPECT_TRUE(matches(run(), [&](int x, int y) { return x % 2 ? content.pixel(x, y) : QVector4D(0, 0, 0, 0); }));
    // An unset floor id means material 0.
    pass->setInput(Port::FloorMaterialId, QVariant());
    EXPECT_TRUE(matches(run(), [&](int, int) { return QVector4D(0, 0, 0, 0); }));
}

TEST_F(BackgroundImageRenderPassTest, aPathCountsOnce)
{
    setIds([](int, int) { return 0.0f; });
    setFades(1.0f, 0.0f, 0.0f);
    const Image before = run();
    pass->setInput(Port::FadeImageUrl1, secondPath);
    pass->setInput(Port::FadeImageUrl2, firstPath);
    EXPECT_EQ(maximumDifference(run(), before), 0);
    pass->teardown(nullptr);
    EXPECT_EQ(maximumDifference(run(), before), 0) << "the images stay";
}

TEST_F(BackgroundImageRenderPassTest, aSecondPassReadsNoFile)
{
    setIds([](int, int) { return 0.0f; });
    setFades(1.0f, 0.5f, 0.0f);
    const Image before = run();
    ASSERT_TRUE(QFile::remove(firstPath));
    ASSERT_TRUE(QFile::remove(secondPath));
    GLCallRecorder<&epoxy_glTexImage2D> uploads;
    BackgroundImageRenderPass other;
    for (int i = 0; i < pass->numInputs(); ++i)
        other.setInput(i,
            i == Port::SourceFrame         ? QVariant::fromValue(frameTexture.get())
                : i == Port::Normal        ? QVariant::fromValue(normalTexture.get())
                : i == Port::Viewport      ? QVariant(QRect(0, 0, width, height))
                : i == Port::FadeRatio     ? QVariant(1.0f)
                : i == Port::FadeRatio2    ? QVariant(0.5f)
                : i == Port::FadeImageUrl1 ? QVariant(firstPath)
                : i == Port::FadeImageUrl2 ? QVariant(secondPath)
                                           : QVariant());
    other.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(other.output(0).value<Texture *>()), before), 0);
    EXPECT_TRUE(uploads.calls.empty());
    // The loader keeps one texture per path and options, and the pass asks for the default options.
    Texture *const texture = TextureManager::Instance()->loadTexture(firstPath, TextureLoadOptions());
    ASSERT_TRUE(texture);
    EXPECT_EQ(TextureManager::Instance()->loadTexture(firstPath), texture);
}

TEST_F(BackgroundImageRenderPassTest, aFileThatCannotBeReadIsTriedAgainAndNamedOnce)
{
    const QString late = folder.path("late.png");
    pass->setInput(Port::FadeImageUrl1, late);
    setIds([](int, int) { return 0.0f; });
    setFades(1.0f, 0.0f, 0.0f);
    const auto black = [](int, int) { return QVector4D(0, 0, 0, 1); };
    EXPECT_TRUE(matches(run(), black));
    const QStringList warnings = log.takeWarnings();
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings[0].contains(late)) << qPrintable(warnings[0]);
    EXPECT_TRUE(matches(run(), black));
    EXPECT_EQ(log.takeWarnings(), QStringList());
    writeImage(folder, "late.png", second);
    EXPECT_TRUE(matches(run(), [&](int x, int y) { return background(x, y, 0, 1); }));
}

TEST_F(BackgroundImageRenderPassTest, withoutImagesTheBackgroundIsBlackInSilence)
{
    pass->setInput(Port::FadeImageUrl1, QVariant());
    pass->setInput(Port::FadeImageUrl2, QVariant());
    setIds([](int x, int) { return x % 2 ? 1.0f : 0.0f; });
    setFades(0.5f, 0.25f, 0.0f);
    EXPECT_TRUE(matches(run(), [&](int x, int y) { return x % 2 ? content.pixel(x, y) : QVector4D(0, 0, 0, 0.75f); }));
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(BackgroundImageRenderPassTest, imagesOfAllFormatsAreConverted)
{
    setIds([](int, int) { return 0.0f; });
    for (const QImage::Format format : {QImage::Format_Grayscale8, QImage::Format_Indexed8, QImage::Format_RGBA64}) {
        const QImage image = first.convertToFormat(format);
        BackgroundImageRenderPass other;
        other.setInput(Port::Viewport, QRect(0, 0, width, height));
        other.setInput(Port::FadeImageUrl1, writeImage(folder, QStringLiteral("%1.png").arg(format), image));
        other.setInput(Port::FadeRatio, 1.0f);
        other.setInput(Port::Normal, QVariant::fromValue(normalTexture.get()));
        other.start(nullptr);
        EXPECT_TRUE(matches(readTexture(other.output(0).value<Texture *>()), [&](int x, int y) {
            return colorAt(image, x, height - 1 - y);
        })) << format;
    }
}

TEST_F(BackgroundImageRenderPassTest, theSameImageTwiceAddsUp)
{
    pass->setInput(Port::FadeImageUrl2, firstPath);
    setIds([](int, int) { return 0.0f; });
    setFades(0.25f, 0.5f, 0.0f);
    EXPECT_TRUE(matches(run(), [&](int x, int y) { return colorAt(first, x, height - 1 - y) * 0.75f; }));
}

TEST_F(BackgroundImageRenderPassTest, withoutAFrameGeometryIsBlack)
{
    setIds([](int x, int) { return x % 2 ? 1.0f : 0.0f; });
    setFades(1.0f, 0.0f, 0.0f);
    run();
    pass->setInput(Port::SourceFrame, QVariant());
    EXPECT_TRUE(matches(run(), [&](int x, int y) { return x % 2 ? QVector4D(0, 0, 0, 1) : background(x, y, 1, 0); }));
}

TEST_F(BackgroundImageRenderPassTest, givesBackWhatItTook)
{
    Texture *const source = pool.take(TextureFormat::HighDynamicRange, width, height, 2);
    Texture *const normal = pool.take(TextureFormat::HighDynamicRange, width, height, 2);
    Texture *const depth = pool.take(TextureFormat::DepthStencil, width, height, 2);
    pass->setInput(Port::SourceFrame, QVariant::fromValue(source));
    pass->setInput(Port::Normal, QVariant::fromValue(normal));
    pass->setInput(Port::Depth, QVariant::fromValue(depth));
    pass->setNumOutputUsers(0, 3);
    const int before = PooledTextures::allReferences();
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(source), 1);
    EXPECT_EQ(PooledTextures::references(normal), 1);
    EXPECT_EQ(PooledTextures::references(depth), 1);
    EXPECT_EQ(PooledTextures::references(frame()), 3);
    EXPECT_EQ(PooledTextures::allReferences(), before);
    TextureManager::Instance()->releaseTempTextureRef(frame(), 3);
    pass->skip(nullptr);
    EXPECT_EQ(PooledTextures::allReferences(), before - 6);
    EXPECT_FALSE(pass->output(0).isValid());
}

TEST_F(BackgroundImageRenderPassTest, withoutNormalsAndDepthItTakesTemporaryOnes)
{
    const int before = PooledTextures::allReferences();
    pass->setNumOutputUsers(0, 1);
    pass->start(nullptr);
    ASSERT_TRUE(frame());
    EXPECT_EQ(PooledTextures::allReferences(), before + 1);
    TextureManager::Instance()->releaseTempTextureRef(frame(), 1);

    // The substitutes, as they are bound during the draw.
    GLCallRecorder<&epoxy_glDrawArrays> draws;
    draws.onCall = [](GLenum, GLint, GLsizei) {
        const GLint depthName = attachedTexture(GL_STENCIL_ATTACHMENT);
        const GLuint program = GLuint(glInteger(GL_CURRENT_PROGRAM));
        GLint unit = -1;
        glGetUniformiv(program, glGetUniformLocation(program, "u_NormalAndMatIdTex"), &unit);
        const int active = glInteger(GL_ACTIVE_TEXTURE);
        glActiveTexture(GL_TEXTURE0 + GLenum(unit));
        const GLint normalName = glInteger(GL_TEXTURE_BINDING_2D);
        glActiveTexture(GLenum(active));
        for (const auto &[name, format, internalFormat] :
            {std::tuple(depthName, TextureFormat::DepthStencil, GL_DEPTH24_STENCIL8),
                std::tuple(normalName, TextureFormat::HighDynamicRange, GL_RGBA16F)}) {
            const TextureManager::PooledTexture substitute = poolEntry(name);
            ASSERT_TRUE(substitute.texture) << internalFormat;
            EXPECT_EQ(substitute.format, format);
            EXPECT_EQ(substitute.texture->internalFormat(0), internalFormat);
            EXPECT_EQ(QSize(substitute.texture->width(0), substitute.texture->height(0)), QSize(width, height));
            EXPECT_EQ(substitute.texture->target(), GLenum(GL_TEXTURE_2D));
        }
    };
    pass->setNumOutputUsers(0, 0);
    pass->start(nullptr);
    EXPECT_EQ(draws.calls.size(), 1u);
}

TEST_F(BackgroundImageRenderPassTest, leavesDepthAlone)
{
    Texture *const depth = pool.take(TextureFormat::DepthStencil, width, height, 2);
    setIds([](int, int) { return 0.0f; });
    setFades(1.0f, 0.0f, 0.0f);
    {
        AutoBinder binder(depth);
        const QVector<quint32> texels(width * height, 0x40000007u);
        glTexSubImage2D(
            GL_TEXTURE_2D, 0, 0, 0, width, height, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, texels.constData());
    }
    pass->setInput(Port::Depth, QVariant::fromValue(depth));
    EXPECT_TRUE(matches(run(), [&](int x, int y) { return background(x, y, 1, 0); })) << "stencil 7 masks nothing";
    EXPECT_EQ(readStencil(depth), QVector<int>(width * height, 7));
    EXPECT_NEAR(readTexture(depth).at(2, 3)[0], 0.25, 1e-6);
}

TEST_F(BackgroundImageRenderPassTest, followsTheSizeOfTheViewportAndNotItsPlace)
{
    setIds([](int, int) { return 0.0f; });
    setFades(1.0f, 0.0f, 0.0f);
    const Image before = run();
    pass->setInput(Port::Viewport, QRect(5, 7, width, height));
    EXPECT_EQ(maximumDifference(run(), before), 0);
    pass->setInput(Port::Viewport, QRect(0, 0, 2 * width, 3));
    const Image other = run();
    EXPECT_EQ(other.width, 2 * width);
    EXPECT_EQ(other.height, 3);
}

TEST_F(BackgroundImageRenderPassTest, leavesTheStateThatItSays)
{
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_STENCIL_TEST);
    glStencilMask(0xff);
    glStencilFunc(GL_ALWAYS, 5, 0x0f);
    glStencilOp(GL_REPLACE, GL_INCR, GL_INVERT);
    {
        // GL reports the reference clamped to the bits of the bound stencil buffer, so the call itself is checked.
        GLCallRecorder<&epoxy_glStencilFunc> stencilFunctions;
        pass->start(nullptr);
        ASSERT_EQ(stencilFunctions.calls.size(), 1u);
        EXPECT_EQ(stencilFunctions.calls[0], std::make_tuple(GLenum(GL_EQUAL), 0, 0xffu));
    }
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_EQ(glInteger(GL_DEPTH_WRITEMASK), GL_FALSE);
    EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
    EXPECT_EQ(glInteger(GL_STENCIL_FUNC), GL_EQUAL);
    EXPECT_EQ(glInteger(GL_STENCIL_REF), 0);
    EXPECT_EQ(glInteger(GL_STENCIL_VALUE_MASK), 0xff);
    EXPECT_EQ(glInteger(GL_STENCIL_WRITEMASK), 0);
    for (const GLenum operation : {GL_STENCIL_FAIL, GL_STENCIL_PASS_DEPTH_FAIL, GL_STENCIL_PASS_DEPTH_PASS})
        EXPECT_EQ(glInteger(operation), GL_KEEP);
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(viewport[2], width);
    EXPECT_EQ(viewport[3], height);
    glDepthMask(GL_TRUE);
    glStencilMask(~0u);
    glStencilFunc(GL_ALWAYS, 0, ~0u);
}

TEST_F(BackgroundImageRenderPassTest, makesProgramAndQuadOnceWithSetupOrWithout)
{
    GLCallRecorder<&epoxy_glLinkProgram> links;
    GLCallRecorder<&epoxy_glGenVertexArrays> vertexArrays;
    pass->setup(nullptr);
    pass->setup(nullptr);
    EXPECT_EQ(links.calls.size(), 1u);
    EXPECT_EQ(vertexArrays.calls.size(), 1u);
    pass->start(nullptr);
    pass->start(nullptr);
    pass->setInput(Port::Viewport, QRect(0, 0, 2 * width, 3));
    pass->start(nullptr);
    EXPECT_EQ(links.calls.size(), 1u);
    EXPECT_EQ(vertexArrays.calls.size(), 1u);
    BackgroundImageRenderPass other;
    other.setInput(Port::Viewport, QRect(0, 0, 2, 2));
    other.start(nullptr);
    other.start(nullptr);
    EXPECT_EQ(links.calls.size(), 2u);
    EXPECT_EQ(vertexArrays.calls.size(), 2u);
}

TEST_F(BackgroundImageRenderPassTest, deletesWhatItMadeAndNotTheImages)
{
    run();
    Texture *const image = TextureManager::Instance()->loadTexture(firstPath);
    const GLObjectCounts with = glObjectCounts();
    pass.reset();
    EXPECT_EQ(glObjectCounts().framebuffers, with.framebuffers - 1);
    EXPECT_EQ(glObjectCounts().programs, with.programs - 1);
    EXPECT_EQ(TextureManager::Instance()->loadTexture(firstPath), image);
    EXPECT_EQ(image->width(0), width);
}

} // namespace Velmora::Kvz
