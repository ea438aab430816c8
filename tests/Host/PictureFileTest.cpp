// SPDX-License-Identifier: MIT
#include "support/TemporaryFolder.h"

#include <Host/ImageWriter.h>
#include <Host/PictureFile.h>

#include <QtCore/QBuffer>
#include <QtGui/QRgba64>

#include <gtest/gtest.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

/// Of a chunk of a PNG; null where it has none of this name.
QByteArray chunkOf(const QByteArray &png, const char *name)
{
    int place = 8;
    while (place + 8 <= png.size()) {
        const auto byte = [&](int i) { return int(uchar(png[place + i])); };
        const int length = byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
        if (png.mid(place + 4, 4) == name)
            return png.mid(place + 8, length);
        place += length + 12;
    }
    return {};
}

/// In each pixel and channel another number of 16 bits; alpha never 0.
QImage wordImage(int width, int height, QImage::Format format)
{
    QImage image(width, height, format);
    quint32 state = 7;
    const auto next = [&state] {
        state = state * 1664525u + 1013904223u;
        return quint16(state >> 16);
    };
    for (int y = 0; y < height; ++y) {
        auto *row = reinterpret_cast<QRgba64 *>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const quint16 alpha = format == QImage::Format_RGBX64 ? 65535 : quint16(next() | 1);
            row[x] = QRgba64::fromRgba64(next(), next(), next(), alpha);
        }
    }
    return image;
}

/// Writes an image in strips of these heights.
QString writeInStrips(
    const QString &file, const QImage &image, const PictureFormat &format, const QVector<int> &heights)
{
    QString error;
    const auto picture = PictureFile::create(file, image.size(), format, &error);
    int top = 0;
    for (const int height : heights) {
        if (picture && error.isEmpty())
            picture->append(image.copy(0, top, image.width(), height), &error);
        top += height;
    }
    if (picture && error.isEmpty())
        picture->finish(&error);
    return error;
}

QImage photograph(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB888);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(
                x, y, qRgb(x * 255 / width, y * 255 / height, int(127 + 120 * std::sin(0.3 * x * y / width))));
    }
    return image;
}

double meanDifference(const QImage &a, const QImage &b)
{
    double sum = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x)
            sum += std::abs(qGreen(a.pixel(x, y)) - qGreen(b.pixel(x, y)));
    }
    return sum / (a.width() * a.height());
}

} // namespace

TEST(PictureFileTest, sixteenBitsAreReadBackAsTheyWere)
{
    TemporaryFolder folder;
    PictureFormat format;
    format.depth = 16;
    for (const bool hasAlpha : {false, true}) {
        format.hasAlpha = hasAlpha;
        const QImage image = wordImage(13, 9, hasAlpha ? QImage::Format_RGBA64 : QImage::Format_RGBX64);
        ASSERT_EQ(writeInStrips(folder.path("a.png"), image, format, {4, 1, 4}), QString());
        const QImage back = QImage(folder.path("a.png")).convertToFormat(QImage::Format_RGBA64);
        EXPECT_EQ(back, image.convertToFormat(QImage::Format_RGBA64)) << hasAlpha;
        const QByteArray header = chunkOf(folder.read("a.png"), "IHDR");
        EXPECT_EQ(header.mid(8, 2), QByteArray::fromHex(hasAlpha ? "1006" : "1002"));
    }
}

TEST(PictureFileTest, pngSaysThatItIsSrgb)
{
    TemporaryFolder folder;
    ASSERT_EQ(writeInStrips(folder.path("a.png"), photograph(8, 8), PictureFormat(), {8}), QString());
    EXPECT_EQ(chunkOf(folder.read("a.png"), "sRGB").size(), 1);
    EXPECT_EQ(chunkOf(folder.read("a.png"), "gAMA"), QByteArray::fromHex("0000b18f")) << "1 / 2.2";
    QString error;
    EXPECT_EQ(chunkOf(encodeImage(photograph(8, 8), "png", &error), "sRGB").size(), 1);
}

TEST(PictureFileTest, whatWriteImageGetsDecidesOnDepthAndAlpha)
{
    TemporaryFolder folder;
    QString error;
    ASSERT_TRUE(writeImage(wordImage(5, 4, QImage::Format_RGBA64), folder.path("a.png"), &error)) << qPrintable(error);
    EXPECT_EQ(chunkOf(folder.read("a.png"), "IHDR").mid(8, 2), QByteArray::fromHex("1006"));
    ASSERT_TRUE(writeImage(photograph(5, 4), folder.path("b.png"), &error)) << qPrintable(error);
    EXPECT_EQ(chunkOf(folder.read("b.png"), "IHDR").mid(8, 2), QByteArray::fromHex("0802"));
}

TEST(PictureFileTest, qualityTellsSmallFilesFromGoodOnes)
{
    TemporaryFolder folder;
    const QImage image = photograph(96, 64);
    for (const char *type : {"jpg", "webp"}) {
        PictureFormat format;
        format.type = type;
        QVector<int> sizes;
        QVector<double> errors;
        for (const int quality : {5, 95}) {
            format.quality = quality;
            const QString file = QStringLiteral("a%1.%2").arg(quality).arg(type);
            ASSERT_EQ(writeInStrips(folder.path(file), image, format, {30, 34}), QString());
            sizes.append(folder.read(file).size());
            errors.append(meanDifference(QImage(folder.path(file)), image));
        }
        EXPECT_LT(2 * sizes[0], sizes[1]) << type;
        EXPECT_LT(errors[1], 3) << type;
        EXPECT_GT(errors[0], 2 * errors[1]) << type;
    }
}

