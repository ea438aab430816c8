// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <memory>

class QMatrix4x4;

namespace Velmora::Kvz {

class WeightedLayers;

/// Draws the transparent items of a model once, in any order, into an image of layers to lay over a frame: lit, with opacity
/// from material, image and vertex colours. After M. McGuire and L. Bavoil, "Weighted Blended Order-Independent
/// Transparency", Journal of Computer Graphics Techniques 2(2), 2013.
///
/// | Input | Name                            | Type       | Default | Null means                                               |
/// |-------|---------------------------------|------------|---------|----------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels: no image                                  |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity                                             |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity; it takes world space to camera space       |
/// | 3     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | no image                                                 |
/// | 4     | Kvz_KvzTexture*_Depth           | Texture*   | invalid | nothing hides the layers                                 |
/// | 5     | Kvz_float_HeadlightIntensity    | float      | 0.85    | the default; of the lamp at the eye, 1 is full           |
/// | 6     | Kvz_float_AmbientIntensity      | float      | 0.15    | the default; of the light from everywhere                |
/// | 7     | Kvz_bool_FixedLight             | bool       | false   | the default; true: one fixed light instead of both       |
///
/// | Output | Name                  | Value                                                                                   |
/// |--------|-----------------------|-----------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | Pooled, GL_RGBA16F: the layers' colour, premultiplied, and in alpha the share T of what |
/// |        |                       | lies behind that comes through. Null where the model has no transparent items.          |
///
/// Transparent items are those with GPUModel::Transparent. With c the lit colour, clamped at 1, a the opacity and w a
/// weight of each fragment in front of the opaque surfaces, T is the product of all 1 - a, and the colour is
/// (1 - T) sum(w a c) / sum(w a). It is laid over a frame F as `rgb + T F`; a pixel without layers has (0, 0, 0, 1). A single
/// layer gives exactly a c, within the precision of half floats, and so do any number of layers of one colour; of
/// different colours the nearer count more.
///
/// The weight is 2^(8 - 8 t), where t runs from 0 to 1 over the view depths of the transparent items' bounds, so that a
/// scene looks the same at any scale. The sums have room for 255 layers of full brightness and opacity directly in
/// front of the camera; if more of them overflow, the layers' proportions are lost, but the picture stays finite.
///
/// The depth image must have the viewport's size and one sample per texel; another one is ignored, with one log line.
/// It is attached, not written. Left behind: the depth test off, depth writes on, the depth function GL_LESS, blending
/// off with the function (GL_ONE, GL_ONE, GL_ZERO, GL_ONE_MINUS_SRC_ALPHA), the clear colour (0, 0, 0, 1), the GL
/// viewport at (0, 0) with the port's size, and the constant values of va_Color and va_TexCoord1 changed. The depth
/// image is given back once.
class KVZ_EXTRAPASSES_EXPORT LitWeightedRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        ProjectionMatrix,
        CameraMatrix,
        Geometry,
        Depth,
        HeadlightIntensity,
        AmbientIntensity,
        FixedLight
    };
    enum Output { Frame };

    LitWeightedRenderPass();
    ~LitWeightedRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    std::unique_ptr<WeightedLayers> m_layers;
};

} // namespace Velmora::Kvz
