// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class ShaderProgram;
class TargetFramebuffer;

/// Draws a model into a depth-stencil image alone: depth, and a stencil of 1 wherever the model covers a pixel. It is what
/// SkyboxRenderPass masks by.
///
/// | Input | Name                            | Type       | Default | Null means                                         |
/// |-------|---------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                      |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity                                       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity; it takes world space to camera space |
/// | 3     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | depth 1 and stencil 0 everywhere                   |
///
/// | Output | Name                  | Value                                                                               |
/// |--------|-----------------------|-------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Depth | GL_DEPTH24_STENCIL8, window depth from 0 to 1 and 1 where nothing is; stencil 1 or 0 |
///
/// All items count as covering, transparent ones too; culled items are left out. The output is the pass's own texture of the
/// viewport's size, overwritten by the next frame and deleted by a change of size; null until a viewport gives it one.
///
/// Afterwards the depth test, its writes and all stencil bits are on, the stencil test, blending and face culling off, and
/// the GL viewport is the image.
class KVZ_EXTRAPASSES_EXPORT DepthStencilRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Geometry };
    enum Output { Depth };

    DepthStencilRenderPass();
    ~DepthStencilRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size{0, 0};
};

} // namespace Velmora::Kvz
