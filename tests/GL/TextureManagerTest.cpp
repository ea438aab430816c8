// SPDX-License-Identifier: MIT
#include "Fixtures.h"

#include "support/GLCallRecorder.h"

#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>
#include <GL/FixedTextureUnits.h>
#include <GL/FramebufferObject.h>
#include <GL/InternalFormat.h>
#include <GL/TextureManager.h>

#include <QtCore/QTemporaryDir>
#include <QtGui/QImage>

#include <epoxy/gl.h>

#include <vector>

namespace Velmora::Kvz {

namespace {

constexpr auto Ldr = TextureFormat::LowDynamicRange;
constexpr auto Hdr = TextureFormat::HighDynamicRange;

/// Every test has a context, and with it a manager, of its own.
class TextureManagerTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        m_own = HeadlessContext::create();
        ASSERT_NE(m_own, nullptr);
        manager = TextureManager::Instance();
    }
    void TearDown() override
    {
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        m_own.reset();
        GLTest::TearDown();
    }

    static GLint parameter(Texture *texture, GLenum name)
    {
        GLint value = 0;
        AutoBinder binder(texture);
        glGetTexParameteriv(texture->target(), name, &value);
        return value;
    }

    static GLint levelParameter(Texture *texture, GLenum name)
    {
        GLint value = 0;
        AutoBinder binder(texture);
        glGetTexLevelParameteriv(texture->target(), 0, name, &value);
        return value;
    }

    TextureManager *manager = nullptr;

private:
    std::unique_ptr<HeadlessContext> m_own;
};

} // namespace

TEST_F(TextureManagerTest, handsOutTexturesWithOneReference)
{
    Texture *const texture = manager->tempTexture(Ldr, 16, 8, 1, 1);
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture->target(), GLenum(GL_TEXTURE_2D));
    EXPECT_EQ(texture->width(0), 16);
    EXPECT_EQ(texture->height(0), 8);
    EXPECT_EQ(texture->internalFormat(0), GL_RGBA8);
    EXPECT_EQ(levelParameter(texture, GL_TEXTURE_INTERNAL_FORMAT), GL_RGBA8);
    EXPECT_EQ(manager->tempTextureRefs(texture), 1);
    EXPECT_NE(manager->tempTexture(Ldr, 16, 8, 1, 1), texture);
}

TEST_F(TextureManagerTest, storesEachFormatAsItIsNamed)
{
    for (int number : {3, 5, 6, 7, 8, 24}) {
        Texture *const texture = manager->tempTexture(TextureFormat(number), 4, 4, 1, 1);
        ASSERT_NE(texture, nullptr) << number;
        EXPECT_EQ(GLenum(levelParameter(texture, GL_TEXTURE_INTERNAL_FORMAT)), internalFormatOf(TextureFormat(number)));
    }
    for (int number : {-1, 0, 4, 9, 25})
        EXPECT_EQ(manager->tempTexture(TextureFormat(number), 4, 4, 1, 1), nullptr) << number;
}

TEST_F(TextureManagerTest, handsOutAgainWhatIsFree)
{
    Texture *const texture = manager->tempTexture(Hdr, 16, 8, 1, 1);
    manager->releaseTempTextureRef(texture, 1);
    EXPECT_EQ(manager->tempTextureRefs(texture), 0);
    EXPECT_EQ(manager->tempTexture(Hdr, 16, 8, 1, 1), texture);
    EXPECT_EQ(manager->tempTextureRefs(texture), 1);
}

TEST_F(TextureManagerTest, tellsTexturesApartByAllThatMakesThem)
{
    Texture *const texture = manager->tempTexture(Hdr, 16, 8, 1, 1);
    manager->releaseTempTextureRef(texture, 1);
    EXPECT_NE(manager->tempTexture(TextureFormat::ResolvedVelocity, 16, 8, 1, 1), texture); // The same storage.
    EXPECT_NE(manager->tempTexture(Hdr, 8, 16, 1, 1), texture);
    EXPECT_NE(manager->tempTexture(Hdr, 16, 9, 1, 1), texture);
    EXPECT_NE(manager->tempTexture(Hdr, 16, 8, 2, 1), texture);
    EXPECT_NE(manager->tempTexture(Hdr, 16, 8, 1, 4), texture);
    EXPECT_EQ(manager->tempTexture(Hdr, 16, 8, 0, -3), texture); // Below 1 counts as 1.
}

