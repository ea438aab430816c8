// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class PhysicalLight;
class SurfaceProgramVariants;
class TargetFramebuffer;

/// Draws a model in physically based light: its surroundings as EnvironmentLightRenderPass prepares them, and lamps with the shadows of
/// a shadow map pass.
///
/// | Input | Name                                       | Type         | Default | Null means                        |
/// |-------|--------------------------------------------|--------------|---------|-----------------------------------|
/// | 0     | Kvz_QRect_Viewport                         | QRect        | invalid | 0 by 0 pixels                     |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix            | QMatrix4x4   | invalid | the identity                      |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix                | QMatrix4x4   | invalid | the identity                      |
/// | 3     | Kvz_KvzGPUModel*_Geometry                  | GPUModel*    | invalid | cleared images                    |
/// | 4     | Kvz_KvzTexture*_Environment                | Texture*     | invalid | no surroundings                   |
/// | 5     | Kvz_QVariant_Irradiance                    | QVariant     | invalid | surroundings light nothing diffuse |
/// | 6     | Kvz_float_EnvironmentRotation              | float        | 0.0     | 0                                 |
/// | 7     | Kvz_QList_KvzShadowMapManagerLight*_Lights | QVariantList | invalid | no lamps                          |
/// | 8     | Kvz_QVariant_ShadowMapData                 | RenderData*  | invalid | nothing casts a shadow            |
/// | 9     | Kvz_float_LightBleedingReduction           | float        | 0.2     | 0                                 |
///
/// | Output | Name                     | Value                                                                                 |
/// |--------|--------------------------|---------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame    | GL_RGBA16F: emission and what lamps give, multiplied by opacity; opacity in alpha.    |
/// | 1      | Kvz_KvzTexture*_Indirect | GL_RGBA16F: what the surroundings give, multiplied by opacity; opacity in alpha.      |
/// | 2      | Kvz_KvzTexture*_Depth    | GL_DEPTH_COMPONENT32F.                                                                |
/// | 3      | Kvz_KvzTexture*_Normal   | GL_RGBA16F: unit normal in camera space, bumps included, in r, g, b; in a material id + 1, 0 for none. |
/// | 4      | Kvz_KvzTexture*_ItemId   | GL_RG32UI: item + 1 and triangle, zeros for none; null unless asked for.              |
///
/// All light is linear radiance without end: the picture is the sum of frame and indirect share, to be exposed and tone mapped.
/// Obscurance belongs on the indirect share alone. Surroundings of radiance 1 make a white surface exactly 1, whatever its roughness,
/// and whether it is metal or not. Unlit materials show their base colour.
///
/// Lamps have physical units: the intensity of a directional light is the illuminance on a surface that faces it, so that pi makes a
/// white diffuse surface 1; that of spot and point lights is divided by the square of the distance, and fades out towards the range
/// (as KHR_lights_punctual has it). Every light lights; those with layers in the shadow maps cast shadows, by the moments of either
/// shadow pass and in the way of ShadowMaskRenderPass.
///
/// Sources, beside those in PhysicalShading.glslc: the glTF 2.0 specification, appendix B, with KHR_materials_ior, specular, clearcoat,
/// sheen, emissive_strength and unlit.
///
/// The nearest surface wins, even if it lets light through. With setOpaqueOnly() the items with GPUModel::Transparent are left out, for
/// chains that draw these separately. The textures are the pass's own, of the viewport's size, and the next frame overwrites them; with
/// an empty viewport the outputs are empty. The depth test is off afterwards.
class KVZ_EXTRAPASSES_EXPORT PhysicalForwardRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        ProjectionMatrix,
        CameraMatrix,
        Geometry,
        Environment,
        Irradiance,
        EnvironmentRotation,
        Lights,
        ShadowMapData,
        LightBleedingReduction
    };
    enum Output { Frame, Indirect, Depth, Normal, ItemId };

    PhysicalForwardRenderPass();
    ~PhysicalForwardRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

    /// Whether items with GPUModel::Transparent are left out; false unless set.
    void setOpaqueOnly(bool isOpaqueOnly);
    /// Whether the pass draws item ids; false unless set. To be called before the first frame.
    void setItemIds(bool hasItemIds);

private:
    void makePrograms();
    void resizeTargets(const QSize &size);

    std::unique_ptr<SurfaceProgramVariants> m_programs;
    std::unique_ptr<PhysicalLight> m_light;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size;
    bool m_isOpaqueOnly = false;
    bool m_hasItemIds = false;
};

} // namespace Velmora::Kvz
