// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QList>
#include <QtGui/QVector3D>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;

/// Bakes a list of quads and cubes into one drawable, for passes that draw plain geometry. It draws nothing itself.
///
/// | Output | Name                         | Value                                                                |
/// |--------|------------------------------|----------------------------------------------------------------------|
/// | 0      | Kvz_KvzDrawBuffers*_Geometry | The pass's own drawable with `va_Vertex`, `va_TexCoord` and `va_Normal`, deleted by the first start() after a change. Null until there is something to bake. |
///
/// Positions are in world space. Neither shape has all its triangles wound alike, so draw them without face culling. A cube's
/// texture coordinates step up by one from face to face, from 0 to 6: a repeating texture shows whole on each face.
///
/// When the list has grown, the next start() bakes all of it again.
class KVZ_RENDERPASSES_EXPORT PrimitiveBuilderRenderPass : public RenderPassProxy
{
public:
    enum Output { Geometry };
    enum PrimitiveType { Cube = 0, Quad = 1 };

    struct PrimitiveInfo
    {
        PrimitiveType type;
        float size; ///< The edge of a cube; half the edge of a quad.
        QVector3D position; ///< The centre.
    };

    PrimitiveBuilderRenderPass();
    ~PrimitiveBuilderRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

    /// Adds a quad that faces -z around `position`. `size` is half its edge, in world units.
    void addQuad(float size, const QVector3D &position);
    /// Adds a cube around `position`. `size` is its whole edge, in world units.
    void addCube(float size, const QVector3D &position);
    /// Whether the drawable gets an indirect draw command for each primitive, as it does by default. Even without
    /// primitives the next start() bakes then, and publishes an empty drawable instead of null.
    ///
    /// A command's base vertex counts the vertices of the primitives before it, as the indices do already: read the
    /// commands to tell the parts apart, and draw the index buffer as a whole.
    void setUseIndirectDrawCommands(bool use);

private:
    std::unique_ptr<DrawBuffers> m_drawBuffers;
    QList<PrimitiveInfo> m_primitives;
    bool m_dirty = false;
    bool m_useIndirectDrawCommands = true;
};

} // namespace Velmora::Kvz
