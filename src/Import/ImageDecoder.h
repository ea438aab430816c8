// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtGui/QImage>

class QIODevice;

namespace Velmora::Kvz {

/// A decoded image, or why there is none, or what was done to it.
struct DecodedImage
{
    QImage image; ///< Null where it cannot be read.
    QString
        remark; ///< "cannot be read (...)", "is damaged (...); ...", "has ... pixels and is scaled to ..."; empty where all is well.
};

/// Decodes an image of whatever type its content is. One with a side above `largestSide` is scaled to it, with its shape kept,
/// while it is decoded where its type allows that.
DecodedImage decodeImage(QIODevice *device, int largestSide);

} // namespace Velmora::Kvz
