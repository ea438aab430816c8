// SPDX-License-Identifier: MIT
#include "support/FileSizeLimit.h"
#include "support/GLTest.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <Host/ImageWriter.h>

namespace Velmora::Kvz {

namespace {

/// An image that no format compresses well.
QImage noise(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    quint32 state = 1;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            state = state * 1664525u + 1013904223u;
            image.setPixel(x, y, 0xff000000u | (state >> 8));
        }
    }
    return image;
}

} // namespace

TEST(ImageWriterTest, pictureIsReadBackAsItWas)
{
    TemporaryFolder folder;
    const QImage image = noise(31, 17);
    QString error;
    ASSERT_TRUE(writeImage(image, folder.path("a.png"), &error)) << qPrintable(error);
    EXPECT_EQ(QImage(folder.path("a.png")).convertToFormat(QImage::Format_RGB32), image);
    EXPECT_TRUE(folder.read("a.png").startsWith("\x89PNG"));
    EXPECT_EQ(folder.entries(), QStringList("a.png"));
}

TEST(ImageWriterTest, suffixSaysTheFormat)
{
    TemporaryFolder folder;
    QString error;
    ASSERT_TRUE(writeImage(noise(8, 8), folder.path("a.BMP"), &error)) << qPrintable(error);
    EXPECT_TRUE(folder.read("a.BMP").startsWith("BM"));
}

TEST(ImageWriterTest, pictureThatIsThereIsReplaced)
{
    TemporaryFolder folder;
    folder.write("a.png", "old");
    QString error;
    ASSERT_TRUE(writeImage(noise(4, 4), folder.path("a.png"), &error)) << qPrintable(error);
    EXPECT_EQ(QImage(folder.path("a.png")).size(), QSize(4, 4));
}

TEST(ImageWriterTest, nullImageLeavesThePictureThatIsThere)
{
    TemporaryFolder folder;
    const QString file = folder.write("a.png", "old");
    QString error;
    EXPECT_FALSE(writeImage(QImage(), file, &error));
    EXPECT_EQ(error, file + ": there is no picture to write");
    EXPECT_EQ(folder.read("a.png"), "old");
    EXPECT_EQ(folder.entries(), QStringList("a.png"));
}

TEST(ImageWriterTest, fullDiskLeavesThePictureThatIsThere)
{
    TemporaryFolder folder;
    const QString file = folder.write("a.png", "old");
    const QImage image = noise(200, 200);
    ASSERT_GT(pngBytes(image).size(), 60000);
    QString error;
    {
        FileSizeLimit limit(50000);
        EXPECT_FALSE(writeImage(image, file, &error));
    }
    EXPECT_TRUE(error.startsWith(file + ": ")) << qPrintable(error);
    EXPECT_FALSE(error.contains('\n'));
    EXPECT_FALSE(error.contains("Unknown")) << qPrintable(error);
    EXPECT_EQ(folder.read("a.png"), "old");
    EXPECT_EQ(folder.entries(), QStringList("a.png")) << "nothing half written is left";
}

TEST(ImageWriterTest, namesThatCannotBeWrittenAreRefused)
{
    TemporaryFolder folder;
    QDir(folder.path(".")).mkdir("folder.png");
    const QPair<QString, QString> cases[] = {
        {folder.path("a"), "suffix"},
        {folder.path("a.xyz"), ".xyz cannot be written"},
        {folder.path("none/a.png"), "does not exist"},
        {folder.path("folder.png"), "is a directory"},
    };
    for (const auto &[file, reason] : cases) {
        QString error;
        EXPECT_TRUE(imageFileProblem(file).contains(reason)) << qPrintable(imageFileProblem(file));
        EXPECT_FALSE(writeImage(noise(2, 2), file, &error));
        EXPECT_EQ(error, file + ": " + imageFileProblem(file));
    }
    EXPECT_EQ(folder.entries(), QStringList("folder.png"));
    EXPECT_EQ(imageFileProblem(folder.path("fine.png")), QString());
}

} // namespace Velmora::Kvz
