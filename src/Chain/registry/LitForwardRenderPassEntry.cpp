// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/LitForwardRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    auto pass = std::make_unique<LitForwardRenderPass>();
    pass->setOpaqueOnly(options[QStringLiteral("opaqueOnly")].toBool());
    return pass;
}

} // namespace

PassInfo PassEntries::litForwardRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("LitForwardRenderPass");
    pass.summary = QStringLiteral("Draws a model with all that its materials say, lit from the camera.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "a cleared frame"),
    };
    pass.inputs += lightInputs();
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA8,
            "The lit model, colour multiplied by opacity; transparent black where there is nothing."),
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH_COMPONENT32F, "Depth from 0 to 1."),
        textureOutput("Kvz_KvzTexture*_Id", TextureKind::Id, GL_R32F, "Number of the triangle from 1 up, 0 for none."),
    };
    pass.options = {opaqueOnlyOption()};
    pass.traits = PassTrait::Shades;
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
