// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/DeferredRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::deferredRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("DeferredRenderPass");
    pass.summary = QStringLiteral("Shades plain geometry in grey by one light at (100, 100, 100) in world space.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        textureInput("Kvz_KvzTexture*_Normal", TextureKind::Normal, "Normals in world space.", "zeros"),
        textureInput("Kvz_KvzTexture*_TexCoord", TextureKind::TexCoord, "Read without effect.", "zeros"),
        textureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth, "Depth from 0 to 1.", "zeros"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA, "The shaded frame, opaque."),
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Shades;
    pass.rules = {
        warnWhenOpen(
            "Kvz_KvzTexture*_Normal", "normals", "none: the frame is black", "put a GBufferRenderPass before it"),
        warnWhenOpen(
            "Kvz_KvzTexture*_Depth", "depth", "none: positions are wrong", "put a GBufferRenderPass before it"),
    };
    pass.create = construct<DeferredRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
