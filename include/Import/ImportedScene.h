// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

/// A mesh of an imported scene, placed in the world with a material.
struct ImportedItem
{
    QString name; ///< Of the node in the file; empty where the format has no names.
    int mesh = 0; ///< Index into ImportedScene::meshes; items may share one.
    int material = 0; ///< Index into ImportedScene::materials.
    QMatrix4x4 modelMatrix; ///< Model to world space, all parent nodes included.
    quint64 featureFlags = 0; ///< GPUModel::DoubleSided for two-sided materials, ImportedScene::Transparent.
};

/// A model file as plain data, with Y up and counter-clockwise fronts.
struct KVZ_HOST_EXPORT ImportedScene
{
    /// Feature bit of items whose material lets light through: d < 1, or a diffuse image with an alpha below 1 somewhere. As
    /// drawFlagsValue and drawFlagsMask, (Transparent, Transparent) selects these and (0, Transparent) the opaque ones. It
    /// meets none of GPUModel's own feature bits.
    enum : quint64 { Transparent = 1 };

    QVector<MeshData> meshes; ///< Indexed triangles with normals and texture coordinates.
    QVector<MaterialData> materials;
    QVector<ImportedItem> items;
    QStringList warnings; ///< What could not be had and what stands in its place: one line each, the file named.

    /// The corners of all items in world space, as framePoints() takes them.
    QVector<QVector3D> points() const;

    /// The scene on the GPU; needs a current context. Null, with one log line, when the driver cannot hold it.
    QSharedPointer<GPUModel> build() const;
};

/// Puts a floor under a scene: a square at the height of its lowest point, light grey, facing upwards. It reaches beyond the
/// scene by the scene's height on every side, so that shadows of lights from 45 degrees up fall on it whole. A scene without
/// items, or without extent, gets none.
KVZ_HOST_EXPORT void addFloor(ImportedScene *scene);

} // namespace Velmora::Kvz
