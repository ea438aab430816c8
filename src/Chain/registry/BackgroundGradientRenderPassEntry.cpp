// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/BackgroundGradientRenderPass.h>

#include <QtCore/QRectF>
#include <QtGui/QColor>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::backgroundGradientRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("BackgroundGradientRenderPass");
    pass.summary =
        QStringLiteral("Fills an image of bytes with a vertical gradient, for passes that draw over a background.");
    pass.inputs = {
        viewportInput(),
        input("Kvz_QColor_ColorTop", ValueType::Color, QColor(64, 64, 64), "Colour at the top edge.",
            "transparent black"),
        input("Kvz_QColor_ColorBottom", ValueType::Color, QColor(153, 153, 153), "Colour at the bottom edge.",
            "the colour at the top"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA8, "The gradient, multiplied by its alpha."),
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Background | PassTrait::RestsUnchanged;
    pass.valuesOfPart = [](const PassUse &use, const QRectF &part) {
        const QString topName = QStringLiteral("Kvz_QColor_ColorTop");
        const QString bottomName = QStringLiteral("Kvz_QColor_ColorBottom");
        const auto given = use.value(topName).value<QColor>();
        const auto bottom = use.value(bottomName).value<QColor>();
        QVariantMap values;
        if (!bottom.isValid() || given == bottom)
            return values; // The same everywhere.
        const QColor top = given.isValid() ? given : QColor(0, 0, 0, 0);
        const auto at = [&](double height) {
            const double alpha = bottom.alphaF() + height * (top.alphaF() - bottom.alphaF());
            // Colours change multiplied by their alpha.
            const auto mix = [&](double from, double to) {
                const double lower = from * bottom.alphaF();
                return alpha > 0 ? qBound(0.0, (lower + height * (to * top.alphaF() - lower)) / alpha, 1.0) : 0.0;
            };
            return QColor::fromRgbF(mix(bottom.redF(), top.redF()), mix(bottom.greenF(), top.greenF()),
                mix(bottom.blueF(), top.blueF()), alpha);
        };
        values.insert(topName, at(part.y() + part.height()));
        values.insert(bottomName, at(part.y()));
        return values;
    };
    pass.create = construct<BackgroundGradientRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
