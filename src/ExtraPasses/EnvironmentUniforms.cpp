// SPDX-License-Identifier: MIT
#include "EnvironmentUniforms.h"

#include <GL/ShaderProgram.h>

#include <QtGui/QVector3D>

#include <cmath>

namespace Velmora::Kvz {

void EnvironmentUniforms::set(ShaderProgram &program, const QMatrix4x4 &camera) const
{
    QMatrix4x4 turn;
    turn.rotate(std::isfinite(rotation) ? -rotation : 0, 0, 1, 0);
    const QMatrix4x4 toEnvironment = turn * camera.inverted();
    QVector<float> coefficients(27, 0.0f);
    const QVariantList given = irradiance.toList();
    for (int i = 0; given.size() == 9 && i < 9; ++i) {
        const auto coefficient = given[i].value<QVector3D>();
        for (int channel = 0; channel < 3; ++channel)
            coefficients[3 * i + channel] = coefficient[channel];
    }
    program.setUniform(QStringLiteral("u_EnvironmentLevels"), levels);
    program.setUniform(QStringLiteral("u_EnvironmentFromCamera"), toEnvironment);
    program.setUniform(QStringLiteral("u_Irradiance"), coefficients);
}

} // namespace Velmora::Kvz
