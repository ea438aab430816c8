// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/BlurBaseRenderPass.h>

#include <memory>

namespace Velmora::Kvz {

/// Blurs a frame where its alpha is above 0 and adds the result to another frame. The mask is the blurred frame's own
/// alpha; no stencil buffer takes part.
///
/// | Input | Name                          | Type     | Default | Null means                                              |
/// |-------|-------------------------------|----------|---------|---------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport            | QRect    | invalid | 0 by 0 pixels                                           |
/// | 1     | Kvz_KvzTexture*_NormalFrame   | Texture* | invalid | transparent black; the frame that is added to           |
/// | 2     | Kvz_float_BlurRadius          | float    | 2.0     | 0; standard deviation in pixels                         |
/// | 3     | Kvz_KvzTexture*_BlurFrame     | Texture* | invalid | transparent black; the frame that is blurred            |
///
/// | Output | Name                     | Value                                                                             |
/// |--------|--------------------------|-----------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Output   | A pooled GL_RGBA16F texture of the viewport's size, not clamped. With a radius of 0 or less the normal frame itself, and nothing is drawn. |
///
/// Pixels with an alpha of 0 or less are added as they are. The sum is plain: alpha weighs nothing, and is added like
/// colour. The kernel reaches twice the radius, less than that of the other blurs.
///
/// Frames are sampled over their whole area; the blurred one keeps the linear filters and clamping that the pass sets. A
/// multisampled frame is resolved to the viewport's size first; that is logged as a warning, once for each input of an
/// object. Depth writes stay off.
class KVZ_RENDERPASSES_EXPORT StencilBlurAndBlendRenderPass : public BlurBaseRenderPass
{
public:
    enum Input { Viewport, NormalFrame, BlurRadius, BlurFrame };
    enum Output { Result };

    StencilBlurAndBlendRenderPass();
    ~StencilBlurAndBlendRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

protected:
    /// \name Draws
    /// Each into `target`, with the framebuffer bound. `rebuilt` says that the programs are new; it makes no difference,
    /// since every uniform is set in each draw.
    /// @{
    /// `source` blurred horizontally where its alpha is above 0.
    void drawWithBlurOnlyShader(const bool &rebuilt, Texture *source, Texture *target);
    /// `original` plus `blurred`, blurred vertically where its alpha is above 0.
    void drawWithBlurAndAddShader(const bool &rebuilt, Texture *original, Texture *blurred, Texture *target);
    /// @}

private:
    std::unique_ptr<ShaderProgram> m_blurAndBlendProgram;
    float m_width = 0.0f;
    float m_height = 0.0f;
    bool m_warnedBlur = false;
    bool m_warnedBase = false;
};

} // namespace Velmora::Kvz
