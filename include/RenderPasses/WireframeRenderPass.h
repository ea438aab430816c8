// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;

/// Draws a wireframe without any geometry: it finds the edges of triangles in an identity image and writes them as an
/// overlay, to be blended over a frame.
///
/// | Input | Name                   | Type     | Default | Null means                                                    |
/// |-------|------------------------|----------|---------|---------------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport     | QRect    | invalid | 0 by 0 pixels                                                 |
/// | 1     | Kvz_KvzTexture*_Id     | Texture* | invalid | no overlay: the output is empty                               |
/// | 2     | Kvz_QColor_WireColor   | QColor   | invalid | opaque black                                                  |
///
/// | Output | Name                   | Value                                                                          |
/// |--------|------------------------|--------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame  | A pooled GL_RGBA8 texture of the viewport's size: the wire colour, alpha included, times the strength of the edge, from 0 (flat area) to 1. |
///
/// The strength of a pixel is the mean over its eight neighbours: 1 for one whose red differs, which is another triangle;
/// else 0.33 for one whose blue differs, which is another part of a tessellated triangle. Channels hold whole numbers.
///
/// Neighbours are one pixel of the viewport away, whatever the identity image's size; beyond the image's edge its wrap mode
/// decides. The viewport's left and top shift the picture within the result, whose rest holds the current clear
/// colour. The depth test is off afterwards; blending stays as it is.
class KVZ_RENDERPASSES_EXPORT WireframeRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, Id, WireColor };
    enum Output { Frame };

    WireframeRenderPass();
    ~WireframeRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<FramebufferObject> m_framebuffer;
};

} // namespace Velmora::Kvz
