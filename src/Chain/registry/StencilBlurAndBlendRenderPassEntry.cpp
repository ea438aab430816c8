// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/StencilBlurAndBlendRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::stencilBlurAndBlendRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("StencilBlurAndBlendRenderPass");
    pass.summary = QStringLiteral("Blurs a frame where its alpha is above 0 and adds it to another frame.");

    InputInfo normal = textureInput(
        "Kvz_KvzTexture*_NormalFrame", TextureKind::Colour, "Frame that the other is added to.", "transparent black");
    normal.multisampling = Multisampling::Resolved;
    InputInfo blur = textureInput(
        "Kvz_KvzTexture*_BlurFrame", TextureKind::Colour, "Frame to blur, its alpha the mask.", "transparent black");
    blur.multisampling = Multisampling::Resolved;
    pass.inputs = {
        viewportInput(),
        normal,
        blurRadiusInput("Standard deviation in pixels; at 0 or less the normal frame is handed on as it is."),
        blur,
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Output", TextureKind::Colour, GL_RGBA16F, "The sum of both."),
    };
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_NormalFrame", "a frame to add to", "none: transparent black takes its place",
            "connect an earlier frame"),
        warnWhenOpen(
            "Kvz_KvzTexture*_BlurFrame", "a frame to blur", "none: nothing is added", "connect an earlier frame"),
    };
    pass.reach = blurReach;
    pass.create = construct<StencilBlurAndBlendRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
