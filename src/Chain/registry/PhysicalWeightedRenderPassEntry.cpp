// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/PhysicalWeightedRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::physicalWeightedRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("PhysicalWeightedRenderPass");
    pass.summary = QStringLiteral(
        "Draws the transparent items of a model in physically based light, as layers by weighted blending.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "no layers"),
        textureInput(
            "Kvz_KvzTexture*_Depth", TextureKind::Depth, "Depth of the opaque surfaces.", "nothing hides the layers"),
    };
    pass.inputs += physicalLightInputs();
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Overlay, GL_RGBA16F,
            "Radiance of the layers, multiplied by their opacity; in alpha the share of what lies behind that comes "
            "through. Null without transparent items."),
    };
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_Depth", "the depth of the opaque surfaces",
            "none: layers behind them show through", "put a PhysicalForwardRenderPass with opaqueOnly before it"),
    };
    pass.traits = PassTrait::Shades | PassTrait::Transparent | PassTrait::PhysicalSurfaces;
    pass.create = construct<PhysicalWeightedRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
