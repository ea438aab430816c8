// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/ForwardRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::forwardRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("ForwardRenderPass");
    pass.summary = QStringLiteral("Draws a model and shades it in one pass, by one light fixed to the camera.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "cleared images"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA,
            "The shaded frame, colour not premultiplied; transparent black where there is no model."),
        textureOutput("Kvz_KvzTexture*_Id", TextureKind::Id, GL_RGBA,
            "1 where there is a model, 0 elsewhere; it does not distinguish triangles."),
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Shades | PassTrait::BasicSurfaces;
    pass.create = construct<ForwardRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
