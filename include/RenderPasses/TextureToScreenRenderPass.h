// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QRect>
#include <QtCore/QSharedPointer>
#include <QtCore/QVector>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class GLSLMacroProcessor;
class ShaderProgram;
class Texture;

/// Puts an image where it is to be seen: on the screen, in a framebuffer of the host, or in textures of the host. The
/// last pass of a chain; it has no output.
///
/// | Input | Name                                | Type               | Default | Null means                                      |
/// |-------|-------------------------------------|--------------------|---------|-------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport                  | QRect              | invalid | 0 by 0 pixels; it stands in for an empty list   |
/// | 1     | Kvz_KvzTexture*_Texture             | Texture*           | invalid | the destination is cleared, or drawn transparent|
/// | 2     | Kvz_KvzTexture*_Depth               | Texture*           | invalid | no depth is written                             |
/// | 3     | Kvz_Bool_EnableSuperSampling        | bool               | invalid | false                                           |
/// | 4     | Kvz_QRect_ViewportOut               | QRect or list      | invalid | the viewport; destination rectangles in pixels  |
/// | 5     | Kvz_KvzTexture*_TextureOut          | Texture*           | invalid | the framebuffer of input 9 is written           |
/// | 6     | Kvz_KvzTexture*_DepthOut            | Texture*           | invalid | no depth texture is written                     |
/// | 7     | Kvz_Bool_LinearFilter               | bool               | false   | false                                           |
/// | 8     | Kvz_QVariant_Rects                  | QRect or list      | invalid | the viewport; source rectangles in texels       |
/// | 9     | Kvz_KvzFramebuffer*_FramebufferOut  | FramebufferObject* | invalid | the default framebuffer is written              |
///
/// Rectangles have their origin at the lower left. Lists pair up, and the rest of the longer one is ignored.
///
/// Without depth and super sampling each pair is one blit of colour, from the source rectangle to the destination rectangle,
/// as it stands; it filters only where the sizes differ and input 7 allows it. With either, a program draws the destination
/// rectangles: each pixel is the average of a box of texels, as many as the image's size holds of the rectangle's, rounded to
/// whole numbers and at least one, and its depth is the texel under it. Of the source rectangles only the number counts then.
/// Texels are taken under the pixel's place in the destination, so a rectangle away from the origin shows another part of the
/// image. A multisampled image can be blitted, not drawn.
///
/// DepthOut has an effect only with TextureOut, and stays attached until another replaces it.
class KVZ_RENDERPASSES_EXPORT TextureToScreenRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        SourceTexture,
        SourceDepth,
        EnableSuperSampling,
        ViewportOut,
        TextureOut,
        DepthOut,
        LinearFilter,
        Rects,
        FramebufferOut
    };

    TextureToScreenRenderPass();
    ~TextureToScreenRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    /// Deletes the framebuffers and drops the quad. The programs stay, for a next context that shares them.
    void teardownContextData(RenderCallbacks *callbacks) override;

private:
    void deletePrograms();
    void ensureDrawing();
    std::unique_ptr<ShaderProgram> buildDrawProgram(GLSLMacroProcessor *macros) const;
    void bindDestination(const Texture *texture, const Texture *depth, const FramebufferObject *framebuffer) const;
    void draw(Texture *source, Texture *depth, const QVector<QRect> &destinations, int count) const;
    void blit(const Texture *source, const QVector<QRect> &sources, const QVector<QRect> &destinations, int count);

    std::unique_ptr<ShaderProgram> m_depthShaderProgram; ///< The same sources with PROCESS_DEPTH defined.
    std::unique_ptr<ShaderProgram> m_shaderProgram;
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<FramebufferObject> m_drawFramebuffer;
    std::unique_ptr<FramebufferObject> m_readFramebuffer;
    Texture *m_fallbackTexture = nullptr; ///< The texture manager's.
    bool m_useShader = false; ///< How the previous frame was copied.
};

} // namespace Velmora::Kvz
