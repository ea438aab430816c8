// SPDX-License-Identifier: MIT
#include "LazyProgram.h"

#include <GL/ShaderProgram.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

ShaderProgram *buildProgram(
    const QStringList &outputs, const QString &vertexSource, const QString &fragmentSource, GLSLMacroProcessor *macros)
{
    auto *program = new ShaderProgram(nullptr);
    program->setMacroProcessor(macros);
    program->setFragDataLocations(outputs);
    program->addShader(GL_VERTEX_SHADER, vertexSource, QString());
    program->addShader(GL_FRAGMENT_SHADER, fragmentSource, QString());
    program->compile();
    program->link();
    program->setMacroProcessor(nullptr);
    return program;
}

} // namespace Velmora::Kvz
