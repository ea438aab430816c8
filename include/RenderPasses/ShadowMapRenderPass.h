// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSize>
#include <QtCore/QString>

#include <map>
#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class GLSLMacroProcessor;
class GPUModel;
class ShaderProgram;
class ShadowMapRenderData;
class Texture;

/// Renders a variance shadow map for every layer of every light, a layer at a time, and filters them. ShadowMapRenderPass2
/// does the same with fewer draws.
///
/// | Input | Name                                          | Type         | Default    | Null means                                    |
/// |-------|-----------------------------------------------|--------------|------------|-----------------------------------------------|
/// | 0     | Kvz_KvzGPUModel*_Geometry                     | GPUModel*    | invalid    | two assertions in the log; all maps are empty |
/// | 1     | Kvz_QList_InstanceData                        | QVariantList | invalid    | the model's own rows                          |
/// | 2     | Kvz_QList_KvzShadowMapManagerLight*_Lights    | QVariantList | invalid    | no lights, hence no layers                    |
/// | 3     | Kvz_QMatrix4x4_ProjectionMatrix               | QMatrix4x4   | invalid    | directional lights have one layer             |
/// | 4     | Kvz_QMatrix4x4_CameraMatrix                   | QMatrix4x4   | invalid    | the same; it takes world to camera space      |
/// | 5     | Kvz_QVector3D_SceneBoundsMin                  | QVector3D    | invalid    | the model's bounds; world space               |
/// | 6     | Kvz_QVector3D_SceneBoundsMax                  | QVector3D    | invalid    | the model's bounds; world space               |
/// | 7     | Kvz_int_FilterType                            | int          | 1          | 0; see FilterType                             |
/// | 8     | Kvz_QSize_MapSize                             | QSize        | 512 by 512 | -1 by -1, so no map: set a size in texels     |
///
/// | Output | Name                       | Value                                                                             |
/// |--------|----------------------------|-----------------------------------------------------------------------------------|
/// | 0      | Kvz_QVariant_ShadowMapData | A `ShadowMapManager::RenderData*` of the pass's own, filled in by each frame. |
///
/// ShadowMapManager::processLights() says which layers the lights have. The data's projection texture is a
/// GL_TEXTURE_2D_ARRAY of GL_RG32F, owned by the pass: red is the depth (normalised device z from 0 to 1, 0.0005 of bias
/// included), green its square. What no caster touched, and what lies outside a map, holds 1e9. Depths of 0 and less, the near half
/// of the clip range, cast nothing. Items with either of the two highest feature bits cast nothing; those with
/// GPUModel::DoubleSided are drawn without face culling.
///
/// Qt counts a QVector3D of zeros as null, so a scene whose minimum corner is the origin takes the model's bounds.
///
/// All culling marks of the model are removed, so that casters outside the camera's view count.
///
/// After Donnelly and Lauritzen, "Variance Shadow Maps", I3D 2006.
class KVZ_RENDERPASSES_EXPORT ShadowMapRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Geometry,
        InstanceData,
        Lights,
        ProjectionMatrix,
        CameraMatrix,
        SceneBoundsMin,
        SceneBoundsMax,
        Filter,
        MapSize
    };
    enum Output { ShadowMapData };

    /// Values of Kvz_int_FilterType. All others count as FilterGaussian.
    enum FilterType : int {
        FilterNone = 0, ///< The moments as rendered.
        FilterGaussian = 1, ///< Separable Gaussian of 7 by 7 taps, sigma 4.5 texels.
        FilterGaussianEdge = 2, ///< The same without empty texels; depths are extended across silhouettes.
        FilterBox3x3 = 3 ///< Mean of 3 by 3 texels without empty ones; depths are extended across silhouettes.
    };

    ShadowMapRenderPass();
    ~ShadowMapRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

    /// The instance data plan whose `getModelMatrix()` places what is drawn: "TavoInstance" unless set. Call it before the
    /// first frame; it has no effect afterwards.
    virtual void setInstanceDataPlanName(const QString &name);

private:
    bool buildProgram();
    void remakeTextures(const QSize &size, int layers);
    void clearLayers();
    bool renderLayers(GPUModel *model);
    Texture *_gaussBlurShadowMapArray(const QSize &size, FilterType type, int iterations);
    ShaderProgram *blurProgram(FilterType type);
    void ensureBlurQuad(const ShaderProgram &program);
    void filterOnce(ShaderProgram *program);
    void filterSeparably(ShaderProgram *program, const QSize &size, int iterations);

    QString m_planName;
    int m_layerCount = 0;
    QSize m_mapSize{0, 0};
    // Deleted from the last to the first.
    std::unique_ptr<ShadowMapRenderData> m_renderData;
    std::unique_ptr<GLSLMacroProcessor> m_macroProcessor;
    std::map<FilterType, std::unique_ptr<ShaderProgram>> m_blurPrograms;
    std::unique_ptr<Texture> m_blurArray;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<Texture> m_shadowArray;
    std::unique_ptr<Texture> m_depthTexture;
    std::unique_ptr<DrawBuffers> m_blurQuad;
    std::unique_ptr<FramebufferObject> m_framebuffer;
};

} // namespace Velmora::Kvz
