// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/GroundShadowRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::groundShadowRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("GroundShadowRenderPass");
    pass.summary =
        QStringLiteral("Draws what a model takes from the light of the ground under it, as a layer with alpha.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        textureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth,
            "Hides the ground where it is nearer, but for two pixels at rims.", "nothing hides it"),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "What stands on the ground.",
            "no contact shadow"),
        sceneBoundsInput("Kvz_QVector3D_SceneBoundsMin", "Lower corner of the scene: the ground's height."),
        sceneBoundsInput("Kvz_QVector3D_SceneBoundsMax", "Upper corner of the scene."),
        input("Kvz_QList_KvzShadowMapManagerLight*_Lights", ValueType::Lights, QVariant(),
            "The lights of the shadow maps.", "no lights"),
        input("Kvz_QVariant_ShadowMapData", ValueType::ShadowMapData, QVariant(), "The shadow maps of the lights.",
            "no light has a shadow"),
        input("Kvz_float_AmbientLight", ValueType::Float, 0.4f,
            "The share of the ground's light that comes from all around, from 0 to 1.", "0"),
        input("Kvz_float_ContactStrength", ValueType::Float, QVariant(),
            "How much the model keeps of that light, from 0 to 1.", "1 with lights, 0 without"),
        input("Kvz_float_LightSize", ValueType::Float, 0.1f,
            "Tangent of the angle from a light's middle to its rim: how soon shadows get soft.", "0: hard shadows"),
        input("Kvz_float_GroundExtent", ValueType::Float, 1.75f,
            "Radius of the ground, in sums of the bounds' height and half their diagonal.", "0: no ground"),
        input("Kvz_bool_DisplayValues", ValueType::Bool, true,
            "For frames of display values; false: for those of linear light.", "false"),
        input("Kvz_int_JitterIndex", ValueType::Int, QVariant(),
            "Turns the pattern of soft shadows, for frames that are averaged.", "0"),
        input("Kvz_Vector2D_PatternOrigin", ValueType::Vector2D, QVariant(),
            "Where the lower left pixel lies in the whole picture, in pixels: for pictures drawn in tiles.", "(0, 0)"),
        textureInput("Kvz_KvzTexture*_Background", TextureKind::Colour,
            "Linear radiance behind the model, which is darkened instead of a layer being drawn.",
            "the layer is drawn"),
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Ground", TextureKind::Colour, GL_RGBA16F,
            "Black, with what the ground loses in alpha. Null with a background."),
        pooledOutput("Kvz_KvzTexture*_Background", TextureKind::Colour, GL_RGBA16F,
            "The background with that loss; null without one."),
    };
    pass.create = construct<GroundShadowRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
