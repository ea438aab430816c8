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
    pass->setTriangleIds(options[QStringLiteral("triangleIds")].toBool());
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
    pass.inputs.append(textureInput("Kvz_KvzTexture*_Background", TextureKind::Colour,
        "What is seen where the model is not, colour multiplied by alpha.", "transparent black"));
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA8,
            "The lit model, colour multiplied by opacity; the background where there is nothing."),
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH_COMPONENT32F, "Depth from 0 to 1."),
        textureOutput("Kvz_KvzTexture*_Id", TextureKind::Id, GL_R32F,
            "Number of the triangle from 1 up, 0 for none; without the option `triangleIds` there is none."),
    };
    pass.options = {
        opaqueOnlyOption(),
        option("triangleIds", ValueType::Bool, true, "Numbers the triangles in an image of their own."),
    };
    pass.traits = PassTrait::Shades;
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