TEST_F(TextureManagerTest, countsReferences)
{
    Texture *const texture = manager->tempTexture(Ldr, 4, 4, 1, 1);
    manager->addTempTextureRef(texture, 3);
    EXPECT_EQ(manager->tempTextureRefs(texture), 4);
    manager->releaseTempTextureRef(texture, 2);
    EXPECT_EQ(manager->tempTextureRefs(texture), 2);
    manager->addTempTextureRef(texture, -1);
    manager->releaseTempTextureRef(texture, 0);
    manager->releaseTempTextureRef(texture, -5);
    EXPECT_EQ(manager->tempTextureRefs(texture), 2);
    EXPECT_NE(manager->tempTexture(Ldr, 4, 4, 1, 1), texture);
    manager->releaseTempTextureRef(texture, 2);
    EXPECT_EQ(manager->tempTexture(Ldr, 4, 4, 1, 1), texture);
}

TEST_F(TextureManagerTest, anOutputWithoutUsersIsFreeAtOnce)
{
    Texture *const texture = manager->tempTexture(Ldr, 4, 4, 1, 1);
    manager->addTempTextureRef(texture, 0);
    EXPECT_EQ(manager->tempTextureRefs(texture), 1);
    manager->releaseTempTextureRef(texture, 1);
    EXPECT_EQ(manager->tempTexture(Ldr, 4, 4, 1, 1), texture);
}

TEST_F(TextureManagerTest, releasesTooManyOnlyOnce)
{
    Texture *const texture = manager->tempTexture(Ldr, 4, 4, 1, 1);
    manager->releaseTempTextureRef(texture, 5);
    EXPECT_EQ(manager->tempTextureRefs(texture), 0);
    manager->releaseTempTextureRef(texture, 1);
    EXPECT_EQ(manager->tempTextureRefs(texture), 0);
    EXPECT_EQ(manager->tempTexture(Ldr, 4, 4, 1, 1), texture);
    EXPECT_EQ(manager->tempTextureRefs(texture), 1);
}

TEST_F(TextureManagerTest, ignoresWhatItDoesNotOwn)
{
    manager->addTempTextureRef(nullptr, 1);
    manager->releaseTempTextureRef(nullptr, 1);
    EXPECT_EQ(manager->tempTextureRefs(nullptr), -1);

    auto *const own = new Texture(GL_TEXTURE_2D, GL_RGBA8, 4, 4, 0, nullptr);
    const GLuint name = own->textureID();
    manager->addTempTextureRef(own, 1);
    manager->releaseTempTextureRef(own, 1);
    EXPECT_EQ(manager->tempTextureRefs(own), -1);
    EXPECT_TRUE(glIsTexture(name));
    delete own;
    // A dangling pointer is compared, never dereferenced.
    manager->addTempTextureRef(own, 1);
    manager->releaseTempTextureRef(own, 1);
    EXPECT_EQ(manager->tempTextureRefs(own), -1);
    auto *const nowhere = reinterpret_cast<Texture *>(quintptr(0x10));
    manager->addTempTextureRef(nowhere, 1);
    manager->releaseTempTextureRef(nowhere, 1);

    Texture *const color = manager->colorTexture(Qt::transparent);
    manager->releaseTempTextureRef(color, 1);
    EXPECT_EQ(manager->tempTextureRefs(color), -1);
    EXPECT_EQ(manager->colorTexture(Qt::transparent), color);
    EXPECT_EQ(manager->poolStatistics().live + manager->poolStatistics().free, 0);
}

TEST_F(TextureManagerTest, leavesItsTexturesOpenToNewStorage)
{
    Texture *const texture = manager->tempTexture(Hdr, 4, 4, 1, 1);
    AutoBinder binder(texture);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_R32F, 9, 9, 0, GL_RED, GL_FLOAT, nullptr);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    EXPECT_EQ(texture->width(0), 9);
}

