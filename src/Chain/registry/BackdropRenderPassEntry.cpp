// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/BackdropRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::backdropRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("BackdropRenderPass");
    pass.summary = QStringLiteral("Fills the frame with an image file, which keeps its proportions.");
    pass.inputs = {
        viewportInput(),
        imageFileInput("Kvz_QString_ImagePath", ImageFileUse::Converted, "The image file.", "no image"),
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA8,
            "The image over the whole viewport, colour multiplied by alpha. Null without an image."),
    };
    pass.traits = PassTrait::Background;
    pass.reach = [](const PassUse &) {
        return PassReach{0, 0, 1, QStringLiteral("it fits its image into what it draws")};
    };
    pass.create = construct<BackdropRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
