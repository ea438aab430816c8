// SPDX-License-Identifier: MIT
#include "ImageDecoder.h"

#include "ImageComplaints.h"
#include "ImageSize.h"
#include "PngDecoder.h"
#include "TgaDecoder.h"

#include <QtCore/QIODevice>
#include <QtCore/QtEndian>
#include <QtGui/QImageReader>

#include <algorithm>
#include <cstdlib>

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

/// Whether a BMP image ends before its last row; Qt hands out what is there without a word. Compressed ones are not looked at.
bool isCutBmp(const QByteArray &start, qint64 size)
{
    constexpr int headerSize = 34;
    if (start.size() < headerSize || !start.startsWith("BM") || qFromLittleEndian<quint32>(start.constData() + 30) != 0)
        return false;
    const auto number = [&start](int at) { return qint64(qFromLittleEndian<qint32>(start.constData() + at)); };
    const qint64 bitsAPixel = qFromLittleEndian<quint16>(start.constData() + 28);
    const qint64 row = (std::abs(number(18)) * bitsAPixel + 31) / 32 * 4;
    return number(10) + row * std::abs(number(22)) > size;
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
    const bool isCut = isCutBmp(device->peek(34), device->size());
    const ImageComplaints complaints;
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
    const QString damage = isCut ? QStringLiteral("it ends before its last row") : complaints.damage();
    if (result.image.isNull())
        result.remark = QStringLiteral("cannot be read (%1)")
                            .arg(isOfTga ? QStringLiteral("damaged or truncated") : reader.errorString());
    else if (!damage.isEmpty())
        result.remark = QStringLiteral("is damaged (%1); what could be read of it is used%2")
                            .arg(damage, result.remark.isEmpty() ? QString() : QStringLiteral("; it ") + result.remark);
    return result;
}

} // namespace Velmora::Kvz
