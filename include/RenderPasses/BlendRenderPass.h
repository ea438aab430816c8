// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// Combines two frames into a new one, pixel by pixel, by one of 26 compositing operators for premultiplied colours.
///
/// | Input | Name                    | Type     | Default | Null means                                                   |
/// |-------|-------------------------|----------|---------|--------------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport      | QRect    | invalid | 0 by 0 pixels                                                |
/// | 1     | Kvz_KvzTexture*_FrameA  | Texture* | invalid | transparent black; the source of the operator                |
/// | 2     | Kvz_KvzTexture*_FrameB  | Texture* | invalid | transparent black; the destination of the operator           |
/// | 3     | Int_BlendMode           | int      | invalid | the mode stays; a number replaces it from now on             |
/// | 4     | brightness              | float    | invalid | 1; a factor on all four channels of FrameB. 0 when it does not convert |
///
/// | Output | Name                   | Value                                                                          |
/// |--------|------------------------|--------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame  | A pooled GL_RGBA16F texture of the viewport's size. Values are not clamped.     |
///
/// Frames are sampled over their whole area, so one of another size than the viewport is stretched to it. A multisampled
/// frame is resolved to the viewport's size first; that is logged as a warning, once for each input of an object. The
/// viewport's left and top shift the picture within the result, whose rest holds the current clear colour.
///
/// The operators are those of T. Porter and T. Duff, "Compositing Digital Images" (SIGGRAPH 1984), and the blend modes
/// common in image editors, in their premultiplied form. Colour dodge, colour burn and soft light divide by the
/// destination's alpha without a guard: where that is 0 the result depends on the GPU.
class KVZ_RENDERPASSES_EXPORT BlendRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, FrameA, FrameB, Mode, Brightness };
    enum Output { Frame };

    /// The operators: source over destination, with FrameA as the source. A number outside gives transparent black.
    enum BlendMode : int {
        Clear = 0,
        Src = 1,
        Dst = 2,
        SrcOver = 3,
        DstOver = 4,
        SrcIn = 5,
        DstIn = 6,
        SrcOut = 7,
        DstOut = 8,
        SrcAtop = 9,
        DstAtop = 10,
        Xor = 11,
        Add = 12,
        Multiply = 13,
        Screen = 14,
        Overlay = 15, ///< Chooses its branch by the destination's premultiplied colour, whatever its alpha.
        Darken = 16,
        Lighten = 17,
        ColorDodge = 18,
        ColorBurn = 19,
        HardLight = 20,
        SoftLight = 21,
        Exclusion = 22,
        Difference = 23,
        InvertAndAdd = 24,
        MultiplyKeepAlpha = 25
    };

    explicit BlendRenderPass(BlendMode mode);
    ~BlendRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_shaderProgram;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    Texture *m_transparentTexture = nullptr; ///< The texture manager's.
    int m_blendMode;
    bool m_warnedFrameA = false;
    bool m_warnedFrameB = false;
};

} // namespace Velmora::Kvz
