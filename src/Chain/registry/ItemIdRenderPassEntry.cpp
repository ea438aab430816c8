// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/ItemIdRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    auto pass = std::make_unique<ItemIdRenderPass>();
    pass->setOpaqueOnly(options[QStringLiteral("opaqueOnly")].toBool());
    pass->setFalseColours(options[QStringLiteral("falseColours")].toBool());
    return pass;
}

} // namespace

PassInfo PassEntries::itemIdRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("ItemIdRenderPass");
    pass.summary = QStringLiteral("Draws which item and which triangle of a model cover each pixel, for picking.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "cleared images"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_ItemId", TextureKind::Id, GL_RG32UI,
            "Number of the item plus 1, 0 for none; number of the triangle within it, from 0."),
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH_COMPONENT32F, "Depth from 0 to 1."),
        textureOutput("Kvz_KvzTexture*_FalseColour", TextureKind::Colour, GL_RGBA8,
            "With falseColours: a hue for each item, a shade for each triangle; transparent black for none."),
    };
    pass.options = {
        opaqueOnlyOption(),
        option("falseColours", ValueType::Bool, false, "Also shows the numbers in colours, for people to look at."),
    };
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
