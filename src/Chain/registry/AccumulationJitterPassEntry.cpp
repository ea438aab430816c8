// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/AccumulationJitterPass.h>

namespace Velmora::Kvz {

PassInfo PassEntries::accumulationJitterPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("AccumulationJitterPass");
    pass.summary = QStringLiteral("Shifts the projection so that accumulated frames sample each pixel evenly.");
    pass.inputs = {
        viewportInput(),
        unjitteredProjectionInput(),
        cameraInput(),
        input("Kvz_int_AccumulatedFrames", ValueType::Int, 32, "Frames after which the sequence repeats.", "32"),
        input("Kvz_bool_Restart", ValueType::Bool, false, "Begins the sequence with this frame.", "false"),
    };
    pass.inputs[AccumulationJitterPass::Restart].restartsPast = true;
    pass.outputs = {
        output("Kvz_QMatrix4x4_ProjectionMatrix", ValueType::Matrix4x4, "The projection with the image shifted."),
        output("Kvz_int_JitterIndex", ValueType::Int, "Number of the frame in the sequence, from 0 up."),
        output("Kvz_Vector2D_JitterAmount", ValueType::Vector2D,
            "The shift in normalised device units, in which a pixel is 2 / width."),
    };
    pass.traits = PassTrait::JittersCamera | PassTrait::CountsFrames;
    pass.create = construct<AccumulationJitterPass>;
    return pass;
}

} // namespace Velmora::Kvz
