// SPDX-License-Identifier: MIT
#include "GL/ImageRows.h"

#include "support/ImageFiles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace Velmora::Kvz {

namespace {

/// The image that readRows() delivers in strips, the bottom row first.
QImage read(const QImage &image, const QSize &size, bool isNearest = false)
{
    QImage result(size, QImage::Format_RGBA8888);
    int next = 0;
    readRows(image, size, isNearest, [&](int first, int count, const uchar *bytes) {
        EXPECT_EQ(first, next);
        for (int i = 0; i < count; ++i)
            std::memcpy(
                result.scanLine(size.height() - 1 - first - i), bytes + i * size.width() * 4, size_t(size.width()) * 4);
        next = first + count;
    });
    EXPECT_EQ(next, size.height());
    return result;
}

/// The largest difference in any channel, alpha included.
int difference(const QImage &a, const QImage &b)
{
    EXPECT_EQ(a.size(), b.size());
    int largest = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width() * 4; ++x)
            largest = std::max(largest, std::abs(a.constScanLine(y)[x] - b.constScanLine(y)[x]));
    }
    return largest;
}

} // namespace

TEST(ImageRowsTest, imagesOfEveryFormatComeAsTheyAre)
{
    for (const QImage::Format format : {QImage::Format_ARGB32, QImage::Format_RGB32, QImage::Format_RGBA64,
             QImage::Format_Indexed8, QImage::Format_Grayscale8, QImage::Format_Grayscale16, QImage::Format_Mono,
             QImage::Format_RGB888, QImage::Format_ARGB32_Premultiplied}) {
        const QImage image = distinctImage(13, 7, format);
        EXPECT_EQ(read(image, image.size()), image.convertToFormat(QImage::Format_RGBA8888)) << int(format);
    }
}

TEST(ImageRowsTest, imagesOfManyBandsAreWhole)
{
    // A strip of 4 MiB holds 64 of these rows.
    QImage image(16384, 150, QImage::Format_RGBA8888);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.bytesPerLine(); ++x)
            image.scanLine(y)[x] = uchar(x * 7 + y * 31 + x / 256);
    }
    EXPECT_EQ(read(image, image.size()), image);
    const QImage half = read(image, QSize(16384, 75), true);
    for (int y = 0; y < 75; ++y)
        EXPECT_EQ(std::memcmp(half.constScanLine(y), image.constScanLine(2 * y + 1), size_t(half.bytesPerLine())), 0);
}

TEST(ImageRowsTest, smallerIsTheMeanOfEachChannel)
{
    const QImage image = distinctImage(12, 9);
    const QImage small = read(image, QSize(4, 3));
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 4; ++x) {
            QVector4D sum;
            for (int k = 0; k < 9; ++k)
                sum += colorAt(image, 3 * x + k % 3, 3 * y + k / 3);
            EXPECT_LT((colorAt(small, x, y) - sum / 9).length(), 0.005f) << x << ", " << y;
        }
    }
    // Where sizes are no multiples, border pixels count by their share: each result averages 2.5 pixels, of 0 and of
    // 255.
    QImage step(5, 1, QImage::Format_RGBA8888);
    step.fill(Qt::black);
    step.setPixelColor(3, 0, Qt::white);
    step.setPixelColor(4, 0, Qt::white);
    const QImage two = read(step, QSize(2, 1));
    EXPECT_EQ(qRed(two.pixel(0, 0)), 0);
    EXPECT_EQ(qRed(two.pixel(1, 0)), 204) << "two of two and a half";
    EXPECT_EQ(qAlpha(two.pixel(1, 0)), 255);
}

TEST(ImageRowsTest, colourOfTransparentPixelsIsKept)
{
    QImage image(2, 2, QImage::Format_ARGB32);
    image.fill(QColor(200, 100, 50, 0));
    EXPECT_EQ(read(image, QSize(5, 5)).pixel(2, 2), qRgba(200, 100, 50, 0));
    EXPECT_EQ(read(image, QSize(1, 1)).pixel(0, 0), qRgba(200, 100, 50, 0));
}

TEST(ImageRowsTest, largerIsLinearBetweenPixelCentres)
{
    const QImage image = distinctImage(5, 4);
    const QSize size(13, 9);
    const QImage large = read(image, size);
    QImage expected(size, QImage::Format_RGBA8888);
    const auto at = [&](int x, int y) { return colorAt(image, qBound(0, x, 4), qBound(0, y, 3)); };
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const float u = qBound(0.0f, (float(x) + 0.5f) * 5 / 13 - 0.5f, 4.0f);
            const float v = qBound(0.0f, (float(y) + 0.5f) * 4 / 9 - 0.5f, 3.0f);
            const int i = int(std::floor(u));
            const int k = int(std::floor(v));
            const float s = u - float(i);
            const float t = v - float(k);
            const QVector4D value =
                (at(i, k) * (1 - s) + at(i + 1, k) * s) * (1 - t) + (at(i, k + 1) * (1 - s) + at(i + 1, k + 1) * s) * t;
            expected.setPixel(x, y,
                qRgba(qRound(value.x() * 255), qRound(value.y() * 255), qRound(value.z() * 255),
                    qRound(value.w() * 255)));
        }
    }
    EXPECT_LE(difference(large, expected), 1) << "rounding";
    EXPECT_GT(difference(large, large.mirrored()), 20);
}

TEST(ImageRowsTest, nearestKeepsSquares)
{
    const QImage image = distinctImage(5, 4);
    const QImage large = read(image, QSize(15, 8), true);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 15; ++x)
            EXPECT_EQ(large.pixel(x, y), image.pixel(x / 3, y / 2)) << x << ", " << y;
    }
    EXPECT_EQ(read(image.copy(0, 0, 1, 1), QSize(3, 3)).pixel(2, 2), image.pixel(0, 0))
        << "one pixel has no neighbours";
}

} // namespace Velmora::Kvz
