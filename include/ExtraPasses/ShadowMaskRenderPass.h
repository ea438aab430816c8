// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class LightRows;
class ShaderProgram;

/// Computes for each pixel how much light arrives there, from the variance shadow maps of a shadow pass: an image for
/// LitDeferredRenderPass, or to multiply into a shaded frame.
///
/// | Input | Name                                      | Type         | Default | Null means                             |
/// |-------|-------------------------------------------|--------------|---------|----------------------------------------|
/// | 0     | Kvz_QRect_Viewport                        | QRect        | invalid | 0 by 0 pixels                          |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix           | QMatrix4x4   | invalid | the identity; as the depth was drawn   |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix               | QMatrix4x4   | invalid | the identity; as the depth was drawn   |
/// | 3     | Kvz_KvzTexture*_Depth                     | Texture*     | invalid | no mask                                |
/// | 4     | Kvz_KvzTexture*_Normal                    | Texture*     | invalid | every surface faces every light        |
/// | 5     | Kvz_QList_KvzShadowMapManagerLight*_Lights| QVariantList | invalid | no lights: the mask is 1               |
/// | 6     | Kvz_QVariant_ShadowMapData                | RenderData*  | invalid | nothing casts a shadow                 |
/// | 7     | Kvz_float_LightBleedingReduction          | float        | 0.2     | 0                                      |
/// | 8     | Kvz_float_AmbientLight                    | float        | 0.25    | 0                                      |
/// | 9     | Kvz_int_Cascade                           | int          | -1      | 0                                      |
///
/// | Output | Name                       | Value                                                                      |
/// |--------|----------------------------|----------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_ShadowMask | A pooled GL_RGBA8 texture of the viewport's size: the mask in red, green and blue, 1 in alpha. |
///
/// Depth is window depth, normals are in camera space as ModelRenderPass gives them. The lights are those that the shadow
/// pass had, in the same order; the data may be held as `RenderData*` or as `QObject*`, as the two shadow passes do.
///
/// **Lights.** A light gives a point its intensity, times its falloff, times Lambert's cosine. Directional lights do not
/// fall off. Spot and point lights fall off by (1 - (d / range)^4)^2 with the distance d, which is near 1 over the nearer
/// half of the range and 0 at its end; that of the inverse square is left out, since a mask is no radiometry. A spot's cone
/// fades over the outer fifth of its half angle.
///
/// **Mask.** Of all that the lights together give a point, the share that arrives: visibilities weighted by what each light
/// gives. So one light's shadow is as deep as the light is strong there. Where the lights together give less than a tenth of
/// what the strongest one can, the share fades to 0: behind a cone's edge, past a range, and where a surface turns away from
/// all lights. The mask is that share above a ground of ambient light: ambient + (1 - ambient) * share. Pixels without
/// geometry, at depth 1, have 1.
///
/// **Visibility.** By Chebyshev's bound on the two moments of a layer, mean m and mean square s: 1 for a depth t up to m, else
/// v / (v + (t - m)^2) with v = s - m^2, at least 1e-7. Light bleeding reduction r cuts that to (p - r) / (1 - r), from below
/// at 0. The four texels around a point are interpolated here; those that nothing was drawn into, with a mean above 1, count
/// as a surface at the point's own depth, so that edges against them are straight. A directional light takes its first layer
/// that shows the point, the finest one, and over the outer tenth of that mixes it with the next; `Kvz_int_Cascade` from 0
/// up takes that one layer instead (the last one, when it has fewer). A point light takes the layer that faces the point. What
/// no layer shows is visible. The point is looked up 1.5 texels of the layer above its surface, along the normal: texels beside
/// an edge mix the surface with what lies deeper, or with nothing, and would shadow it there. Without normals it is not lifted.
///
/// Source: W. Donnelly and A. Lauritzen, "Variance Shadow Maps" (I3D 2006); the reduction of light bleeding by A. Lauritzen,
/// "Summed-Area Variance Shadow Maps" (GPU Gems 3, 2007); the lift by D. Holbert, "Saying Goodbye to Shadow Acne" (GDC 2011).
class KVZ_EXTRAPASSES_EXPORT ShadowMaskRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        ProjectionMatrix,
        CameraMatrix,
        Depth,
        Normal,
        Lights,
        ShadowMapData,
        LightBleedingReduction,
        AmbientLight,
        Cascade
    };
    enum Output { ShadowMask };

    ShadowMaskRenderPass();
    ~ShadowMaskRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

private:
    std::unique_ptr<FramebufferObject> m_framebuffer;
    std::unique_ptr<ShaderProgram> m_program;
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<LightRows> m_lights;
};

} // namespace Velmora::Kvz
