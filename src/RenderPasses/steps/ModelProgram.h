// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>

namespace Velmora::Kvz {

class GLSLMacroProcessor;
class ShaderProgram;

/// A vertex stage that places a model and hands nothing on but the number of the item, where KVZ_DRAW_NUMBER_VARYING asks for it.
inline const QString modelPlaceVertexSource = QStringLiteral(R"(#version 150
#instancedata "InstanceInfo"
uniform mat4 u_CameraMatrix;
uniform mat4 u_ProjectionMatrix;
in vec3 va_Vertex;
#ifdef KVZ_DRAW_NUMBER_VARYING
flat out uint vo_DrawNumber;
int kvzDrawIndex();
#endif

void main()
{
#ifdef KVZ_DRAW_NUMBER_VARYING
    vo_DrawNumber = uint(kvzDrawIndex());
#endif
    gl_Position = u_ProjectionMatrix * u_CameraMatrix * getModelMatrix() * vec4(va_Vertex, 1.0);
}
)");

/// Adds the vertex stage of a program that draws a model: the source, the getters of the instance data plan, and the
/// utilities.
void addModelVertexStage(
    ShaderProgram &program, const QString &source, const QString &plan = QStringLiteral("InstanceInfo"));

/// Builds a program that draws a model with its materials: the vertex source has the getters of "InstanceInfo", the fragment
/// source those of "OBJMaterial" and `managedTexture`. `outputs` names the fragment outputs in the order of the colour
/// attachments; `macros` can be null. Whether it compiled and linked is not checked.
std::unique_ptr<ShaderProgram> buildModelProgram(const QStringList &outputs, const QString &vertexSource,
    const QString &fragmentSource, GLSLMacroProcessor *macros = nullptr);

} // namespace Velmora::Kvz
