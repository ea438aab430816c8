// SPDX-License-Identifier: MIT
#include "LitFixture.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/BackdropRenderPass.h>

#include <QtCore/QTemporaryDir>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

class BackdropRenderPassTest : public PassTest<BackdropRenderPass>
{
protected:
    /// Gives the pass an image file.
    void show(const QImage &image, const char *name = "image.png")
    {
        const QString file = folder.filePath(QLatin1String(name));
        ASSERT_TRUE(image.save(file)) << name;
        pass->setInput(Port::ImagePath, file);
    }
    Image draw(const QSize &size)
    {
        setViewport(size);
        pass->setNumOutputUsers(Port::Frame, 1);
        pass->start(nullptr);
        if (!texture(Port::Frame)) {
            ADD_FAILURE() << "there is no picture";
            return {};
        }
        const Image picture = image(Port::Frame);
        TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 1);
        return picture;
    }

    QTemporaryDir folder;
};

/// Four bars from left to right, or from the top down.
QImage bars(const QSize &size, bool areUpright)
{
    const QColor colours[] = {Qt::red, Qt::green, Qt::blue, Qt::white};
    QImage image(size, QImage::Format_RGB888);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            image.setPixelColor(x, y, colours[areUpright ? 4 * x / size.width() : 4 * y / size.height()]);
    }
    return image;
}

QVector4D opaque(float red, float green, float blue)
{
    return {red, green, blue, 1};
}

} // namespace

TEST_F(BackdropRenderPassTest, anImageOfTheViewportsProportionsIsSeenAsAWhole)
{
    show(bars(QSize(16, 8), false));
    const Image picture = draw(QSize(16, 8));
    // The first row of the file is the upper one, the last row of GL.
    EXPECT_EQ(picture.pixel(3, 7), opaque(1, 0, 0));
    EXPECT_EQ(picture.pixel(3, 4), opaque(0, 1, 0));
    EXPECT_EQ(picture.pixel(3, 2), opaque(0, 0, 1));
    EXPECT_EQ(picture.pixel(3, 0), opaque(1, 1, 1));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
}

TEST_F(BackdropRenderPassTest, otherProportionsLoseTwoSides)
{
    // Of the width a half is seen: the two bars in the middle.
    show(bars(QSize(64, 16), true));
    Image picture = draw(QSize(32, 16));
    EXPECT_EQ(picture.pixel(0, 5), opaque(0, 1, 0));
    EXPECT_EQ(picture.pixel(14, 5), opaque(0, 1, 0));
    EXPECT_EQ(picture.pixel(17, 5), opaque(0, 0, 1));
    EXPECT_EQ(picture.pixel(31, 5), opaque(0, 0, 1));
    // Of the height a quarter: parts of two bars.
    show(bars(QSize(16, 64), false), "tall.bmp");
    picture = draw(QSize(16, 16));
    EXPECT_EQ(picture.pixel(5, 15), opaque(0, 1, 0));
    EXPECT_EQ(picture.pixel(5, 0), opaque(0, 0, 1));
}

TEST_F(BackdropRenderPassTest, coloursAreMultipliedByAlphaAndTheirBitsDoNotMatter)
{
    QImage image(4, 4, QImage::Format_ARGB32);
    image.fill(QColor(255, 102, 0, 51));
    show(image);
    const QVector4D expected(0.2f, 0.08f, 0, 0.2f);
    EXPECT_LT((draw(QSize(8, 8)).pixel(4, 4) - expected).length(), 0.005f);
    show(image.convertToFormat(QImage::Format_RGBA64), "deep.png");
    EXPECT_LT((draw(QSize(8, 8)).pixel(4, 4) - expected).length(), 0.005f);
    QImage grey(4, 4, QImage::Format_Grayscale8);
    grey.fill(51);
    show(grey, "grey.png");
    EXPECT_LT((draw(QSize(8, 8)).pixel(4, 4) - opaque(0.2f, 0.2f, 0.2f)).length(), 0.005f);
}

TEST_F(BackdropRenderPassTest, smallPicturesHaveTheMeanOfTheirTexels)
{
    QImage image(256, 256, QImage::Format_RGB32);
    for (int y = 0; y < 256; ++y) {
        for (int x = 0; x < 256; ++x)
            image.setPixelColor(x, y, (x + y) % 2 ? Qt::white : Qt::black);
    }
    show(image);
    const Image picture = draw(QSize(16, 16));
    for (int i = 0; i < 16; ++i)
        EXPECT_LT((picture.pixel(i, i) - opaque(0.5f, 0.5f, 0.5f)).length(), 0.01f);
}

TEST_F(BackdropRenderPassTest, withoutAnImageThereIsNothingAndALineSaysWhy)
{
    setViewport(QSize(8, 8));
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_TRUE(log.takeWarnings().isEmpty());
    pass->setInput(Port::ImagePath, folder.filePath(QStringLiteral("none.png")));
    pass->start(nullptr);
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    const QStringList lines = log.takeWarnings();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.first().contains(QStringLiteral("none.png"))) << qPrintable(lines.first());
    show(bars(QSize(8, 8), true));
    EXPECT_EQ(draw(QSize(8, 8)).pixel(0, 0), opaque(1, 0, 0));
    setViewport(QSize(0, 8));
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
}

TEST_F(BackdropRenderPassTest, countsReferencesAndTakesItsObjectsAlong)
{
    const GLObjectCounts before = glObjectCounts();
    const int others = PooledTextures::allReferences();
    show(bars(QSize(8, 8), true));
    setViewport(QSize(8, 8));
    pass->setNumOutputUsers(Port::Frame, 2);
    glEnable(GL_BLEND);
    glEnable(GL_DEPTH_TEST);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(texture(Port::Frame)), 2);
    EXPECT_EQ(texture(Port::Frame)->internalFormat(0), GL_RGBA8);
    EXPECT_EQ(PooledTextures::allReferences(), others + 2);
    EXPECT_EQ(image(Port::Frame).pixel(0, 0), opaque(1, 0, 0));
    EXPECT_FALSE(glFlag(GL_BLEND));
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 2);
    pass->teardownContextData(nullptr);
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
}

} // namespace Velmora::Kvz
