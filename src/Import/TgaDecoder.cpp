// SPDX-License-Identifier: MIT
#include "TgaDecoder.h"

#include <QtCore/QVector>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

constexpr int tgaHeaderSize = 18;

enum Kind { Mapped = 1, TrueColour = 2, Grey = 3 };

struct Header
{
    int idLength, mapType, kind, mapFirst, mapLength, mapBits, width, height, bits, descriptor;
    bool isRunLength;

    explicit Header(const QByteArray &bytes)
    {
        const auto byte = [&](int place) { return int(uchar(bytes[place])); };
        const auto word = [&](int place) { return byte(place) | byte(place + 1) << 8; };
        idLength = byte(0);
        mapType = byte(1);
        kind = byte(2) & 7;
        isRunLength = (byte(2) & 8) != 0;
        mapFirst = word(3);
        mapLength = word(5);
        mapBits = byte(7);
        width = word(12);
        height = word(14);
        bits = byte(16);
        descriptor = byte(17);
    }

    bool makesSense(int kindByte) const
    {
        const auto isColourDepth = [](int depth) { return depth == 15 || depth == 16 || depth == 24 || depth == 32; };
        if (kindByte != (kind | (isRunLength ? 8 : 0)) || width == 0 || height == 0 || (descriptor & 0xc0) != 0)
            return false;
        if (kind == Mapped)
            return mapType == 1 && mapLength > 0 && isColourDepth(mapBits) && (bits == 8 || bits == 16);
        if (mapType == 0 && (mapFirst != 0 || mapLength != 0))
            return false;
        return mapType <= 1 && (kind == TrueColour ? isColourDepth(bits) : kind == Grey && (bits == 8 || bits == 16));
    }
};

/// A colour of `bits`, blue first.
QRgb colourOf(const uchar *from, int bits)
{
    if (bits >= 24)
        return qRgba(from[2], from[1], from[0], bits == 32 ? from[3] : 255);
    const int word = from[0] | from[1] << 8;
    const auto wide = [](int five) { return five << 3 | five >> 2; };
    return qRgb(wide(word >> 10 & 31), wide(word >> 5 & 31), wide(word & 31));
}

} // namespace

bool isTga(const QByteArray &start)
{
    return start.size() >= tgaHeaderSize && Header(start).makesSense(uchar(start[2]));
}

QImage readTga(const QByteArray &bytes)
{
    if (!isTga(bytes))
        return {};
    const Header header(bytes);
    const int size = (header.bits + 7) / 8;
    const int mapSize = (header.mapBits + 7) / 8;
    const qint64 mapStart = tgaHeaderSize + header.idLength;
    const qint64 dataStart = mapStart + (header.mapType == 1 ? qint64(header.mapLength) * mapSize : 0);
    const qint64 pixels = qint64(header.width) * header.height;
    const qint64 left = bytes.size() - dataStart;
    // A run of one byte and a pixel makes 128 at most.
    if (left < 0 || pixels > (header.isRunLength ? (left / (1 + size) + 1) * 128 : left / size))
        return {};
    const auto *const data = reinterpret_cast<const uchar *>(bytes.constData());
    QVector<QRgb> palette;
    for (int i = 0; header.kind == Mapped && i < header.mapLength; ++i)
        palette.append(colourOf(data + mapStart + qint64(i) * mapSize, header.mapBits));

    bool isOutside = false;
    const auto pixelAt = [&](const uchar *from) {
        if (header.kind == TrueColour)
            return colourOf(from, header.bits);
        if (header.kind == Grey)
            return qRgba(from[0], from[0], from[0], size == 2 ? from[1] : 255);
        const int index = (size == 2 ? from[0] | from[1] << 8 : from[0]) - header.mapFirst;
        isOutside |= index < 0 || index >= palette.size();
        return palette.value(index);
    };
    QImage image(header.width, header.height, QImage::Format_ARGB32);
    if (image.isNull())
        return {};
    const bool isFromTop = (header.descriptor & 0x20) != 0;
    const bool isFromRight = (header.descriptor & 0x10) != 0;
    const uchar *from = data + dataStart;
    const uchar *const end = data + bytes.size();
    int runLeft = 0;
    bool isRepeated = false;
    int alphas = 0;
    for (int row = 0; row < header.height; ++row) {
        auto *const line = reinterpret_cast<QRgb *>(image.scanLine(isFromTop ? row : header.height - 1 - row));
        for (int column = 0; column < header.width; ++column) {
            if (header.isRunLength && runLeft == 0) {
                if (from == end)
                    return {};
                isRepeated = (*from & 0x80) != 0;
                runLeft = (*from++ & 0x7f) + 1;
            }
            if (end - from < size)
                return {};
            const QRgb pixel = pixelAt(from);
            alphas |= qAlpha(pixel);
            line[isFromRight ? header.width - 1 - column : column] = pixel;
            --runLeft;
            if (!header.isRunLength || !isRepeated || runLeft == 0)
                from += size;
        }
    }
    if (isOutside)
        return {};
    return alphas == 0 ? image.convertToFormat(QImage::Format_RGB32) : image;
}

} // namespace Velmora::Kvz
