// SPDX-License-Identifier: MIT
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/ImageFiles.h"
#include "support/PooledTextures.h"

#include <Chain/ChainLibrary.h>
#include <GL/GLStatistics.h>
#include <RenderPasses/TextureLoaderRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

/// 8 bits a channel hold k / 255 exactly.
constexpr double exact = 1e-6;

class TextureLoaderRenderPassTest : public GLTest
{
protected:
    TemporaryFolder folder;
    std::unique_ptr<TextureLoaderRenderPass> pass = std::make_unique<TextureLoaderRenderPass>();

    Texture *texture() const { return pass->output(TextureLoaderRenderPass::LoadedTexture).value<Texture *>(); }
    Texture *load(const QVariant &path)
    {
        pass->setInput(TextureLoaderRenderPass::TexturePath, path);
        pass->start(nullptr);
        return texture();
    }
    QString write(const QString &name, const QImage &image) { return writeImage(folder, name, image); }
    /// Whether the pass shows one opaque white texel.
    bool isWhiteTexel()
    {
        const Image image = readTexture(texture());
        return image.width == 1 && image.height == 1 && image.pixel(0, 0) == QVector4D(1, 1, 1, 1);
    }
    /// Drops what Qt's image readers say about a damaged file; the pass itself is silent.
    void dropReaderMessages()
    {
        for (const QString &text : log.takeWarnings())
            EXPECT_FALSE(text.contains(QStringLiteral("TextureLoader"))) << qPrintable(text);
    }
};

/// An image's texels in GL: its bits unchanged, the bottom row first.
Image expectedTexels(const QImage &image)
{
    return asBgraTexels(bitsOf(image.mirrored(false, true)), image.width(), image.height());
}

} // namespace

TEST_F(TextureLoaderRenderPassTest, withoutAPathPublishesATextureWithoutStorage)
{
    for (const QVariant &path : {QVariant(), QVariant(QString()), QVariant(QVariant::String)}) {
        ASSERT_TRUE(load(path));
        EXPECT_EQ(texture()->target(), unsigned(GL_TEXTURE_2D));
        EXPECT_EQ(texture()->width(0), 0);
        EXPECT_EQ(texture()->height(0), 0);
    }
}

TEST_F(TextureLoaderRenderPassTest, loadsAnImageWithItsBottomRowFirst)
{
    for (const QImage::Format format : {QImage::Format_ARGB32, QImage::Format_RGB32}) {
        const QImage image = distinctImage(5, 3, format);
        load(write(QStringLiteral("%1.png").arg(format), image));
        const Image loaded = readTexture(texture());
        ASSERT_EQ(loaded.width, 5);
        ASSERT_EQ(loaded.height, 3);
        for (int y = 0; y < 3; ++y) {
            for (int x = 0; x < 5; ++x)
                EXPECT_LT((loaded.pixel(x, y) - colorAt(image, x, 2 - y)).length(), exact) << x << ", " << y;
        }
        EXPECT_EQ(texture()->internalFormat(0), GL_RGBA);
        EXPECT_EQ(texture()->width(1), 2) << "mip levels";
        EXPECT_EQ(texture()->width(2), 1);
        EXPECT_TRUE(texture()->isReadOnly());
    }
}

TEST_F(TextureLoaderRenderPassTest, loadsFromTheResources)
{
    readyChainNames(); // Registers the resources of the host library.
    load(QStringLiteral(":/Media/Environments/sky.png"));
    EXPECT_EQ(texture()->width(0), 768);
    EXPECT_EQ(texture()->height(0), 384);
}

TEST_F(TextureLoaderRenderPassTest, onePointerServesAllPaths)
{
    Texture *const first = load(QVariant());
    EXPECT_EQ(load(write("a.png", distinctImage(4, 4))), first);
    EXPECT_EQ(load(write("b.png", distinctImage(2, 8))), first);
    EXPECT_EQ(first->width(0), 2);
    EXPECT_EQ(first->height(0), 8);
    EXPECT_EQ(load(folder.path("missing.png")), first);
}

TEST_F(TextureLoaderRenderPassTest, whatIsNotAnImageGivesAWhiteTexel)
{
    const QString good = write("good.png", distinctImage(64, 64));
    const QByteArray bytes = folder.read("good.png");
    const QStringList bad{folder.path("missing.png"), folder.path(QString()), folder.write("text.png", "no image"),
        folder.write("empty.png", QByteArray()), folder.write("short.png", bytes.left(bytes.size() / 2)), QString()};
    for (const QString &path : bad) {
        load(good);
        ASSERT_EQ(texture()->width(0), 64);
        load(path);
        EXPECT_TRUE(isWhiteTexel()) << qPrintable(path);
        EXPECT_EQ(pass->errorCode(), 0u);
        dropReaderMessages();
    }
}

TEST_F(TextureLoaderRenderPassTest, aPathIsNotTriedWithTheSuffixesOfImages)
{
    write("missing.png", distinctImage(4, 4));
    write("directory.png", distinctImage(4, 4));
    ASSERT_TRUE(QDir(folder.path(QString())).mkdir(QStringLiteral("directory")));
    const QString good = write("good.png", distinctImage(6, 2));
    for (const char *name : {"missing", "directory"}) {
        load(good);
        ASSERT_EQ(texture()->width(0), 6);
        load(folder.path(QString::fromLatin1(name)));
        EXPECT_TRUE(isWhiteTexel()) << name;
    }
}

