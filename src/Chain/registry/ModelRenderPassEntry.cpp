// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/OpaqueModelProgram.h>
#include <GL/ShaderProgram.h>
#include <RenderPasses/ModelRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    auto pass = std::make_unique<ModelRenderPass>();
    const bool discardsOnAlpha = options[QStringLiteral("discardOnDiffuseAlpha")].toBool();
    pass->setDiscardOnDiffuseAlpha(discardsOnAlpha);
    if (options[QStringLiteral("opaqueOnly")].toBool())
        pass->setShaderProgram(makeOpaqueModelProgram(discardsOnAlpha).release());
    return pass;
}

} // namespace

PassInfo PassEntries::modelRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("ModelRenderPass");
    pass.summary =
        QStringLiteral("Draws a model with its materials into diffuse, specular, normal, depth and id images.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "cleared images"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Diffuse", TextureKind::Diffuse, GL_RGBA32F, "Diffuse colour, opacity in alpha."),
        textureOutput(
            "Kvz_KvzTexture*_Specular", TextureKind::Specular, GL_RGBA32F, "Specular colour, exponent in alpha."),
        textureOutput("Kvz_KvzTexture*_Normal", TextureKind::Normal, GL_RGB32F, "Normals in camera space."),
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH_COMPONENT32F, "Depth from 0 to 1."),
        textureOutput("Kvz_KvzTexture*_Id", TextureKind::Id, GL_R32F, "Number of the triangle from 1 up, 0 for none."),
    };
    pass.options = {
        option("discardOnDiffuseAlpha", ValueType::Bool, false,
            "Leaves out texels whose diffuse image has an alpha of 0.01 or less."),
        option("opaqueOnly", ValueType::Bool, false,
            "Leaves out materials with an opacity below 1, for chains that draw them separately."),
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::BasicSurfaces;
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
