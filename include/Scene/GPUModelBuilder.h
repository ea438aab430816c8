// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>
#include <Scene/GPUModel.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QVector>
#include <QtGui/QImage>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>

namespace Velmora::Kvz {

/// Triangles in model space. `normals` and `texCoords` are empty or as many as `positions`; missing ones count as zeros.
/// Without indices, three positions in a row make a triangle.
struct MeshData
{
    QVector<QVector3D> positions;
    QVector<QVector3D> normals;
    QVector<QVector2D> texCoords; ///< (0, 0) is the lower left corner of an image.
    QVector<quint32> indices;
};

/// A material with the meaning that MTL files give to these values.
struct MaterialData
{
    QVector3D kd{0.8f, 0.8f, 0.8f}; ///< Diffuse colour, linear, 0 to 1; multiplied with mapKd.
    QVector3D ks; ///< Specular colour, 0 to 1; multiplied with mapKs.
    float ns = 32; ///< Specular exponent, from 0 up.
    float d = 1; ///< Opacity: 0 transparent, 1 opaque.
    QImage mapKd; ///< Null: white.
    QImage mapKs; ///< Null: white.
};

/// Collects meshes, materials and items, and makes a GPUModel of them.
///
/// Bad data is refused where it is added, with a negative number and one log line that names it; what was added before
/// stays good.
class KVZ_GL_EXPORT GPUModelBuilder
{
public:
    /// Adds a mesh and returns its number. Refused: no triangles, counts that differ, a count of indices or of unindexed
    /// positions that is no multiple of three, an index past the end, a coordinate that is not finite.
    int addMesh(const MeshData &mesh);
    /// Adds a material and returns its number, counted from 0: the material id of the items that have it. Refused: a value
    /// that is not finite.
    int addMaterial(const MaterialData &material);
    /// Adds an item and returns its number, its draw number. Refused: an unknown mesh or material, a matrix that is not
    /// finite.
    int addItem(int mesh, int material, const QMatrix4x4 &modelMatrix = QMatrix4x4(), quint64 featureFlags = 0);
    /// The model; needs a current context. Meshes and materials that no item uses take no room in it. A builder without
    /// items gives a model that draws nothing. Null, with one log line, without a context and for more items than the
    /// driver's buffer textures hold.
    QSharedPointer<GPUModel> build() const;

private:
    struct Item
    {
        int mesh;
        int material;
        QMatrix4x4 modelMatrix;
        quint64 featureFlags;
    };

    QVector<MeshData> m_meshes;
    QVector<MaterialData> m_materials;
    QVector<Item> m_items;
};

} // namespace Velmora::Kvz
