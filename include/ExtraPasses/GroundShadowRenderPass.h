// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtGui/QVector3D>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class GPUModel;
class ShaderProgram;
class ShadowMapLight;
class ShadowMapRenderData;
class TargetFramebuffer;
class Texture;

/// Draws the ground that a model stands on as nothing but what the model takes from its light: a layer of black with the loss in
/// alpha, to lay under the model's frame. So a cut-out carries its shadow to any background.
///
/// | Input | Name                                       | Type         | Default | Null means                                           |
/// |-------|--------------------------------------------|--------------|---------|------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport                         | QRect        | invalid | 0 by 0 pixels                                        |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix            | QMatrix4x4   | invalid | the identity                                         |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix                | QMatrix4x4   | invalid | the identity                                         |
/// | 3     | Kvz_KvzTexture*_Depth                      | Texture*     | invalid | nothing hides the ground                             |
/// | 4     | Kvz_KvzGPUModel*_Geometry                  | GPUModel*    | invalid | no contact shadow                                    |
/// | 5     | Kvz_QVector3D_SceneBoundsMin               | QVector3D    | invalid | the model's bounds; world space                      |
/// | 6     | Kvz_QVector3D_SceneBoundsMax               | QVector3D    | invalid | the model's bounds; world space                      |
/// | 7     | Kvz_QList_KvzShadowMapManagerLight*_Lights | QVariantList | invalid | no lights                                            |
/// | 8     | Kvz_QVariant_ShadowMapData                 | RenderData*  | invalid | no light has a shadow                                |
/// | 9     | Kvz_float_AmbientLight                     | float        | 0.4     | 0; the share of the ground's light from all around   |
/// | 10    | Kvz_float_ContactStrength                  | float        | invalid | 1 with lights, 0 without: an even environment darkens nothing |
/// | 11    | Kvz_float_LightSize                        | float        | 0.1     | 0: hard shadows; tangent of the angle from a light's middle to its rim |
/// | 12    | Kvz_float_GroundExtent                     | float        | 1.75    | 0: no ground; in sums of the bounds' height and half their diagonal |
/// | 13    | Kvz_bool_DisplayValues                     | bool         | true    | false                                                |
/// | 14    | Kvz_int_JitterIndex                        | int          | invalid | 0; turns the pattern of soft shadows, for frames that are averaged |
/// | 15    | Kvz_Vector2D_PatternOrigin                 | QVector2D    | invalid | (0, 0); where the lower left pixel lies in the whole picture, in pixels |
/// | 16    | Kvz_KvzTexture*_Background                 | Texture*     | invalid | the layer is drawn; linear radiance behind the model |
///
/// | Output | Name                       | Value                                                                              |
/// |--------|----------------------------|------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Ground     | A pooled GL_RGBA16F texture of the viewport's size: black, and the loss in alpha. Null without bounds or extent, and with a background. |
/// | 1      | Kvz_KvzTexture*_Background | The background, darkened: pooled, GL_RGBA16F. Without bounds or extent the input. Null without a background. |
///
/// **Background.** What lies behind a cut-out is laid under its finished, smoothed frame, and so is the layer. Surroundings that are
/// seen take part in the frame instead: given as the background, they are darkened here, by the loss as it is.
///
/// The ground is the plane of the bounds' lower side, y upwards, seen from above alone. It fades over the outer half of a circle around
/// the bounds' middle.
///
/// **Loss.** Of the light that lamps would give a place, the share that the model keeps from it, times 1 - ambient; and of the light from
/// all around, the share that the model covers, times ambient and the contact's strength. With `Kvz_bool_DisplayValues` the layer is
/// for frames of display values, such as those of ToneMapRenderPass: alpha is 1 - (1 - loss)^(1 / 2.2), which darkens a background of
/// display values as the loss darkens one of light. Else alpha is the loss, for frames of linear light.
///
/// **Lamps.** Shadows come from the maps of a shadow pass with the same lights, and widen with the distance to what casts them: the
/// mean distance of nearer texels gives the width of the half-shadow, over which the map is averaged. Lights weigh as in
/// ShadowMaskRenderPass, and by the luminance of their colour. The first 8 lights with 24 layers together count, with one log line when there are more.
///
/// **Contact.** The height of the lowest surface over each place of the ground is drawn once for each state of the model; the share
/// of the sky that surfaces at these heights cover is the sum of their form factors over rings: b^2 / (b^2 + h^2) - a^2 / (a^2 + h^2) for a
/// ring from a to b at height h. Items that cast no shadow are left out.
///
/// **Depth.** Where the depth image is nearer than the ground, in the pixel and at the corners two pixels around it, alpha is 0: under
/// smoothed rims the ground goes on.
///
/// Sources: R. Fernando, "Percentage-Closer Soft Shadows" (SIGGRAPH 2005 sketches); W. Donnelly and A. Lauritzen, "Variance Shadow
/// Maps" (I3D 2006); the form factor of a disc from any textbook of heat transfer.
class KVZ_EXTRAPASSES_EXPORT GroundShadowRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        ProjectionMatrix,
        CameraMatrix,
        Depth,
        Geometry,
        SceneBoundsMin,
        SceneBoundsMax,
        Lights,
        ShadowMapData,
        AmbientLight,
        ContactStrength,
        LightSize,
        GroundExtent,
        DisplayValues,
        JitterIndex,
        PatternOrigin,
        BackgroundIn
    };
    enum Output { Ground, Background };

    GroundShadowRenderPass();
    ~GroundShadowRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

private:
    /// The circle of the ground, and how high the bounds reach over it.
    struct Place
    {
        QVector3D middle;
        float radius = 0;
        float height = 0;
        float diagonal = 0; ///< Of the bounds.
    };
    /// What the contact image was made of.
    struct ContactState
    {
        quint64 model = 0;
        quint64 matrices = 0;
        QVector3D middle;
        float radius = 0;
        float height = 0;
        bool operator==(const ContactState &other) const;
    };
    void drawContact(GPUModel &model, const Place &place);
    void setLights(const QVector<ShadowMapLight *> &lights, const ShadowMapRenderData *data);
    void drawGround(const Place &place, Texture *contact, float contactStrength);

    std::unique_ptr<FramebufferObject> m_framebuffer;
    std::unique_ptr<TargetFramebuffer> m_heights; ///< Depth, seen from below.
    std::unique_ptr<TargetFramebuffer> m_contact;
    std::unique_ptr<ShaderProgram> m_heightProgram;
    std::unique_ptr<ShaderProgram> m_contactProgram;
    std::unique_ptr<ShaderProgram> m_groundProgram;
    QSharedPointer<DrawBuffers> m_screenQuad;
    ContactState m_contactState;
    bool m_isOnBackground = false; ///< Of the ground's program.
    bool m_hasWarned = false;
};

} // namespace Velmora::Kvz
