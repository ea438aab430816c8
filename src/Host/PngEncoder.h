// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSize>
#include <QtCore/QVector>

class QIODevice;

struct png_struct_def;
struct png_info_def;

namespace Velmora::Kvz {

/// Writes a PNG row by row, marked as sRGB, with its gamma and primaries for readers that do not know that mark. Compressed quickly
/// rather than well: a sixth larger than usual in a third of the time. After a function has returned false, none of the others works.
class PngEncoder
{
public:
    /// The device must be open, and live as long as this.
    explicit PngEncoder(QIODevice *device);
    ~PngEncoder();

    /// Depth: 8 or 16 bits a channel.
    bool begin(const QSize &size, bool hasAlpha, int depth);
    /// The next row: RGB or RGBA, straight alpha, numbers of 16 bits in the machine's order.
    bool writeRow(const unsigned char *row);
    bool end();

private:
    Q_DISABLE_COPY(PngEncoder)

    png_struct_def *m_png;
    png_info_def *m_info;
};

} // namespace Velmora::Kvz
