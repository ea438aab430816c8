// SPDX-License-Identifier: MIT
#include "ImageFile.h"

#include <QtCore/QFileInfo>

namespace Velmora::Kvz {

bool loadImageFile(const QString &path, QImage *image)
{
    return QFileInfo(path).isFile() && image->load(path);
}

QImage oneTexel(const QColor &color)
{
    QImage image(1, 1, QImage::Format_ARGB32);
    image.fill(color);
    return image;
}

} // namespace Velmora::Kvz