TEST_F(TextureManagerTest, givesAPlaceholderItsStorageBack)
{
    const struct
    {
        GLint internalFormat;
        int width;
        int height;
    } others[] = {{GL_RGBA, 1, 1}, {GL_RGBA16F, 5, 1}, {GL_RGBA16F, 1, 7}, {GL_R8, 1, 1}};
    Texture *const texture = manager->tempTexture(Hdr, 1, 1, 1, 1);
    manager->releaseTempTextureRef(texture, 1);
    for (const auto &other : others) {
        ASSERT_EQ(manager->tempTexture(Hdr, 1, 1, 1, 1), texture);
        EXPECT_EQ(levelParameter(texture, GL_TEXTURE_WIDTH), 1);
        EXPECT_EQ(levelParameter(texture, GL_TEXTURE_HEIGHT), 1);
        EXPECT_EQ(levelParameter(texture, GL_TEXTURE_INTERNAL_FORMAT), GL_RGBA16F);
        {
            const std::vector<GLubyte> zeros(64);
            AutoBinder binder(texture);
            glTexImage2D(GL_TEXTURE_2D, 0, other.internalFormat, other.width, other.height, 0, GL_RGBA,
                GL_UNSIGNED_BYTE, zeros.data());
        }
        manager->releaseTempTextureRef(texture, 1);
    }
    ASSERT_EQ(manager->tempTexture(Hdr, 1, 1, 1, 1), texture);
    manager->releaseTempTextureRef(texture, 1);
    GLCallRecorder<&epoxy_glTexImage2D> specified;
    ASSERT_EQ(manager->tempTexture(Hdr, 1, 1, 1, 1), texture);
    EXPECT_TRUE(specified.calls.empty()); // Nothing has changed it since.
}

TEST_F(TextureManagerTest, freshTexturesNeedNoMipLevelsAndEndAtTheirEdges)
{
    for (int depth : {1, 3}) {
        Texture *const texture = manager->tempTexture(Ldr, 4, 4, depth, 1);
        EXPECT_EQ(parameter(texture, GL_TEXTURE_MIN_FILTER), GL_LINEAR);
        EXPECT_EQ(parameter(texture, GL_TEXTURE_MAG_FILTER), GL_LINEAR);
        EXPECT_EQ(parameter(texture, GL_TEXTURE_WRAP_S), GL_CLAMP_TO_EDGE);
        EXPECT_EQ(parameter(texture, GL_TEXTURE_WRAP_T), GL_CLAMP_TO_EDGE);
    }
    // Sampling one returns its content.
    Texture *const source = manager->tempTexture(Ldr, 4, 4, 1, 1);
    Texture *const target = manager->tempTexture(Ldr, 4, 4, 1, 1);
    FramebufferObject framebuffer;
    AutoBinder binder(&framebuffer);
    framebuffer.attach(source, GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    glClearColor(0, 1, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    framebuffer.attach(target, GL_COLOR_ATTACHMENT0, 0);
    const auto program = makeQuadProgram(R"(#version 150
uniform sampler2D u_Input;
in vec2 vo_TexCoord;
out vec4 out_FragColor;
void main() { out_FragColor = texture(u_Input, vo_TexCoord); }
)");
    AutoBinder sourceBinder(source);
    program->setUniform("u_Input", source->unit());
    EXPECT_TRUE(drawQuad(program.get()));
    EXPECT_EQ(readTexture(target).pixel(1, 2), QVector4D(0, 1, 0, 1));
}

TEST_F(TextureManagerTest, keepsWhatItsUsersSet)
{
    Texture *const texture = manager->tempTexture(Ldr, 4, 4, 1, 1);
    {
        AutoBinder binder(texture);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_MIRRORED_REPEAT);
    }
    manager->releaseTempTextureRef(texture, 1);
    ASSERT_EQ(manager->tempTexture(Ldr, 4, 4, 1, 1), texture);
    EXPECT_EQ(parameter(texture, GL_TEXTURE_MIN_FILTER), GL_NEAREST);
    EXPECT_EQ(parameter(texture, GL_TEXTURE_WRAP_T), GL_MIRRORED_REPEAT);
}

TEST_F(TextureManagerTest, makesMultisampledTextures)
{
    Texture *const texture = manager->tempTexture(Ldr, 4, 4, 1, 4);
    EXPECT_EQ(texture->target(), GLenum(GL_TEXTURE_2D_MULTISAMPLE));
    EXPECT_EQ(texture->samples(), 4);
    EXPECT_EQ(texture->width(0), 4);
    const GLint limit = glInteger(GL_MAX_COLOR_TEXTURE_SAMPLES);
    Texture *const many = manager->tempTexture(Ldr, 4, 4, 1, 1000);
    EXPECT_EQ(many->samples(), limit);
    manager->releaseTempTextureRef(many, 1);
    EXPECT_EQ(manager->tempTexture(Ldr, 4, 4, 1, limit), many);
    EXPECT_EQ(manager->tempTexture(TextureFormat::DepthStencil, 4, 4, 1, 4)->samples(), 4);
}

TEST_F(TextureManagerTest, makesArrays)
{
    Texture *const texture = manager->tempTexture(Hdr, 6, 5, 3, 1);
    EXPECT_EQ(texture->target(), GLenum(GL_TEXTURE_2D_ARRAY));
    EXPECT_EQ(levelParameter(texture, GL_TEXTURE_DEPTH), 3);
    EXPECT_EQ(texture->width(0), 6);
}

TEST_F(TextureManagerTest, givesTexturesWithoutTexelsToo)
{
    Texture *const texture = manager->tempTexture(Ldr, 0, 0, 1, 1);
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture->width(0), 0);
    manager->releaseTempTextureRef(texture, 1);
    EXPECT_EQ(manager->tempTexture(Ldr, -7, -1, 1, 1), texture);
}

