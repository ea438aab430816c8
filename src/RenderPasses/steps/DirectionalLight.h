// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

/// The light of the shading passes: `vec3 directionalLight(vec3 Kd, vec3 Ks, float Ns, vec3 N, vec3 L)`, Lambert's term and
/// Blinn's highlight, seen along the camera's axis. `N` and `L` are in camera space, `L` towards the light; neither is
/// normalised here.
// Inline, so that a source built from it at load time finds it filled in.
inline const QString directionalLightSource = QStringLiteral(R"(
vec3 directionalLight(vec3 Kd, vec3 Ks, float Ns, vec3 N, vec3 L)
{
    vec3 V = vec3(0.0, 0.0, 1.0);
    vec3 H = normalize(L + V);
    float NdotL = max(0.0, dot(N, L));
    float NdotH = max(0.0, dot(N, H));
    return NdotL * Kd + pow(NdotH, Ns) * Ks;
}
)");

} // namespace Velmora::Kvz
