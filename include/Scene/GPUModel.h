// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Bindable.h>
#include <GL/Export.h>
#include <Scene/WindingType.h>

#include <QtCore/QMetaType>
#include <QtCore/QPair>
#include <QtCore/QSharedPointer>
#include <QtCore/QVector>
#include <QtGui/QImage>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

#include <memory>

namespace Velmora::Kvz {

class BufferObject;
class DrawBuffers;
class ModelPast;
class ShaderProgram;
class TextureManager;

/// Colours, second texture coordinates and tangents of a model's vertices, interleaved in one buffer of texels of two 32-bit
/// words (GL_RG32UI), so that one buffer texture makes them all readable by shaders:
/// - a colour is four 16-bit numbers from 0 to 1, red in the low half of the first word;
/// - second texture coordinates are two floats;
/// - a tangent is four signed 16-bit numbers from -1 to 1, x in the low half of the first word, w the
///   handedness, or zeros of a mesh without tangents.
struct VertexExtras
{
    QSharedPointer<BufferObject> buffer; ///< Null when the model has none of them.
    int stride = 0; ///< Texels of a vertex.
    int colour = -1; ///< Place of each within a vertex; -1: the model has none.
    int texCoord1 = -1;
    int tangent = -1;
};

/// A model on the GPU: items that each draw a part of one shared geometry with their own matrix and material.
///
/// GPUModelBuilder makes it. Item i is draw number i: its indirect command, its row of object data and its row of material
/// data. Items are selected by their 64-bit feature word: an item takes part when the word, masked with `drawFlagsMask`,
/// equals `drawFlagsValue`, so (0, 0) selects all.
///
/// Getters of an item out of range give 0, the identity matrix or zeros.
///
/// Culling marks, previous matrices and what follows from them belong to the past in force. A chain puts its own in force for its
/// frames, so that every pass of it sees the same marks and motion, in the order of the chain, and two chains on one model do not
/// disturb each other.
///
/// A model may be drawn in every context of the share group in which it was built, and outlives that context as long as the group does.
class KVZ_GL_EXPORT GPUModel
{
public:
    /// Feature bits of an item.
    enum : quint64 {
        Transparent =
            1, ///< Its material lets light through. (Transparent, Transparent) selects these, (0, Transparent) the others.
        DoubleSided = 0x1000000000000000, ///< Drawn without face culling by the shadow passes.
        NoShadowA = 0x4000000000000000, ///< Either of these two keeps an item out of the shadow passes.
        NoShadowB = 0x8000000000000000
    };
    /// Feature bits of a model, for hasFeatureFlags().
    enum : quint64 { HasSceneBounds = 8 };

    ~GPUModel();

    /// Draws the selected items with the program, which is bound for the draw, their rows, and the textures of materials.
    /// Rows of a bound InstanceDataCollection replace the model's own. `winding` says which winding is the front; it is
    /// reversed for an item whose matrix mirrors. `ignoreCulling` draws culled items too. Bindings and GL_FRONT_FACE are
    /// restored. Nothing is drawn with a program that is null or not linked, or into an incomplete framebuffer.
    void draw(ShaderProgram *program, const quint64 &drawFlagsValue, const quint64 &drawFlagsMask,
        const WindingType &winding, bool ignoreCulling);
    /// The same, with the manager's material textures, or none for a null manager.
    void draw(
        ShaderProgram *program, TextureManager *manager, const quint64 &drawFlagsValue, const quint64 &drawFlagsMask);
    /// Whether no item is selected, culled or not.
    bool isDrawEmpty(quint64 drawFlagsValue, quint64 drawFlagsMask) const;

    /// Whether the model has all these flags.
    bool hasFeatureFlags(quint64 flags) const;
    /// Minimum and maximum corner of all items in world space. Zeros for a model with no items.
    QPair<QVector3D, QVector3D> sceneBounds() const;

    int itemCount() const;
    quint64 itemFeatureFlags(int item) const;
    /// The numbers of an item's mesh and material, as GPUModelBuilder gave them; -1 for an item out of range.
    int itemMesh(int item) const;
    int itemMaterial(int item) const;
    /// The three corners of a triangle of an item in world space, triangles counted from 0 as ItemIdRenderPass does. They are read from the
    /// memory of the GPU, so a context of the model's share group must be current; a few dozen bytes that no draw writes. Empty
    /// for an item or triangle that does not exist.
    QVector<QVector3D> triangleCorners(int item, int triangle) const;
    QMatrix4x4 modelMatrix(int item) const;
    QMatrix4x4 previousModelMatrix(int item) const;
    /// World-space bounds of an item.
    QPair<QVector3D, QVector3D> itemBounds(int item) const;
    /// Moves an item. Bounds follow, and its row is uploaded before the next draw. The previous matrix stays until
    /// advanceFrame(), in each past apart. An item out of range and a matrix that is not finite are refused with one log line.
    void setModelMatrix(int item, const QMatrix4x4 &matrix);
    /// Grows whenever an item gets another matrix than it had.
    quint64 matrixRevision() const;
    /// A number above 0 that no other model of this process has or had, unlike the address of one.
    quint64 serialNumber() const;
    /// Whether an item was moved since the last advanceFrame().
    bool hasMovedItems() const;
    /// The items that were moved since the last advanceFrame(), each once, in the order of their first move.
    QVector<int> movedItems() const;
    /// Makes the present matrices the previous ones: once a frame, when the frame is done.
    void advanceFrame();