TEST_F(TextureManagerTest, allocatesWhateverIsBoundForUnpacking)
{
    // An unpack buffer that is too small would make GL refuse even a null pointer.
    BufferObject buffer;
    buffer.setTarget(GL_PIXEL_UNPACK_BUFFER);
    buffer.uploadBytes(nullptr, 4, GL_STATIC_DRAW);
    AutoBinder binder(&buffer);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    EXPECT_EQ(manager->tempTexture(Hdr, 32, 32, 1, 1)->width(0), 32);
    EXPECT_EQ(manager->tempTexture(Hdr, 32, 32, 2, 1)->width(0), 32);
    EXPECT_EQ(manager->colorTexture(Qt::red)->width(0), 1);
    EXPECT_GT(manager->addManagedTexture(QImage(8, 8, QImage::Format_ARGB32)), 0);
    manager->bindTextures(nullptr);
    manager->unbindTextures(nullptr);
    EXPECT_EQ(glInteger(GL_UNPACK_ALIGNMENT), 1);
    EXPECT_EQ(GLuint(glInteger(GL_PIXEL_UNPACK_BUFFER_BINDING)), buffer.getBO());
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
}

TEST_F(TextureManagerTest, uploadsWholeImagesWhateverRowsTheHostReads)
{
    QImage image(2, 2, QImage::Format_RGBA8888);
    image.fill(Qt::red);
    image.setPixelColor(1, 1, Qt::blue);
    QTemporaryDir folder;
    const QString path = folder.filePath("image.png");
    ASSERT_TRUE(image.save(path));
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 7);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 3);
    const Image loaded = readTexture(manager->loadTexture(path));
    EXPECT_EQ(glInteger(GL_UNPACK_ROW_LENGTH), 7);
    EXPECT_EQ(glInteger(GL_UNPACK_SKIP_PIXELS), 3);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
    EXPECT_EQ(loaded.pixel(0, 0), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(loaded.pixel(1, 0), QVector4D(0, 0, 1, 1)); // The bottom row comes first.
}

TEST_F(TextureManagerTest, deletesOnlyWhatNobodyHolds)
{
    Texture *const held = manager->tempTexture(Ldr, 4, 4, 1, 1);
    Texture *const loose = manager->tempTexture(Ldr, 4, 4, 1, 1);
    const GLuint heldName = held->textureID();
    const GLuint looseName = loose->textureID();
    manager->releaseTempTextureRef(loose, 1);
    manager->deleteUnusedTempTextures();
    EXPECT_TRUE(glIsTexture(heldName));
    EXPECT_FALSE(glIsTexture(looseName));
    EXPECT_EQ(manager->tempTextureRefs(held), 1);
    EXPECT_EQ(manager->tempTextureRefs(loose), -1);
    EXPECT_EQ(manager->pooledTextures().size(), 1);
    manager->releaseTempTextureRef(held, 1);
    manager->deleteUnusedTempTextures();
    EXPECT_TRUE(manager->pooledTextures().isEmpty());
    manager->deleteUnusedTempTextures();
}

