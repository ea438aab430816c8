// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// A type of file, and what reads it.
struct FileFormat
{
    QString name; ///< As ImportedScene::format calls it; empty for images, which go by their suffixes.
    QStringList suffixes; ///< Lower case, without a dot; the usual one first.
    QString library; ///< With its version where it tells one, such as "assimp 5.2.4".
};

/// The types of model files that importModel() reads, ordered by name. Files whose suffix says nothing are recognized by what
/// is in them, where their type has a mark.
KVZ_HOST_EXPORT QVector<FileFormat> modelFormats();

/// The types of images that textures are read from, ordered by suffix: those of the installed Qt and its plugins.
KVZ_HOST_EXPORT QVector<FileFormat> textureFormats();

} // namespace Velmora::Kvz
