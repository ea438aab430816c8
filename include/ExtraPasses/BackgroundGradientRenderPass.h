// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class ShaderProgram;
class TargetFramebuffer;

/// The vertical gradient of GradientRenderPass in bytes, for passes that lay their model over a background and give bytes
/// themselves, such as LitForwardRenderPass: copying 32-bit floats into their frames costs more than the gradient.
///
/// | Input | Name                   | Type   | Default         | Null means               |
/// |-------|------------------------|--------|-----------------|--------------------------|
/// | 0     | Kvz_QRect_Viewport     | QRect  | invalid         | 0 by 0 pixels            |
/// | 1     | Kvz_QColor_ColorTop    | QColor | (64, 64, 64)    | transparent black        |
/// | 2     | Kvz_QColor_ColorBottom | QColor | (153, 153, 153) | the colour at the top    |
///
/// | Output | Name                  | Value                                                                                      |
/// |--------|-----------------------|--------------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | GL_RGBA8: the colours as they are given, each multiplied by its alpha, alpha included.      |
///
/// Between the two rows of texels at the edges, colours change by equal steps; no colour space is converted. The texture is the
/// pass's own, of the viewport's size, and the next frame overwrites it; with an empty viewport the output is empty. An invalid
/// colour counts as null. The depth test, blending, the scissor test and the stencil test are off afterwards.
class KVZ_EXTRAPASSES_EXPORT BackgroundGradientRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ColorTop, ColorBottom };
    enum Output { Frame };

    BackgroundGradientRenderPass();
    ~BackgroundGradientRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size;
};

} // namespace Velmora::Kvz
