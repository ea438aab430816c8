// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// The reason why no picture can be written to this file, in one line without its name; empty if writing should work.
/// The suffix gives the format: "png", "exr", or another that the installed Qt can write. Changes nothing on disk.
KVZ_HOST_EXPORT QString imageFileProblem(const QString &file);

/// The suffixes that writeImage() takes, in order.
KVZ_HOST_EXPORT QStringList writableImageSuffixes();

} // namespace Velmora::Kvz
