// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/VisibilityDeferredRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::visibilityDeferredRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("VisibilityDeferredRenderPass");
    pass.summary = QStringLiteral("Shades lists of fragments from front to back.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        headPointersInput("the pass must not run"),
        nodeBufferInput("the pass must not run"),
        nodeBufferWidthInput("no fragments"),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model of the lists.", "a cleared image"),
    };
    pass.inputs[3].required = true;
    pass.inputs[4].required = true;
    pass.inputs[6].keepsGeometry = true;
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Overlay, GL_RGBA,
            "Colour of the fragments; in alpha the share of the background that comes through, 1 where there are "
            "none."),
    };
    pass.rules = {sortedListsRule()};
    pass.driverNeeds = {floatBitsNeed(), vertexTexelsNeed()};
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Transparent | PassTrait::BasicSurfaces;
    pass.clearColor = QColor(0, 0, 0, 255);
    pass.create = construct<VisibilityDeferredRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
