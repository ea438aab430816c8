// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

class GLSLMacroProcessor;
class ShaderProgram;

/// Builds a program of one vertex and one fragment source. `outputs` names the fragment outputs in the order of the colour
/// attachments; `macros` can be null. Whether it compiled and linked is not looked at.
ShaderProgram *buildProgram(const QStringList &outputs, const QString &vertexSource, const QString &fragmentSource,
    GLSLMacroProcessor *macros = nullptr);

} // namespace Velmora::Kvz
