// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/BackgroundGradientRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::backgroundGradientRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("BackgroundGradientRenderPass");
    pass.summary =
        QStringLiteral("Fills an image of bytes with a vertical gradient, for passes that draw over a background.");
    pass.inputs = {
        viewportInput(),
        input("Kvz_QColor_ColorTop", ValueType::Color, QColor(64, 64, 64), "Colour at the top edge.",
            "transparent black"),
        input("Kvz_QColor_ColorBottom", ValueType::Color, QColor(153, 153, 153), "Colour at the bottom edge.",
            "the colour at the top"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA8, "The gradient, multiplied by its alpha."),
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Background | PassTrait::RestsUnchanged;
    pass.create = construct<BackgroundGradientRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
