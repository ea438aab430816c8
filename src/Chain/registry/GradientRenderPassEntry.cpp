// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/GradientRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::gradientRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("GradientRenderPass");
    pass.summary = QStringLiteral("Fills the frame with a vertical gradient of two colours, or with one colour.");
    pass.inputs = {
        viewportInput(),
        input("Kvz_QColor_ColorTop", ValueType::Color, QColor(64, 64, 64), "Colour at the top edge.",
            "nothing is drawn, the image keeps its content"),
        input("Kvz_QColor_ColorBottom", ValueType::Color, QColor(153, 153, 153), "Colour at the bottom edge.",
            "one flat colour, opaque: the top one"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA32F, "The gradient."),
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Background | PassTrait::RestsUnchanged;
    pass.valuesOfPart = [](const PassUse &use, const QRectF &part) {
        const QString topName = QStringLiteral("Kvz_QColor_ColorTop");
        const QString bottomName = QStringLiteral("Kvz_QColor_ColorBottom");
        const auto top = use.value(topName).value<QColor>();
        const auto bottom = use.value(bottomName).value<QColor>();
        QVariantMap values;
        if (!top.isValid() || !bottom.isValid() || top == bottom)
            return values; // The same everywhere.
        const auto at = [&](double height) {
            const auto mix = [height](double from, double to) { return from + height * (to - from); };
            return QColor::fromRgbF(mix(bottom.redF(), top.redF()), mix(bottom.greenF(), top.greenF()),
                mix(bottom.blueF(), top.blueF()), mix(bottom.alphaF(), top.alphaF()));
        };
        values.insert(topName, at(part.y() + part.height()));
        values.insert(bottomName, at(part.y()));
        return values;
    };
    pass.create = construct<GradientRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
