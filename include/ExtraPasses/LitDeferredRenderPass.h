// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>

#include <map>
#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// Lights the images of SurfaceRenderPass from the camera, as LitForwardRenderPass lights a model, with shadows and ambient
/// obscurance where there are images of them.
///
/// | Input | Name                            | Type       | Default | Null means                                      |
/// |-------|---------------------------------|------------|---------|-------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                   |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity; the one that drew the images      |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | no difference: the lights stand with the camera |
/// | 3     | Kvz_KvzTexture*_Diffuse         | Texture*   | invalid | no result: the output is empty                  |
/// | 4     | Kvz_KvzTexture*_Specular        | Texture*   | invalid | no highlights                                   |
/// | 5     | Kvz_KvzTexture*_Normal          | Texture*   | invalid | no result: the output is empty                  |
/// | 6     | Kvz_KvzTexture*_Emission        | Texture*   | invalid | no surface emits light, all are lit             |
/// | 7     | Kvz_KvzTexture*_Depth           | Texture*   | invalid | no difference: lit surfaces know their normals  |
/// | 8     | Kvz_float_HeadlightIntensity    | float      | 0.85    | 0.85; below 0 counts as 0                       |
/// | 9     | Kvz_float_AmbientIntensity      | float      | 0.15    | 0.15; below 0 counts as 0                       |
/// | 10    | Kvz_bool_FixedLight             | bool       | false   | false                                           |
/// | 11    | Kvz_KvzTexture*_ShadowMask      | Texture*   | invalid | the headlight reaches every surface             |
/// | 12    | Kvz_KvzTexture*_Obscurance      | Texture*   | invalid | no corner is darker                             |
/// | 13    | Kvz_float_ObscuranceStrength    | float      | 1.0     | 1; from 0, no obscurance, to 1                  |
/// | 14    | Kvz_KvzTexture*_Background      | Texture*   | invalid | transparent black                               |
///
/// | Output | Name                  | Value                                                                                     |
/// |--------|-----------------------|-------------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | Pooled, GL_RGBA8: colour multiplied by opacity, opacity in alpha, over the background.     |
///
/// The shadow mask is the share of the headlight that arrives, such as ShadowMaskRenderPass gives: it darkens diffuse light and
/// highlights. The obscurance, such as ScalableAmbientObscuranceRenderPass gives, is 1 in the open: it darkens ambient and
/// diffuse light. The fixed light, which has no ambient share, is darkened by both, highlights included; emission and unlit
/// surfaces by neither. Of both images red counts, by as much as alpha says: where alpha is 0, there is no image.
///
/// The frame is laid over the background, which is multiplied by its alpha, by the operator "over".
///
/// Images are read with one sample for each texel. With an empty viewport the output is empty. The depth test and
/// blending are off afterwards.
class KVZ_EXTRAPASSES_EXPORT LitDeferredRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        ProjectionMatrix,
        CameraMatrix,
        Diffuse,
        Specular,
        Normal,
        Emission,
        Depth,
        HeadlightIntensity,
        AmbientIntensity,
        FixedLight,
        ShadowMask,
        Obscurance,
        ObscuranceStrength,
        Background
    };
    enum Output { Frame };

    LitDeferredRenderPass();
    ~LitDeferredRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    ShaderProgram &programFor(const QSize &size);
    Texture *suitableDepth(const QSize &size) const;
    void light(ShaderProgram &program);

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::map<int, std::unique_ptr<ShaderProgram>> m_programs; ///< By which images there are, and whether sizes agree.
    std::unique_ptr<FramebufferObject> m_framebuffer;
};

} // namespace Velmora::Kvz
