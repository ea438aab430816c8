// SPDX-License-Identifier: MIT
#include "ModelProgram.h"

#include <GL/ShaderProgram.h>
#include <Scene/InstanceDataRegistry.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

ShaderProgram *buildModelProgram(const QStringList &outputs, const QString &vertexSource, const QString &fragmentSource)
{
    const InstanceDataRegistry &plans = InstanceDataRegistry::Instance();
    auto *const program = new ShaderProgram(nullptr);
    program->setFragDataLocations(outputs);

    program->addShader(GL_VERTEX_SHADER, vertexSource, QString());
    program->addShader(GL_VERTEX_SHADER, plans.getPlan(QStringLiteral("InstanceInfo")).glslc(), QString());
    program->addShaderFromFile(GL_VERTEX_SHADER, QStringLiteral("KvzUtilities.glslc"));

    program->addShader(GL_FRAGMENT_SHADER, fragmentSource, QString());
    program->addShader(GL_FRAGMENT_SHADER, plans.getPlan(QStringLiteral("OBJMaterial")).glslc(), QString());
    program->addShaderFromFile(GL_FRAGMENT_SHADER, QStringLiteral("TextureManager.glslc"));
    program->addShaderFromFile(GL_FRAGMENT_SHADER, QStringLiteral("KvzUtilities.glslc"));

    program->compile();
    program->link();
    return program;
}

} // namespace Velmora::Kvz
