// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

class ShaderProgram;

/// Builds a program that draws a model with its materials: the vertex source has the getters of "InstanceInfo", the fragment
/// source those of "OBJMaterial" and `managedTexture`. `outputs` names the fragment outputs in the order of the colour
/// attachments. Whether it compiled and linked is not looked at.
ShaderProgram *buildModelProgram(
    const QStringList &outputs, const QString &vertexSource, const QString &fragmentSource);

} // namespace Velmora::Kvz
