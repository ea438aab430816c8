// SPDX-License-Identifier: MIT
#include "Samples.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>

#include <gtest/gtest.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

Image readSample(Texture *texture, int sample)
{
    ShaderProgram program(nullptr);
    program.setFragDataLocations({QStringLiteral("out_Color")});
    program.addShader(GL_VERTEX_SHADER,
        QStringLiteral("#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"),
        QString());
    program.addShader(GL_FRAGMENT_SHADER,
        QStringLiteral("#version 150\nuniform sampler2DMS u_Image;\nuniform int u_Sample;\nout vec4 out_Color;\n"
                       "void main() { out_Color = texelFetch(u_Image, ivec2(gl_FragCoord.xy), u_Sample); }\n"),
        QString());
    EXPECT_TRUE(program.compile() && program.link());
    const std::unique_ptr<Texture> target = makeTexture(Image(texture->width(0), texture->height(0)), GL_RGBA32F);
    FramebufferObject framebuffer(nullptr);
    AutoBinder framebufferBinder(&framebuffer);
    framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    AutoBinder programBinder(&program);
    AutoBinder textureBinder(texture);
    program.setUniform(QStringLiteral("u_Image"), texture->unit());
    program.setUniform(QStringLiteral("u_Sample"), sample);
    const auto quad = OpenGLDeviceContext::current()->createScreenQuad();
    AutoBinder quadBinder(quad);
    EXPECT_TRUE(quad->draw());
    return readTexture(target.get());
}

} // namespace Velmora::Kvz
