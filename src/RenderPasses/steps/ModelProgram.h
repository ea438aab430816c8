// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

class ShaderProgram;

/// Adds the vertex stage of a program that draws a model: the source, the getters of the instance data plan, and the utilities.
void addModelVertexStage(
    ShaderProgram *program, const QString &source, const QString &plan = QStringLiteral("InstanceInfo"));

/// Builds a program that draws a model with its materials: the vertex source has the getters of "InstanceInfo", the fragment
/// source those of "OBJMaterial" and `managedTexture`. `outputs` names the fragment outputs in the order of the colour
/// attachments. Whether it compiled and linked is not looked at.
ShaderProgram *buildModelProgram(
    const QStringList &outputs, const QString &vertexSource, const QString &fragmentSource);

} // namespace Velmora::Kvz
