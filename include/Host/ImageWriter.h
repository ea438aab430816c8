// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>
#include <Host/PictureNames.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtGui/QImage>

namespace Velmora::Kvz {

/// A picture as the bytes of a file of this format, such as "png": with its alpha, and in 16 bits a channel if it has them, where the format
/// has that too. PNG is compressed quickly rather than well: a sixth larger than usual in a third of the time. Empty, with one line in `error`,
/// for a null image and an unknown format. PictureFile has more to choose, and takes a picture in parts.
KVZ_HOST_EXPORT QByteArray encodeImage(const QImage &image, const QByteArray &format, QString *error);

/// Writes a picture in the format that the file's suffix gives, completely or not at all: on failure an existing file stays
/// as it was. "exr" gets the light that the display values stand for, by the transfer function of sRGB. False, with one line in `error` that names the file, for a null image, an unknown suffix and a file that cannot
/// be written.
KVZ_HOST_EXPORT bool writeImage(const QImage &image, const QString &file, QString *error);

} // namespace Velmora::Kvz
