// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/BackgroundImageRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::backgroundImageRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("BackgroundImageRenderPass");
    pass.summary = QStringLiteral("Puts a cross-fade of two images behind a frame and fades the floor into them.");
    pass.inputs = {
        viewportInput(),
        textureInput("Kvz_KvzTexture*_Frame", TextureKind::Colour, "Rendered frame.", "opaque black geometry"),
        textureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth, "Attached, but neither tested nor written.",
            "a temporary one"),
        imageFileInput(
            "Kvz_string_FadeImageUrl1", ImageFileUse::Converted, "File of the first image, read once.", "opaque black"),
        imageFileInput("Kvz_string_FadeImageUrl2", ImageFileUse::Converted, "File of the second image, read once.",
            "opaque black"),
        input("Kvz_float_FadeRatio", ValueType::Float, QVariant(), "Factor on the first image.", "0"),
        input("Kvz_float_FadeRatio2", ValueType::Float, QVariant(), "Factor on the second image.", "0"),
        textureInput("Kvz_KvzTexture*_Normal", TextureKind::Normal,
            "Material ids plus 1 in alpha, 0 where there is no geometry, as MaterialIdRenderPass writes them.",
            "an image of undefined content"),
        input("Kvz_int_FloorMaterialId", ValueType::Int, -1, "Material id of the floor; below 0: no floor.", "0"),
        input("Kvz_float_FadeRatioFloor", ValueType::Float, QVariant(),
            "Share of the frame on the floor, the rest is the images.", "0"),
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA16F, "The frame before its background."),
    };
    pass.rules = {
        warnWhenOpen(
            "Kvz_KvzTexture*_Frame", "a rendered frame", "none: geometry is black", "connect an earlier frame"),
        warnWhenOpen("Kvz_KvzTexture*_Normal", "an image of material ids", "none: what is background is undefined",
            "connect the normals of MaterialIdRenderPass"),
    };
    pass.traits = PassTrait::Background;
    pass.reach = [](const PassUse &) {
        return PassReach{0, 0, 1, QStringLiteral("it fits its image into what it draws")};
    };
    pass.create = construct<BackgroundImageRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
