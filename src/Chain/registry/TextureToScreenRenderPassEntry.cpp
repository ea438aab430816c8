// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/TextureToScreenRenderPass.h>

namespace Velmora::Kvz {

PassInfo PassEntries::textureToScreenRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("TextureToScreenRenderPass");
    pass.summary =
        QStringLiteral("Copies an image to the screen, to the host's framebuffer or to textures of the host.");

    InputInfo source = textureInput("Kvz_KvzTexture*_Texture", TextureKind::Colour, "Image to present.",
        "the destination is cleared; with depth or super sampling, transparent black");
    source.multisampling = Multisampling::Resolved;
    source.refusesSamplesWith =
        QStringList{QStringLiteral("Kvz_KvzTexture*_Depth"), QStringLiteral("Kvz_Bool_EnableSuperSampling")};
    InputInfo depth = textureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth,
        "Depth to present; it makes the pass draw instead of copy.", "no depth is written");
    depth.wiring = ImplicitWiring::Never;
    InputInfo textureOut = textureInput("Kvz_KvzTexture*_TextureOut", TextureKind::Any,
        "Texture of the host to write; it takes precedence over the framebuffer.", "the framebuffer is written");
    textureOut.wiring = ImplicitWiring::FrameOnly;
    textureOut.drawnInto = true;
    InputInfo depthOut = textureInput("Kvz_KvzTexture*_DepthOut", TextureKind::Depth,
        "Depth texture of the host to write along with it.", "no depth is written");
    depthOut.wiring = ImplicitWiring::FrameOnly;
    depthOut.drawnInto = true;

    pass.inputs = {
        viewportInput(),
        source,
        depth,
        input("Kvz_Bool_EnableSuperSampling", ValueType::Bool, QVariant(),
            "Averages the texels under each pixel of a larger image.", "false"),
        input(
            "Kvz_QRect_ViewportOut", ValueType::Rects, QVariant(), "Destination rectangles in pixels.", "the viewport"),
        textureOut,
        depthOut,
        input("Kvz_Bool_LinearFilter", ValueType::Bool, false, "Filters a copy that changes the size.", "false"),
        input("Kvz_QVariant_Rects", ValueType::Rects, QVariant(), "Source rectangles in texels, one per destination.",
            "the viewport"),
        input("Kvz_KvzFramebuffer*_FramebufferOut", ValueType::Framebuffer, QVariant(), "Framebuffer to write.",
            "the default framebuffer"),
    };
    pass.traits = PassTrait::Presents;
    pass.rules = {warnWhenOpen("Kvz_KvzTexture*_Texture", "an image to present", "nothing: the screen is only cleared",
        "connect the last frame of the chain")};
    pass.reach = [](const PassUse &use) {
        PassReach reach;
        for (const char *place : {"Kvz_QRect_ViewportOut", "Kvz_QVariant_Rects", "Kvz_KvzTexture*_TextureOut"}) {
            if (use.isFed(QString::fromLatin1(place)))
                reach.obstacle = QStringLiteral("it has a place of its own in the picture");
        }
        return reach;
    };
    pass.create = construct<TextureToScreenRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
