// SPDX-License-Identifier: MIT
#include <Host/PictureFile.h>

#include "PngEncoder.h"
#include "WritingReason.h"

#include <Host/PictureNames.h>

#include <QtCore/QSaveFile>
#include <QtGui/QImageWriter>
#include <QtGui/QRgba64>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Velmora::Kvz {

namespace {

bool isPng(const PictureFormat &format)
{
    return format.type == "png";
}

bool hasNoAlpha(const QByteArray &type)
{
    static const QList<QByteArray> types{"jpg", "jpeg", "bmp", "ppm", "pbm", "pgm", "xbm"};
    return types.contains(type);
}

bool hasQuality(const QByteArray &type)
{
    static const QList<QByteArray> types{"jpg", "jpeg", "webp"};
    return types.contains(type);
}

/// The longest side that a format has a number for.
int longestSide(const QByteArray &type)
{
    if (type == "jpg" || type == "jpeg")
        return 65500;
    return type == "webp" ? 16383 : 0x7fffffff;
}

QImage::Format layoutOf(const PictureFormat &format)
{
    if (format.depth == 16)
        return QImage::Format_RGBA64;
    return format.hasAlpha ? QImage::Format_RGBA8888 : QImage::Format_RGB888;
}

/// Leaves the alpha of a row out, in place.
void dropAlpha(QRgba64 *row, int width)
{
    auto *to = reinterpret_cast<quint16 *>(row);
    for (int x = 0; x < width; ++x) {
        const QRgba64 pixel = row[x];
        *to++ = pixel.red();
        *to++ = pixel.green();
        *to++ = pixel.blue();
    }
}

quint16 toWord(float value)
{
    return value >= 1 ? 65535 : value > 0 ? quint16(value * 65535 + 0.5f) : 0; // NaN gives 0
}

} // namespace

QString pictureFormatProblem(const PictureFormat &format, const QSize &size)
{
    const QString suffix = QString::fromLatin1(format.type);
    if (!QImageWriter::supportedImageFormats().contains(format.type))
        return QStringLiteral("pictures of type .%1 cannot be written; use .png").arg(suffix);
    if (format.depth != 8 && format.depth != 16)
        return QStringLiteral("pictures have 8 or 16 bits a channel, not %1").arg(format.depth);
    if (format.depth == 16 && !isPng(format))
        return QStringLiteral("pictures of type .%1 have 8 bits a channel here; write a PNG").arg(suffix);
    if (format.quality >= 0 && !hasQuality(format.type))
        return QStringLiteral("pictures of type .%1 have no quality; .jpg and .webp have").arg(suffix);
    if (format.quality > 100)
        return QStringLiteral("the quality goes from 0 to 100, not to %1").arg(format.quality);
    if (format.hasAlpha && hasNoAlpha(format.type))
        return QStringLiteral("pictures of type .%1 have no alpha; write a PNG").arg(suffix);
    if (size.isEmpty())
        return QStringLiteral("there is no picture to write");
    const int longest = longestSide(format.type);
    if (size.width() > longest || size.height() > longest)
        return QStringLiteral("pictures of type .%1 have at most %2 pixels a side; write a PNG")
            .arg(suffix)
            .arg(longest);
    return {};
}

struct PictureFile::Private
{
    PictureFormat format;
    QSize size;
    int rows = 0; ///< Those that are there.
    bool isBroken = false;
    std::unique_ptr<QSaveFile> file; ///< Null where another device takes the picture.
    QIODevice *device = nullptr;
    std::unique_ptr<PngEncoder> png; ///< Null of other formats.
    QImage whole; ///< Of other formats.

    bool refuse(const QString &reason, QString *error)
    {
        isBroken = true;
        *error = reason;
        return false;
    }
    bool begin(QString *error);
    bool write(const QImage &part, QString *error);
};

bool PictureFile::Private::begin(QString *error)
{
    if (!isPng(format)) {
        whole = QImage(size, layoutOf(format));
        return !whole.isNull() || refuse(QStringLiteral("there is no memory for the picture"), error);
    }
    png = std::make_unique<PngEncoder>(device);
    return png->begin(size, format.hasAlpha, format.depth) || refuse(writingReason(*device), error);
}

