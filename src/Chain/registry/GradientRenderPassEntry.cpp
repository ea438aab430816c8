// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/GradientRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::gradientRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("GradientRenderPass");
    pass.summary = QStringLiteral("Fills the frame with a vertical gradient of two colours, or with one colour.");
    pass.inputs = {
        viewportInput(),
        input("Kvz_QColor_ColorTop", ValueType::Color, QColor(64, 64, 64), "Colour at the top edge.",
            "nothing is drawn, the image keeps its content"),
        input("Kvz_QColor_ColorBottom", ValueType::Color, QColor(153, 153, 153), "Colour at the bottom edge.",
            "one flat colour, opaque: the top one"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA32F, "The gradient."),
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Background;
    pass.create = construct<GradientRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
