// SPDX-License-Identifier: MIT
#include "LazyProgram.h"

#include <Core/Log.h>
#include <GL/ShaderProgram.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

std::unique_ptr<ShaderProgram> buildProgram(const QStringList &outputs, const QString &vertexSource,
    const QString &fragmentSource, GLSLMacroProcessor *macros, const QStringList &fragmentFiles)
{
    auto program = std::make_unique<ShaderProgram>(nullptr);
    fillProgram(*program, outputs, vertexSource, fragmentSource, macros, fragmentFiles);
    return program;
}

void fillProgram(ShaderProgram &program, const QStringList &outputs, const QString &vertexSource,
    const QString &fragmentSource, GLSLMacroProcessor *macros, const QStringList &fragmentFiles)
{
    program.setMacroProcessor(macros);
    program.setFragDataLocations(outputs);
    program.addShader(GL_VERTEX_SHADER, vertexSource, QString());
    program.addShader(GL_FRAGMENT_SHADER, fragmentSource, QString());
    for (const QString &file : fragmentFiles)
        program.addShaderFromFile(GL_FRAGMENT_SHADER, file);
    program.compile();
    program.link();
    // The processor may be a local of the caller's.
    program.setMacroProcessor(nullptr);
}

bool compileAndLink(ShaderProgram &program, const char *file, int line)
{
    if (program.compile() && program.link())
        return true;
    logDebug(file, line, program.log());
    return false;
}

} // namespace Velmora::Kvz
