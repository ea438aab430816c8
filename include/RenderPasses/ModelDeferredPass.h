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

/// Shades the geometry buffer of ModelRenderPass with one directional light that is fixed to the camera, above the viewer's
/// right shoulder: Lambert's term and Blinn's highlight.
///
/// | Input | Name                           | Type       | Default | Null means                                         |
/// |-------|--------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport             | QRect      | invalid | 0 by 0 pixels                                      |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix| QMatrix4x4 | invalid | no difference: it has no effect                    |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix    | QMatrix4x4 | invalid | no difference: it has no effect                    |
/// | 3     | Kvz_KvzTexture*_Diffuse        | Texture*   | invalid | no frame                                           |
/// | 4     | Kvz_KvzTexture*_Specular       | Texture*   | invalid | no frame                                           |
/// | 5     | Kvz_KvzTexture*_Normal         | Texture*   | invalid | no frame                                           |
/// | 6     | Kvz_KvzTexture*_Depth          | Texture*   | invalid | no difference: it has no effect                    |
///
/// | Output | Name                   | Value                                                                          |
/// |--------|------------------------|--------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame  | The pass's own GL_RGBA texture of the viewport's size, 8 bits a channel, overwritten by the next frame and deleted by a change of size. Alpha is that of the diffuse image, which is not multiplied into the colour. |
///
/// Diffuse, specular and normal are required; connect them before the pass runs. The pass draws with the GL viewport that it
/// finds, so set that to the size of the port's rectangle. The depth test is off afterwards; blending and culling stay as
/// they are.
class KVZ_RENDERPASSES_EXPORT ModelDeferredPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Diffuse, Specular, Normal, Depth };
    enum Output { Frame };

    ModelDeferredPass();
    ~ModelDeferredPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void resizeTarget(const QSize &size);

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<Texture> m_fallback; ///< Never made, on purpose: the inputs that it stands in for are required.
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size{0, 0};
};

} // namespace Velmora::Kvz
