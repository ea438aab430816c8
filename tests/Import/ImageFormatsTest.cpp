// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/ImageFiles.h"
#include "support/LoadCost.h"
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

/// A TGA of true colour, rows from the bottom up unless `descriptor` says else. Run-length encoded, equal neighbours make a run, and
/// runs go on from row to row.
QByteArray tga(const QImage &image, int bits, bool isRunLength = false, int descriptor = 0)
{
    QByteArray bytes(18, '\0');
    bytes[2] = char(isRunLength ? 10 : 2);
    bytes[12] = char(image.width());
    bytes[14] = char(image.height());
    bytes[16] = char(bits);
    bytes[17] = char(descriptor | (bits == 32 ? 8 : 0)); // bits of alpha
    QVector<QByteArray> pixels;
    for (int row = 0; row < image.height(); ++row) {
        for (int column = 0; column < image.width(); ++column) {
            const QRgb pixel = image.pixel(descriptor & 0x10 ? image.width() - 1 - column : column,
                descriptor & 0x20 ? row : image.height() - 1 - row);
            QByteArray texel;
            if (bits == 16) {
                const int word = (qRed(pixel) >> 3) << 10 | (qGreen(pixel) >> 3) << 5 | qBlue(pixel) >> 3;
                texel = QByteArray(1, char(word)) + char(word >> 8);
            } else {
                texel = QByteArray(1, char(qBlue(pixel))) + char(qGreen(pixel)) + char(qRed(pixel));
                if (bits == 32)
                    texel += char(qAlpha(pixel));
            }
            pixels.append(texel);
        }
    }
    for (int i = 0; i < pixels.size();) {
        int run = 1;
        while (isRunLength && run < 128 && i + run < pixels.size() && pixels[i + run] == pixels[i])
            ++run;
        if (run > 1) {
            bytes += char(0x80 | (run - 1)) + pixels[i];
        } else {
            // Two plain pixels at once, where two differ.
            run = isRunLength && i + 1 < pixels.size() && (i + 2 == pixels.size() || pixels[i + 1] != pixels[i + 2])
                ? 2
                : 1;
            if (isRunLength)
                bytes += char(run - 1);
            for (int k = 0; k < run; ++k)
                bytes += pixels[i + k];
        }
        i += run;
    }
    return bytes;
}

} // namespace

TEST(ImageFormatsTest, tgaIsRead)
{
    QImage image = distinctImage(7, 5);
    // A run that goes beyond the end of its row.
    for (int x = 3; x < 7; ++x)
        image.setPixel(x, 2, qRgba(1, 2, 3, 200));
    image.setPixel(0, 1, qRgba(1, 2, 3, 200));
    image.setPixel(0, 3, qRgba(1, 2, 3, 200));
    for (const bool isRunLength : {false, true}) {
        for (const int descriptor : {0, 0x20, 0x10, 0x30}) {
            ImportedScene scene = sceneWith("a.tga", tga(image, 32, isRunLength, descriptor));
            EXPECT_EQ(scene.warnings, QStringList());
            EXPECT_EQ(scene.materials.value(0).mapKd, image) << isRunLength << ", " << descriptor;
            scene = sceneWith("b.tga", tga(image, 24, isRunLength, descriptor));
            EXPECT_EQ(scene.warnings, QStringList());
            EXPECT_EQ(scene.materials.value(0).mapKd.convertToFormat(QImage::Format_RGB32),
                image.convertToFormat(QImage::Format_RGB32));
        }
    }
    const QImage coarse = sceneWith("c.tga", tga(image, 16, true)).materials.value(0).mapKd;
    ASSERT_EQ(coarse.size(), image.size());
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 7; ++x)
            EXPECT_LT((colorAt(coarse, x, y) - colorAt(image, x, y)).toVector3D().length(), 0.04f) << x << ", " << y;
    }
}

TEST(ImageFormatsTest, tgaHasGreyAndPalettes)
{
    QByteArray grey(18, '\0');
    grey[2] = 3;
    grey[12] = 2;
    grey[14] = 1;
    grey[16] = 8;
    const QImage shades = sceneWith("a.tga", grey + "\x33\xcc").materials.value(0).mapKd;
    ASSERT_EQ(shades.size(), QSize(2, 1));
    EXPECT_EQ(shades.pixel(0, 0), qRgb(0x33, 0x33, 0x33));
    EXPECT_EQ(shades.pixel(1, 0), qRgb(0xcc, 0xcc, 0xcc));

    QByteArray mapped(18, '\0');
    mapped[0] = 2; // bytes of a name
    mapped[1] = 1;
    mapped[2] = 9;
    mapped[3] = 4; // the first number of the palette
    mapped[5] = 2;
    mapped[7] = 24;
    mapped[12] = 3;
    mapped[14] = 1;
    mapped[16] = 8;
    const QByteArray palette("\x01\x02\x03\x04\x05\x06", 6);
    const QImage image =
        sceneWith("b.tga", mapped + "id" + palette + "\x81\x05" + QByteArray("\0\x04", 2)).materials.value(0).mapKd;
    ASSERT_EQ(image.size(), QSize(3, 1));
    EXPECT_EQ(image.pixel(0, 0), qRgb(6, 5, 4));
    EXPECT_EQ(image.pixel(1, 0), qRgb(6, 5, 4));
    EXPECT_EQ(image.pixel(2, 0), qRgb(3, 2, 1));
    const ImportedScene outside = sceneWith("c.tga", mapped + "id" + palette + "\x82\x06");
    ASSERT_EQ(outside.warnings.size(), 1) << "the palette ends at 5";
    EXPECT_TRUE(outside.materials.value(0).mapKd.isNull());
}