TEST(PictureFileTest, webpKeepsAlpha)
{
    TemporaryFolder folder;
    QImage image(16, 16, QImage::Format_RGBA8888);
    image.fill(QColor(200, 100, 50, 128));
    PictureFormat format;
    format.type = "webp";
    format.hasAlpha = true;
    ASSERT_EQ(writeInStrips(folder.path("a.webp"), image, format, {16}), QString());
    EXPECT_NEAR(qAlpha(QImage(folder.path("a.webp")).pixel(8, 8)), 128, 1);
}

TEST(PictureFileTest, whatAFormatCannotHoldIsRefused)
{
    const auto problem = [](const char *type, int depth, int quality, bool hasAlpha, const QSize &size = {8, 8}) {
        return pictureFormatProblem({type, depth, quality, hasAlpha}, size);
    };
    EXPECT_EQ(problem("png", 16, -1, true), QString());
    EXPECT_EQ(problem("webp", 8, 0, true), QString());
    EXPECT_EQ(problem("jpg", 8, 100, false), QString());
    EXPECT_EQ(problem("xyz", 8, -1, false), "pictures of type .xyz cannot be written; use .png");
    EXPECT_EQ(problem("png", 12, -1, false), "pictures have 8 or 16 bits a channel, not 12");
    EXPECT_EQ(problem("jpg", 16, -1, false), "pictures of type .jpg have 8 bits a channel here; write a PNG");
    EXPECT_EQ(problem("png", 8, 50, false), "pictures of type .png have no quality; .jpg and .webp have");
    EXPECT_EQ(problem("webp", 8, 101, false), "the quality goes from 0 to 100, not to 101");
    EXPECT_EQ(problem("jpeg", 8, -1, true), "pictures of type .jpeg have no alpha; write a PNG");
    EXPECT_EQ(problem("webp", 8, -1, false, {16384, 1}),
        "pictures of type .webp have at most 16383 pixels a side; write a PNG");
    EXPECT_EQ(problem("png", 8, -1, false, {0, 4}), "there is no picture to write");
}

TEST(PictureFileTest, anUnfinishedPictureLeavesTheOneThatIsThere)
{
    TemporaryFolder folder;
    const QImage image = photograph(8, 8);
    for (const char *type : {"png", "jpg"}) {
        const QString name = QStringLiteral("a.%1").arg(type);
        const QString file = folder.write(name, "old");
        PictureFormat format;
        format.type = type;
        QString error;
        {
            const auto picture = PictureFile::create(file, QSize(8, 8), format, &error);
            ASSERT_TRUE(picture) << qPrintable(error);
            EXPECT_TRUE(picture->append(image.copy(0, 0, 8, 5), &error));
            EXPECT_FALSE(picture->finish(&error));
            EXPECT_EQ(error, "3 of 8 rows are missing");
            EXPECT_FALSE(picture->append(image.copy(0, 5, 8, 3), &error)) << "it is over";
        }
        const auto picture = PictureFile::create(file, QSize(8, 8), format, &error);
        EXPECT_FALSE(picture->append(photograph(7, 8), &error));
        EXPECT_EQ(error, "rows of 7x8 pixels do not go into what is left of the picture, 8x8");
        EXPECT_FALSE(picture->finish(&error));
        EXPECT_EQ(folder.read(name), "old");
    }
    EXPECT_EQ(folder.entries(), (QStringList{"a.jpg", "a.png"})) << "nothing half written is left";
}

TEST(PictureFileTest, moreRowsThanThePictureHasAreRefused)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    QString error;
    const auto picture = PictureFile::create(&buffer, QSize(4, 4), PictureFormat(), &error);
    EXPECT_TRUE(picture->append(photograph(4, 3), &error));
    EXPECT_FALSE(picture->append(photograph(4, 2), &error));
    EXPECT_EQ(error, "rows of 4x2 pixels do not go into what is left of the picture, 4x1");
}

TEST(PictureFileTest, wordsComeFromColoursByTheirAlpha)
{
    const float colours[] = {0.25f, 0.5f, 0.125f, 0.5f, 2, -1, NAN, 1, 0.5f, 0.25f, 1, 0};
    const QImage straight = wordsFromColours(colours, QSize(3, 1), true);
    const auto *row = reinterpret_cast<const QRgba64 *>(straight.constScanLine(0));
    EXPECT_EQ(quint64(row[0]), quint64(QRgba64::fromRgba64(32768, 65535, 16384, 32768)));
    EXPECT_EQ(quint64(row[1]), quint64(QRgba64::fromRgba64(65535, 0, 0, 65535)));
    EXPECT_EQ(quint64(row[2]), quint64(QRgba64::fromRgba64(0, 0, 0, 0)));
    const QImage opaque = wordsFromColours(colours, QSize(3, 1), false);
    row = reinterpret_cast<const QRgba64 *>(opaque.constScanLine(0));
    EXPECT_EQ(quint64(row[0]), quint64(QRgba64::fromRgba64(16384, 32768, 8192, 65535)));
    EXPECT_EQ(quint64(row[2]), quint64(QRgba64::fromRgba64(32768, 16384, 65535, 65535)));
}

} // namespace Velmora::Kvz
