// SPDX-License-Identifier: MIT
#include "MultisampleTextures.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/InternalFormat.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

void build(ShaderProgram *program, const char *fragment)
{
    program->setFragDataLocations({QStringLiteral("out_Color")});
    program->addShader(GL_VERTEX_SHADER,
        QStringLiteral("#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"),
        QString());
    program->addShader(GL_FRAGMENT_SHADER, QString::fromUtf8(fragment), QString());
    program->compile();
    program->link();
}

} // namespace

std::unique_ptr<Texture> makeMultisampleTexture(
    const Image &first, const Image &others, int internalFormat, int samples)
{
    auto texture =
        std::make_unique<Texture>(GL_TEXTURE_2D_MULTISAMPLE, internalFormat, first.width, first.height, 0, nullptr);
    {
        AutoBinder binder(texture.get());
        glTexImage2DMultisample(
            GL_TEXTURE_2D_MULTISAMPLE, samples, GLenum(internalFormat), first.width, first.height, GL_TRUE);
    }
    ShaderProgram program;
    build(&program,
        "#version 150\nuniform sampler2D u_Source;\nout vec4 out_Color;\nvoid main()\n{\n"
        "    out_Color = texelFetch(u_Source, ivec2(gl_FragCoord.xy), 0);\n    gl_FragDepth = out_Color.r;\n}\n");
    const QSharedPointer<DrawBuffers> quad = OpenGLDeviceContext::current()->createScreenQuad();
    const bool isDepth = isDepthFormat(GLenum(internalFormat));
    FramebufferObject framebuffer;
    AutoBinder framebufferBinder(&framebuffer);
    framebuffer.attach(texture.get(), isDepth ? GL_DEPTH_STENCIL_ATTACHMENT : GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    glViewport(0, 0, first.width, first.height);
    glDisable(GL_BLEND);
    glDisable(GL_CULL_FACE);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_ALWAYS);
    glDepthMask(GL_TRUE);
    glEnable(GL_SAMPLE_MASK);
    AutoBinder programBinder(&program);
    AutoBinder quadBinder(quad);
    for (const Image *image : {&first, &others}) {
        const std::unique_ptr<Texture> source = makeTexture(*image, image->channels == 1 ? GL_R32F : GL_RGBA32F);
        AutoBinder sourceBinder(source.get());
        program.setUniform(QStringLiteral("u_Source"), source->unit());
        glSampleMaski(0, image == &first ? 1u : ~1u);
        quad->draw();
    }
    glSampleMaski(0, ~0u);
    glDisable(GL_SAMPLE_MASK);
    glDisable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
    return texture;
}

Image readSample(const Texture *texture, int sample)
{
    const int width = texture->width(0);
    const int height = texture->height(0);
    const std::unique_ptr<Texture> target = makeTexture(Image(width, height), GL_RGBA32F);
    ShaderProgram program;
    build(&program,
        "#version 150\nuniform sampler2DMS u_Source;\nuniform int u_Sample;\nout vec4 out_Color;\n"
        "void main() { out_Color = texelFetch(u_Source, ivec2(gl_FragCoord.xy), u_Sample); }\n");
    const QSharedPointer<DrawBuffers> quad = OpenGLDeviceContext::current()->createScreenQuad();
    FramebufferObject framebuffer;
    AutoBinder framebufferBinder(&framebuffer);
    framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    glDisable(GL_BLEND);
    AutoBinder programBinder(&program);
    AutoBinder sourceBinder(const_cast<Texture *>(texture));
    program.setUniform(QStringLiteral("u_Source"), texture->unit());
    program.setUniform(QStringLiteral("u_Sample"), sample);
    AutoBinder quadBinder(quad);
    quad->draw();
    return readTexture(target.get());
}

} // namespace Velmora::Kvz
