// SPDX-License-Identifier: MIT
#pragma once

#include "RayCastScene.h"

#include <GL/Texture.h>
#include <RenderPasses/VisibilityBufferRenderPass.h>

#include <QtCore/QVector>

#include <memory>

namespace Velmora::Kvz {

/// Whether the driver supports lists of several nodes per pixel. Without that each pixel has one node.
bool hasVisibilityLists();

/// A node as stored in its texture.
struct ListNode
{
    quint32 place; ///< Its number plus 1.
    quint32 next;
    quint32 primitive;
    quint32 depthBits;
    quint32 draw;

    float depth() const;
    /// Compares primitive, depth and draw: the part of a node that a sort moves.
    bool hasPayloadOf(const ListNode &other) const
    {
        return primitive == other.primitive && depthBits == other.depthBits && draw == other.draw;
    }
};

/// The lists of all pixels, read back.
class VisibilityLists
{
public:
    /// Reads the heads and all nodes; of a large texture those rows that the heads lead into.
    VisibilityLists(const Texture *heads, const Texture *nodes, int nodeWidth);
    /// Reads the three outputs of a pass, which have the same indices in all passes that have them.
    explicit VisibilityLists(const RenderPass &pass);

    int width() const { return m_width; }
    int height() const { return m_height; }
    quint32 head(int x, int y) const { return m_heads[y * m_width + x]; }
    /// The list of a pixel, from its head on. A list that leads out of the texture or into itself fails the test.
    QVector<ListNode> at(int x, int y) const;
    /// The number of nodes of all pixels.
    int nodeCount() const;

private:
    int m_width = 0;
    int m_height = 0;
    int m_nodeWidth = 0;
    QVector<quint32> m_heads;
    QVector<quint32> m_nodes; ///< Four for each.
};

/// Lists that a test made, as the textures that passes take.
struct UploadedLists
{
    int nodeWidth = 0;
    std::unique_ptr<Texture> heads;
    std::unique_ptr<Texture> nodes;

    VisibilityLists read() const { return VisibilityLists(heads.get(), nodes.get(), nodeWidth); }
    /// All nodes as they are stored, four numbers each, whether a list leads to them or not.
    QVector<quint32> readNodes() const;
    /// Sets three inputs of a pass, of which this is the first.
    void feed(RenderPass &pass, int headInput) const;
};

/// Uploads a list for each pixel, row by row. Of a node only what a sort moves counts: nodes are scattered over a small texture, the
/// same way in each run.
UploadedLists uploadLists(const QSize &viewport, const QVector<QVector<ListNode>> &lists);

/// What a sort moves, not linked to any node.
ListNode listNode(quint32 primitive, float depth, quint32 draw);

/// The compositing of VisibilityDeferredRenderPass: its four statements for one fragment after the other, in doubles
/// and without rounding. `hits` are ordered from front to back.
class ListShading
{
public:
    ListShading(const RayCastScene &scene, const QMatrix4x4 &camera);

    Vector4d shade(const QVector<RayHit> &hits) const;
    /// The light of one fragment before compositing, with these samples in place of its material's images.
    Vector3d light(const RayHit &hit, const Vector4d &mapKd, const Vector4d &mapKs) const;

private:
    const RayCastScene &m_scene;
    QVector<DoubleMatrix> m_normalMatrices;
};

/// Sorted by depth, the nearest first.
QVector<RayHit> byDepth(QVector<RayHit> hits);

/// The sort of VisibilitySortRenderPass on the numbers 0 to n - 1 with these depths: the same steps, written with
/// nested loops.
QVector<int> quickSorted(const QVector<float> &depths);

} // namespace Velmora::Kvz
