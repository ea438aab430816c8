// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/AmbientVisibilityRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::ambientVisibilityRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("AmbientVisibilityRenderPass");
    pass.summary =
        QStringLiteral("Measures how much light from all around arrives at each pixel, to darken indirect light.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        requiredTextureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth, "Window depth of the frame."),
        textureInput("Kvz_KvzTexture*_Normal", TextureKind::Normal, "Normals in camera space.",
            "those of the surface that the depth image shows"),
        textureInput("Kvz_KvzTexture*_Diffuse", TextureKind::Diffuse,
            "Linear colours of the surfaces, which they pass on to each other.", "all have the albedo"),
        sceneBoundsInput(
            "Kvz_QVector3D_SceneBoundsMin", "Lower corner of the scene, whose size the radius is a part of."),
        sceneBoundsInput("Kvz_QVector3D_SceneBoundsMax", "Upper corner of the scene."),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model, for its bounds.",
            "a radius in units, where no port has bounds"),
        input("Kvz_float_RelativeRadius", ValueType::Float, 0.1f,
            "How far surfaces hide each other, as a part of the longest side of the scene's bounds.",
            "0: nothing is hidden"),
        input("Kvz_float_Albedo", ValueType::Float, 0.5f,
            "What surfaces pass on where there are no colours, from 0 to 1.", "0"),
        input("Kvz_int_JitterIndex", ValueType::Int, QVariant(),
            "Turns the pattern of directions, for frames that are averaged.", "0"),
        input("Kvz_Vector2D_PatternOrigin", ValueType::Vector2D, QVariant(),
            "Where the lower left pixel lies in the whole picture, in even numbers of pixels: for pictures drawn in "
            "tiles.",
            "(0, 0)"),
        textureInput("Kvz_KvzTexture*_Indirect", TextureKind::Colour,
            "What surfaces send of their surroundings' light, linear: their colours, with the irradiance.",
            "all have the albedo, unless there are colours"),
        input("Kvz_QVariant_Irradiance", ValueType::Variant, QVariant(),
            "Nine vectors from EnvironmentLightRenderPass: what white would send.",
            "all have the albedo, unless there are colours"),
        input(
            "Kvz_float_EnvironmentRotation", ValueType::Float, 0.0f, "Of the surroundings about +y, in degrees.", "0"),
        cameraInput(),
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Visibility", TextureKind::Obscurance, GL_RGBA8,
            "Factor on indirect light in red, green and blue; the visibility alone in alpha."),
    };
    pass.traits = PassTrait::Obscures;
    pass.rules = {
        {QStringLiteral("Kvz_float_RelativeRadius"), QStringLiteral("a part of the scene from 0 to 1"),
            QStringLiteral("a number outside"), QStringLiteral("set it to 0.1 or so"),
            [](const PassUse &use) {
                const QVariant radius = use.value(QStringLiteral("Kvz_float_RelativeRadius"));
                return radius.isValid() && (radius.toFloat() < 0 || radius.toFloat() > 1);
            }},
    };
    // At half the resolution; smoothing reads four of those texels beyond the radius.
    pass.reach = [](const PassUse &use) {
        const QVariant radius = use.value(QStringLiteral("Kvz_float_RelativeRadius"));
        return PassReach{12, radius.isValid() ? radius.toDouble() : 0.0, 2, {}};
    };
    pass.create = construct<AmbientVisibilityRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
