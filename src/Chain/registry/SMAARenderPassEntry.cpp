// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/SMAARenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

const QString modePort = QStringLiteral("Kvz_int_SmaaMode");
const QString framePort = QStringLiteral("Kvz_KvzTexture*_Frame");
const QString viewportPort = QStringLiteral("Kvz_QRect_Viewport");
const QString predicatePort = QStringLiteral("Kvz_KvzTexture*_Predicate");
const QString velocityPort = QStringLiteral("Kvz_KvzTexture*_Velocity");
const QString jitterIndexPort = QStringLiteral("Kvz_int_JitterIndex");

/// The mode, if it is known before the frame; -1 when another pass or the host provides it.
int modeOf(const PassUse &use)
{
    const QVariant mode = use.value(modePort);
    return mode.isValid() ? mode.toInt() : -1;
}

bool isTemporal(const PassUse &use)
{
    const int mode = modeOf(use);
    return mode == SMAARenderPass::SmaaT2X || mode == SMAARenderPass::Smaa4X;
}

/// The configuration that a new pass takes as built already: one that begins with it never has programs.
bool neverBuildsItsPrograms(const PassUse &use)
{
    return use.value(viewportPort).toRect().size() == QSize(64, 64) && modeOf(use) == SMAARenderPass::SmaaT2X
        && !use.isFed(predicatePort);
}

} // namespace

PassInfo PassEntries::smaaRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("SMAARenderPass");
    pass.summary = QStringLiteral("Smooths the edges of a frame by their shapes, optionally over samples and frames.");

    InputInfo frame = requiredTextureInput(
        "Kvz_KvzTexture*_Frame", TextureKind::Colour, "Frame to smooth; modes 1 and 3 need a multisampled one.");
    frame.multisampling = Multisampling::Taken;
    InputInfo predicate = textureInput("Kvz_KvzTexture*_Predicate", TextureKind::Any,
        "Image, such as depth, whose steps of 0.01 or more in red mark likely edges.", "one threshold everywhere");
    InputInfo velocity = textureInput("Kvz_KvzTexture*_Velocity", TextureKind::Velocity,
        "Current minus previous position in texture coordinates, for modes 2 and 3.", "nothing moves");
    velocity.multisampling = Multisampling::Resolved;
    pass.inputs = {
        viewportInput(),
        frame,
        input("Kvz_int_SmaaMode", ValueType::Int, 2,
            "0 1x: shapes alone; 1 S2x: two samples; 2 T2x: two frames; 3 4x: two samples and two frames.", "0"),
        predicate,
        velocity,
        input("Kvz_int_JitterIndex", ValueType::Int, QVariant(), "Position in the camera's jitter, 0 or 1.", "0"),
        input("Kvz_bool_RenderInHDR", ValueType::Bool, true, "Floating-point colours instead of 8 bits.", "false"),
        input("Kvz_Vector2D_JitterAmount", ValueType::Vector2D, QVariant(),
            "The camera's jitter in normalised device units, if the velocity includes it.", "(0, 0)"),
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA16F,
            "The smoothed frame, GL_RGBA8 without RenderInHDR."),
    };
    pass.traits = PassTrait::AntiAliases | PassTrait::Reprojects;
    pass.conditionalTraits = {
        {PassTrait::AccumulatesFrames, [](const PassUse &use) { return isTemporal(use) || modeOf(use) == -1; }},
        {PassTrait::LosesAlpha, [](const PassUse &use) { return isTemporal(use) || modeOf(use) == -1; }}};
    pass.rules = {
        {modePort, QStringLiteral("a mode from 0 to 3"), QStringLiteral("another: there is no picture"),
            QStringLiteral("set 0 (1x), 1 (S2x), 2 (T2x) or 3 (4x)"),
            [](const PassUse &use) {
                const QVariant mode = use.value(modePort);
                return mode.isValid() && (mode.toInt() < 0 || mode.toInt() > 3);
            }},
        {framePort, QStringLiteral("a frame of several samples in modes 1 and 3"),
            QStringLiteral("one sample per texel: the averaged samples are black"),
            QStringLiteral("draw the frame with MultisampleForwardRenderPass, or set Kvz_int_SmaaMode to 0 or 2"),
            [](const PassUse &use) {
                const int mode = modeOf(use);
                return (mode == SMAARenderPass::SmaaS2X || mode == SMAARenderPass::Smaa4X)
                    && use.samples(framePort) == 1;
            }},
        {velocityPort, QStringLiteral("a velocity image in the temporal modes 2 and 3"),
            QStringLiteral("none: what moves leaves a ghost"),
            QStringLiteral("put VelocityRenderPass before it, or set Kvz_int_SmaaMode to 0 or 1"),
            [](const PassUse &use) { return isTemporal(use) && !use.isFed(velocityPort); }},
        {jitterIndexPort, QStringLiteral("the jitter's position in the temporal modes 2 and 3"),
            QStringLiteral("none: both frames count as the first"),
            QStringLiteral("put CameraJitterPass before the geometry, or set Kvz_int_SmaaMode to 0 or 1"),
            [](const PassUse &use) { return isTemporal(use) && !use.isFed(jitterIndexPort); }},
        {viewportPort, QStringLiteral("any size but 64 by 64 with mode 2 and no predicate"),
            QStringLiteral("exactly that, which counts as built from the start: the pass never builds its programs and "
                           "gives no picture"),
            QStringLiteral("change the size by a pixel"), neverBuildsItsPrograms},
    };
    // The longest search along an edge, and the pixels that its ends depend on.
    pass.reach = [](const PassUse &) { return PassReach{72, 0, 2, {}}; };
    pass.create = construct<SMAARenderPass>;
    pass.forgetPast = [](RenderPass *smaa) { static_cast<SMAARenderPass *>(smaa)->forgetHistory(); };
    return pass;
}

} // namespace Velmora::Kvz
