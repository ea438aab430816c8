// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/CameraSpaceZBufferRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::cameraSpaceZBufferRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("CameraSpaceZBufferRenderPass");
    pass.summary = QStringLiteral("Turns a depth image into positions in camera space.");

    InputInfo depth = requiredTextureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth,
        "Depth from 0 to 1; of a multisampled image the first sample is read.");
    depth.multisampling = Multisampling::Taken;
    pass.inputs = {
        viewportInput(),
        depth,
        projectionInput(),
        input("Kvz_int_NumberMultisamples", ValueType::Int, QVariant(),
            "Samples per texel of the result; up to 1 it is not multisampled.", "0"),
    };

    OutputInfo positions =
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Positions, GL_RGBA32F, "x, y, z in camera space, and 1.");
    positions.samplesInput = QStringLiteral("Kvz_int_NumberMultisamples");
    pass.outputs = {positions};
    pass.create = construct<CameraSpaceZBufferRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
