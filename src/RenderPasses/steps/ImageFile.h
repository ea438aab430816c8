// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QColor>
#include <QtGui/QImage>

namespace Velmora::Kvz {

/// Reads an image file, on disk or in the resources. Returns false, and logs nothing, for a path that is no file or no image;
/// `image` is undefined then.
bool loadImageFile(const QString &path, QImage *image);

/// An image of one texel, 32 bits, as a substitute for one that cannot be loaded.
QImage oneTexel(const QColor &color);

} // namespace Velmora::Kvz
