// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/SurfaceRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    auto pass = std::make_unique<SurfaceRenderPass>();
    pass->setOpaqueOnly(options[QStringLiteral("opaqueOnly")].toBool());
    pass->setSparse(options[QStringLiteral("sparse")].toBool());
    return pass;
}

} // namespace

PassInfo PassEntries::surfaceRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("SurfaceRenderPass");
    pass.summary = QStringLiteral("Draws a model with all that its materials say into images that are lit later.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "cleared images"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Diffuse", TextureKind::Diffuse, GL_RGBA8, "Base colour, opacity in alpha."),
        textureOutput(
            "Kvz_KvzTexture*_Specular", TextureKind::Specular, GL_RGBA16F, "Specular colour, exponent in alpha."),
        textureOutput("Kvz_KvzTexture*_Normal", TextureKind::Normal, GL_RGBA16F,
            "Unit normals in camera space to light by, material ids plus 1 in alpha; zeros where nothing is."),
        textureOutput("Kvz_KvzTexture*_Emission", TextureKind::Emission, GL_RGBA16F,
            "Light of the surface's own; 1 in alpha where it is unlit, else 0."),
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH_COMPONENT32F, "Depth from 0 to 1."),
        textureOutput("Kvz_KvzTexture*_Id", TextureKind::Id, GL_R32F, "Number of the triangle from 1 up, 0 for none."),
    };
    pass.options = {
        opaqueOnlyOption(),
        option("sparse", ValueType::Bool, false,
            "Leaves out the image of triangle numbers, and that of emission while the model neither emits light nor "
            "has "
            "unlit parts."),
    };
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
