// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/MaterialIdRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::materialIdRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("MaterialIdRenderPass");
    pass.summary =
        QStringLiteral("Draws a model into normals with material ids in alpha, and into depth with a stencil.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "cleared images"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Normal", TextureKind::Normal, GL_RGBA32F,
            "Normals in camera space; material id plus 1 in alpha, 0 for none."),
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH24_STENCIL8,
            "Depth from 0 to 1; stencil 1 where the model is, else 0."),
    };
    pass.create = construct<MaterialIdRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
