// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtGui/QImage>

namespace Velmora::Kvz {

/// Whether the first bytes of a file are the header of a TGA image. The type has no magic number, so its fields must make sense
/// together.
bool isTga(const QByteArray &start);

/// Decodes a TGA image of any kind: true colour of 15 to 32 bits, grey, with a palette, and each of them run-length encoded.
/// Null for a damaged or truncated one. An alpha that is 0 everywhere is none.
QImage readTga(const QByteArray &bytes);

} // namespace Velmora::Kvz
