// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

class ShaderProgram;

/// What EnvironmentLight.glslc reads beside its texture.
struct EnvironmentUniforms
{
    int levels = 0; ///< Of the texture; 0: there are no surroundings.
    float rotation = 0; ///< Of the environment about +y, in degrees.
    QVariant irradiance; ///< A list of nine QVector3D; anything else is darkness.

    void set(ShaderProgram &program, const QMatrix4x4 &camera) const;
};

} // namespace Velmora::Kvz