TEST_F(TextureManagerTest, tellsWhatItHolds)
{
    manager->setHolderLabel("first");
    Texture *const first = manager->tempTexture(Hdr, 10, 10, 1, 1);
    manager->setHolderLabel("second");
    Texture *const second = manager->tempTexture(TextureFormat::Position, 4, 4, 1, 4);
    manager->addTempTextureRef(first, 2);
    manager->releaseTempTextureRef(second, 1);

    const TextureManager::PoolStatistics statistics = manager->poolStatistics();
    EXPECT_EQ(statistics.live, 1);
    EXPECT_EQ(statistics.free, 1);
    EXPECT_EQ(statistics.references, 3);
    EXPECT_EQ(statistics.bytes, 10 * 10 * 8 + 4 * 4 * 4 * 16);

    const QVector<TextureManager::PooledTexture> textures = manager->pooledTextures();
    ASSERT_EQ(textures.size(), 2);
    EXPECT_EQ(textures[0].texture, first);
    EXPECT_EQ(textures[0].format, Hdr);
    EXPECT_EQ(textures[0].width, 10);
    EXPECT_EQ(textures[0].samples, 1);
    EXPECT_EQ(textures[0].references, 3);
    EXPECT_EQ(textures[0].bytes, 800);
    EXPECT_EQ(textures[0].holder, "first");
    EXPECT_EQ(textures[1].samples, 4);
    EXPECT_EQ(textures[1].references, 0);
    EXPECT_EQ(textures[1].holder, "second");
    manager->setHolderLabel("third");
    manager->tempTexture(TextureFormat::Position, 4, 4, 1, 4);
    EXPECT_EQ(manager->pooledTextures()[1].holder, "third");
}

TEST_F(TextureManagerTest, keepsOneTextureForEachColour)
{
    Texture *const clear = manager->colorTexture(Qt::transparent);
    ASSERT_NE(clear, nullptr);
    EXPECT_EQ(clear->target(), GLenum(GL_TEXTURE_2D));
    EXPECT_EQ(clear->width(0), 1);
    EXPECT_EQ(manager->colorTexture(QColor(0, 0, 0, 0)), clear);
    EXPECT_EQ(readTexture(clear).pixel(0, 0), QVector4D(0, 0, 0, 0));
    // Channels are stored as given, not premultiplied.
    Texture *const color = manager->colorTexture(QColor(51, 102, 204, 51));
    EXPECT_NE(color, clear);
    EXPECT_LT((readTexture(color).pixel(0, 0) - QVector4D(0.2f, 0.4f, 0.8f, 0.2f)).length(), 1e-6f);
    EXPECT_NE(manager->colorTexture(QColor(51, 102, 204)), color); // The same colour with another alpha.
    EXPECT_EQ(parameter(color, GL_TEXTURE_MIN_FILTER), GL_NEAREST);
    manager->deleteUnusedTempTextures();
    EXPECT_EQ(manager->colorTexture(Qt::transparent), clear);
}

namespace {

class LoadTextureTest : public TextureManagerTest
{
protected:
    /// Two rows of three texels; the upper row is red, green, blue.
    QString save(const QString &name)
    {
        QImage image(3, 2, QImage::Format_ARGB32);
        image.fill(QColor(51, 102, 153, 204));
        image.setPixelColor(0, 0, Qt::red);
        image.setPixelColor(1, 0, Qt::green);
        image.setPixelColor(2, 0, Qt::blue);
        const QString path = m_folder.filePath(name);
        EXPECT_TRUE(image.save(path));
        return path;
    }

    QTemporaryDir m_folder;
};

} // namespace

TEST_F(LoadTextureTest, putsTheBottomRowFirst)
{
    Texture *const texture = manager->loadTexture(save("image.png"));
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture->internalFormat(0), GL_RGBA16F);
    const Image image = readTexture(texture);
    ASSERT_EQ(image.width, 3);
    ASSERT_EQ(image.height, 2);
    EXPECT_LT((image.pixel(0, 0) - QVector4D(0.2f, 0.4f, 0.6f, 0.8f)).length(), 1e-3f);
    EXPECT_EQ(image.pixel(0, 1), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(image.pixel(1, 1), QVector4D(0, 1, 0, 1));
    EXPECT_EQ(image.pixel(2, 1), QVector4D(0, 0, 1, 1));
    EXPECT_EQ(parameter(texture, GL_TEXTURE_MIN_FILTER), GL_LINEAR);
    EXPECT_EQ(parameter(texture, GL_TEXTURE_MAG_FILTER), GL_LINEAR);
    EXPECT_EQ(parameter(texture, GL_TEXTURE_WRAP_S), GL_CLAMP_TO_EDGE);
    EXPECT_EQ(manager->poolStatistics().live, 0);
}

