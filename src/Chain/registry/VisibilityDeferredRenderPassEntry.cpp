// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/VisibilityDeferredRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::visibilityDeferredRenderPass()
{
    const QString nodes = QStringLiteral("Kvz_KvzTexture*_NodeBuffer");
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
    pass.rules = {
        {nodes, QStringLiteral("sorted lists"), QStringLiteral("lists in drawing order"),
            QStringLiteral("put a VisibilitySortRenderPass before it"),
            [nodes](const PassUse &use) {
                const QStringList path = use.sourceClasses(nodes);
                return path.contains(QStringLiteral("VisibilityBufferRenderPass"))
                    && !path.contains(QStringLiteral("VisibilitySortRenderPass"));
            }},
    };
    pass.driverNeeds = {
        floatBitsNeed(),
        {{QStringLiteral("GL_ARB_texture_buffer_object_rgb32")},
            QStringLiteral("vertices cannot be read: the image stays empty"), true},
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Transparent;
    pass.clearColor = QColor(0, 0, 0, 255);
    pass.create = construct<VisibilityDeferredRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
