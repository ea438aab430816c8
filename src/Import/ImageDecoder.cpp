// SPDX-License-Identifier: MIT
#include "ImageDecoder.h"

#include "ImageSize.h"
#include "PngDecoder.h"
#include "TgaDecoder.h"

#include <QtCore/QIODevice>
#include <QtGui/QImageReader>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

QString scaledRemark(const QSize &from, int largestSide)
{
    const QSize to = fittedSize(from, largestSide);
    return QStringLiteral("has %1x%2 pixels and is scaled to %3x%4")
        .arg(from.width())
        .arg(from.height())
        .arg(to.width())
        .arg(to.height());
}

DecodedImage decodePng(QIODevice *device, int largestSide)
{
    DecodedImage result;
    QSize size;
    result.image = readPng(device, largestSide, &size);
    if (result.image.isNull())
        result.remark = QStringLiteral("cannot be read (damaged or truncated)");
    else if (size != result.image.size())
        result.remark = scaledRemark(size, largestSide);
    return result;
}

} // namespace

DecodedImage decodeImage(QIODevice *device, int largestSide)
{
    if (device->peek(8) == QByteArray("\xabKTX 20\xbb", 8))
        return {QImage(), QStringLiteral("is a KTX2 image, a type that is not read")};
    if (isPng(device->peek(8)))
        return decodePng(device, largestSide);
    // Qt takes TGA for other types, and knows one kind of it.
    const bool isOfTga = isTga(device->peek(18));
    QImageReader reader(isOfTga ? nullptr : device);
    reader.setDecideFormatFromContent(true);
    const QSize size = reader.size();
    const bool isTooLarge = std::max(size.width(), size.height()) > largestSide;
    DecodedImage result;
    if (isTooLarge) {
        reader.setScaledSize(fittedSize(size, largestSide));
        result.remark = scaledRemark(size, largestSide);
    }
    result.image = isOfTga ? readTga(device->readAll()) : reader.read();
    // Some types do not tell their size before they are read.
    const QSize read = result.image.size();
    if (std::max(read.width(), read.height()) > largestSide) {
        result.remark = scaledRemark(read, largestSide);
        result.image =
            result.image.scaled(fittedSize(read, largestSide), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }
    if (result.image.isNull())
        result.remark = QStringLiteral("cannot be read (%1)")
                            .arg(isOfTga ? QStringLiteral("damaged or truncated") : reader.errorString());
    return result;
}

} // namespace Velmora::Kvz
