// SPDX-License-Identifier: MIT
#include "ImageDecoder.h"

#include <QtCore/QIODevice>
#include <QtGui/QImageReader>

#include <algorithm>

namespace Velmora::Kvz {

DecodedImage decodeImage(QIODevice *device, int largestSide)
{
    if (device->peek(8) == QByteArray("\xabKTX 20\xbb", 8))
        return {QImage(), QStringLiteral("is a KTX2 image, a type that is not read")};
    QImageReader reader(device);
    reader.setDecideFormatFromContent(true);
    const QSize size = reader.size();
    const bool isTooLarge = std::max(size.width(), size.height()) > largestSide;
    DecodedImage result;
    if (isTooLarge) {
        const QSize fitted = size.scaled(largestSide, largestSide, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
        reader.setScaledSize(fitted);
        result.remark = QStringLiteral("has %1x%2 pixels and is scaled to %3x%4")
                            .arg(size.width())
                            .arg(size.height())
                            .arg(fitted.width())
                            .arg(fitted.height());
    }
    result.image = reader.read();
    if (result.image.isNull())
        result.remark = QStringLiteral("cannot be read (%1)").arg(reader.errorString());
    return result;
}

} // namespace Velmora::Kvz
