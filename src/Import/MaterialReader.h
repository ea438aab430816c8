// SPDX-License-Identifier: MIT
#pragma once

#include "ImageDecoder.h"

#include <Scene/GPUModelBuilder.h>

#include <assimp/material.h>

#include <QtCore/QDir>
#include <QtCore/QHash>
#include <QtCore/QStringList>

#include <initializer_list>

struct aiScene;

namespace Velmora::Kvz {

class ImportBudget;

/// Makes the materials of a scene that assimp read, and reads their images, each once. Says in `warnings` which images could
/// not be had, one line each.
class MaterialReader
{
public:
    MaterialReader(const aiScene *source, const QString &file, ImportBudget *budget, QStringList *warnings);

    MaterialData read(const aiMaterial &source);

private:
    MaterialData mtlMaterial(const aiMaterial &source);
    MaterialData metallicMaterial(const aiMaterial &source, float metallic, float roughness);
    QImage texture(const aiMaterial &material, std::initializer_list<aiTextureType> types);
    DecodedImage readTexture(const QString &path);

    const aiScene *m_source;
    QString m_file;
    QDir m_directory;
    ImportBudget *m_budget;
    QStringList *m_warnings;
    QHash<QString, QImage> m_images; // by path as the file gives it; null: unreadable, and said so
};

/// Whether a material lets light through: d < 1 or an image with alpha below 1 somewhere, and no word of the file that its
/// opacity does not count.
bool isTransparent(const aiMaterial &source, const MaterialData &material);

} // namespace Velmora::Kvz