    /// \name Pasts
    /// Previous matrices, moved items, culling marks and occlusion queries are those of the past in force: the model's own, unless
    /// another one is. RenderChain uses one of its own for each of its frames; who runs passes by hand for several views may
    /// do the same.
    /// @{
    /// A past in which no item has moved or is culled. The model knows it as long as it is kept.
    std::shared_ptr<ModelPast> makePast();
    /// Puts a past in force; null: the model's own. One that another model has made is refused with one log line.
    void usePast(const std::shared_ptr<ModelPast> &past);
    /// As advanceFrame(), for a past that need not be in force; null: the one that is.
    void advancePast(const std::shared_ptr<ModelPast> &past);
    /// @}

    /// The geometry of all items; null for an index other than 0 and for a model with no geometry. Command i is item i's; its
    /// `firstIndex` counts vertices where the model has no indices.
    DrawBuffers *drawBuffers(int index) const;
    /// Rows of object data, bindable to their fixed unit; null for an index other than 0.
    Bindable *objectData(int index) const;
    /// Rows of material data, bindable to their fixed unit; null for an index other than 0. While they or those of
    /// surfaceData() are bound, TextureManager::bindTextures() takes the model's images.
    Bindable *materialData(int index) const;
    /// The content of materialData(0), as the model was built: the rows of all items one after another, each of
    /// InstanceDataPlan::stride() * 4 floats of the plan "OBJMaterial". InstanceDataPlan::offset() gives the position
    /// of a value in its row. Empty for a model without items.
    const QVector<float> &materialRows() const;
    /// Rows of the plan "SurfaceMaterial", bindable to their fixed unit.
    Bindable *surfaceData() const;
    /// What surfaceData() needs of a shader, as bits of SurfaceFeature: a program without the other features draws the
    /// same. All bits while a host's rows replace the model's.
    int surfaceFeatures() const;
    /// The rows of all items as the plan "PhysicalMaterial" has them. They take no room before something binds them.
    Bindable *physicalData() const;
    /// What physicalData() needs of a shader, as bits of PhysicalFeature, in the way of surfaceFeatures().
    int physicalFeatures() const;
    /// While it is bound, TextureManager::bindTextures() takes the model's images: for a pass's own draws with rows
    /// that replace the model's. Both kinds of rows above bind it themselves.
    Bindable *materialImages() const;
    /// Stores one more image with those of the model and returns its handle, for a host's own rows: draws of a model,
    /// and draws with its rows bound, sample only the model's images. It lives as long as the model. The limits are
    /// those of TextureManager::addManagedTexture(). 0, which samples white, for a null image and without a context.
    int addImage(const QImage &image);
    /// The vertex data beyond position, normal and first texture coordinates.
    const VertexExtras &vertexExtras() const;

    /// Marks the items whose world-space bounds lie wholly outside the frustum as not drawn. A matrix that is not finite
    /// marks nothing.
    void frustumCull(const QMatrix4x4 &viewProjection);
    /// Marks the items that the occlusion queries of the previous frame found hidden as not drawn, and has the next draws
    /// test each item's box again, so that an item comes back at the latest one frame after it becomes visible. Results
    /// that have not arrived are not waited for: the driver then decides by the query, and the item is not marked.
    ///
    /// Draws with a manager run the test after their items, with the u_ProjectionMatrix and u_CameraMatrix of their
    /// program. When draws of one frame have different cameras, an item is hidden if none of them shows it.
    /// resetCulling() ends the testing. Without it, and without this call, draws make no queries.
    void visibilityCull();
    /// Makes all items drawable again.
    void resetCulling();
    /// Whether an item is marked as not drawn.
    bool isCulled(int item) const;
    /// Items marked as not drawn.
    int culledCount() const;

private:
    friend class GPUModelBuilder;
    GPUModel();
    Q_DISABLE_COPY(GPUModel)

    bool hasItem(int item) const;

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Velmora::Kvz

Q_DECLARE_METATYPE(Velmora::Kvz::GPUModel *)
