// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QSize>
#include <QtGui/QImage>

class QIODevice;

namespace Velmora::Kvz {

/// Whether a file that starts so is PNG; takes its first eight bytes.
bool isPng(const QByteArray &start);

/// The pixels of a PNG of any kind, 8 bits a channel. Where a side is above `largestSide`, it is scaled to that with its shape
/// kept, row by row while it is decoded: the whole of it is never in memory unless it is interlaced. Null where it is damaged or
/// truncated. `size` receives the size in the file. Silent: Qt leaves libpng's complaints on the terminal.
QImage readPng(QIODevice *device, int largestSide, QSize *size);

} // namespace Velmora::Kvz
