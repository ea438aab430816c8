// SPDX-License-Identifier: MIT
#pragma once

#include "GltfFile.h"
#include "SceneImages.h"

#include <Import/ImportedScene.h>

namespace Velmora::Kvz {

/// Makes the materials of a glTF document.
class GltfMaterials
{
public:
    GltfMaterials(GltfFile *file, SceneImages *images)
        : m_file(file),
          m_images(images)
    { }

    /// `number` is the document's; -1 gives what stands in for a material: white for meshes with colours of their own, else
    /// grey.
    ImportedMaterial read(int number, bool isColoured);

private:
    ImportedTexture texture(int number, int uvSet, const tinygltf::ExtensionMap &extensions, ImportedImage::Use use,
        const QString &material);
    ImportedTexture texture(const tinygltf::Value &info, ImportedImage::Use use, const QString &material);
    QString nameOf(int number) const;
    int image(int number, ImportedImage::Use use, const QString &material);
    void readExtensions(const tinygltf::Material &source, ImportedMaterial *material);
    void setOpacity(const tinygltf::Material &source, ImportedMaterial *material);

    GltfFile *m_file;
    SceneImages *m_images;
};

} // namespace Velmora::Kvz
