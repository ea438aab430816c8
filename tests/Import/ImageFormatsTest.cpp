// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/ImageFiles.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QBuffer>
#include <QtGui/QImageWriter>

namespace Velmora::Kvz {

namespace {

/// A scene whose one material has the image as its diffuse map.
ImportedScene sceneWith(const char *name, const QByteArray &bytes, const ImportOptions &options = ImportOptions())
{
    TemporaryFolder folder;
    folder.write(name, bytes);
    folder.write("a.mtl", QByteArray("newmtl a\nmap_Kd ") + name + "\n");
    return importScene(
        folder.write(
            "a.obj", "mtllib a.mtl\nusemtl a\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 0 1\nf 1/1 2/2 3/3\n"),
        options);
}

QByteArray written(const QImage &image, const char *format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, format);
    writer.setQuality(100);
    EXPECT_TRUE(writer.write(image)) << format << ": " << qPrintable(writer.errorString());
    return bytes;
}

/// An uncompressed TGA of true colour, rows from the bottom up.
QByteArray tga(const QImage &image, int bits)
{
    QByteArray bytes(18, '\0');
    bytes[2] = 2;
    bytes[12] = char(image.width());
    bytes[14] = char(image.height());
    bytes[16] = char(bits);
    bytes[17] = char(bits == 32 ? 8 : 0); // bits of alpha
    for (int y = image.height(); y-- > 0;) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            bytes += char(qBlue(pixel));
            bytes += char(qGreen(pixel));
            bytes += char(qRed(pixel));
            if (bits == 32)
                bytes += char(qAlpha(pixel));
        }
    }
    return bytes;
}

} // namespace

TEST(ImageFormatsTest, tgaIsRead)
{
    const QImage image = distinctImage(7, 5);
    ImportedScene scene = sceneWith("a.tga", tga(image, 32));
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_EQ(scene.materials.value(0).mapKd.convertToFormat(QImage::Format_ARGB32), image);
    scene = sceneWith("b.tga", tga(image, 24));
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_EQ(scene.materials.value(0).mapKd.convertToFormat(QImage::Format_RGB32),
        image.convertToFormat(QImage::Format_RGB32));
}

TEST(ImageFormatsTest, webpIsRead)
{
    QImage image(32, 16, QImage::Format_ARGB32);
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 32; ++x)
            image.setPixelColor(x, y, QColor(8 * x, 16 * y, 100, 255 - 4 * x));
    }
    const ImportedScene scene = sceneWith("a.webp", written(image, "webp"));
    EXPECT_EQ(scene.warnings, QStringList());
    const QImage read = scene.materials.value(0).mapKd;
    ASSERT_EQ(read.size(), image.size());
    for (const QPoint &place : {QPoint(2, 3), QPoint(20, 12)})
        EXPECT_LT((colorAt(read, place.x(), place.y()) - colorAt(image, place.x(), place.y())).length(), 0.06f);
}

TEST(ImageFormatsTest, sixteenBitsAreRead)
{
    QImage image(6, 4, QImage::Format_RGBA64);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x)
            image.setPixelColor(x, y, QColor::fromRgba64(quint16(10000 * x), quint16(20000 * y), 40000, 50000));
    }
    const QByteArray png = written(image, "png");
    ASSERT_EQ(png[24], 16) << "bits of a channel";
    const ImportedScene scene = sceneWith("a.png", png);
    EXPECT_EQ(scene.warnings, QStringList());
    const QImage read = scene.materials.value(0).mapKd;
    ASSERT_EQ(read.size(), image.size());
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x)
            EXPECT_EQ(read.pixel(x, y), image.pixel(x, y)) << x << ", " << y;
    }
}

TEST(ImageFormatsTest, imagesOfEveryTypeAreScaledToTheLimit)
{
    ImportOptions options;
    options.limits.imageSide = 16;
    const QImage image = plainImage(64, 32, Qt::red);
    const QVector<QPair<const char *, QByteArray>> files = {{"a.tga", tga(image, 24)},
        {"a.webp", written(image, "webp")}, {"a.png", pngBytes(image)}, {"a.jpg", written(image, "jpg")}};
    for (const auto &file : files) {
        const ImportedScene scene = sceneWith(file.first, file.second, options);
        EXPECT_EQ(scene.materials.value(0).mapKd.size(), QSize(16, 8)) << file.first;
        ASSERT_EQ(scene.warnings.size(), 1) << file.first;
        EXPECT_TRUE(scene.warnings[0].endsWith("has 64x32 pixels and is scaled to 16x8"))
            << qPrintable(scene.warnings[0]);
    }
}

} // namespace Velmora::Kvz
