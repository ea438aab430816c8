// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/BlurBaseRenderPass.h>

#include <memory>

namespace Velmora::Kvz {

/// A glow: the bright parts of one frame, blurred by a Gaussian and added to another frame.
///
/// | Input | Name                          | Type     | Default | Null means                                              |
/// |-------|-------------------------------|----------|---------|---------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport            | QRect    | invalid | 0 by 0 pixels                                           |
/// | 1     | Kvz_KvzTexture*_NormalFrame   | Texture* | invalid | transparent black; the frame that the glow is added to  |
/// | 2     | Kvz_float_BlurRadius          | float    | 2.0     | 0; standard deviation in pixels                         |
/// | 3     | Kvz_float_GlowThreshold       | float    | invalid | 0; the luma from which a pixel glows, all at 0 or less  |
/// | 4     | Kvz_float_GlowAmount          | float    | invalid | 0; the glow's strength, which takes effect squared      |
/// | 5     | Kvz_KvzTexture*_BlurFrame     | Texture* | invalid | transparent black; the frame that glows                 |
///
/// | Output | Name                     | Value                                                                             |
/// |--------|--------------------------|-----------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Output   | A pooled GL_RGBA16F texture of the viewport's size, not clamped. With a radius or an amount of 0 or less the normal frame itself, and nothing is drawn. |
///
/// The amount is applied in both draws of the blur: 0.5 adds a quarter of the blurred frame. Alpha is treated like colour.
/// The kernel reaches three times the radius. Luma is that of ITU-R BT.709 as 0.2125, 0.7154, 0.0721.
///
/// Frames are sampled over their whole area, and both keep the linear filters and clamping that the pass sets. A
/// multisampled frame is resolved to the viewport's size first; that is logged as a warning, once for each input of an
/// object. Depth writes stay off.
class KVZ_RENDERPASSES_EXPORT BlurAndCombineRenderPass : public BlurBaseRenderPass
{
public:
    enum Input { Viewport, NormalFrame, BlurRadius, GlowThreshold, GlowAmount, BlurFrame };
    enum Output { Result };

    BlurAndCombineRenderPass();
    ~BlurAndCombineRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

protected:
    /// \name Draws
    /// Each into `target`, with the framebuffer bound.
    /// @{
    /// The pixels of `source` whose luma reaches the threshold; the others are transparent black.
    void drawWithThresholdShader(Texture *source, Texture *target);
    /// `source` blurred horizontally, times the amount.
    void drawWithBlurOnlyShader(Texture *source, Texture *target);
    /// `original` plus `blurred` blurred vertically, times the amount.
    void drawWithBlurAndAddShader(Texture *original, Texture *blurred, Texture *target);
    /// @}

private:
    std::unique_ptr<ShaderProgram> m_thresholdProgram;
    std::unique_ptr<ShaderProgram> m_blurAndAddProgram;
    float m_glowAmount = 0.0f;
    float m_glowThreshold = 0.0f;
    float m_width = 0.0f;
    float m_height = 0.0f;
    bool m_warnedFrame = false;
    bool m_warnedBlur = false;
};

} // namespace Velmora::Kvz
