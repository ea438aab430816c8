// SPDX-License-Identifier: MIT
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/ImageFiles.h"
#include "support/PooledTextures.h"

#include <GL/AutoBinder.h>
#include <GL/GLStatistics.h>
#include <RenderPasses/CubemapLoaderRenderPass.h>

#include <epoxy/gl.h>

#include <set>

namespace Velmora::Kvz {

namespace {

/// 8 bits a channel hold k / 255 exactly.
constexpr double exact = 1e-6;

class CubemapLoaderRenderPassTest : public GLTest
{
protected:
    TemporaryFolder folder;
    std::unique_ptr<CubemapLoaderRenderPass> pass = std::make_unique<CubemapLoaderRenderPass>();

    Texture *texture() const { return pass->output(CubemapLoaderRenderPass::Cubemap).value<Texture *>(); }
    Texture *load(const QStringList &paths)
    {
        for (int face = 0; face < 6; ++face)
            pass->setInput(face, paths.value(face).isNull() ? QVariant() : QVariant(paths.value(face)));
        pass->start(nullptr);
        return texture();
    }
    /// Six faces of one size, all different.
    QStringList writeFaces(const QString &name, int side, int seed)
    {
        QStringList paths;
        for (int face = 0; face < 6; ++face) {
            paths.append(writeImage(folder, QStringLiteral("%1-%2.png").arg(name).arg(face),
                distinctImage(side, side, QImage::Format_ARGB32, seed + face)));
        }
        return paths;
    }
    int faceParameter(int face, GLenum name, int level = 0)
    {
        AutoBinder binder(texture());
        GLint value = 0;
        glGetTexLevelParameteriv(GL_TEXTURE_CUBE_MAP_POSITIVE_X + GLenum(face), level, name, &value);
        return value;
    }
    /// The texels of a face in the order in which they were uploaded.
    Image readFace(int face)
    {
        Image image(faceParameter(face, GL_TEXTURE_WIDTH), faceParameter(face, GL_TEXTURE_HEIGHT));
        AutoBinder binder(texture());
        glGetTexImage(GL_TEXTURE_CUBE_MAP_POSITIVE_X + GLenum(face), 0, GL_RGBA, GL_FLOAT, image.data.data());
        return image;
    }
    int parameter(GLenum name)
    {
        AutoBinder binder(texture());
        GLint value = 0;
        glGetTexParameteriv(GL_TEXTURE_CUBE_MAP, name, &value);
        return value;
    }
};

Image expectedTexels(const QImage &image)
{
    return asBgraTexels(bitsOf(image), image.width(), image.height());
}

} // namespace

TEST_F(CubemapLoaderRenderPassTest, putsEachFileOnItsFaceRowByRow)
{
    const QStringList paths = writeFaces("a", 5, 0);
    ASSERT_TRUE(load(paths));
    EXPECT_EQ(texture()->target(), unsigned(GL_TEXTURE_CUBE_MAP));
    for (int face = 0; face < 6; ++face) {
        const QImage image(paths[face]);
        const Image loaded = readFace(face);
        EXPECT_LT(maximumDifference(loaded, expectedTexels(image)), exact) << face;
        EXPECT_LT((loaded.pixel(1, 0) - colorAt(image, 1, 0)).length(), exact) << "the top row first";
        EXPECT_EQ(faceParameter(face, GL_TEXTURE_WIDTH, 1), 2) << "mip levels";
    }
    for (GLenum name : {GL_TEXTURE_MAG_FILTER, GL_TEXTURE_MIN_FILTER})
        EXPECT_EQ(parameter(name), GL_LINEAR);
    for (GLenum name : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T, GL_TEXTURE_WRAP_R})
        EXPECT_EQ(parameter(name), GL_CLAMP_TO_EDGE);
}

TEST_F(CubemapLoaderRenderPassTest, withoutPathsBuildsTransparentTexels)
{
    ASSERT_TRUE(load({}));
    for (int face = 0; face < 6; ++face) {
        const Image image = readFace(face);
        EXPECT_EQ(image.width, 1);
        EXPECT_EQ(image.height, 1);
        EXPECT_EQ(image.pixel(0, 0), QVector4D(0, 0, 0, 0));
    }
    Texture *const first = texture();
    EXPECT_EQ(load({QString(), QString("")}), first);
}

TEST_F(CubemapLoaderRenderPassTest, goingBackToNoPathsFindsTheFirstCubeMap)
{
    const QStringList a = writeFaces("a", 4, 0);
    Texture *const none = load({});
    EXPECT_NE(load(a), none);
    GLCallRecorder<&epoxy_glTexImage2D> uploads;
    EXPECT_EQ(load({}), none);
    EXPECT_TRUE(uploads.calls.empty());
    EXPECT_EQ(readFace(4).width, 1);
}