TEST(ImageFormatsTest, damagedTgaIsRefused)
{
    const QImage image = distinctImage(7, 5);
    QByteArray huge = tga(image, 32, true);
    huge[13] = char(0xff);
    huge[15] = char(0xff);
    const QVector<QByteArray> files = {
        tga(image, 32).chopped(1), tga(image, 24, true).chopped(1), tga(image, 32, true).left(18), huge};
    for (const QByteArray &bytes : files) {
        const ImportedScene scene = sceneWith("a.tga", bytes);
        ASSERT_EQ(scene.warnings.size(), 1);
        EXPECT_TRUE(
            scene.warnings[0].endsWith("texture \"a.tga\" cannot be read (damaged or truncated); white is used"))
            << qPrintable(scene.warnings[0]);
    }
}

TEST(ImageFormatsTest, alphaOfTgaThatIsZeroEverywhereIsNone)
{
    QImage image(3, 3, QImage::Format_ARGB32);
    image.fill(QColor(10, 20, 30, 0));
    const ImportedScene scene = sceneWith("a.tga", tga(image, 32));
    EXPECT_EQ(scene.materials.value(0).mapKd.pixel(1, 1), qRgb(10, 20, 30));
    EXPECT_EQ(scene.items.value(0).featureFlags & ImportedScene::Transparent, 0u);
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

TEST(ImageFormatsTest, pngOfEveryKindIsRead)
{
    const QImage image = distinctImage(7, 5);
    for (const QImage::Format format : {QImage::Format_ARGB32, QImage::Format_RGB32, QImage::Format_Grayscale8,
             QImage::Format_Indexed8, QImage::Format_Mono, QImage::Format_RGBA64}) {
        const QImage kind = image.convertToFormat(format);
        const QImage read = sceneWith("a.png", written(kind, "png")).materials.value(0).mapKd;
        EXPECT_EQ(read.convertToFormat(QImage::Format_ARGB32), kind.convertToFormat(QImage::Format_ARGB32)) << format;
        EXPECT_EQ(read.hasAlphaChannel(), kind.hasAlphaChannel()) << format;
    }
}

/// Four of five columns are black, and three of four rows clear: nothing of the colour of clear pixels is to be seen.
TEST(ImageFormatsTest, pngIsScaledToTheMeanOfItsPixels)
{
    ImportOptions options;
    options.limits.imageSide = 4;
    QImage grey(20, 10, QImage::Format_Grayscale8);
    QImage clear(20, 10, QImage::Format_ARGB32);
    for (int y = 0; y < 10; ++y) {
        for (int x = 0; x < 20; ++x) {
            grey.scanLine(y)[x] = x % 5 == 2 ? 200 : 0;
            clear.setPixel(x, y, y % 5 == 3 ? qRgba(0, 250, 0, 200) : qRgba(255, 0, 0, 0));
        }
    }
    for (const QImage::Format format : {QImage::Format_Grayscale8, QImage::Format_Indexed8, QImage::Format_RGBA64}) {
        const ImportedScene scene = sceneWith("a.png", written(grey.convertToFormat(format), "png"), options);
        const QImage read = scene.materials.value(0).mapKd;
        ASSERT_EQ(read.size(), QSize(4, 2)) << format;
        for (const QPoint &at : {QPoint(0, 0), QPoint(3, 1), QPoint(2, 0)})
            EXPECT_EQ(read.pixel(at), qRgb(40, 40, 40)) << format;
        ASSERT_EQ(scene.warnings.size(), 1);
        EXPECT_TRUE(scene.warnings[0].endsWith("has 20x10 pixels and is scaled to 4x2"));
    }
    const QImage read = sceneWith("a.png", written(clear, "png"), options).materials.value(0).mapKd;
    ASSERT_EQ(read.size(), QSize(4, 2));
    EXPECT_EQ(read.pixel(1, 1), qRgba(0, 250, 0, 40));
    options.limits.imageSide = 6;
    const QImage uneven = sceneWith("a.png", written(grey, "png"), options).materials.value(0).mapKd;
    ASSERT_EQ(uneven.size(), QSize(6, 3));
    // A pixel of the result covers 10/3: columns 0 to 2 and a third of 3, two thirds of 3 to 5 and two thirds of 6.
    EXPECT_EQ(qRed(uneven.pixel(0, 1)), 60);
    EXPECT_EQ(qRed(uneven.pixel(1, 1)), 0);
}

TEST(ImageFormatsTest, largePngIsScaledWhileItIsDecoded)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers keep what is given back";
#endif
    constexpr int side = 6000;
    ImportOptions options;
    options.limits.imageSide = 64;
    for (const QImage::Format format : {QImage::Format_Grayscale8, QImage::Format_Indexed8}) {
        QImage image(side, side, format);
        image.setColorTable({qRgb(0, 0, 0), qRgb(90, 90, 90)});
        image.fill(1);
        QByteArray bytes = written(image, "png");
        image = QImage();
        const Cost small = costOf([&] { sceneWith("a.png", pngBytes(plainImage(8, 8, Qt::red)), options); });
        const Cost large = costOf([&] { sceneWith("a.png", bytes, options); });
        EXPECT_LT(large.megabytes - small.megabytes, 12) << format << ": all of it takes " << side * side / 1e6;
    }
}

