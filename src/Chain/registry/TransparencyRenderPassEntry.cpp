// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/PreparedTransparencyRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    return std::make_unique<PreparedTransparencyRenderPass>(
        options[QStringLiteral("clearColor")].value<QColor>(), options[QStringLiteral("premultiply")].toBool());
}

} // namespace

PassInfo PassEntries::transparencyRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("TransparencyRenderPass");
    pass.summary =
        QStringLiteral("Draws a model with transparency in one pass, by order-independent weighted blending.");
    InputInfo unread = textureInput("Kvz_KvzTexture*_Texture", TextureKind::Any, "Not read.", "no difference");
    unread.wiring = ImplicitWiring::Never;
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "a cleared frame"),
        unread,
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA32F,
            "Opaque and transparent surfaces over the clear colour."),
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH_COMPONENT32F,
            "Depth from 0 to 1 of the opaque surfaces."),
    };
    pass.options = {
        option("clearColor", ValueType::Color, QVariant(),
            "Shown where there is nothing; by default the chain's clear colour, usually transparent black."),
        option("premultiply", ValueType::Bool, false,
            "Multiplies the colours of materials by their opacity, as the formula expects."),
    };
    pass.traits =
        PassTrait::NeverReleasesInputs | PassTrait::Shades | PassTrait::Transparent | PassTrait::BasicSurfaces;
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