TEST_F(LoadTextureTest, readsAFileOnce)
{
    const QString path = save("image.png");
    Texture *const texture = manager->loadTexture(path);
    ASSERT_TRUE(QFile::remove(path));
    EXPECT_EQ(manager->loadTexture(path), texture);
    manager->releaseTempTextureRef(texture, 1);
    manager->deleteUnusedTempTextures();
    EXPECT_EQ(manager->loadTexture(path), texture);
    // With other options it is another texture, and the file is read.
    TextureLoadOptions options;
    options.repeat = true;
    EXPECT_EQ(manager->loadTexture(path, options), nullptr);
    EXPECT_EQ(log.takeWarnings().size(), 1);
}

TEST_F(LoadTextureTest, followsItsOptions)
{
    const QString path = save("image.png");
    TextureLoadOptions options;
    options.offset = 0.25f;
    options.scale = 2;
    options.linearFilter = false;
    options.repeat = true;
    options.format = int(TextureFormat::Position);
    Texture *texture = manager->loadTexture(path, options);
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture->internalFormat(0), GL_RGBA32F);
    EXPECT_LT((readTexture(texture).pixel(1, 0) - QVector4D(0.65f, 1.05f, 1.45f, 1.85f)).length(), 1e-5f);
    EXPECT_EQ(parameter(texture, GL_TEXTURE_MIN_FILTER), GL_NEAREST);
    EXPECT_EQ(parameter(texture, GL_TEXTURE_MAG_FILTER), GL_NEAREST);
    EXPECT_EQ(parameter(texture, GL_TEXTURE_WRAP_T), GL_REPEAT);

    options = TextureLoadOptions();
    options.mipMaps = true;
    options.format = int(TextureFormat::LowDynamicRange);
    texture = manager->loadTexture(path, options);
    EXPECT_EQ(texture->internalFormat(0), GL_RGBA8);
    EXPECT_EQ(parameter(texture, GL_TEXTURE_MIN_FILTER), GL_LINEAR_MIPMAP_LINEAR);
    EXPECT_EQ(texture->width(1), 1);

    options = TextureLoadOptions();
    options.maximumSize = 2;
    texture = manager->loadTexture(path, options);
    EXPECT_EQ(texture->width(0), 2);
    EXPECT_EQ(texture->height(0), 1);
}

TEST_F(LoadTextureTest, refusesWhatItCannotLoad)
{
    EXPECT_EQ(manager->loadTexture(QString()), nullptr);
    EXPECT_TRUE(log.messages().isEmpty());

    const QString missing = m_folder.filePath("missing.png");
    EXPECT_EQ(manager->loadTexture(missing), nullptr);
    QStringList warnings = log.takeWarnings();
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings[0].contains(missing)) << qPrintable(warnings[0]);
    EXPECT_FALSE(warnings[0].contains('\n'));
    EXPECT_EQ(manager->loadTexture(missing), nullptr);
    EXPECT_EQ(log.takeWarnings(), QStringList()) << "said once";

    QFile text(m_folder.filePath("text.png"));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("no image at all");
    text.close();
    EXPECT_EQ(manager->loadTexture(text.fileName()), nullptr);
    EXPECT_EQ(log.takeWarnings().size(), 1);
    EXPECT_EQ(manager->loadTexture(m_folder.path()), nullptr);
    EXPECT_EQ(log.takeWarnings().size(), 1);

    TextureLoadOptions options;
    for (int format : {0, 24}) {
        options.format = format;
        EXPECT_EQ(manager->loadTexture(save("image.png"), options), nullptr);
        EXPECT_EQ(log.takeWarnings().size(), 1) << format;
    }
    // A file that appears later is loaded then.
    save("missing.png");
    EXPECT_NE(manager->loadTexture(missing), nullptr);
}

namespace {

class ManagedImagesTest : public TextureManagerTest
{
protected:
    static QImage filled(int width, int height, const QColor &color)
    {
        QImage image(width, height, QImage::Format_ARGB32);
        image.fill(color);
        return image;
    }

