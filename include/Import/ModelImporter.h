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

    /// The scene on the GPU; needs a current context. Null, with one log line, when the driver cannot hold it.
    QSharedPointer<GPUModel> build() const;
};

/// Reads a model file: OBJ with MTL, glTF and GLB, PLY, STL, 3DS and whatever else assimp knows. Needs no context.
///
/// What a file leaves out is made:
/// - Normals are smooth, the mean of the triangles around a point by their angles; edges sharper than 80 degrees stay hard.
/// - Texture coordinates are a box projection: each triangle along the axis that it faces most, one texture to the
///   largest extent of the mesh.
/// - Meshes without a material are light grey with a soft highlight.
///
/// Nodes become items: a mesh with two parents is one mesh and two items. Triangles without area, points, lines, cameras, lights, vertex
/// colours, bones and animations are left out. Y is taken as up; 3DS files, where Z is up, are turned.
///
/// Materials keep their MTL values; an exponent of 0, which formats without one report, means no highlight. Materials
/// given as base colour B, metallic M and roughness R (their maps count by their mean) become
/// - kd = B (1 - M/2): without surroundings to mirror, half of a metal's light is spread as if it were diffuse;
/// - ns = 2 / R^4 - 2, from 1 to 1024;
/// - ks = F (1 - R) min((ns + 8) / 8, 1 / max(F)), where F = 0.04 (1 - M) + B M is the reflectance head-on: a sharp
///   highlight is bright, a broad one fades.
/// Opacity is d, but 1 for glTF materials whose alpha mode is not BLEND. An image of the opacity (map_d) becomes the alpha
/// of the diffuse image, which the passes do not blend by: ModelRenderPass can cut holes by it. Textures are looked for in the file itself, at
/// their path beside the model file, then by bare name beside it. Each texture that cannot be read gives a warning that
/// names it with the file and material, and white takes its place. Each material library that cannot be read gives a
/// warning that names it with the file: for OBJ the library of the model's own name takes its place, else its materials
/// are grey.
///
/// False, with `scene` untouched and one line in `error` that names the file, when there is nothing to draw: no such
/// file, a directory, an unknown type, a damaged or truncated file, no triangles, an index past the end of its mesh,
/// texture coordinates or normals that are not there, a position or matrix that is not finite. One import at a time: all threads share the log of assimp.
KVZ_HOST_EXPORT bool importModel(const QString &file, ImportedScene *scene, QString *error);

/// Puts a floor under a scene: a square at the height of its lowest point, light grey, facing upwards. It reaches beyond the
/// scene by the scene's height on every side, so that shadows of lights from 45 degrees up fall on it whole. A scene without
/// items, or without extent, gets none.
KVZ_HOST_EXPORT void addFloor(ImportedScene *scene);

} // namespace Velmora::Kvz
