// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/SubsampleJitterPass.h>

namespace Velmora::Kvz {

PassInfo PassEntries::subsampleJitterPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("SubsampleJitterPass");
    pass.summary = QStringLiteral("Shifts the projection to the samples that SMAA's mode T2x expects.");
    pass.inputs = {
        viewportInput(),
        unjitteredProjectionInput(),
        input("Kvz_int_JitterIndex", ValueType::Int, QVariant(), "Which of the two samples this frame has, 0 or 1.",
            "no shift"),
    };
    pass.inputs[SubsampleJitterPass::JitterIndex].stillValue = QVariant();
    pass.outputs = {
        output("Kvz_QMatrix4x4_ProjectionMatrix", ValueType::Matrix4x4, "The projection with the image shifted."),
        output("Kvz_Vector2D_JitterAmount", ValueType::Vector2D, "The shift in normalised device units."),
    };
    pass.traits = PassTrait::JittersCamera;
    pass.rules = {
        warnWhenOpen("Kvz_int_JitterIndex", "an index that alternates", "none: no frame is shifted",
            "put CameraJitterPass before it"),
    };
    pass.create = construct<SubsampleJitterPass>;
    return pass;
}

} // namespace Velmora::Kvz
