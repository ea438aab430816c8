// SPDX-License-Identifier: MIT
#pragma once

#include "LitFixture.h"
#include "support/TemporaryFolder.h"

#include <ExtraPasses/EnvironmentLightRenderPass.h>

#include <QtCore/QVariant>

#include <cmath>
#include <functional>

namespace Velmora::Kvz {

/// A Radiance file of a function of the direction, without compression.
inline QByteArray radianceFile(
    int width, int height, const std::function<QVector3D(const QVector3D &direction)> &radiance)
{
    QByteArray content =
        QStringLiteral("#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y %1 +X %2\n").arg(height).arg(width).toLatin1();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double longitude = 2 * M_PI * ((x + 0.5) / width - 0.5);
            const double latitude = M_PI * (0.5 - (y + 0.5) / height);
            const QVector3D colour = radiance(QVector3D(float(std::cos(latitude) * std::sin(longitude)),
                float(std::sin(latitude)), float(-std::cos(latitude) * std::cos(longitude))));
            const float largest = std::max({colour.x(), colour.y(), colour.z(), 1e-30f});
            int exponent = 0;
            std::frexp(largest, &exponent);
            for (int i = 0; i < 3; ++i)
                content.append(char(qMin(255, int(std::ldexp(colour[i], 8 - exponent)))));
            content.append(char(exponent + 128));
        }
    }
    return content;
}

/// Makes the user's caches a folder of the test's own while it lives.
class OwnCaches
{
public:
    OwnCaches()
        : m_before(qgetenv("XDG_CACHE_HOME"))
    {
        qputenv("XDG_CACHE_HOME", folder.path(QString()).toLocal8Bit());
    }
    ~OwnCaches() { m_before.isNull() ? qunsetenv("XDG_CACHE_HOME") : qputenv("XDG_CACHE_HOME", m_before); }

    TemporaryFolder folder;

private:
    Q_DISABLE_COPY(OwnCaches)

    QByteArray m_before;
};

/// The environment of a name or file on the inputs of a pass.
template <typename Pass> void giveEnvironment(Pass &pass, EnvironmentLightRenderPass &light, const QString &name)
{
    light.setInput(EnvironmentLightRenderPass::Environment, name);
    light.start(nullptr);
    pass.setInput(Pass::Environment, light.output(EnvironmentLightRenderPass::EnvironmentTexture));
    pass.setInput(Pass::Irradiance, light.output(EnvironmentLightRenderPass::Irradiance));
    pass.setInput(Pass::EnvironmentRotation, light.output(EnvironmentLightRenderPass::EnvironmentRotationOut));
    pass.setInput(Pass::Lights, light.output(EnvironmentLightRenderPass::LightsOut));
}

} // namespace Velmora::Kvz
