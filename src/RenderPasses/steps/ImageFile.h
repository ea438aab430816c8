// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QColor>
#include <QtGui/QImage>

namespace Velmora::Kvz {

/// Reads an image file, on disk or in the resources. False, in silence, for what is no file and for what is no image; the
/// image may hold anything then.
bool loadImageFile(const QString &path, QImage *image);

/// An image of one texel, 32 bits, as a substitute for one that cannot be loaded.
QImage oneTexel(const QColor &color);

} // namespace Velmora::Kvz
