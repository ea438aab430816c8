// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/BlurBaseRenderPass.h>

class QVector2D;

namespace Velmora::Kvz {

/// Blurs an image by a Gaussian, at a lower resolution if asked, and on the pixels of one material alone if asked.
///
/// | Input | Name                          | Type     | Default | Null means                                              |
/// |-------|-------------------------------|----------|---------|---------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport            | QRect    | invalid | 0 by 0 pixels                                           |
/// | 1     | Kvz_KvzTexture*_Input         | Texture* | invalid | a black result; no image at a radius up to 1            |
/// | 2     | Kvz_float_BlurRadius          | float    | 2.0     | 0; standard deviation in pixels of the result           |
/// | 3     | Kvz_float_ResolutionDivider   | float    | 1.0     | 0.01, as for all below that; divides the result's size  |
/// | 4     | Kvz_KvzTexture*_Stencil       | Texture* | invalid | the whole image is blurred                              |
/// | 5     | Kvz_int_StencilMaterial       | int      | -1      | 0; the whole image is blurred below 0                   |
///
/// | Output | Name                     | Value                                                                             |
/// |--------|--------------------------|-----------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Output   | A pooled GL_RGBA16F texture of the viewport's size by the divider, truncated. At a radius up to 1 the input itself, and nothing is drawn. |
///
/// The kernel reaches three times the radius. With a stencil and a material, the pixels whose stencil value is the material's
/// number plus 1 are blurred, and the others are opaque black. The stencil image is not scaled: its lower left corner is the
/// result's. The first draw leaves the current clear colour on the other pixels, which the second draw then blends in at the
/// material's borders. A stencil given together with a material below 0 is dropped and not given back.
///
/// The input must be a plain 2D image; it keeps the linear filters and clamping that the pass sets. Depth and stencil writes
/// stay off and the clear colour stays opaque black after a blur.
class KVZ_RENDERPASSES_EXPORT GaussianBlurRenderPass : public BlurBaseRenderPass
{
public:
    enum Input { Viewport, Source, BlurRadius, ResolutionDivider, Stencil, StencilMaterial };
    enum Output { Result };

    /// With a `stencilMask` other than 0, pixels with an alpha of 0 or less are not blurred, whatever the stencil says.
    explicit GaussianBlurRenderPass(float stencilMask);
    ~GaussianBlurRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void passThrough();
    void drawBlurred(Texture *source, const QVector2D &step, float divider);
};

} // namespace Velmora::Kvz
