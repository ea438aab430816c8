// SPDX-License-Identifier: MIT
#include "ScreenQuad.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/OpenGLDeviceContext.h>

namespace Velmora::Kvz {

const QString screenQuadVertexSource = QStringLiteral(R"(#version 150
in vec3 va_Vertex;
in vec2 va_TexCoord;
out vec2 vo_TexCoord;

void main()
{
    gl_Position = vec4(va_Vertex, 1.0);
    vo_TexCoord = va_TexCoord;
}
)");

bool ensureFramebuffer(std::unique_ptr<FramebufferObject> &framebuffer)
{
    if (framebuffer)
        return false;
    framebuffer = std::make_unique<FramebufferObject>(nullptr);
    return true;
}

void ensureScreenQuad(QSharedPointer<DrawBuffers> &quad, const ShaderProgram &program)
{
    if (quad)
        return;
    quad = OpenGLDeviceContext::current()->createScreenQuad();
    enableArrays(quad, program);
}

void ensureScreenQuad2(QSharedPointer<DrawBuffers> &quad, const ShaderProgram &program)
{
    if (quad)
        return;
    quad = OpenGLDeviceContext::current()->createScreenQuad2();
    enableArrays(quad, program);
}

void enableArrays(const QSharedPointer<DrawBuffers> &quad, const ShaderProgram &program)
{
    AutoBinder binder(quad->VAO());
    quad->VAO()->enableShaderProgramArrays(&program);
}

} // namespace Velmora::Kvz
