// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/LitWeightedRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::litWeightedRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("LitWeightedRenderPass");
    pass.summary = QStringLiteral(
        "Draws the transparent items of a model, lit, as layers by order-independent weighted blending.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "no layers"),
        textureInput(
            "Kvz_KvzTexture*_Depth", TextureKind::Depth, "Depth of the opaque surfaces.", "nothing hides the layers"),
    };
    pass.inputs += lightInputs();
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Overlay, GL_RGBA16F,
            "Colour of the layers, multiplied by their opacity; in alpha the share of what lies behind that comes "
            "through. Null without transparent items."),
    };
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_Depth", "the depth of the opaque surfaces",
            "none: layers behind them show through", "put a LitForwardRenderPass with opaqueOnly before it"),
    };
    pass.traits = PassTrait::Shades | PassTrait::Transparent;
    pass.create = construct<LitWeightedRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
