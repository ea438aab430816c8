// SPDX-License-Identifier: MIT
// Looks at what the programs of docs/host.md drew into a folder. Exits with 0 when the pictures are right.
#include <QtCore/QString>
#include <QtGui/QColor>
#include <QtGui/QImage>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

static bool isAllRight = true;

static void expect(bool holds, const char *what)
{
    std::printf("%s: %s\n", what, holds ? "yes" : "NO");
    isAllRight = isAllRight && holds;
}

static QImage read(const QString &folder, const char *name, const QSize &size)
{
    const QImage image(folder + QLatin1Char('/') + QString::fromLatin1(name));
    if (image.size() != size) {
        std::printf("%s is not there, or of another size\n", name);
        std::exit(1);
    }
    return image.convertToFormat(QImage::Format_ARGB32);
}

/// How many pixels of two images of a size differ.
static int differences(const QImage &a, const QImage &b)
{
    int count = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x)
            count += a.pixel(x, y) != b.pixel(x, y);
    }
    return count;
}

/// How many pixels differ from the first of their row, where the background alone is.
static int modelPixels(const QImage &image)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            count += image.pixel(x, y) != image.pixel(0, y);
    }
    return count;
}

/// How many pixels have nearly this colour.
static int pixelsOf(const QImage &image, const QColor &colour)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            count += std::abs(pixel.red() - colour.red()) + std::abs(pixel.green() - colour.green())
                    + std::abs(pixel.blue() - colour.blue())
                < 12;
        }
    }
    return count;
}

static void checkSplitView(const QString &folder)
{
    const QImage both = read(folder, "split-view.png", QSize(640, 240));
    const QImage left = both.copy(0, 0, 320, 240);
    const QImage right = both.copy(320, 0, 320, 240);
    expect(modelPixels(left) > 10000 && left.pixel(0, 120) == left.pixel(319, 120), "split view: a model on the left");
    expect(modelPixels(right) > 5000 && right.pixel(0, 10) == right.pixel(319, 10), "split view: a model on the right");
    const QColor wire(0x10, 0x18, 0x20);
    std::printf("wire colour: %d pixels on the left, %d on the right\n", pixelsOf(left, wire), pixelsOf(right, wire));
    expect(pixelsOf(right, wire) > 300 && pixelsOf(left, wire) < 30, "split view: wires on the right alone");
}

static void checkCutOut(const QString &folder)
{
    const QImage image = read(folder, "cut-out.png", QSize(480, 360));
    int opaque = 0, partial = 0, beyondAlpha = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            const int alpha = qAlpha(pixel);
            opaque += alpha == 255;
            partial += alpha > 0 && alpha < 255;
            beyondAlpha += alpha < 255 && std::max({qRed(pixel), qGreen(pixel), qBlue(pixel)}) > alpha;
        }
    }
    expect(image.pixel(0, 0) == 0 && image.pixel(479, 359) == 0, "cut-out: nothing in the corners");
    expect(opaque > 20000, "cut-out: an opaque model");
    expect(partial > 500 && beyondAlpha > 100, "cut-out: glass before nothing, with straight colours");
}

static void checkEditScene(const QString &folder)
{
    const QSize size(320, 240);
    const QImage before = read(folder, "before.png", size);
    const QImage added = read(folder, "added.png", size);
    const QImage moved = read(folder, "moved.png", size);
    const QImage removed = read(folder, "removed.png", size);
    expect(modelPixels(before) > 10000, "edit scene: a model");
    expect(differences(before, added) > 300, "edit scene: one more item");
    expect(differences(added, moved) > 100 && differences(before, moved) > 300, "edit scene: the item moved");
    expect(differences(before, removed) == 0, "edit scene: the item is gone");
}

static void checkOwnShader(const QString &folder)
{
    for (int frame = 0; frame < 3; ++frame) {
        const QByteArray name = "scan-" + QByteArray::number(frame) + ".png";
        const QImage image = read(folder, name.constData(), QSize(320, 240));
        const auto isLine = [&](int y) {
            const QColor pixel = image.pixelColor(5, y);
            return std::abs(pixel.red() - 0x40) < 12 && pixel.green() > 240 && std::abs(pixel.blue() - 0xa0) < 12;
        };
        bool isRight = modelPixels(image) > 10000;
        for (int line = 0; line < 3; ++line)
            isRight = isRight && isLine(240 - 60 * (line + 1)) == (line == frame);
        expect(isRight, "own shader: the line is where it was set");
    }
}

int main(int, char **argv)
{
    const QString folder = QString::fromLocal8Bit(argv[1]);
    checkSplitView(folder);
    checkCutOut(folder);
    checkEditScene(folder);
    checkOwnShader(folder);
    return isAllRight ? 0 : 1;
}
