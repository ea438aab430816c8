// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// Lays transparent layers over a frame, the frame over a background image, and all over a colour. The images are multiplied by
/// their alpha, and so is the result.
///
/// | Input | Name                       | Type     | Default      | Null means                                             |
/// |-------|----------------------------|----------|--------------|--------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport         | QRect    | invalid      | 0 by 0 pixels                                          |
/// | 1     | Kvz_KvzTexture*_Frame      | Texture* | invalid      | no frame: transparent                                  |
/// | 2     | Kvz_KvzTexture*_Layers     | Texture* | invalid      | no layers                                              |
/// | 3     | Kvz_KvzTexture*_Background | Texture* | invalid      | no image: transparent                                  |
/// | 4     | Kvz_QColor_BackgroundColor | QColor   | (0, 0, 0, 0) | transparent; the colour is not multiplied by its alpha |
///
/// | Output | Name                  | Value                                                          |
/// |--------|-----------------------|----------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | Pooled, GL_RGBA16F: the picture, colour multiplied by its alpha. Or the input Frame. |
///
/// The alpha of layers is the share T of what lies behind them that comes through, 1 where there are none, as
/// LitWeightedRenderPass, LitListRenderPass and VisibilityDeferredRenderPass write it:
/// rgb = layers.rgb + T behind.rgb, alpha = 1 - T (1 - behind.a). The frame and the image are composed by the operator "over"
/// (Porter and Duff, "Compositing digital images", 1984). Images of another size than the viewport's are stretched to it.
///
/// A frame of the viewport's size with no layers, no background and no colour is the picture as it is, and is handed on: nothing is drawn.
/// With an empty viewport the output is empty. The depth test and blending are off after a draw.
class KVZ_EXTRAPASSES_EXPORT CompositeRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, FrameIn, Layers, Background, BackgroundColor };
    enum Output { Frame };

    CompositeRenderPass();
    ~CompositeRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    bool isFrameAlone(const QSize &size) const;
    void compose();
    Texture *transparentTexture();

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    Texture *m_transparent = nullptr; ///< The texture manager's.
};

} // namespace Velmora::Kvz
