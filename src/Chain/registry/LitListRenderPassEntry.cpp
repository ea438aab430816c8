// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/LitListRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::litListRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("LitListRenderPass");
    pass.summary = QStringLiteral("Lights lists of fragments and composites them from front to back.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        headPointersInput("no layers"),
        nodeBufferInput("no layers"),
        nodeBufferWidthInput("no layers"),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model of the lists.", "no layers"),
    };
    pass.inputs += lightInputs();
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Overlay, GL_RGBA16F,
            "Colour of the layers, multiplied by their opacity; in alpha the share of what lies behind that comes "
            "through, 1 where there are none."),
    };
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_HeadPointers", "lists of fragments", "none: there are no layers",
            "put a FragmentListRenderPass and a FragmentSortRenderPass before it"),
        sortedListsRule(),
    };
    pass.driverNeeds = {floatBitsNeed(), vertexTexelsNeed()};
    pass.traits = PassTrait::Shades | PassTrait::Transparent;
    pass.create = construct<LitListRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
