// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/TemporalAARenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::temporalAARenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("TemporalAARenderPass");
    pass.summary = QStringLiteral("Refines a still image: the mean of all frames since the view last changed.");
    pass.inputs = {
        viewportInput(),
        textureInput("Kvz_KvzTexture*_Frame", TextureKind::Colour, "The frame to add to the mean.",
            "a black result, and none at all while ResetTemporal is true"),
        unjitteredProjectionInput(),
        cameraInput(),
        input("Kvz_bool_ResetTemporal", ValueType::Bool, true, "Hands the frame on as it is and forgets the mean.",
            "false"),
        input("Kvz_Float_ViewportScale", ValueType::Float, 1.0f, "Divides the size of the result.", "0"),
        input("Kvz_Bool_ViewportScale_Enable", ValueType::Bool, true, "Whether the scale applies.", "false"),
    };
    pass.inputs[TemporalAARenderPass::ResetTemporal].restartsPast = true;
    OutputInfo mean = pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA8, "The mean.");
    mean.keptByProducer = true;
    pass.outputs = {mean};

    const auto isReset = [](const PassUse &use) {
        return use.value(QStringLiteral("Kvz_bool_ResetTemporal")).toBool();
    };
    pass.traits = PassTrait::AntiAliases;
    pass.conditionalTraits = {{PassTrait::AccumulatesFrames, [isReset](const PassUse &use) { return !isReset(use); }}};
    pass.rules = {
        {QStringLiteral("Kvz_bool_ResetTemporal"), QStringLiteral("false while frames are to be averaged"),
            QStringLiteral("true: each frame passes through as it is"),
            QStringLiteral("set it to false, and to true for a frame when the scene changes"), isReset},
        {QStringLiteral("Kvz_Float_ViewportScale"), QStringLiteral("a scale above 0"),
            QStringLiteral("one that leaves no size"), QStringLiteral("set it to 1"),
            [](const PassUse &use) {
                const QVariant scale = use.value(QStringLiteral("Kvz_Float_ViewportScale"));
                const QVariant enabled = use.value(QStringLiteral("Kvz_Bool_ViewportScale_Enable"));
                return enabled.toBool() && scale.isValid() && !(scale.toFloat() > 0);
            }},
    };
    pass.create = construct<TemporalAARenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
