// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/ToneMapRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    auto pass = std::make_unique<ToneMapRenderPass>();
    pass->setOperator(ToneMapRenderPass::Operator(options[QStringLiteral("operator")].toInt()));
    pass->setDither(options[QStringLiteral("dither")].toBool());
    return pass;
}

} // namespace

PassInfo PassEntries::toneMapRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("ToneMapRenderPass");
    pass.summary =
        QStringLiteral("Turns linear radiance into display values: exposure, tone mapping, sRGB and dither.");
    pass.inputs = {
        viewportInput(),
        requiredTextureInput("Kvz_KvzTexture*_Frame", TextureKind::Colour, "Linear radiance, multiplied by alpha."),
        textureInput("Kvz_KvzTexture*_Indirect", TextureKind::Colour,
            "Linear radiance that is added to the frame's, multiplied by alpha.", "nothing is added"),
        textureInput("Kvz_KvzTexture*_Visibility", TextureKind::Obscurance, "Factor on the indirect image.", "1"),
        input("Kvz_float_Exposure", ValueType::Float, 0.0f, "Stops, each of which doubles the light.", "0"),
        input("Kvz_bool_AutoExposure", ValueType::Bool, false,
            "Adds the stops that bring the logarithmic mean of what the frame covers to middle grey.", "false"),
        input("Kvz_bool_RenderInHDR", ValueType::Bool, false,
            "Half floats instead of 8 bits, and no dither: for passes that average frames.", "false"),
        input("Kvz_Vector2D_PatternOrigin", ValueType::Vector2D, QVariant(),
            "Where the lower left pixel lies in the whole picture, in pixels: for pictures drawn in tiles.", "(0, 0)"),
        textureInput("Kvz_KvzTexture*_Layers", TextureKind::Overlay,
            "Linear radiance of transparent layers; in alpha the share of what lies behind them that comes through.",
            "no layers"),
        textureInput("Kvz_KvzTexture*_Background", TextureKind::Colour,
            "Linear radiance behind the frame, multiplied by alpha.", "nothing"),
    };
    OutputInfo frame = pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA8,
        "Display values, multiplied by alpha; GL_RGBA16F with RenderInHDR.");
    frame.texture.colourSpace = ColourSpace::SRgb;
    pass.outputs = {
        frame,
        pooledOutput("Kvz_KvzTexture*_Linear", TextureKind::Colour, GL_RGBA16F,
            "The exposed frame before the operator; null where nobody uses it."),
        output("Kvz_float_Exposure", ValueType::Float,
            "Stops that were applied; with AutoExposure those of the frame before, where the port has users."),
    };
    OptionInfo toneMapping = option("operator", ValueType::Enumeration, int(ToneMapRenderPass::Operator::Neutral),
        "How bright light is fitted into the display's range; none cuts it off, and is not dithered.");
    toneMapping.enumerators = QStringList{QStringLiteral("neutral"), QStringLiteral("filmic"), QStringLiteral("none")};
    pass.options = {toneMapping,
        option("dither", ValueType::Bool, true,
            "Whether 8-bit results get noise of less than half a step against bands.")};
    pass.reach = [](const PassUse &use) {
        PassReach reach;
        const QString automatic = QStringLiteral("Kvz_bool_AutoExposure");
        if (use.value(automatic).toBool() || (use.isFed(automatic) && !use.value(automatic).isValid()))
            reach.obstacle = QStringLiteral("automatic exposure measures the whole picture; set Exposure instead");
        return reach;
    };
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
