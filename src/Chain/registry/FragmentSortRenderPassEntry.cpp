// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/FragmentSortRenderPass.h>

namespace Velmora::Kvz {

PassInfo PassEntries::fragmentSortRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("FragmentSortRenderPass");
    pass.summary = QStringLiteral("Sorts lists of fragments by depth, equal depths by item and triangle.");
    pass.inputs = {
        viewportInput(),
        headPointersInput("no sort"),
        nodeBufferInput("no sort"),
        nodeBufferWidthInput("no sort"),
    };
    pass.outputs = listOutputs("The pointers that came in.", "The nodes that came in, sorted in place.");
    for (OutputInfo &output : pass.outputs)
        output.passesOn = output.name;
    // It moves the contents of the nodes: other readers of them get the sorted lists too.
    pass.inputs[2].drawnInto = true;
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_HeadPointers", "lists of fragments", "none: there is nothing to sort",
            "put a FragmentListRenderPass before it"),
    };
    pass.driverNeeds = {listNeed("its inputs go through, since each pixel has one fragment")};
    pass.create = construct<FragmentSortRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
