// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/VisibilityOcclusionRenderPass.h>

namespace Velmora::Kvz {

PassInfo PassEntries::visibilityOcclusionRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("VisibilityOcclusionRenderPass");
    pass.summary = QStringLiteral("Removes what lies behind opaque surfaces from lists of fragments.");
    pass.inputs = {
        viewportInput(),
        headPointersInput("the inputs are passed through"),
        nodeBufferInput("the inputs are passed through"),
        nodeBufferWidthInput("the inputs are passed through"),
        textureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth, "Depth of the opaque surfaces.",
            "the inputs are passed through"),
    };
    pass.inputs[2].drawnInto = true;
    pass.outputs = listOutputs("Pointers to the shorter lists.", "The nodes that came in, relinked in place.");
    pass.outputs[1].passesOn = pass.outputs[1].name;
    pass.outputs[2].passesOn = pass.outputs[2].name;
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_HeadPointers", "lists of fragments", "none: there is nothing to remove",
            "put a VisibilityBufferRenderPass before it"),
        warnWhenOpen("Kvz_KvzTexture*_Depth", "the depth of the opaque surfaces", "none: nothing is removed",
            "put a ModelRenderPass with opaqueOnly before it"),
    };
    pass.driverNeeds = {floatBitsNeed()};
    pass.traits = PassTrait::NeverReleasesInputs;
    pass.create = construct<VisibilityOcclusionRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
