// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/PhysicalListRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::physicalListRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("PhysicalListRenderPass");
    pass.summary = QStringLiteral("Lights lists of fragments physically and composites them from front to back.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        headPointersInput("no layers"),
        nodeBufferInput("no layers"),
        nodeBufferWidthInput("no layers"),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model of the lists.", "no layers"),
    };
    pass.inputs += physicalLightInputs();
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Overlay, GL_RGBA16F,
            "Radiance of the layers, multiplied by their opacity; in alpha the share of what lies behind that comes "
            "through, 1 where there are none."),
    };
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_HeadPointers", "lists of fragments", "none: there are no layers",
            "put a FragmentListRenderPass and a FragmentSortRenderPass before it"),
        sortedListsRule(),
    };
    pass.driverNeeds = {floatBitsNeed(), vertexTexelsNeed()};
    pass.traits = PassTrait::Shades | PassTrait::Transparent | PassTrait::PhysicalSurfaces;
    pass.create = construct<PhysicalListRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
