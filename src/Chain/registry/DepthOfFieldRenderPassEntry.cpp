// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/DepthOfFieldRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

/// Whether an input is 0, which null means too.
bool isZero(const PassUse &use, const QString &port)
{
    const QVariant value = use.value(port);
    return value.isValid() ? value.toFloat() == 0.0f : !use.isFed(port);
}

} // namespace

PassInfo PassEntries::depthOfFieldRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("DepthOfFieldRenderPass");
    pass.summary = QStringLiteral("Blurs a frame by its depth, as a lens does.");
    pass.inputs = {
        viewportInput(),
        requiredTextureInput("Kvz_KvzTexture*_Frame", TextureKind::Colour, "Frame to blur."),
        requiredTextureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth, "Window depth of the frame."),
        input("Kvz_float_FocalDepth", ValueType::Float, QVariant(),
            "Distance that is sharp, in metres; unused with autofocus.", "0"),
        input("Kvz_float_FocalLength", ValueType::Float, QVariant(), "Focal length of the lens in millimetres.",
            "0, which leaves everything sharp"),
        input("Kvz_float_FStop", ValueType::Float, QVariant(), "Focal length over aperture: smaller values blur more.",
            "0, which blurs fully"),
        input(
            "Kvz_bool_AutoFocus", ValueType::Bool, QVariant(), "Makes the depth under the focus point sharp.", "false"),
        input("Kvz_QVector2D_Focus", ValueType::Vector2D, QVariant(),
            "Focus point; (0, 0) is the lower left corner, (1, 1) the upper right one.", "(0, 0)"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA32F,
            "The frame with depth of field; its alpha is undefined."),
    };
    pass.rules = {
        {QStringLiteral("Kvz_float_FocalLength"), QStringLiteral("a focal length above 0"),
            QStringLiteral("0: the frame stays sharp"), QStringLiteral("set it, in millimetres, or disable the pass"),
            [](const PassUse &use) { return isZero(use, QStringLiteral("Kvz_float_FocalLength")); }},
        {QStringLiteral("Kvz_float_FStop"), QStringLiteral("a stop above 0"),
            QStringLiteral("0: dividing by it leaves nothing between sharp and blurred"),
            QStringLiteral("set it, such as 2.8"),
            [](const PassUse &use) { return isZero(use, QStringLiteral("Kvz_float_FStop")); }},
        {QStringLiteral("Kvz_float_FocalDepth"), QStringLiteral("a focal distance above 0, or autofocus"),
            QStringLiteral("0: the frame stays sharp"), QStringLiteral("set it, in metres, or set Kvz_bool_AutoFocus"),
            [](const PassUse &use) {
                const QString autoFocus = QStringLiteral("Kvz_bool_AutoFocus");
                const bool isAuto =
                    use.isFed(autoFocus) && (!use.value(autoFocus).isValid() || use.value(autoFocus).toBool());
                return !isAuto && isZero(use, QStringLiteral("Kvz_float_FocalDepth"));
            }},
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::LosesAlpha;
    pass.reach = [](const PassUse &) {
        return PassReach{0, 0, 1, QStringLiteral("its blur, noise and focus go by the size of what it draws")};
    };
    pass.create = construct<DepthOfFieldRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