TEST_F(CubemapLoaderRenderPassTest, goingBackReadsNoFile)
{
    const QStringList a = writeFaces("a", 4, 0);
    const QStringList b = writeFaces("b", 4, 50);
    Texture *const cubeA = load(a);
    const Image faceOfA = readFace(2);
    Texture *const cubeB = load(b);
    EXPECT_NE(cubeA, cubeB);
    for (const QString &path : a + b)
        ASSERT_TRUE(QFile::remove(path));
    GLCallRecorder<&epoxy_glTexImage2D> uploads;
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(load(a), cubeA);
        EXPECT_EQ(maximumDifference(readFace(2), faceOfA), 0);
        EXPECT_EQ(load(b), cubeB);
    }
    EXPECT_TRUE(uploads.calls.empty());
}

TEST_F(CubemapLoaderRenderPassTest, changingOnePathAndBackReadsNoFile)
{
    const QStringList a = writeFaces("a", 4, 0);
    Texture *const cube = load(a);
    for (int face = 0; face < 6; ++face) {
        QStringList changed = a;
        changed[face] = writeImage(folder, "other.png", distinctImage(4, 4, QImage::Format_ARGB32, 90));
        EXPECT_NE(load(changed), cube);
        EXPECT_LT(maximumDifference(readFace(face), expectedTexels(QImage(changed[face]))), exact);
        GLCallRecorder<&epoxy_glTexImage2D> uploads;
        EXPECT_EQ(load(a), cube);
        EXPECT_TRUE(uploads.calls.empty());
    }
}

TEST_F(CubemapLoaderRenderPassTest, aSetOfPathsIsKnownByItsPathsEndToEnd)
{
    const QString one = folder.path("one");
    const QString two = folder.path("two");
    Texture *const cube = load({one, two});
    EXPECT_EQ(load({one + two}), cube);
    EXPECT_EQ(load({QString(), one + two}), cube);
    EXPECT_NE(load({two, one}), cube);
}

TEST_F(CubemapLoaderRenderPassTest, aFileReplacedOnDiskIsNotNoticed)
{
    const QStringList a = writeFaces("a", 4, 0);
    load(a);
    const Image before = readFace(0);
    writeFaces("a", 8, 70);
    load(a);
    EXPECT_EQ(maximumDifference(readFace(0), before), 0);
}

TEST_F(CubemapLoaderRenderPassTest, oneBadFaceDoesNotStopTheOthers)
{
    QStringList paths = writeFaces("a", 64, 0);
    const QByteArray bytes = folder.read("a-0.png");
    const QStringList bad{folder.path("missing.png"), folder.path(QString()), folder.write("text.png", "no image"),
        folder.write("short.png", bytes.left(bytes.size() / 2))};
    for (const QString &path : bad) {
        paths[3] = path;
        load(paths);
        for (int face = 0; face < 6; ++face) {
            const Image image = readFace(face);
            if (face == 3)
                EXPECT_EQ(maximumDifference(image, filled(1, 1, QVector4D(0, 0, 0, 0))), 0) << qPrintable(path);
            else
                EXPECT_LT(maximumDifference(image, expectedTexels(QImage(paths[face]))), exact) << face;
        }
        EXPECT_EQ(pass->errorCode(), 0u);
        for (const QString &text : log.takeWarnings()) // From Qt's image readers.
            EXPECT_FALSE(text.contains(QStringLiteral("CubemapLoader"))) << qPrintable(text);
        EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_OPERATION}) << "mip levels of faces of two sizes";
    }
}

TEST_F(CubemapLoaderRenderPassTest, aPathIsNotTriedWithTheSuffixesOfImages)
{
    writeImage(folder, "missing.png", distinctImage(4, 4));
    writeImage(folder, "directory.png", distinctImage(4, 4));
    ASSERT_TRUE(QDir(folder.path(QString())).mkdir(QStringLiteral("directory")));
    const QString missing = folder.path(QStringLiteral("missing"));
    const QString directory = folder.path(QStringLiteral("directory"));
    load({missing, directory, missing, directory, missing, directory});
    for (int face = 0; face < 6; ++face)
        EXPECT_EQ(maximumDifference(readFace(face), filled(1, 1, QVector4D(0, 0, 0, 0))), 0) << face;
}