    /// Level 0 of the image behind a handle.
    Image stored(int handle)
    {
        manager->bindTextures(nullptr);
        const QString sampler = QStringLiteral("kvz_ManagedTextures%1").arg((handle - 1) % 6);
        glActiveTexture(GL_TEXTURE0 + GLenum(FixedTextureUnits::unitOf(sampler)));
        GLint width = 0;
        GLint height = 0;
        GLint layers = 0;
        glGetTexLevelParameteriv(GL_TEXTURE_2D_ARRAY, 0, GL_TEXTURE_WIDTH, &width);
        glGetTexLevelParameteriv(GL_TEXTURE_2D_ARRAY, 0, GL_TEXTURE_HEIGHT, &height);
        glGetTexLevelParameteriv(GL_TEXTURE_2D_ARRAY, 0, GL_TEXTURE_DEPTH, &layers);
        std::vector<float> texels(4 * size_t(width) * size_t(height) * size_t(layers));
        glGetTexImage(GL_TEXTURE_2D_ARRAY, 0, GL_RGBA, GL_FLOAT, texels.data());
        glActiveTexture(GL_TEXTURE0);
        manager->unbindTextures(nullptr);
        Image image(width, height);
        const int layer = (handle - 1) / 6;
        EXPECT_LT(layer, layers);
        std::copy_n(texels.begin() + layer * image.data.size(), image.data.size(), image.data.begin());
        return image;
    }
};

} // namespace

TEST_F(ManagedImagesTest, aNullImageIsWhite)
{
    EXPECT_EQ(manager->addManagedTexture(QImage()), 0);
    manager->releaseManagedTexture(0);
    manager->releaseManagedTexture(-5);
    manager->releaseManagedTexture(1);
    manager->releaseManagedTexture(1000000);
}

TEST_F(ManagedImagesTest, lieWithTheBottomRowFirst)
{
    QImage image = filled(4, 2, QColor(0, 0, 255, 51));
    image.setPixelColor(0, 0, Qt::red);
    const int handle = manager->addManagedTexture(image);
    ASSERT_GT(handle, 0);
    const Image texels = stored(handle);
    EXPECT_EQ(texels.pixel(0, 1), QVector4D(1, 0, 0, 1));
    EXPECT_LT((texels.pixel(0, 0) - QVector4D(0, 0, 1, 0.2f)).length(), 1e-6f);
}

TEST_F(ManagedImagesTest, copiesShareAHandle)
{
    const QImage image = filled(4, 4, Qt::red);
    const QImage copy = image;
    const int handle = manager->addManagedTexture(image);
    EXPECT_EQ(manager->addManagedTexture(copy), handle);
    const int other = manager->addManagedTexture(filled(4, 4, Qt::red));
    EXPECT_NE(other, handle);
    manager->releaseManagedTexture(handle);
    EXPECT_EQ(stored(handle).pixel(0, 0), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(manager->addManagedTexture(image), handle); // It still has one user.
    manager->releaseManagedTexture(handle);
    manager->releaseManagedTexture(handle);
    EXPECT_EQ(manager->addManagedTexture(filled(4, 4, Qt::green)), handle); // Its layer is free.
    EXPECT_EQ(stored(handle).pixel(3, 3), QVector4D(0, 1, 0, 1));
    EXPECT_EQ(stored(other).pixel(3, 3), QVector4D(1, 0, 0, 1));
    const int again = manager->addManagedTexture(image);
    EXPECT_NE(again, handle);
    EXPECT_EQ(stored(again).pixel(3, 3), QVector4D(1, 0, 0, 1));
}

TEST_F(ManagedImagesTest, anImageOfTwoUsesHasTwoHandles)
{
    const QImage image = filled(4, 4, Qt::red);
    const int colour = manager->addManagedTexture(image);
    const int data = manager->addManagedTexture(image, ImageUse::Data);
    EXPECT_NE(data, colour);
    EXPECT_EQ(manager->addManagedTexture(image, ImageUse::Data), data);
    manager->releaseManagedTexture(colour);
    EXPECT_EQ(stored(data).pixel(0, 0), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(manager->addManagedTexture(filled(4, 4, Qt::green)), colour) << "its place is free";
}

TEST_F(ManagedImagesTest, growingKeepsWhatIsThere)
{
    std::vector<int> handles;
    for (int i = 0; i < 21; ++i) {
        handles.push_back(manager->addManagedTexture(filled(8, 4, QColor(10 * i, 0, 255 - i))));
        EXPECT_EQ((handles.back() - 1) % 6, (handles.front() - 1) % 6);
    }
    for (int i = 0; i < 21; ++i) {
        const QVector4D expected = QVector4D(10 * i, 0, 255 - i, 255) / 255;
        EXPECT_LT((stored(handles[size_t(i)]).pixel(5, 3) - expected).length(), 1e-6f) << i;
    }
    EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), 0);
}

