// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/FastApproximateAntiAliasingRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::fastApproximateAntiAliasingRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("FastApproximateAntiAliasingRenderPass");
    pass.summary = QStringLiteral("Smooths the edges of a frame in one draw, by FXAA 3.11.");
    pass.inputs = {
        viewportInput(),
        textureInput("Kvz_KvzTexture*_Frame", TextureKind::Colour, "The frame to smooth.", "the output is empty"),
        input("Kvz_float_SubPixelQuality", ValueType::Float, 1.0f, "How much sub-pixel detail is removed, from 0 to 1.",
            "0.75"),
        input("Kvz_float_RcpFrameQuality", ValueType::Float, 1.1f, "Factor on the horizontal steps.", "1"),
        input("Kvz_float_EdgeThresholdQuality", ValueType::Float, 0.125f,
            "Least contrast that counts, as a fraction of the brightest neighbour.", "0.166"),
        input(
            "Kvz_float_EdgeThresholdMinQuality", ValueType::Float, 0.0625f, "Least contrast that counts at all.", "0"),
        input("Kvz_bool_RenderInHDR", ValueType::Bool, true, "Whether the result has floating-point colour.", "false"),
    };
    pass.outputs = {
        pooledOutput(
            "Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA16F, "The smoothed frame; GL_RGBA8 without HDR."),
    };
    pass.traits = PassTrait::AntiAliases | PassTrait::LosesAlpha;
    // The longest search along an edge, and the pixels that its ends depend on.
    pass.reach = [](const PassUse &) { return PassReach{40, 0, 2, {}}; };
    pass.create = construct<FastApproximateAntiAliasingRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
