// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <memory>

namespace Velmora::Kvz {

class PhysicalLight;
class WeightedLayers;

/// Draws the transparent items of a model once, in any order, as LitWeightedRenderPass does, in the light of
/// PhysicalForwardRenderPass.
///
/// | Input | Name                                       | Type         | Default | Null means                         |
/// |-------|--------------------------------------------|--------------|---------|------------------------------------|
/// | 0     | Kvz_QRect_Viewport                         | QRect        | invalid | 0 by 0 pixels: no image            |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix            | QMatrix4x4   | invalid | the identity                       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix                | QMatrix4x4   | invalid | the identity                       |
/// | 3     | Kvz_KvzGPUModel*_Geometry                  | GPUModel*    | invalid | no image                           |
/// | 4     | Kvz_KvzTexture*_Depth                      | Texture*     | invalid | nothing hides the layers           |
/// | 5     | Kvz_KvzTexture*_Environment                | Texture*     | invalid | no surroundings                    |
/// | 6     | Kvz_QVariant_Irradiance                    | QVariant     | invalid | surroundings light nothing diffuse |
/// | 7     | Kvz_float_EnvironmentRotation              | float        | 0.0     | 0                                  |
/// | 8    | Kvz_QList_KvzShadowMapManagerLight*_Lights | QVariantList | invalid | no lamps                           |
/// | 9    | Kvz_QVariant_ShadowMapData                 | RenderData*  | invalid | nothing casts a shadow             |
/// | 10    | Kvz_float_LightBleedingReduction           | float        | 0.2     | 0                                  |
///
/// | Output | Name                  | Value                                                                                    |
/// |--------|-----------------------|------------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | Pooled, GL_RGBA16F: the layers' radiance, premultiplied, and in alpha the share T of what |
/// |        |                       | lies behind that comes through. Null where the model has no transparent items.           |
///
/// The image is laid over a linear frame F, all shares of light included, as `rgb + T F`. Radiance above 64 counts as 64. The depth image
/// and the state that is left are those of LitWeightedRenderPass.
class KVZ_EXTRAPASSES_EXPORT PhysicalWeightedRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        ProjectionMatrix,
        CameraMatrix,
        Geometry,
        Depth,
        Environment,
        Irradiance,
        EnvironmentRotation,
        Lights,
        ShadowMapData,
        LightBleedingReduction
    };
    enum Output { Frame };

    PhysicalWeightedRenderPass();
    ~PhysicalWeightedRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    std::unique_ptr<WeightedLayers> m_layers;
    std::unique_ptr<PhysicalLight> m_light;
};

} // namespace Velmora::Kvz
