// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class ShaderProgram;
class TargetFramebuffer;

/// Draws a model and shades it in the same program, with one directional light that is fixed to the camera, above the
/// viewer's right shoulder: Lambert's term and Blinn's highlight. It does in one pass what ModelRenderPass and
/// ModelDeferredPass do in two.
///
/// | Input | Name                           | Type       | Default | Null means                                         |
/// |-------|--------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport             | QRect      | invalid | 0 by 0 pixels                                      |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix| QMatrix4x4 | invalid | the identity                                       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix    | QMatrix4x4 | invalid | the identity; it takes world space to camera space |
/// | 3     | Kvz_KvzGPUModel*_Geometry      | GPUModel*  | invalid | cleared images                                     |
///
/// | Output | Name                   | Value                                                                          |
/// |--------|------------------------|--------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame  | GL_RGBA, 8 bits a channel: the shaded model. Alpha is the material's opacity, which is not multiplied into the colour. |
/// | 1      | Kvz_KvzTexture*_Id     | GL_RGBA, 8 bits a channel: 1 where there is a model, 0 elsewhere. Its channels cannot tell triangles apart. |
///
/// The outputs are the pass's own textures of the viewport's size, overwritten by the next frame and deleted by a change of
/// size. They are null until a viewport gives them one. Where there is no model, both are 0. The depth that sorts the model
/// is not published.
///
/// Normals are not normalised again after the interpolation, and a model matrix that scales by s divides their length by s;
/// the light is that much stronger or weaker than ModelDeferredPass has it.
///
/// The pass draws with the GL viewport that it finds, so set that to the size of the port's rectangle. The clear colour is
/// transparent black afterwards; blending and culling stay as they are.
class KVZ_RENDERPASSES_EXPORT ForwardRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Geometry };
    enum Output { Frame, Id };

    ForwardRenderPass();
    ~ForwardRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void resizeTargets(const QSize &size);

    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size{0, 0};
};

} // namespace Velmora::Kvz
