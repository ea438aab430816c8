// SPDX-License-Identifier: MIT
#pragma once

#include "Image.h"
#include "TemporaryFolder.h"

#include <QtGui/QImage>

namespace Velmora::Kvz {

/// Writes an image as a PNG file and returns its path.
inline QString writeImage(const TemporaryFolder &folder, const QString &name, const QImage &image)
{
    const QString path = folder.path(name);
    if (!image.save(path, "PNG"))
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

/// An image in which all texels differ, with alpha from 64 up, or opaque in formats without alpha.
inline QImage distinctImage(int width, int height, QImage::Format format = QImage::Format_ARGB32, int seed = 0)
{
    QImage image(width, height, QImage::Format_ARGB32);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int n = seed * 89 + y * width + x;
            image.setPixel(x, y, qRgba(n * 7 % 256, n * 31 % 251, n * 101 % 241, 64 + n * 13 % 192));
        }
    }
    return image.convertToFormat(format);
}

/// The colour of a pixel as four channels from 0 to 1.
inline QVector4D colorAt(const QImage &image, int x, int y)
{
    const QRgb texel = image.pixel(x, y);
    return QVector4D(float(qRed(texel)), float(qGreen(texel)), float(qBlue(texel)), float(qAlpha(texel))) / 255.0f;
}

/// The bits as rows of GL_BGRA bytes, with zeros beyond their end.
inline Image asBgraTexels(const QByteArray &bits, int width, int height)
{
    Image image(width, height);
    for (int i = 0; i < width * height; ++i) {
        const auto byte = [&](int k) { return float(i * 4 + k < bits.size() ? uchar(bits[i * 4 + k]) : 0) / 255.0f; };
        image.setPixel(i % width, i / width, QVector4D(byte(2), byte(1), byte(0), byte(3)));
    }
    return image;
}

inline QByteArray bitsOf(const QImage &image)
{
    return QByteArray(reinterpret_cast<const char *>(image.constBits()), int(image.sizeInBytes()));
}

/// A JPEG file of 8 by 8 pixels with four inks, all at one half.
inline QByteArray cmykJpeg()
{
    QByteArray file = QByteArray::fromHex("ffd8"
                                          "ffdb004300")
        + QByteArray(64, '\x01');
    file += QByteArray::fromHex("ffc00014"
                                "0800080008"
                                "04"
                                "011100"
                                "021100"
                                "031100"
                                "041100");
    for (const char *table : {"00", "10"}) // One code for "no difference", one for "end of block".
        file += QByteArray::fromHex("ffc40014") + QByteArray::fromHex(table) + '\x01' + QByteArray(16, '\0');
    return file
        + QByteArray::fromHex("ffda000e"
                              "04"
                              "0100"
                              "0200"
                              "0300"
                              "0400"
                              "003f00"
                              "00"
                              "ffd9");
}

} // namespace Velmora::Kvz
