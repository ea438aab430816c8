// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/LuminanceAverageRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::luminanceAverageRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("LuminanceAverageRenderPass");
    pass.summary = QStringLiteral("Measures the average colour and luminance of a frame, and waits for them.");
    pass.inputs = {
        viewportInput(),
        textureInput("Kvz_KvzTexture*_Texture", TextureKind::Colour, "Frame to measure.", "black: luminance 0"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Luminance, GL_RGBA32F, "One texel of average colour."),
        output("Kvz_float_averageLuminance", ValueType::Float, "Luminance of the average colour, not clamped."),
    };
    pass.traits = PassTrait::NeverReleasesInputs;
    pass.rules = {
        warnWhenOpen(
            "Kvz_KvzTexture*_Texture", "a frame to measure", "none: the luminance is 0", "connect an earlier frame"),
    };
    pass.reach = [](const PassUse &) { return PassReach{0, 0, 1, QStringLiteral("it measures the whole picture")}; };
    pass.create = construct<LuminanceAverageRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
