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

/// Renders a variance shadow map for every layer of every light, for scenes that are costly to draw: depth alone, several
/// layers in a draw where the driver allows it, moments computed from the depths afterwards, and nothing at all while
/// nothing changes.
///
/// | Input | Name                                          | Type         | Default    | Null means                                    |
/// |-------|-----------------------------------------------|--------------|------------|-----------------------------------------------|
/// | 0     | Kvz_KvzGPUModel*_Geometry                     | GPUModel*    | invalid    | two assertions in the log; all maps are empty |
/// | 1     | Kvz_QList_InstanceData                        | QVariantList | invalid    | the model's own rows                          |
/// | 2     | Kvz_QList_KvzShadowMapManagerLight*_Lights    | QVariantList | invalid    | no lights, hence no layers                    |
/// | 3     | Kvz_bool_Dirty                                | bool         | invalid    | true                                          |
/// | 4     | Kvz_QMatrix4x4_ProjectionMatrix               | QMatrix4x4   | invalid    | directional lights have one layer             |
/// | 5     | Kvz_QMatrix4x4_CameraMatrix                   | QMatrix4x4   | invalid    | the same; it takes world to camera space      |
/// | 6     | Kvz_QVector3D_SceneBoundsMin                  | QVector3D    | invalid    | the model's bounds; world space               |
/// | 7     | Kvz_QVector3D_SceneBoundsMax                  | QVector3D    | invalid    | the model's bounds; world space               |
/// | 8     | Kvz_int_FilterType                            | int          | 3          | 0; see FilterType                             |
/// | 9     | Kvz_QSize_MapSize                             | QSize        | 512 by 512 | -1 by -1, so no map: set a size in texels     |
///
/// | Output | Name                       | Value                                                                                          |
/// |--------|----------------------------|------------------------------------------------------------------------------------------------|
/// | 0      | Kvz_QVariant_ShadowMapData | A `ShadowMapManager::RenderData*` of the pass's own, as `QObject*`, brought up to date where dirty. |
///
/// The data are those of ShadowMapRenderPass, with three exceptions. The bias is that of each layer in the data. The
/// array may have more layers than the lights: it is recreated when it is too small or less than half used. And an item
/// in the near half of the clip range, which casts no shadow itself, hides what lies behind it.
///
/// `Dirty` says that lights, camera, bounds or the model have changed; with false the last maps are published again, except
/// for a frame in which the pass recreates something, such as after a change of the map size. The first frame should be
/// dirty and have as many layers as there will ever be: the program is built for their number and never again. Layers past it
/// have no sound matrix, and with none at all the driver refuses the program, with its words in the log at debug level.
///
/// All culling marks of the model are removed, dirty or not.
///
/// The constructor queries the driver, so a context must be current, and logs the choice at debug level.
/// teardownContextData() leaves the arrays, which are used in a new context from the next change of size or number on.
class KVZ_RENDERPASSES_EXPORT ShadowMapRenderPass2 : public RenderPassProxy
{
public:
    enum Input {
        Geometry,
        InstanceData,
        Lights,
        Dirty,
        ProjectionMatrix,
        CameraMatrix,
        SceneBoundsMin,
        SceneBoundsMax,
        Filter,
        MapSize
    };
    enum Output { ShadowMapData };

    /// Values of Kvz_int_FilterType. All but 0 filter: the mean of 3 by 3 texels without empty ones, depths extended across
    /// silhouettes.
    enum FilterType : int {
        FilterNone = 0 ///< The moments of each texel.
    };

    ShadowMapRenderPass2();
    ~ShadowMapRenderPass2() override;

    void start(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

    /// The instance data plan whose `getModelMatrix()` places what is drawn: "TavoInstance" unless set. Call it before the
    /// first frame; it has no effect afterwards.
    virtual void setInstanceDataPlanName(const QString &name);

private:
    void chooseStrategy();
    bool ensureFramebuffers();
    bool ensureArrays(const QSize &size);
    void attach(FramebufferObject &framebuffer, Texture *array, unsigned int attachment) const;
    bool buildProgram();
    void render(GPUModel *model);
    void clearLayers();
    void drawDepths(GPUModel *model, int total);
    void _blurShadowMapArray(FilterType type);
    ShaderProgram *blurProgram(FilterType type);
    void ensureBlurQuad(const ShaderProgram &program);

    QString m_planName;
    int m_layersPerDraw = 1;
    bool m_vertexShaderLayer = false;
    bool m_layeredRendering = false;
    bool m_layeredBlur = false;
    int m_layerCount = 0;
    int m_layerCapacity = 0;
    QSize m_mapSize{0, 0};
    // Deleted from the last to the first.
    std::unique_ptr<ShadowMapRenderData> m_renderData;
    std::unique_ptr<GLSLMacroProcessor> m_macroProcessor;
    std::map<FilterType, std::unique_ptr<ShaderProgram>> m_blurPrograms;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<Texture> m_shadowArray;
    std::unique_ptr<Texture> m_depthArray;
    std::unique_ptr<Texture> m_blurData;
    std::unique_ptr<DrawBuffers> m_blurQuad;
    std::unique_ptr<FramebufferObject> m_blurFramebuffer;
    std::unique_ptr<FramebufferObject> m_framebuffer;
};

} // namespace Velmora::Kvz
