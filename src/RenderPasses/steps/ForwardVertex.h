// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

/// The vertex stage of passes that shade a model while they draw it, for buildModelProgram(): `vo_Normal` in camera space and
/// `vo_TexCoord`.
// Intentional: a normal matrix for each vertex, of camera and model together, and the normal's w of 1. Inline, so that a
// source built from it at load time finds it filled in.
inline const QString forwardVertexSource = QStringLiteral(R"(#version 150
#instancedata "InstanceInfo"
uniform mat4 u_CameraMatrix;
uniform mat4 u_ProjectionMatrix;
in vec3 va_Vertex;
in vec3 va_Normal;
in vec2 va_TexCoord;
out vec3 vo_Normal;
out vec2 vo_TexCoord;

void main()
{
    gl_Position = u_ProjectionMatrix * u_CameraMatrix * getModelMatrix() * vec4(va_Vertex, 1.0);
    mat4 normalMatrix = transpose(inverse(u_CameraMatrix * getModelMatrix()));
    vo_Normal = (normalMatrix * vec4(va_Normal, 1.0)).xyz;
    vo_TexCoord = va_TexCoord;
}
)");

} // namespace Velmora::Kvz
