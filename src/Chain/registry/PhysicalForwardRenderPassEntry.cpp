// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/PhysicalForwardRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    auto pass = std::make_unique<PhysicalForwardRenderPass>();
    pass->setOpaqueOnly(options[QStringLiteral("opaqueOnly")].toBool());
    pass->setItemIds(options[QStringLiteral("itemIds")].toBool());
    return pass;
}

} // namespace

PassInfo PassEntries::physicalForwardRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("PhysicalForwardRenderPass");
    pass.summary = QStringLiteral("Draws a model in physically based light.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "cleared images"),
    };
    pass.inputs += physicalLightInputs();
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA16F,
            "What the model emits and returns of lamps, linear, colour multiplied by opacity."),
        textureOutput("Kvz_KvzTexture*_Indirect", TextureKind::Colour, GL_RGBA16F,
            "What it returns of its surroundings, linear, colour multiplied by opacity."),
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH_COMPONENT32F, "Depth from 0 to 1."),
        textureOutput("Kvz_KvzTexture*_Normal", TextureKind::Normal, GL_RGBA16F,
            "Unit normals in camera space; material id + 1 in alpha, 0 for none."),
        textureOutput("Kvz_KvzTexture*_ItemId", TextureKind::Id, GL_RG32UI,
            "Item + 1 and triangle of each pixel, zeros for none; null unless asked for."),
    };
    pass.options = {opaqueOnlyOption(), option("itemIds", ValueType::Bool, false, "Whether the pass draws item ids.")};
    pass.traits = PassTrait::Shades | PassTrait::PhysicalSurfaces;
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
