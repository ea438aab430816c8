// SPDX-License-Identifier: MIT
#include <Host/passes/PassEntries.h>
#include <RenderPasses/TransparencyRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

/// The pass takes its background from GL's clear colour: this one puts a colour of the chain's own there first.
class ClearedTransparencyRenderPass : public TransparencyRenderPass
{
public:
    explicit ClearedTransparencyRenderPass(const QColor &color)
        : m_color(color)
    { }

    void start(RenderCallbacks *callbacks) override
    {
        glClearColor(float(m_color.redF()), float(m_color.greenF()), float(m_color.blueF()), float(m_color.alphaF()));
        TransparencyRenderPass::start(callbacks);
    }

private:
    QColor m_color;
};

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    const auto color = options[QStringLiteral("clearColor")].value<QColor>();
    if (color.isValid())
        return std::make_unique<ClearedTransparencyRenderPass>(color);
    return std::make_unique<TransparencyRenderPass>();
}

} // namespace

PassInfo PassEntries::transparencyRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("TransparencyRenderPass");
    pass.summary =
        QStringLiteral("Draws a model with transparency in one pass, by weighted blending without an order.");
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
            "Shows where there is nothing; without it the chain's clear colour does, transparent black as a rule."),
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Shades | PassTrait::Transparent;
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