TEST_F(ManagedImagesTest, aSeventhSizeGoesToALargerOne)
{
    const QSize sizes[] = {{8, 8}, {16, 16}, {32, 32}, {64, 64}, {8, 32}, {64, 8}};
    std::vector<int> handles;
    for (const QSize &size : sizes)
        handles.push_back(manager->addManagedTexture(filled(size.width(), size.height(), Qt::blue)));
    const int handle = manager->addManagedTexture(filled(30, 34, Qt::green));
    EXPECT_EQ((handle - 1) % 6, (handles[3] - 1) % 6) << "32 by 32 is nearer, and too small";
    const Image image = stored(handle);
    EXPECT_EQ(image.width, 64);
    EXPECT_EQ(image.pixel(63, 0), QVector4D(0, 1, 0, 1));
    EXPECT_TRUE(log.messages().isEmpty()) << "nothing is lost";

    const int cut = manager->addManagedTexture(filled(65, 60, Qt::green));
    const QStringList warnings = log.takeWarnings();
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings[0].contains("65 by 60") && warnings[0].contains("64 by 64")) << qPrintable(warnings[0]);
    EXPECT_EQ((cut - 1) % 6, (handles[3] - 1) % 6);

    // A size that is no longer used makes room for another.
    manager->releaseManagedTexture(handles[5]);
    EXPECT_EQ(stored(manager->addManagedTexture(filled(5, 3, Qt::red))).width, 5);
    EXPECT_TRUE(log.takeWarnings().isEmpty());
}

TEST_F(ManagedImagesTest, fallBackToWhiteWhenTheDriverHasNoMoreLayers)
{
    GLCallRecorder<&epoxy_glGetIntegerv> limits;
    limits.replacement = [&limits](GLenum name, GLint *value) {
        limits.forward(name, value);
        if (name == GL_MAX_ARRAY_TEXTURE_LAYERS)
            *value = 3;
    };
    std::vector<int> handles;
    for (int i = 0; i < 3; ++i)
        handles.push_back(manager->addManagedTexture(filled(4, 4, Qt::red)));
    EXPECT_TRUE(log.messages().isEmpty());
    EXPECT_EQ(manager->addManagedTexture(filled(4, 4, Qt::green)), 0);
    EXPECT_EQ(log.takeWarnings().size(), 1);
    EXPECT_EQ(stored(handles[2]).pixel(0, 0), QVector4D(1, 0, 0, 1));
    manager->releaseManagedTexture(handles[1]);
    EXPECT_EQ(manager->addManagedTexture(filled(4, 4, Qt::green)), handles[1]);
}

TEST_F(ManagedImagesTest, areBoundWithMipLevelsOnFixedUnitsAndUnbound)
{
    QImage image = filled(2, 2, Qt::black);
    image.setPixelColor(0, 0, Qt::white);
    image.setPixelColor(1, 1, Qt::white);
    manager->addManagedTexture(image);
    const GLenum first = GL_TEXTURE0 + GLenum(FixedTextureUnits::unitOf("kvz_ManagedTextures0"));
    manager->bindTextures(nullptr);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
    glActiveTexture(first);
    float texel[4] = {};
    glGetTexImage(GL_TEXTURE_2D_ARRAY, 1, GL_RGBA, GL_FLOAT, texel);
    EXPECT_NEAR(texel[0], 0.5, 0.01);
    GLint wrap = 0;
    glGetTexParameteriv(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_S, &wrap);
    EXPECT_EQ(wrap, GL_REPEAT);
    // Every sampler has a matching texture, even without an image.
    for (GLenum i = 0; i < 6; ++i) {
        glActiveTexture(first - i);
        EXPECT_NE(glInteger(GL_TEXTURE_BINDING_2D_ARRAY), 0);
    }
    glActiveTexture(GL_TEXTURE0);
    manager->bindTextures(nullptr);
    manager->unbindTextures(nullptr);
    glActiveTexture(first);
    EXPECT_NE(glInteger(GL_TEXTURE_BINDING_2D_ARRAY), 0);
    glActiveTexture(GL_TEXTURE0);
    manager->unbindTextures(nullptr);
    for (GLenum i = 0; i < 6; ++i) {
        glActiveTexture(first - i);
        EXPECT_EQ(glInteger(GL_TEXTURE_BINDING_2D_ARRAY), 0);
    }
    glActiveTexture(GL_TEXTURE0);
    manager->unbindTextures(nullptr); // One call too many.
}

} // namespace Velmora::Kvz
