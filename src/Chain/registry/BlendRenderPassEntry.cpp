// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/BlendRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    return std::make_unique<BlendRenderPass>(BlendRenderPass::BlendMode(options[QStringLiteral("mode")].toInt()));
}

} // namespace

PassInfo PassEntries::blendRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("BlendRenderPass");
    pass.summary = QStringLiteral("Combines two frames by one of 26 operators for premultiplied colours.");

    InputInfo source =
        textureInput("Kvz_KvzTexture*_FrameA", TextureKind::Colour, "Source of the operator.", "transparent black");
    source.multisampling = Multisampling::Resolved;
    InputInfo destination = textureInput(
        "Kvz_KvzTexture*_FrameB", TextureKind::Colour, "Destination of the operator.", "transparent black");
    destination.multisampling = Multisampling::Resolved;
    pass.inputs = {
        viewportInput(),
        source,
        destination,
        input("Int_BlendMode", ValueType::Int, QVariant(), "Number of the operator, which stays in force.",
            "the current mode stays"),
        input("brightness", ValueType::Float, QVariant(), "Factor on all channels of the destination.", "1"),
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA16F, "The combined frame."),
    };

    OptionInfo mode = option("mode", ValueType::Enumeration, QVariant(), "The operator, by name or number.");
    mode.required = true;
    // In the order of BlendRenderPass::BlendMode.
    mode.enumerators = QStringLiteral("Clear Src Dst SrcOver DstOver SrcIn DstIn SrcOut DstOut SrcAtop DstAtop Xor Add "
                                      "Multiply Screen Overlay Darken Lighten ColorDodge ColorBurn HardLight SoftLight "
                                      "Exclusion Difference InvertAndAdd MultiplyKeepAlpha")
                           .split(QLatin1Char(' '));
    pass.options = {mode};
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_FrameA", "a source frame", "none: transparent black takes its place",
            "connect an earlier frame"),
        warnWhenOpen("Kvz_KvzTexture*_FrameB", "a destination frame", "none: transparent black takes its place",
            "connect an earlier frame"),
        {QStringLiteral("Int_BlendMode"), QStringLiteral("a mode from 0 to 25"), QStringLiteral("a number outside"),
            QStringLiteral("the result is transparent black"),
            [](const PassUse &use) {
                const QVariant number = use.value(QStringLiteral("Int_BlendMode"));
                return number.isValid() && (number.toInt() < 0 || number.toInt() > 25);
            }},
    };
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
