// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

/// `vec4 positionFromDepth(vec2 uv, float depth)`: the camera-space point, its w 1, of a place on the screen and a window
/// depth, all from 0 to 1. The uniform `u_InvProjMatrix` is the inverse of the projection.
// Inline, so that a source built from it at load time finds it filled in.
inline const QString positionFromDepthSource = QStringLiteral(R"(
uniform mat4 u_InvProjMatrix;

vec4 positionFromDepth(vec2 uv, float depth)
{
    vec2 xy = uv * 2.0 - 1.0;
    float z = 2.0 * depth - 1.0;
    vec4 pos = u_InvProjMatrix * vec4(xy, z, 1.0);
    return pos / pos.w;
}
)");

} // namespace Velmora::Kvz
