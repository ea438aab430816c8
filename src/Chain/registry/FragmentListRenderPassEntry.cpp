// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/FragmentListRenderPass.h>

namespace Velmora::Kvz {

PassInfo PassEntries::fragmentListRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("FragmentListRenderPass");
    pass.summary = QStringLiteral("Records the transparent fragments of each pixel that opaque surfaces do not hide.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "no lists"),
        textureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth, "Depth of the opaque surfaces.", "nothing is hidden"),
    };
    pass.outputs = listOutputs("One pointer per pixel, 0 for none. Null without transparent items.",
        "Nodes: next pointer, triangle + 1, bits of the depth, draw. GL_RGBA32I where each pixel has one.");
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_Depth", "the depth of the opaque surfaces",
            "none: layers behind them are recorded", "put a SurfaceRenderPass with opaqueOnly before it"),
    };
    pass.driverNeeds = {floatBitsNeed(), listNeed("each pixel has only its nearest fragment")};
    pass.create = construct<FragmentListRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
