// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class ShaderProgram;
class TargetFramebuffer;
class Texture;

/// Shades the geometry buffer of GBufferRenderPass with Lambert's term of one fixed light at (100, 100, 100) in world space,
/// as grey. It is the example of how a deferred shading pass connects to a geometry buffer.
///
/// | Input | Name                           | Type       | Default | Null means                                         |
/// |-------|--------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport             | QRect      | invalid | 0 by 0 pixels                                      |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix| QMatrix4x4 | invalid | the identity                                       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix    | QMatrix4x4 | invalid | the identity; it takes world space to camera space |
/// | 3     | Kvz_KvzTexture*_Normal         | Texture*   | invalid | zeros: the frame is black                          |
/// | 4     | Kvz_KvzTexture*_TexCoord       | Texture*   | invalid | zeros; the frame does not depend on it             |
/// | 5     | Kvz_KvzTexture*_Depth          | Texture*   | invalid | zeros                                              |
///
/// | Output | Name                   | Value                                                                          |
/// |--------|------------------------|--------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame  | The pass's own GL_RGBA texture of the viewport's size, 8 bits a channel, overwritten by the next frame and deleted by a change of size. Alpha is 1; a surface that faces away is black. |
///
/// Normals are in world space and weigh the light by their length. The position that is lit comes from the depth by the
/// transposed inverse of the projection, so the light's direction is an approximation.
///
/// The pass draws with the GL viewport that it finds, so set that to the size of the port's rectangle. The depth test is off
/// afterwards; blending and culling stay as they are.
class KVZ_RENDERPASSES_EXPORT DeferredRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Normal, TexCoord, Depth };
    enum Output { Frame };

    DeferredRenderPass();
    ~DeferredRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    Texture *placeholder();
    void resizeTarget(const QSize &size);

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<Texture> m_placeholder;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size{0, 0};
};

} // namespace Velmora::Kvz
