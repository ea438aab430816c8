// SPDX-License-Identifier: MIT
#include "ImageDecoder.h"

#include "TgaDecoder.h"

#include <QtCore/QIODevice>
#include <QtGui/QImageReader>

#include <algorithm>

namespace Velmora::Kvz {

DecodedImage decodeImage(QIODevice *device, int largestSide)
{
    if (device->peek(8) == QByteArray("\xabKTX 20\xbb", 8))
        return {QImage(), QStringLiteral("is a KTX2 image, a type that is not read")};
    // Qt takes TGA for other types, and knows one kind of it.
    const bool isOfTga = isTga(device->peek(18));
    QImageReader reader(isOfTga ? nullptr : device);
    reader.setDecideFormatFromContent(true);
    const QSize size = reader.size();
    const bool isTooLarge = std::max(size.width(), size.height()) > largestSide;
    DecodedImage result;
    const auto fitted = [largestSide](const QSize &from) {
        return from.scaled(largestSide, largestSide, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
    };
    const auto remark = [&](const QSize &from) {
        return QStringLiteral("has %1x%2 pixels and is scaled to %3x%4")
            .arg(from.width())
            .arg(from.height())
            .arg(fitted(from).width())
            .arg(fitted(from).height());
    };
    if (isTooLarge) {
        reader.setScaledSize(fitted(size));
        result.remark = remark(size);
    }
    result.image = isOfTga ? readTga(device->readAll()) : reader.read();
    // Some types do not tell their size before they are read.
    const QSize read = result.image.size();
    if (std::max(read.width(), read.height()) > largestSide) {
        result.remark = remark(read);
        result.image = result.image.scaled(fitted(read), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }
    if (result.image.isNull())
        result.remark = QStringLiteral("cannot be read (%1)")
                            .arg(isOfTga ? QStringLiteral("damaged or truncated") : reader.errorString());
    return result;
}

} // namespace Velmora::Kvz