bool PictureFile::Private::write(const QImage &part, QString *error)
{
    for (int y = 0; y < part.height(); ++y) {
        if (!png) {
            std::memcpy(whole.scanLine(rows + y), part.constScanLine(y), size_t(part.width() * part.depth() / 8));
            continue;
        }
        const uchar *row = part.constScanLine(y);
        QVector<QRgba64> opaque;
        if (format.depth == 16 && !format.hasAlpha) {
            opaque.resize(part.width());
            std::memcpy(opaque.data(), row, size_t(part.width()) * sizeof(QRgba64));
            dropAlpha(opaque.data(), part.width());
            row = reinterpret_cast<const uchar *>(opaque.constData());
        }
        if (!png->writeRow(row))
            return refuse(writingReason(*device), error);
    }
    rows += part.height();
    return true;
}

PictureFile::PictureFile(std::unique_ptr<Private> data)
    : d(std::move(data))
{ }

PictureFile::~PictureFile() = default;

std::unique_ptr<PictureFile> PictureFile::create(
    QIODevice *device, const QSize &size, const PictureFormat &format, QString *error)
{
    *error = pictureFormatProblem(format, size);
    if (!error->isEmpty())
        return nullptr;
    auto data = std::make_unique<Private>();
    data->format = format;
    data->size = size;
    data->device = device;
    if (!data->begin(error))
        return nullptr;
    return std::unique_ptr<PictureFile>(new PictureFile(std::move(data)));
}

std::unique_ptr<PictureFile> PictureFile::create(
    const QString &file, const QSize &size, const PictureFormat &format, QString *error)
{
    QString reason = imageFileProblem(file);
    auto output = std::make_unique<QSaveFile>(file);
    std::unique_ptr<PictureFile> picture;
    if (reason.isEmpty() && !output->open(QIODevice::WriteOnly))
        reason = output->errorString();
    if (reason.isEmpty())
        picture = create(output.get(), size, format, &reason);
    if (picture)
        picture->d->file = std::move(output);
    else
        *error = QStringLiteral("%1: %2").arg(file, reason);
    return picture;
}

bool PictureFile::append(const QImage &rows, QString *error)
{
    if (d->isBroken)
        return d->refuse(QStringLiteral("the picture could not be written"), error);
    if (rows.isNull())
        return d->refuse(QStringLiteral("there is no picture to write"), error);
    if (rows.width() != d->size.width() || rows.height() > d->size.height() - d->rows)
        return d->refuse(QStringLiteral("rows of %1x%2 pixels do not go into what is left of the picture, %3x%4")
                             .arg(rows.width())
                             .arg(rows.height())
                             .arg(d->size.width())
                             .arg(d->size.height() - d->rows),
            error);
    const QImage::Format layout = layoutOf(d->format);
    const QImage converted = rows.format() == layout ? rows : rows.convertToFormat(layout);
    if (converted.isNull())
        return d->refuse(QStringLiteral("there is no memory for the picture"), error);
    return d->write(converted, error);
}

bool PictureFile::finish(QString *error)
{
    if (d->isBroken)
        return d->refuse(QStringLiteral("the picture could not be written"), error);
    d->isBroken = true; // It takes no more rows.
    if (d->rows < d->size.height())
        return d->refuse(
            QStringLiteral("%1 of %2 rows are missing").arg(d->size.height() - d->rows).arg(d->size.height()), error);
    if (d->png) {
        if (!d->png->end())
            return d->refuse(writingReason(*d->device), error);
    } else {
        QImageWriter writer(d->device, d->format.type);
        if (d->format.quality >= 0)
            writer.setQuality(d->format.quality);
        if (!writer.write(d->whole))
            return d->refuse(writer.errorString(), error);
    }
    return !d->file || d->file->commit() || d->refuse(writingReason(*d->file), error);
}

QImage wordsFromColours(const float *rgba, const QSize &size, bool hasAlpha)
{
    QImage rows(size, hasAlpha ? QImage::Format_RGBA64 : QImage::Format_RGBX64);
    if (rows.isNull())
        return rows;
    for (int y = 0; y < size.height(); ++y) {
        auto *to = reinterpret_cast<QRgba64 *>(rows.scanLine(y));
        for (int x = 0; x < size.width(); ++x, rgba += 4) {
            const float alpha = hasAlpha ? rgba[3] : 1.0f;
            const float scale = alpha > 0 ? 1 / alpha : 0;
            to[x] = QRgba64::fromRgba64(
                toWord(rgba[0] * scale), toWord(rgba[1] * scale), toWord(rgba[2] * scale), toWord(alpha));
        }
    }
    return rows;
}

} // namespace Velmora::Kvz
