// SPDX-License-Identifier: MIT
#pragma once

#include "MaterialModel.h"
#include "SceneImages.h"

#include <Import/ImportedScene.h>

#include <assimp/material.h>

#include <initializer_list>

struct aiScene;

namespace Velmora::Kvz {

/// Makes the materials of a scene that assimp read.
class MaterialReader
{
public:
    /// `format` is the loader's first file suffix.
    MaterialReader(const aiScene *source, const QByteArray &format, SceneImages *images);

    /// `colours` are those of the mesh that has it.
    ImportedMaterial read(const aiMaterial &source, VertexColours colours);

private:
    void readPhong(const aiMaterial &source, ImportedMaterial *material);
    void readMetallic(const aiMaterial &source, float metallic, float roughness, ImportedMaterial *material);
    void readSurface(const aiMaterial &source, ImportedMaterial *material);
    ImportedTexture texture(
        const aiMaterial &source, std::initializer_list<aiTextureType> types, ImportedImage::Use use);
    void nameUnread(const aiMaterial &source);
    int image(const QString &path, ImportedImage::Use use, const QString &material);

    const aiScene *m_source;
    QByteArray m_format;
    SceneImages *m_images;
};

} // namespace Velmora::Kvz
