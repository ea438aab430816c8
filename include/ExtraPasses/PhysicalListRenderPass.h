// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <memory>

namespace Velmora::Kvz {

class ListShading;
class PhysicalLight;

/// Shades sorted lists of fragments as LitListRenderPass does, in the light of PhysicalForwardRenderPass.
///
/// | Input | Name                                       | Type         | Default | Null means                         |
/// |-------|--------------------------------------------|--------------|---------|------------------------------------|
/// | 0     | Kvz_QRect_Viewport                         | QRect        | invalid | 0 by 0 pixels: no image            |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix            | QMatrix4x4   | invalid | the identity                       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix                | QMatrix4x4   | invalid | the identity                       |
/// | 3     | Kvz_KvzTexture*_HeadPointers               | Texture*     | invalid | no image                           |
/// | 4     | Kvz_KvzTexture*_NodeBuffer                 | Texture*     | invalid | no image                           |
/// | 5     | Kvz_int_NodeBufferWidth                    | int          | invalid | 0: no layers                       |
/// | 6     | Kvz_KvzGPUModel*_Geometry                  | GPUModel*    | invalid | no image                           |
/// | 7     | Kvz_KvzTexture*_Environment                | Texture*     | invalid | no surroundings                    |
/// | 8     | Kvz_QVariant_Irradiance                    | QVariant     | invalid | surroundings light nothing diffuse |
/// | 9     | Kvz_float_EnvironmentRotation              | float        | 0.0     | 0                                  |
/// | 10    | Kvz_QList_KvzShadowMapManagerLight*_Lights | QVariantList | invalid | no lamps                           |
/// | 11    | Kvz_QVariant_ShadowMapData                 | RenderData*  | invalid | nothing casts a shadow             |
/// | 12    | Kvz_float_LightBleedingReduction           | float        | 0.2     | 0                                  |
///
/// | Output | Name                  | Value                                                                                    |
/// |--------|-----------------------|------------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | Pooled, GL_RGBA16F: the layers' radiance, premultiplied, and in alpha the share T of what |
/// |        |                       | lies behind that comes through. Null without lists or model.                             |
///
/// The image is laid over a linear frame F, all shares of light included, as `rgb + T F`. What LitListRenderPass says of lists, models and
/// limits holds here, but for the clamp at 1. The fragment stage uses 16 textures at most, as many as every driver has; lamps and the
/// layers of their shadow maps lie in a uniform block, which has room for 1024 vectors: five for each lamp, four for each layer. Lamps
/// that find none are left out, with one log line.
class KVZ_EXTRAPASSES_EXPORT PhysicalListRenderPass : public RenderPassProxy
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
        Environment,
        Irradiance,
        EnvironmentRotation,
        Lights,
        ShadowMapData,
        LightBleedingReduction
    };
    enum Output { Frame };

    PhysicalListRenderPass();
    ~PhysicalListRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    std::unique_ptr<ListShading> m_shading;
    std::unique_ptr<PhysicalLight> m_light;
};

} // namespace Velmora::Kvz
