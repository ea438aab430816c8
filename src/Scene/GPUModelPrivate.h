// SPDX-License-Identifier: MIT
#pragma once

#include "ItemDraws.h"
#include "ModelPastPrivate.h"
#include "ObjectRows.h"
#include "PhysicalRow.h"
#include "SceneMath.h"
#include "SurfaceRows.h"

#include <GL/BufferTexture.h>
#include <GL/DrawBuffers.h>
#include <GL/ManagedTextures.h>
#include <Scene/GPUModel.h>

#include <QtCore/QVector>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

/// Rows of material data. Their handles are those of the model's images, which are bound with them.
class MaterialRows : public BufferTexture
{
public:
    MaterialRows(const QString &sampler, ManagedTextures *images);

    void bind() override;
    void unbind() override;

private:
    ManagedTextures *m_images;
};

/// Rows of the plan "PhysicalMaterial", which are made when something binds them first.
class PhysicalRows : public MaterialRows
{
public:
    PhysicalRows(const QString &sampler, ManagedTextures *images);

    /// `items` gives the material of each item.
    void set(std::vector<PhysicalRow> materials, QVector<int> items);
    void bind() override;

private:
    std::vector<PhysicalRow> m_materials;
    QVector<int> m_items; ///< Empty once the rows are made.
};

/// What a model holds. The vectors "by item" are parallel and keep what a draw reads of each item close together.
struct GPUModel::Private
{
    /// A part of the index buffer, or of the vertices of a model without indices.
    struct Range
    {
        quint32 first;
        quint32 count;
    };
    Private();
    ~Private();

    /// Adds an item; finish() ends the list.
    void addItem(const Range &range, const Bounds &meshBounds, const QMatrix4x4 &matrix, quint64 featureFlags);
    void finish();
    void setMatrix(int item, const QMatrix4x4 &matrix);
    int itemCount() const { return int(ranges.size()); }
    /// The past in force.
    ModelPast::Private &past() const { return *present->d; }
    bool isSelected(size_t item, quint64 value, quint64 mask) const { return (featureFlags[item] & mask) == value; }

    void draw(ShaderProgram *program, TextureManager *manager, quint64 value, quint64 mask, WindingType winding,
        bool ignoreCulling);
    /// `view` is that of the queries which may hold items back; -1 for none.
    void drawItems(
        const ShaderProgram *program, quint64 value, quint64 mask, WindingType winding, bool ignoreCulling, int view);
    /// The same for a program that reads the number of the item from an array.
    void drawNumberedItems(quint64 value, quint64 mask, WindingType winding, bool ignoreCulling, int view);
    /// Calls `draw(item, front face, query)` for each item to be drawn.
    template <typename Draw>
    void forEachDraw(
        quint64 value, quint64 mask, WindingType winding, bool ignoreCulling, int view, const Draw &draw) const;

    // By item.
    QVector<int> meshNumbers;
    std::vector<quint64> featureFlags;
    std::vector<Range> ranges;
    std::vector<quint8> isMirrored; ///< Its matrix reverses windings.
    std::vector<Bounds> bounds; ///< In world space.
    std::vector<Bounds> meshBounds; ///< In model space.

    std::vector<quint64> distinctFlags; ///< Each word of featureFlags once.
    Bounds sceneBounds;
    bool areSceneBoundsStale = true;

    QSharedPointer<DrawBuffers> geometry; ///< Null without items.
    ItemDraws itemDraws;
    ObjectRows objectRows;
    ManagedTextures images;
    MaterialRows materialRows;
    QVector<float> materialValues; ///< What materialRows holds.
    MaterialRows surfaceRows;
    std::vector<SurfaceRow> surfaceValues; ///< What surfaceRows holds, by material.
    QVector<int> itemMaterials; ///< By item.
    int surfaceFeatures = 0; ///< Of surfaceRows.
    PhysicalRows physicalRows;
    int physicalFeatures = 0; ///< Of physicalRows.
    VertexExtras extras;
    const quint64 serialNumber;
    quint64 matrixRevision = 0;
    std::shared_ptr<ModelPast> ownPast; ///< For draws outside of any other.
    std::shared_ptr<ModelPast> present; ///< In force.
    std::vector<std::weak_ptr<ModelPast>> otherPasts;
};

} // namespace Velmora::Kvz
