// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/WireframeRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::wireframeRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("WireframeRenderPass");
    pass.summary = QStringLiteral("Draws the edges of triangles, found in an id image, as an overlay.");
    pass.inputs = {
        viewportInput(),
        textureInput("Kvz_KvzTexture*_Id", TextureKind::Id, "Numbers of triangles.", "the output is empty"),
        input("Kvz_QColor_WireColor", ValueType::Color, QVariant(), "Colour and opacity of the wires.", "opaque black"),
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Overlay, GL_RGBA8,
            "The wires, transparent in between; colours are multiplied with the edge's strength."),
    };
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_Id", "an id image", "none: there is no overlay",
            "put a ModelRenderPass or a GBufferRenderPass before it"),
    };
    pass.reach = [](const PassUse &) {
        return PassReach{0, 0, 1, QStringLiteral("at the edges of what it draws it reads the opposite ones")};
    };
    pass.create = construct<WireframeRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
