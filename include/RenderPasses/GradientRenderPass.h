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

/// Fills an image with a vertical gradient of two colours, or with one flat colour: the background that later passes draw
/// over.
///
/// | Input | Name                      | Type   | Default        | Null means                                       |
/// |-------|---------------------------|--------|----------------|--------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport        | QRect  | invalid        | 0 by 0 pixels                                    |
/// | 1     | Kvz_QColor_ColorTop       | QColor | (64, 64, 64)   | nothing is drawn, the image keeps its content    |
/// | 2     | Kvz_QColor_ColorBottom    | QColor | (153, 153, 153)| a flat image of the top colour, alpha 1          |
///
/// | Output | Name                   | Value                                                                    |
/// |--------|------------------------|--------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame  | The pass's own GL_RGBA32F texture of the viewport's size, overwritten by the next frame and deleted by a change of size. Null until a viewport gives it one. |
///
/// A gradient has the colours as they are given, alpha included; no colour space is converted. A draw that fails sets the error
/// code to all bits set, and the output is written all the same.
class KVZ_RENDERPASSES_EXPORT GradientRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ColorTop, ColorBottom };
    enum Output { Frame };

    GradientRenderPass();
    ~GradientRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void resizeTarget(const QSize &size);
    void drawGradient();
    void clearFlat();

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size{0, 0};
};

} // namespace Velmora::Kvz
