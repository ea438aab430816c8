// SPDX-License-Identifier: MIT
#include "Fixtures.h"

#include <GL/AutoBinder.h>
#include <GL/OpenGLDeviceContext.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

const QString quadVertexSource = QStringLiteral(R"(#version 150
in vec3 va_Vertex;
in vec2 va_TexCoord;
out vec2 vo_TexCoord;

void main()
{
    vo_TexCoord = va_TexCoord;
    gl_Position = vec4(va_Vertex, 1.0);
}
)");

std::unique_ptr<ShaderProgram> makeProgram(
    const QVector<QPair<unsigned int, QString>> &sources, const QStringList &outputs)
{
    auto program = std::make_unique<ShaderProgram>(nullptr);
    program->setFragDataLocations(outputs);
    for (const QPair<unsigned int, QString> &source : sources)
        program->addShader(int(source.first), source.second, QString());
    EXPECT_TRUE(program->compile()) << qPrintable(program->log());
    EXPECT_TRUE(program->link()) << qPrintable(program->log());
    return program;
}

std::unique_ptr<ShaderProgram> makeQuadProgram(const QString &fragmentSource)
{
    return makeProgram({{GL_VERTEX_SHADER, quadVertexSource}, {GL_FRAGMENT_SHADER, fragmentSource}});
}

std::unique_ptr<ShaderProgram> makeColorProgram()
{
    return makeQuadProgram(QStringLiteral(R"(#version 150
uniform vec4 u_Color;
out vec4 out_FragColor;

void main()
{
    out_FragColor = u_Color;
}
)"));
}

bool drawQuad(ShaderProgram *program)
{
    const QSharedPointer<DrawBuffers> quad = OpenGLDeviceContext::current()->createScreenQuad();
    AutoBinder programBinder(program);
    AutoBinder quadBinder(quad);
    return quad->draw();
}

std::unique_ptr<Texture> makeBlankTexture(int width, int height, int internalFormat)
{
    return makeTexture(Image(width, height), internalFormat);
}

} // namespace Velmora::Kvz
