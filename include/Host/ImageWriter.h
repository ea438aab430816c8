// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QString>
#include <QtGui/QImage>

namespace Velmora::Kvz {

/// Why no picture can be written under this name, in one line without the name; empty when nothing speaks against it. The
/// suffix says the format: "png", or another that Qt writes here. Looks only, and changes nothing.
KVZ_HOST_EXPORT QString imageFileProblem(const QString &file);

/// Writes a picture in the format that the file's suffix says, all of it or nothing: on failure a file that was there
/// stays as it was. False, with one line in `error` that names the file, for a null image, an unknown suffix and a file
/// that cannot be written.
KVZ_HOST_EXPORT bool writeImage(const QImage &image, const QString &file, QString *error);

} // namespace Velmora::Kvz
