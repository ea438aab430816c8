// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/AccumulationRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::accumulationRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("AccumulationRenderPass");
    pass.summary = QStringLiteral("Refines a still picture: the mean of a number of frames, in full floats.");
    pass.inputs = {
        viewportInput(),
        textureInput("Kvz_KvzTexture*_Frame", TextureKind::Colour, "The frame to add, multiplied by alpha.",
            "the mean stays as it is"),
        unjitteredProjectionInput(),
        cameraInput(),
        input("Kvz_int_AccumulatedFrames", ValueType::Int, 32, "Frames after which the picture is done.", "32"),
        input("Kvz_bool_Restart", ValueType::Bool, false, "Begins the mean with this frame.", "false"),
    };
    pass.inputs[AccumulationRenderPass::AccumulatedFrames].countsMean = true;
    pass.inputs[AccumulationRenderPass::Restart].restartsPast = true;
    OutputInfo mean = pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA32F, "The mean.");
    mean.keptByProducer = true;
    pass.outputs = {
        mean,
        output("Kvz_int_FramesInMean", ValueType::Int, "How many frames are in the mean."),
        output("Kvz_bool_IsDone", ValueType::Bool, "Whether they are as many as asked for."),
    };
    pass.traits = PassTrait::AntiAliases | PassTrait::AccumulatesFrames;
    pass.rules = {
        {QStringLiteral("Kvz_int_AccumulatedFrames"), QStringLiteral("at least 1 frame"),
            QStringLiteral("a number below 1, which counts as 1"), QStringLiteral("set it to the frames of a still"),
            [](const PassUse &use) {
                const QVariant frames = use.value(QStringLiteral("Kvz_int_AccumulatedFrames"));
                return frames.isValid() && frames.toInt() < 1;
            }},
    };
    pass.create = construct<AccumulationRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
