// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>

namespace Velmora::Kvz {

class GLSLMacroProcessor;
class ShaderProgram;

/// Builds a program of one vertex and one fragment source. `outputs` names the fragment outputs in the order of the colour
/// attachments; `macros` can be null; `fragmentFiles` are shader files that the fragment stage links with. Whether it
/// compiled and linked is not checked.
std::unique_ptr<ShaderProgram> buildProgram(const QStringList &outputs, const QString &vertexSource,
    const QString &fragmentSource, GLSLMacroProcessor *macros = nullptr, const QStringList &fragmentFiles = {});

/// The same for an empty program that is there already.
void fillProgram(ShaderProgram &program, const QStringList &outputs, const QString &vertexSource,
    const QString &fragmentSource, GLSLMacroProcessor *macros = nullptr, const QStringList &fragmentFiles = {});

/// Compiles and links a program whose sources are complete. Returns whether both succeeded; if not, the program's log is
/// logged at debug level for `file` and `line`, the caller's __FILE__ and __LINE__.
bool compileAndLink(ShaderProgram &program, const char *file, int line);

} // namespace Velmora::Kvz
