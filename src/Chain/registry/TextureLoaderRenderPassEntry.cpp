// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/TextureLoaderRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::textureLoaderRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("TextureLoaderRenderPass");
    pass.summary = QStringLiteral("Loads an image file into a texture.");
    pass.inputs = {
        imageFileInput("Kvz_QString_TexturePath", ImageFileUse::Bits32, "Image file.",
            "no storage at first, one white texel once a path was set"),
    };
    pass.outputs = {
        textureOutput(
            "Kvz_KvzTexture*_Texture", TextureKind::Colour, GL_RGBA, "The image; white where it cannot be read."),
    };
    pass.outputs[0].texture.colourSpace = ColourSpace::SRgb;
    pass.rules = {
        warnWhenOpen("Kvz_QString_TexturePath", "an image file", "none: the texture is empty", "set its path"),
    };
    pass.create = construct<TextureLoaderRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
