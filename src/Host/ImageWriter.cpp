// SPDX-License-Identifier: MIT
#include <Host/ImageWriter.h>

#include <Host/LightFile.h>
#include <Host/PictureFile.h>

#include <QtCore/QBuffer>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <vector>

namespace Velmora::Kvz {

namespace {

/// How an image is kept in a file of this type: all that it has, where the type has it too.
PictureFormat formatOf(const QImage &image, const QByteArray &type)
{
    PictureFormat format;
    format.type = type;
    format.depth =
        type == "png" && (image.format() == QImage::Format_RGBA64 || image.format() == QImage::Format_RGBX64) ? 16 : 8;
    format.hasAlpha = image.hasAlphaChannel();
    if (!pictureFormatProblem(format, image.size()).isEmpty())
        format.hasAlpha = false;
    return format;
}

/// Display values as the light that they stand for.
bool writeLight(const QImage &image, const QString &file, QString *error)
{
    LightLayer layer;
    layer.channels = QStringList{QStringLiteral("R"), QStringLiteral("G"), QStringLiteral("B")};
    if (image.hasAlphaChannel())
        layer.channels.append(QStringLiteral("A"));
    const auto light = LightFile::create(file, image.size(), {layer}, error);
    if (!light)
        return false;
    const QImage words = image.convertToFormat(QImage::Format_RGBA64_Premultiplied);
    std::vector<float> pixels(4 * size_t(words.width()));
    std::vector<float> row(size_t(layer.channels.size()) * size_t(words.width()));
    QString reason;
    for (int y = 0; y < words.height() && reason.isEmpty(); ++y) {
        const auto *from = reinterpret_cast<const quint16 *>(words.constScanLine(y));
        std::transform(from, from + pixels.size(), pixels.begin(), [](quint16 word) { return float(word) / 65535; });
        decodeDisplayColours(pixels.data(), size_t(words.width()));
        for (size_t i = 0; i < row.size(); ++i) {
            const size_t channels = size_t(layer.channels.size());
            row[i] = pixels[4 * (i / channels) + i % channels];
        }
        light->append(1, {row.data()}, &reason);
    }
    if (reason.isEmpty() && light->finish(&reason))
        return true;
    *error = QStringLiteral("%1: %2").arg(file, reason);
    return false;
}

bool write(PictureFile *picture, const QImage &image, QString *error)
{
    return picture->append(image, error) && picture->finish(error);
}

} // namespace

QByteArray encodeImage(const QImage &image, const QByteArray &format, QString *error)
{
    QBuffer encoded;
    encoded.open(QIODevice::WriteOnly);
    const auto picture = PictureFile::create(&encoded, image.size(), formatOf(image, format), error);
    if (!picture || !write(picture.get(), image, error))
        return {};
    return encoded.data();
}

bool writeImage(const QImage &image, const QString &file, QString *error)
{
    if (QFileInfo(file).suffix().toLower() == QLatin1String("exr"))
        return writeLight(image, file, error);
    const QByteArray type = QFileInfo(file).suffix().toLower().toLatin1();
    const auto picture = PictureFile::create(file, image.size(), formatOf(image, type), error);
    if (!picture)
        return false;
    QString reason;
    if (write(picture.get(), image, &reason))
        return true;
    *error = QStringLiteral("%1: %2").arg(file, reason);
    return false;
}

} // namespace Velmora::Kvz
