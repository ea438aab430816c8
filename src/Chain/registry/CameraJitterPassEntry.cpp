// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/CameraJitterRenderPass.h>

namespace Velmora::Kvz {

PassInfo PassEntries::cameraJitterPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("CameraJitterPass");
    pass.summary = QStringLiteral("Shifts the projection by a fraction of a pixel that changes each frame.");
    pass.inputs = {
        viewportInput(),
        cameraInput(),
        unjitteredProjectionInput(),
        input(
            "Kvz_bool_ResetTemporal", ValueType::Bool, true, "Restarts the still frames of the random mode.", "false"),
        input("Kvz_int_JitterMode", ValueType::Int, 0, "0 none, 1 random, 2 anti-diagonal, 3 diagonal.", "none"),
    };
    pass.inputs[CameraJitterPass::ResetTemporal].restartsPast = true;
    // A new pass begins the random mode with still frames, and still counts its index.
    pass.inputs[CameraJitterPass::Mode].stillValue = int(JitterRandom);
    pass.outputs = {
        output("Kvz_QMatrix4x4_ProjectionMatrix", ValueType::Matrix4x4, "The projection with the image shifted."),
        output("Kvz_int_JitterIndex", ValueType::Int, "0 and 1 in turn."),
        output("Kvz_Vector2D_JitterAmount", ValueType::Vector2D,
            "The shift in normalised device units, in which a pixel is 2 / width."),
    };
    const auto modeOf = [](const PassUse &use) { return use.value(QStringLiteral("Kvz_int_JitterMode")); };
    const auto jitters = [modeOf](const PassUse &use) { return !modeOf(use).isValid() || modeOf(use).toInt() != 0; };
    pass.traits = PassTrait::CountsFrames;
    pass.conditionalTraits = {{PassTrait::JittersCamera, jitters}};
    pass.rules = {
        {QStringLiteral("Kvz_int_JitterMode"), QStringLiteral("a mode from 0 to 3"), QStringLiteral("a number outside"),
            QStringLiteral("the image stays still"),
            [modeOf](const PassUse &use) {
                return modeOf(use).isValid() && (modeOf(use).toInt() < 0 || modeOf(use).toInt() > 3);
            }},
        {QStringLiteral("Kvz_bool_ResetTemporal"), QStringLiteral("false for the random mode"),
            QStringLiteral("true: each frame restarts the still frames"), QStringLiteral("set it to false"),
            [modeOf](const PassUse &use) {
                return modeOf(use) == QVariant(int(JitterRandom))
                    && use.value(QStringLiteral("Kvz_bool_ResetTemporal")).toBool();
            }},
    };
    pass.create = construct<CameraJitterPass>;
    return pass;
}

} // namespace Velmora::Kvz
