// SPDX-License-Identifier: MIT
#include "ModelProgram.h"

#include <GL/ShaderProgram.h>
#include <Scene/InstanceDataRegistry.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

void addModelVertexStage(ShaderProgram &program, const QString &source, const QString &plan)
{
    program.addShader(GL_VERTEX_SHADER, source, QString());
    program.addShader(GL_VERTEX_SHADER, InstanceDataRegistry::Instance().getPlan(plan).glslc(), QString());
    program.addShaderFromFile(GL_VERTEX_SHADER, QStringLiteral("KvzUtilities.glslc"));
}

std::unique_ptr<ShaderProgram> buildModelProgram(
    const QStringList &outputs, const QString &vertexSource, const QString &fragmentSource, GLSLMacroProcessor *macros)
{
    auto program = std::make_unique<ShaderProgram>(nullptr);
    program->setMacroProcessor(macros);
    program->setFragDataLocations(outputs);

    addModelVertexStage(*program, vertexSource);
    program->addShader(GL_FRAGMENT_SHADER, fragmentSource, QString());
    program->addShader(
        GL_FRAGMENT_SHADER, InstanceDataRegistry::Instance().getPlan(QStringLiteral("OBJMaterial")).glslc(), QString());
    program->addShaderFromFile(GL_FRAGMENT_SHADER, QStringLiteral("TextureManager.glslc"));
    program->addShaderFromFile(GL_FRAGMENT_SHADER, QStringLiteral("KvzUtilities.glslc"));

    program->compile();
    program->link();
    // The processor may be a local of the caller's.
    program->setMacroProcessor(nullptr);
    return program;
}

} // namespace Velmora::Kvz