TEST_F(TextureLoaderRenderPassTest, readsAPathOnce)
{
    const QString path = write("a.png", distinctImage(4, 4));
    load(path);
    const Image before = readTexture(texture());
    write("a.png", distinctImage(8, 8, QImage::Format_ARGB32, 5));
    load(path);
    EXPECT_EQ(maximumDifference(readTexture(texture()), before), 0) << "a change on disk is not noticed";
    ASSERT_TRUE(QFile::remove(path));
    load(path);
    EXPECT_EQ(texture()->width(0), 4);

    const QString late = folder.path("late.png");
    load(late);
    EXPECT_TRUE(isWhiteTexel());
    write("late.png", distinctImage(4, 4));
    load(late);
    EXPECT_TRUE(isWhiteTexel()) << "a failure is not tried again";
    load(path);
    load(late);
    EXPECT_EQ(texture()->width(0), 4) << "another path in between";
}

TEST_F(TextureLoaderRenderPassTest, uploadsBitsOfOtherFormatsAsTheyAre)
{
    // Formats with fewer and with more than 32 bits per pixel. Rows of 32 pixels need no padding, whose content would
    // be undefined.
    const QImage color = distinctImage(32, 5);
    for (const QImage::Format format : {QImage::Format_Grayscale8, QImage::Format_Indexed8, QImage::Format_Mono,
             QImage::Format_RGBA64, QImage::Format_RGBX64}) {
        SCOPED_TRACE(format);
        const QString path = write("image.png", color.convertToFormat(format));
        const QImage image(path);
        ASSERT_FALSE(image.isNull());
        ASSERT_NE(image.depth(), 32);
        load(path);
        EXPECT_LT(maximumDifference(readTexture(texture()), expectedTexels(image)), exact);
        load(QString());
    }
}

TEST_F(TextureLoaderRenderPassTest, padsBitsThatAreTooFewWithZeros)
{
    const QImage image = distinctImage(32, 5).convertToFormat(QImage::Format_Grayscale8);
    const QString path = write("image.png", image);
    QByteArray handedOver;
    GLCallRecorder<&epoxy_glTexImage2D> uploads;
    uploads.onCall = [&](GLenum, GLint, GLint, GLsizei width, GLsizei height, GLint, GLenum, GLenum, const void *bits) {
        handedOver = QByteArray(static_cast<const char *>(bits), 4 * width * height);
    };
    load(path);
    EXPECT_EQ(uploads.calls.size(), 1u);
    EXPECT_EQ(handedOver, bitsOf(QImage(path).mirrored(false, true)) + QByteArray(3 * 32 * 5, '\0'));
}

TEST_F(TextureLoaderRenderPassTest, whatCannotBePaddedIsNotAnImage)
{
    // 64 MiB of bits, from which GL would read 2 GiB.
    QImage image(32768, 16384, QImage::Format_Mono);
    ASSERT_FALSE(image.isNull());
    image.fill(0);
    const QString path = write("image.png", image);
    image = QImage();
    load(write("good.png", distinctImage(4, 4)));
    load(path);
    EXPECT_TRUE(isWhiteTexel());
}

TEST_F(TextureLoaderRenderPassTest, aCmykImageIsReadAsRedGreenAndBlue)
{
    const QString path = folder.write("cmyk.jpg", cmykJpeg());
    const QImage image(path);
    ASSERT_EQ(image.format(), QImage::Format_RGB32);
    load(path);
    EXPECT_LT(maximumDifference(readTexture(texture()), expectedTexels(image)), exact);
    EXPECT_EQ(texture()->width(0), 8);
}

TEST_F(TextureLoaderRenderPassTest, ignoresTheHostsUnpacking)
{
    const QImage image = distinctImage(3, 3);
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, buffer);
    glBufferData(GL_PIXEL_UNPACK_BUFFER, 4096, nullptr, GL_STATIC_DRAW);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 8);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 11);
    load(write("image.png", image));
    EXPECT_EQ(glInteger(GL_PIXEL_UNPACK_BUFFER_BINDING), int(buffer));
    EXPECT_EQ(glInteger(GL_UNPACK_ALIGNMENT), 8);
    EXPECT_EQ(glInteger(GL_UNPACK_ROW_LENGTH), 11);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
    glDeleteBuffers(1, &buffer);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    EXPECT_LT(maximumDifference(readTexture(texture()), expectedTexels(image)), exact);
}

TEST_F(TextureLoaderRenderPassTest, anImageBeyondTheDriversLimitIsRefusedByGL)
{
    const int limit = glInteger(GL_MAX_TEXTURE_SIZE);
    const QString wide = write("wide.png", distinctImage(qMax(20000, limit + 1), 1, QImage::Format_RGB32));
    load(write("good.png", distinctImage(4, 4)));
    load(wide);
    EXPECT_TRUE(takeGLErrors().contains(GL_INVALID_VALUE));
    EXPECT_TRUE(texture());
    load(wide);
    EXPECT_TRUE(takeGLErrors().isEmpty()) << "not tried again";
    load(write("next.png", distinctImage(6, 2)));
    EXPECT_EQ(texture()->width(0), 6);
}

TEST_F(TextureLoaderRenderPassTest, countsNoReferences)
{
    const int before = PooledTextures::allReferences();
    pass->setNumOutputUsers(0, 3);
    load(write("a.png", distinctImage(4, 4)));
    EXPECT_EQ(PooledTextures::allReferences(), before);
    EXPECT_EQ(PooledTextures::references(texture()), -1);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(0).isValid());
    EXPECT_EQ(PooledTextures::allReferences(), before);
}

TEST_F(TextureLoaderRenderPassTest, keepsItsTextureThroughTeardownAndDeletesItAtTheEnd)
{
    const GLObjectCounts before = glObjectCounts();
    load(write("a.png", distinctImage(4, 4)));
    const GLuint name = texture()->textureID();
    pass->teardown(nullptr);
    pass->teardownContextData(nullptr);
    EXPECT_TRUE(glIsTexture(name));
    pass.reset();
    EXPECT_FALSE(glIsTexture(name));
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
