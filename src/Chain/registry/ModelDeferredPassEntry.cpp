// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/ModelDeferredPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::modelDeferredPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("ModelDeferredPass");
    pass.summary = QStringLiteral("Shades the images of a model by one light fixed to the camera.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        requiredTextureInput("Kvz_KvzTexture*_Diffuse", TextureKind::Diffuse, "Diffuse colour, opacity in alpha."),
        requiredTextureInput("Kvz_KvzTexture*_Specular", TextureKind::Specular, "Specular colour, exponent in alpha."),
        requiredTextureInput("Kvz_KvzTexture*_Normal", TextureKind::Normal, "Normals in camera space."),
        textureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth, "Read without effect.", "no difference"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA,
            "The shaded frame, colour not premultiplied; transparent black where there is no model."),
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Shades;
    pass.create = construct<ModelDeferredPass>;
    return pass;
}

} // namespace Velmora::Kvz
