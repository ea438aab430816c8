// SPDX-License-Identifier: MIT
#include "RadianceImage.h"

#include "ExrMemory.h"

#include <ImfRgbaFile.h>

#include <QtCore/QBuffer>
#include <QtGui/QImageReader>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <exception>

// A library of one header, here with nothing but its reader of Radiance files.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpragmas"
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wsign-compare"
#pragma GCC diagnostic ignored "-Wshadow"
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_HDR
#define STBI_NO_STDIO
#include <stb/stb_image.h>
#pragma GCC diagnostic pop

namespace Velmora::Kvz {

namespace {

constexpr qint64 mostPixels = qint64(1) << 26;

bool isTooLarge(qint64 width, qint64 height, QString *problem)
{
    if (width > 0 && height > 0 && width <= mostPixels / height)
        return false;
    *problem = QStringLiteral("it is %1 by %2 pixels large; at most %3 million are read, so scale it down")
                   .arg(width)
                   .arg(height)
                   .arg(mostPixels / 1000000);
    return true;
}

RadianceImage blank(int width, int height)
{
    RadianceImage image{width, height, {}};
    image.rgb.resize(3 * size_t(width) * size_t(height));
    return image;
}

void store(float *texel, float r, float g, float b)
{
    const float channels[] = {r, g, b};
    for (int i = 0; i < 3; ++i)
        texel[i] = std::isfinite(channels[i]) ? std::max(channels[i], 0.0f) : 0.0f;
}

/// Bytes for the reader of Radiance files, which takes missing ones for zeros.
struct Reading
{
    const QByteArray *content;
    int place = 0;
    bool isShort = false;

    static int read(void *user, char *target, int count)
    {
        auto *const self = static_cast<Reading *>(user);
        const int there = std::min(count, self->content->size() - self->place);
        self->isShort |= there <= 0;
        std::memcpy(target, self->content->constData() + self->place, size_t(std::max(there, 0)));
        self->place += std::max(there, 0);
        return std::max(there, 0);
    }
    static void skip(void *user, int count) { static_cast<Reading *>(user)->place += count; }
    static int isAtEnd(void *user)
    {
        const auto *const self = static_cast<Reading *>(user);
        return self->place >= self->content->size();
    }
};

RadianceImage decodeHdr(const QByteArray &content, QString *problem)
{
    const stbi_io_callbacks callbacks{Reading::read, Reading::skip, Reading::isAtEnd};
    Reading reading{&content};
    int width = 0;
    int height = 0;
    int channels = 0;
    if (!stbi_info_from_callbacks(&callbacks, &reading, &width, &height, &channels)) {
        *problem = QStringLiteral("its header is damaged");
        return {};
    }
    if (isTooLarge(width, height, problem))
        return {};
    reading = Reading{&content};
    float *const pixels = stbi_loadf_from_callbacks(&callbacks, &reading, &width, &height, &channels, 3);
    if (!pixels || reading.isShort) {
        stbi_image_free(pixels);
        *problem = QStringLiteral("it is damaged or cut short");
        return {};
    }
    RadianceImage image = blank(width, height);
    for (int i = 0; i < width * height; ++i)
        store(image.rgb.data() + 3 * size_t(i), pixels[3 * i], pixels[3 * i + 1], pixels[3 * i + 2]);
    stbi_image_free(pixels);
    return image;
}

RadianceImage decodeExr(const QByteArray &content, QString *problem)
{
    try {
        ExrReading stream(content);
        Imf::RgbaInputFile file(stream);
        const Imath::Box2i window = file.dataWindow();
        const qint64 width = qint64(window.max.x) - window.min.x + 1;
        const qint64 height = qint64(window.max.y) - window.min.y + 1;
        if (isTooLarge(width, height, problem))
            return {};
        std::vector<Imf::Rgba> row(static_cast<size_t>(width));
        RadianceImage image = blank(int(width), int(height));
        for (int y = 0; y < int(height); ++y) {
            const int line = window.min.y + y;
            file.setFrameBuffer(
                row.data() - window.min.x - std::ptrdiff_t(line) * std::ptrdiff_t(width), 1, size_t(width));
            file.readPixels(line);
            for (int x = 0; x < int(width); ++x)
                store(image.at(x, y), row[size_t(x)].r, row[size_t(x)].g, row[size_t(x)].b);
        }
        return image;
    } catch (const std::exception &error) {
        *problem = QStringLiteral("it is damaged or cut short (%1)").arg(QString::fromUtf8(error.what()).simplified());
        return {};
    }
}

RadianceImage decodeColours(const QByteArray &content, QString *problem)
{
    QBuffer buffer(const_cast<QByteArray *>(&content));
    QImageReader reader(&buffer);
    const QSize size = reader.size();
    if (!reader.canRead()) {
        *problem = QStringLiteral("it is no image that can be read; Radiance (.hdr), OpenEXR, PNG and JPEG can");
        return {};
    }
    if (size.isValid() && isTooLarge(size.width(), size.height(), problem))
        return {};
    const QImage source = reader.read().convertToFormat(QImage::Format_RGB32);
    if (source.isNull()) {
        *problem = QStringLiteral("it is damaged or cut short (%1)").arg(reader.errorString());
        return {};
    }
    std::array<float, 256> linear = {};
    for (int i = 0; i < 256; ++i) {
        const float encoded = float(i) / 255;
        linear[size_t(i)] = encoded <= 0.04045f ? encoded / 12.92f : std::pow((encoded + 0.055f) / 1.055f, 2.4f);
    }
    RadianceImage image = blank(source.width(), source.height());
    for (int y = 0; y < source.height(); ++y) {
        const auto *const row = reinterpret_cast<const QRgb *>(source.constScanLine(y));
        for (int x = 0; x < source.width(); ++x)
            store(image.at(x, y), linear[size_t(qRed(row[x]))], linear[size_t(qGreen(row[x]))],
                linear[size_t(qBlue(row[x]))]);
    }
    return image;
}

} // namespace

RadianceImage decodeRadiance(const QByteArray &content, QString *problem)
{
    if (content.startsWith("#?"))
        return decodeHdr(content, problem);
    if (content.startsWith("\x76\x2f\x31\x01"))
        return decodeExr(content, problem);
    return decodeColours(content, problem);
}

RadianceImage halved(const RadianceImage &image)
{
    RadianceImage result = blank(std::max(1, image.width / 2), std::max(1, image.height / 2));
    const int stepX = image.width > 1 ? 2 : 1;
    const int stepY = image.height > 1 ? 2 : 1;
    for (int y = 0; y < result.height; ++y) {
        for (int x = 0; x < result.width; ++x) {
            const float *const corners[] = {image.at(stepX * x, stepY * y), image.at(stepX * x + stepX - 1, stepY * y),
                image.at(stepX * x, stepY * y + stepY - 1), image.at(stepX * x + stepX - 1, stepY * y + stepY - 1)};
            for (int i = 0; i < 3; ++i)
                result.at(x, y)[i] = (corners[0][i] + corners[1][i] + corners[2][i] + corners[3][i]) / 4;
        }
    }
    return result;
}

} // namespace Velmora::Kvz
