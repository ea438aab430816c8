// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/MultisampleForwardRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::multisampleForwardRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("MultisampleForwardRenderPass");
    pass.summary =
        QStringLiteral("Draws and shades a model over a picture, with two samples per texel placed for SMAA.");
    pass.inputs = {
        viewportInput(),
        unjitteredProjectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "only the background"),
        textureInput("Kvz_KvzTexture*_Frame", TextureKind::Colour, "What lies behind the model.", "transparent black"),
        input("Kvz_int_JitterIndex", ValueType::Int, QVariant(), "Which of the two frames of 4x this is, 0 or 1.",
            "the samples of S2x, in every frame"),
        input("Kvz_bool_RenderInHDR", ValueType::Bool, true, "Whether the frame has floating-point colour.", "false"),
    };
    pass.inputs[MultisampleForwardRenderPass::JitterIndex].stillValue = QVariant();
    pass.inputs += lightInputs();
    OutputInfo frame = pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA16F,
        "The shaded model over the background; GL_RGBA8 without HDR.");
    frame.samples = 2;
    OutputInfo depth =
        pooledOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH24_STENCIL8, "Depth of the model.");
    depth.samples = 2;
    pass.outputs = {
        frame,
        depth,
        output("Kvz_QMatrix4x4_ProjectionMatrix", ValueType::Matrix4x4,
            "The projection, shifted to the middle of the two samples."),
        output("Kvz_Vector2D_JitterAmount", ValueType::Vector2D, "That shift in normalised device units."),
    };
    pass.traits = PassTrait::Shades;
    pass.conditionalTraits = {{PassTrait::JittersCamera,
        [](const PassUse &use) { return use.isFed(QStringLiteral("Kvz_int_JitterIndex")); }}};
    pass.create = construct<MultisampleForwardRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
