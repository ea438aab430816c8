// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/GBufferRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::gBufferRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("GBufferRenderPass");
    pass.summary = QStringLiteral("Draws plain geometry into normal, texture coordinate, id and depth images.");

    InputInfo geometry = input("Kvz_KvzDrawBuffers*_Geometry", ValueType::DrawBuffers, QVariant(),
        "Drawables in world space, one or a list.", "the pass must not run");
    geometry.required = true;
    pass.inputs = {viewportInput(), projectionInput(), cameraInput(), geometry};
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Normal", TextureKind::Normal, GL_RGB32F, "Normals in world space."),
        textureOutput("Kvz_KvzTexture*_TexCoord", TextureKind::TexCoord, GL_RG32F, "Texture coordinates."),
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH_COMPONENT32F, "Depth from 0 to 1."),
        textureOutput("Kvz_KvzTexture*_Id", TextureKind::Id, GL_R32F, "Number of the triangle from 1 up, 0 for none."),
    };
    pass.traits = PassTrait::NeverReleasesInputs;
    pass.create = construct<GBufferRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
