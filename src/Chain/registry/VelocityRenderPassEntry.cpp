// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/VelocityRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::velocityRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("VelocityRenderPass");
    pass.summary = QStringLiteral("Writes how far each pixel moved on the screen since the previous frame.");
    InputInfo depth =
        textureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth, "Where the surfaces are.", "the output is empty");
    depth.multisampling = Multisampling::Taken;
    pass.inputs = {
        viewportInput(),
        depth,
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model, for its items that move.",
            "only the camera moves"),
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Velocity", TextureKind::Velocity, GL_RGBA16F,
            "Motion since the previous frame in texture coordinates, in red and green."),
    };
    pass.traits = PassTrait::ComparesFrames;
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_Depth", "a depth image", "none: there is no velocity",
            "put a pass before it that draws the model with depth"),
    };
    pass.create = construct<VelocityRenderPass>;
    pass.forgetPast = [](RenderPass *velocity) { static_cast<VelocityRenderPass *>(velocity)->forgetPast(); };
    return pass;
}

} // namespace Velmora::Kvz
