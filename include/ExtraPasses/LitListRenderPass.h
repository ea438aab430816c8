// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <memory>

namespace Velmora::Kvz {

class ListShading;

/// Shades the lists of VisibilityBufferRenderPass, which VisibilitySortRenderPass has sorted, into an image of layers to lay over
/// a frame: walks each pixel's list from front to back, rebuilds its fragments from the model's own vertices, lights them, and
/// composites them by their opacity, to which material, image and vertex colours contribute.
///
/// | Input | Name                            | Type       | Default | Null means                                              |
/// |-------|---------------------------------|------------|---------|---------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels: no image                                 |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity                                            |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity; it takes world space to camera space      |
/// | 3     | Kvz_KvzTexture*_HeadPointers    | Texture*   | invalid | no image                                                |
/// | 4     | Kvz_KvzTexture*_NodeBuffer      | Texture*   | invalid | no image                                                |
/// | 5     | Kvz_int_NodeBufferWidth         | int        | invalid | 0: no layers                                            |
/// | 6     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | no image                                                |
/// | 7     | Kvz_float_HeadlightIntensity    | float      | 0.85    | the default; of the lamp at the eye, 1 is full          |
/// | 8     | Kvz_float_AmbientIntensity      | float      | 0.15    | the default; of the light from everywhere               |
/// | 9     | Kvz_bool_FixedLight             | bool       | false   | the default; true: one fixed light instead of both      |
///
/// | Output | Name                  | Value                                                                                    |
/// |--------|-----------------------|------------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | Pooled, GL_RGBA16F: the layers' colour, premultiplied, and in alpha the share T of what   |
/// |        |                       | lies behind that comes through. Null without lists or model.                             |
///
/// Each fragment of lit colour c, clamped at 1, and opacity a adds T a c to the colour and multiplies T, which begins
/// at 1, by 1 - a; the walk ends where T is 0. The image is laid over a frame F as `rgb + T F`; a pixel without
/// fragments has (0, 0, 0, 1). A fragment that a mask cuts out is skipped.
///
/// Matrices and model must be those that the lists were recorded with, and the lists hold the items that are to be composited:
/// usually the transparent ones, recorded with (GPUModel::Transparent, GPUModel::Transparent). VisibilitySortRenderPass sorts the
/// first 50 fragments of a pixel.
///
/// A model with more vertices or indices than the driver's buffer textures hold (GL_MAX_TEXTURE_BUFFER_SIZE; at least 65,536) gives no
/// image, and one log line.
///
/// The fragment stage uses 16 textures, as many as every driver has. Left behind: the depth test and blending off, the GL
/// viewport at (0, 0) with the port's size. Each input image is given back once.
class KVZ_EXTRAPASSES_EXPORT LitListRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        ProjectionMatrix,
        CameraMatrix,
        HeadPointers,
        NodeBuffer,
        NodeBufferWidth,
        Geometry,
        HeadlightIntensity,
        AmbientIntensity,
        FixedLight
    };
    enum Output { Frame };

    LitListRenderPass();
    ~LitListRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    std::unique_ptr<ListShading> m_shading;
};

} // namespace Velmora::Kvz
