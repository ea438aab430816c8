// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>
#include <Scene/GPUModel.h>
#include <Scene/ModelData.h>

#include <QtCore/QHash>
#include <QtCore/QPair>
#include <QtCore/QSharedPointer>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

/// Collects meshes, materials and items, and builds a GPUModel from them.
///
/// Bad data is refused where it is added, with a negative number and one log line that names it; what was added before
/// stays good.
class KVZ_GL_EXPORT GPUModelBuilder
{
public:
    enum ItemOption {
        AsGiven, ///< The item has the feature flags that are given.
        ClassifyTransparency ///< It also gets GPUModel::Transparent where its material, with its mesh's colours, lets light through.
    };

    /// Adds a mesh and returns its number. Refused: no triangles, counts that differ, a count of indices or of unindexed
    /// positions that is no multiple of three, an index past the end, a coordinate that is not finite.
    int addMesh(const MeshData &mesh);
    /// Adds a material and returns its number, counted from 0: the material id of the items that have it. Refused: a value
    /// that is not finite.
    int addMaterial(const MaterialData &material);
    /// Adds an item and returns its number, its draw number. Refused: an unknown mesh or material, a matrix that is not
    /// finite.
    int addItem(int mesh, int material, const QMatrix4x4 &modelMatrix = QMatrix4x4(), quint64 featureFlags = 0,
        ItemOption option = AsGiven);
    /// The memory that the material images of the model may take on the GPU, in bytes, with their mip levels; 512 MiB
    /// unless set, and at least 1. Images of one size share an array texture, and there are six arrays, four where a material has a physical part: images of
    /// further sizes are enlarged to share one. If all of it takes more than the budget, the largest images are halved
    /// until it fits, with one log line.
    void setImageBudget(qint64 bytes);
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

    bool isTransparent(int mesh, int material);

    QVector<MeshData> m_meshes;
    QVector<MaterialData> m_materials;
    QVector<Item> m_items;
    QHash<QPair<int, int>, bool> m_isTransparent; ///< By mesh and material, what is known of them.
    qint64 m_imageBudget = qint64(512) << 20;
};

} // namespace Velmora::Kvz