TEST_F(CubemapLoaderRenderPassTest, buffersHoldAsManyBytesAsTheImages)
{
    // Rows of 7 pixels do not end on the boundary that they are padded to.
    const QImage color = distinctImage(7, 7);
    QStringList paths = writeFaces("a", 7, 0);
    struct Case
    {
        QImage::Format format;
        bool isShort;
    };
    for (const Case &c : {Case{QImage::Format_Grayscale8, true}, Case{QImage::Format_Indexed8, true},
             Case{QImage::Format_Mono, true}, Case{QImage::Format_RGBA64, false}}) {
        SCOPED_TRACE(c.format);
        paths[1] = writeImage(folder, QStringLiteral("%1.png").arg(c.format), color.convertToFormat(c.format));
        const QImage image(paths[1]);
        ASSERT_EQ(image.sizeInBytes() < 7 * 7 * 4, c.isShort);
        std::multiset<long> sizes;
        QVector<unsigned int> uploadErrors(6, GL_NO_ERROR); // By face, in whichever order they are uploaded.
        {
            GLCallRecorder<&epoxy_glTexImage2D> uploads;
            uploads.replacement = [&](GLenum face, auto... arguments) {
                uploads.forward(face, arguments...);
                uploadErrors[int(face - GL_TEXTURE_CUBE_MAP_POSITIVE_X)] = glGetError();
            };
            GLCallRecorder<&epoxy_glBufferData> allocations;
            load(paths);
            for (const auto &call : allocations.calls) {
                EXPECT_EQ(std::get<0>(call), GLenum(GL_PIXEL_UNPACK_BUFFER));
                EXPECT_EQ(std::get<2>(call), nullptr);
                EXPECT_EQ(std::get<3>(call), GLenum(GL_STATIC_DRAW));
                sizes.insert(long(std::get<1>(call)));
            }
        }
        const std::multiset<long> expected{196, 196, 196, 196, 196, long(image.sizeInBytes())};
        EXPECT_EQ(sizes, expected);
        const QVector<unsigned int> errors = takeGLErrors();
        QVector<unsigned int> expectedErrors(6, GL_NO_ERROR);
        if (c.isShort)
            expectedErrors[1] = GL_INVALID_OPERATION; // GL refuses a buffer that is too short.
        EXPECT_EQ(uploadErrors, expectedErrors);
        if (c.isShort) {
            EXPECT_EQ(errors, QVector<unsigned int>{GL_INVALID_OPERATION}) << "mip levels of an incomplete cube map";
            EXPECT_EQ(faceParameter(1, GL_TEXTURE_WIDTH), 0);
        } else {
            EXPECT_TRUE(errors.isEmpty());
            EXPECT_LT(maximumDifference(readFace(1), expectedTexels(image)), exact) << "the first half of the bits";
        }
        EXPECT_LT(maximumDifference(readFace(2), expectedTexels(QImage(paths[2]))), exact) << "the others are whole";
        EXPECT_TRUE(takeGLErrors().isEmpty());
    }
}

TEST_F(CubemapLoaderRenderPassTest, facesOfDifferentSizesAreKeptAsTheyAre)
{
    QStringList paths = writeFaces("a", 4, 0);
    paths[5] = writeImage(folder, "large.png", distinctImage(8, 8));
    load(paths);
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_OPERATION}) << "mip levels of an incomplete cube map";
    EXPECT_EQ(faceParameter(5, GL_TEXTURE_WIDTH), 8);
    EXPECT_EQ(faceParameter(4, GL_TEXTURE_WIDTH), 4);
}

TEST_F(CubemapLoaderRenderPassTest, aFaceBeyondTheDriversLimitIsRefusedByGL)
{
    QStringList paths = writeFaces("a", 4, 0);
    const int limit = glInteger(GL_MAX_CUBE_MAP_TEXTURE_SIZE);
    paths[0] = writeImage(folder, "wide.png", distinctImage(qMax(20000, limit + 1), 1, QImage::Format_RGB32));
    load(paths);
    EXPECT_TRUE(takeGLErrors().contains(GL_INVALID_VALUE));
    EXPECT_TRUE(texture());
    EXPECT_EQ(faceParameter(0, GL_TEXTURE_WIDTH), 0);
    EXPECT_EQ(faceParameter(1, GL_TEXTURE_WIDTH), 4);
}

TEST_F(CubemapLoaderRenderPassTest, ignoresTheHostsUnpacking)
{
    const QStringList paths = writeFaces("a", 3, 0);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 8);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 11);
    load(paths);
    EXPECT_EQ(glInteger(GL_UNPACK_ALIGNMENT), 8);
    EXPECT_EQ(glInteger(GL_UNPACK_ROW_LENGTH), 11);
    EXPECT_EQ(glInteger(GL_PIXEL_UNPACK_BUFFER_BINDING), 0);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    for (int face = 0; face < 6; ++face)
        EXPECT_LT(maximumDifference(readFace(face), expectedTexels(QImage(paths[face]))), exact) << face;
}

TEST_F(CubemapLoaderRenderPassTest, countsNoReferences)
{
    const int before = PooledTextures::allReferences();
    pass->setNumOutputUsers(0, 2);
    load(writeFaces("a", 4, 0));
    EXPECT_EQ(PooledTextures::allReferences(), before);
    EXPECT_EQ(PooledTextures::references(texture()), -1);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(0).isValid());
}

TEST_F(CubemapLoaderRenderPassTest, deletesEveryCubeMapAtTheEnd)
{
    const GLObjectCounts before = glObjectCounts();
    const QStringList a = writeFaces("a", 4, 0);
    const QStringList b = writeFaces("b", 4, 50);
    load(a);
    load(b);
    load(QStringList());
    load(a); // Taken from the cache.
    pass->teardown(nullptr);
    pass->teardownContextData(nullptr);
    EXPECT_EQ(glObjectCounts().textures, before.textures + 3);
    EXPECT_EQ(glObjectCounts().buffers, before.buffers) << "pixel buffers do not stay";
    pass.reset();
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
