// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/ShadowMaskRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

/// A rule that warns of a number outside a range.
UseRule warnOutside(const char *port, double least, double most, const char *expected, const char *consequence)
{
    const QString name = QString::fromUtf8(port);
    return {name, QString::fromUtf8(expected), QStringLiteral("a number outside"), QString::fromUtf8(consequence),
        [=](const PassUse &use) {
            const QVariant value = use.value(name);
            return value.isValid() && (value.toDouble() < least || value.toDouble() > most);
        }};
}

} // namespace

PassInfo PassEntries::shadowMaskRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("ShadowMaskRenderPass");
    pass.summary = QStringLiteral("Computes from shadow maps how much light reaches each pixel.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        requiredTextureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth, "Window depth of the frame."),
        textureInput("Kvz_KvzTexture*_Normal", TextureKind::Normal, "Normals in camera space.",
            "every surface faces every light"),
        input("Kvz_QList_KvzShadowMapManagerLight*_Lights", ValueType::Lights, QVariant(),
            "The lights of the shadow maps.", "no lights: the mask is 1"),
        input("Kvz_QVariant_ShadowMapData", ValueType::ShadowMapData, QVariant(), "The shadow maps of the lights.",
            "nothing casts a shadow"),
        input("Kvz_float_LightBleedingReduction", ValueType::Float, 0.2f,
            "Visibilities up to this count as 0, from 0 to below 1: higher values remove light that leaks where "
            "shadows overlap, and make edges harder.",
            "0"),
        input("Kvz_float_AmbientLight", ValueType::Float, 0.25f, "The mask where no light arrives, from 0 to 1.", "0"),
        input("Kvz_int_Cascade", ValueType::Int, -1,
            "The cascade that directional lights use, from 0 up; -1: the finest that contains the point.", "0"),
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_ShadowMask", TextureKind::Colour, GL_RGBA8,
            "The mask, to multiply into a frame: equal in red, green and blue, alpha 1."),
    };
    pass.rules = {
        warnWhenOpen("Kvz_QVariant_ShadowMapData", "shadow maps", "none: nothing casts a shadow",
            "put a ShadowMapRenderPass or ShadowMapRenderPass2 before it"),
        warnOutside("Kvz_float_LightBleedingReduction", 0, 0.99, "a number from 0 to 0.99", "the nearest one is taken"),
        warnOutside("Kvz_float_AmbientLight", 0, 1, "a number from 0 to 1", "the nearest one is taken"),
    };
    pass.create = construct<ShadowMaskRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
