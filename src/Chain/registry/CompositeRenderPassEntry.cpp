// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/CompositeRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::compositeRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("CompositeRenderPass");
    pass.summary = QStringLiteral("Lays layers over a frame, that over a background image, and all over a colour.");
    pass.inputs = {
        viewportInput(),
        textureInput("Kvz_KvzTexture*_Frame", TextureKind::Colour, "The frame, colour multiplied by alpha.",
            "transparent black"),
        textureInput("Kvz_KvzTexture*_Layers", TextureKind::Overlay,
            "Transparent layers; in alpha the share of what lies behind that comes through.", "no layers"),
        textureInput("Kvz_KvzTexture*_Background", TextureKind::Colour,
            "What lies behind the frame, colour multiplied by alpha.", "transparent black"),
        input("Kvz_QColor_BackgroundColor", ValueType::Color, QColor(Qt::transparent), "Colour behind all.",
            "transparent"),
    };
    pass.outputs = {
        pooledOutput(
            "Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA16F, "The picture, colour multiplied by alpha."),
    };
    pass.create = construct<CompositeRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
