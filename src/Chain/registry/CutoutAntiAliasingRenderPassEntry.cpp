// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/CutoutAntiAliasingRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

using Mode = CutoutAntiAliasingRenderPass::Mode;

Mode modeOf(const QVariant &option)
{
    return Mode(option.toInt());
}

Mode modeOf(const PassUse &use)
{
    return modeOf(use.option(QStringLiteral("mode")));
}

bool isTemporal(const PassUse &use)
{
    return modeOf(use) == Mode::SmaaT2x || modeOf(use) == Mode::Smaa4x;
}

bool hasTwoSamples(const PassUse &use)
{
    return modeOf(use) == Mode::SmaaS2x || modeOf(use) == Mode::Smaa4x;
}

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    auto pass = std::make_unique<CutoutAntiAliasingRenderPass>();
    pass->setMode(modeOf(options[QStringLiteral("mode")]));
    return pass;
}

} // namespace

PassInfo PassEntries::cutoutAntiAliasingRenderPass()
{
    const QString frameName = QStringLiteral("Kvz_KvzTexture*_Frame");
    const QString secondName = QStringLiteral("Kvz_KvzTexture*_SecondFrame");
    const QString velocityName = QStringLiteral("Kvz_KvzTexture*_Velocity");
    const QString indexName = QStringLiteral("Kvz_int_JitterIndex");

    PassInfo pass;
    pass.className = QStringLiteral("CutoutAntiAliasingRenderPass");
    pass.summary = QStringLiteral("Smooths the edges of a frame whose alpha is kept, by FXAA or SMAA.");
    InputInfo frame =
        requiredTextureInput("Kvz_KvzTexture*_Frame", TextureKind::Colour, "Display values, multiplied by alpha.");
    frame.multisampling = Multisampling::Taken;
    pass.inputs = {
        viewportInput(),
        frame,
        textureInput("Kvz_KvzTexture*_SecondFrame", TextureKind::Colour,
            "The other sample of each pixel in the modes smaa-s2x and smaa-4x.",
            "the second sample of a multisampled frame"),
        textureInput("Kvz_KvzTexture*_Velocity", TextureKind::Velocity,
            "Current minus previous position in texture coordinates, for smaa-t2x and smaa-4x.", "nothing moves"),
        input("Kvz_int_JitterIndex", ValueType::Int, QVariant(), "Position in the camera's jitter, 0 or 1.", "0"),
        input("Kvz_Vector2D_JitterAmount", ValueType::Vector2D, QVariant(),
            "The camera's jitter in normalised device units, if the velocity includes it.", "(0, 0)"),
        input("Kvz_bool_RenderInHDR", ValueType::Bool, false, "Half floats instead of 8 bits.", "false"),
    };
    OutputInfo smoothed = pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA8,
        "The smoothed frame, multiplied by alpha; GL_RGBA16F with RenderInHDR.");
    smoothed.texture.colourSpace = ColourSpace::SRgb;
    pass.outputs = {smoothed};
    OptionInfo mode =
        option("mode", ValueType::Enumeration, int(Mode::Smaa1x), "How edges are smoothed, the fastest first.");
    mode.enumerators = QStringLiteral("fxaa smaa-1x smaa-s2x smaa-t2x smaa-4x").split(QLatin1Char(' '));
    pass.options = {mode};
    pass.traits = PassTrait::AntiAliases | PassTrait::Reprojects;
    pass.conditionalTraits = {{PassTrait::AccumulatesFrames, isTemporal}};
    pass.rules = {
        {frameName, QStringLiteral("one sample per texel in the modes fxaa, smaa-1x and smaa-t2x"),
            QStringLiteral("several: there is no picture"), QStringLiteral("set the mode to smaa-s2x or smaa-4x"),
            [frameName](const PassUse &use) { return !hasTwoSamples(use) && use.samples(frameName) > 1; }},
        {secondName, QStringLiteral("a second frame in the modes smaa-s2x and smaa-4x, or a frame of several samples"),
            QStringLiteral("neither: the one frame counts as both"),
            QStringLiteral("connect the frame of the other sample, or set the mode to smaa-1x or smaa-t2x"),
            [=](const PassUse &use) {
                return hasTwoSamples(use) && use.samples(frameName) == 1 && !use.isFed(secondName);
            }},
        {velocityName, QStringLiteral("a velocity image in the modes smaa-t2x and smaa-4x"),
            QStringLiteral("none: what moves leaves a ghost"),
            QStringLiteral("put VelocityRenderPass before it, or set the mode to smaa-1x or smaa-s2x"),
            [velocityName](const PassUse &use) { return isTemporal(use) && !use.isFed(velocityName); }},
        {indexName, QStringLiteral("the jitter's position in the modes smaa-t2x and smaa-4x"),
            QStringLiteral("none: both frames count as the first"),
            QStringLiteral("put CameraJitterPass before the geometry, or set the mode to smaa-1x or smaa-s2x"),
            [indexName](const PassUse &use) { return isTemporal(use) && !use.isFed(indexName); }},
    };
    // The longest search along an edge, and the pixels that its ends depend on.
    pass.reach = [](const PassUse &) { return PassReach{72, 0, 2, {}}; };
    pass.create = create;
    pass.forgetPast = [](RenderPass *smooth) { static_cast<CutoutAntiAliasingRenderPass *>(smooth)->forgetPast(); };
    return pass;
}

} // namespace Velmora::Kvz
