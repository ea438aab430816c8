// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/DepthStencilRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::depthStencilRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("DepthStencilRenderPass");
    pass.summary = QStringLiteral("Draws a model into depth, and into a stencil that marks the pixels it covers.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "depth 1 and stencil 0"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH24_STENCIL8,
            "Depth from 0 to 1; stencil 1 where the model is, else 0."),
    };
    pass.create = construct<DepthStencilRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
