// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/BlurAndCombineRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::blurAndCombineRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("BlurAndCombineRenderPass");
    pass.summary = QStringLiteral("Adds a glow to a frame: the bright parts of a frame, blurred by a Gaussian.");

    InputInfo normal = textureInput(
        "Kvz_KvzTexture*_NormalFrame", TextureKind::Colour, "Frame that the glow is added to.", "transparent black");
    normal.multisampling = Multisampling::Resolved;
    InputInfo blur =
        textureInput("Kvz_KvzTexture*_BlurFrame", TextureKind::Colour, "Frame that glows.", "transparent black");
    blur.multisampling = Multisampling::Resolved;
    pass.inputs = {
        viewportInput(),
        normal,
        blurRadiusInput("Standard deviation in pixels; at 0 or less the normal frame is handed on as it is."),
        input("Kvz_float_GlowThreshold", ValueType::Float, QVariant(),
            "Luma from which a pixel glows; at 0 or less all do.", "0"),
        input("Kvz_float_GlowAmount", ValueType::Float, QVariant(),
            "Strength of the glow, which counts squared; at 0 or less the normal frame is handed on as it is.", "0"),
        blur,
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Output", TextureKind::Colour, GL_RGBA16F, "The frame with its glow."),
    };
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_NormalFrame", "a frame to add to", "none: transparent black takes its place",
            "connect an earlier frame"),
        warnWhenOpen(
            "Kvz_KvzTexture*_BlurFrame", "a frame that glows", "none: there is no glow", "connect an earlier frame"),
        {QStringLiteral("Kvz_float_GlowAmount"), QStringLiteral("an amount above 0"),
            QStringLiteral("0 or none: the normal frame is handed on without a glow"), QStringLiteral("set it to 1"),
            [](const PassUse &use) {
                const QVariant amount = use.value(QStringLiteral("Kvz_float_GlowAmount"));
                return amount.isValid() ? !(amount.toFloat() > 0) : !use.isFed(QStringLiteral("Kvz_float_GlowAmount"));
            }},
    };
    pass.reach = blurReach;
    pass.create = construct<BlurAndCombineRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