TEST(ImageFormatsTest, damagedPngIsToldOfInOneLine)
{
    const QByteArray whole = written(distinctImage(40, 40), "png");
    QByteArray broken = whole;
    broken[broken.size() / 2] = char(broken[broken.size() / 2] ^ 0x55);
    for (const QByteArray &bytes : {whole.left(whole.size() / 2), broken, whole.left(20)}) {
        ::testing::internal::CaptureStderr();
        const ImportedScene scene = sceneWith("a.png", bytes);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
        ASSERT_EQ(scene.warnings.size(), 1);
        EXPECT_TRUE(
            scene.warnings[0].endsWith("texture \"a.png\" cannot be read (damaged or truncated); white is used"))
            << qPrintable(scene.warnings[0]);
    }
}

/// Libraries that read images write to the terminal, or log without a word on which image it is.
TEST(ImageFormatsTest, damageIsToldOfInOneLineWithTheImage)
{
    const QImage image = distinctImage(64, 64);
    const QByteArray jpeg = written(image, "jpg");
    const QByteArray bmp = written(image, "bmp");
    const QByteArray tiff = written(image, "tiff");
    QByteArray badTable = jpeg;
    const int table = badTable.indexOf("\xff\xc4"); // a Huffman table, whose counts are nonsense then
    ASSERT_GT(table, 0);
    badTable.replace(table + 5, 16, QByteArray(16, '\xff'));
    QByteArray oddTag = tiff; // the last of its directory's is none that anybody knows
    const auto number = [&oddTag](int at, int bytes) {
        int value = 0;
        for (int i = 0; i < bytes; ++i)
            value |= int(quint8(oddTag[at + i])) << 8 * i;
        return value;
    };
    ASSERT_TRUE(oddTag.startsWith("II"));
    const int directory = number(4, 4);
    const int lastTag = directory + 2 + 12 * (number(directory, 2) - 1);
    oddTag[lastTag] = char(0x60);
    oddTag[lastTag + 1] = char(0xea);
    struct Case
    {
        const char *name;
        QByteArray bytes;
        const char *remark; // empty: nothing is said
        bool isRead;
    };
    const Case cases[] = {{"cut.jpg", jpeg.left(jpeg.size() / 2),
                              "is damaged (Corrupt JPEG data: premature end of data segment); what "
                              "could be read of it is used",
                              true},
        {"table.jpg", badTable, "cannot be read (Unable to read image data); white is used", false},
        {"cut.bmp", bmp.left(bmp.size() / 2),
            "is damaged (it ends before its last row); what could be read of it is "
            "used",
            true},
        {"whole.bmp", bmp, "", true}, {"whole.jpg", jpeg, "", true}, {"odd.tif", oddTag, "", true},
        {"cut.tif", tiff.left(directory / 2) + QByteArray(16, '\0'), "", false}};
    for (const Case &each : cases) {
        SCOPED_TRACE(each.name);
        static QStringList logged;
        logged.clear();
        const QtMessageHandler former = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &message) { logged.append(message); });
        ::testing::internal::CaptureStderr();
        const ImportedScene scene = sceneWith(each.name, each.bytes);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
        qWarning("still here");
        qInstallMessageHandler(former);
        EXPECT_EQ(logged, QStringList("still here")) << "the handler of the host is in force again";
        EXPECT_EQ(scene.materials.value(0).mapKd.isNull(), !each.isRead);
        if (each.isRead && *each.remark == '\0') {
            EXPECT_EQ(scene.warnings, QStringList());
            continue;
        }
        ASSERT_EQ(scene.warnings.size(), 1);
        EXPECT_TRUE(scene.warnings[0].contains(QStringLiteral("texture \"%1\" ").arg(each.name)));
        EXPECT_TRUE(scene.warnings[0].endsWith(each.remark)) << qPrintable(scene.warnings[0]);
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
