// SPDX-License-Identifier: MIT
#include "SmaaFixture.h"

#include "support/Cameras.h"
#include "support/Meshes.h"

#include <GL/DrawBuffers.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <RenderPasses/ForwardRenderPass.h>
#include <Scene/GPUModelBuilder.h>

namespace Velmora::Kvz {

namespace {

/// A program that copies an image texel by texel; one of a single texel goes everywhere.
std::unique_ptr<ShaderProgram> copyProgram()
{
    auto program = std::make_unique<ShaderProgram>(nullptr);
    program->setFragDataLocations({QStringLiteral("out_Color")});
    program->addShader(GL_VERTEX_SHADER,
        QStringLiteral("#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"),
        QString());
    program->addShader(GL_FRAGMENT_SHADER,
        QStringLiteral("#version 150\nuniform sampler2D u_Source;\nout vec4 out_Color;\nvoid main()\n{\n"
                       "    ivec2 last = textureSize(u_Source, 0) - 1;\n"
                       "    out_Color = texelFetch(u_Source, min(ivec2(gl_FragCoord.xy), last), 0);\n}\n"),
        QString());
    program->compile();
    program->link();
    return program;
}

} // namespace

Image renderedFrame(const QSize &size)
{
    GPUModelBuilder builder;
    const int box = builder.addMesh(boxMesh());
    const int sphere = builder.addMesh(sphereMesh(12));
    const int ground = builder.addMesh(groundMesh());
    const auto add = [&](int mesh, const QVector3D &color, const QVector3D &place, float angle,
                         const QVector3D &scale) {
        MaterialData material;
        material.kd = color;
        QMatrix4x4 matrix;
        matrix.translate(place);
        matrix.rotate(angle, 0.3f, 1, 0.2f);
        matrix.scale(scale);
        builder.addItem(mesh, builder.addMaterial(material), matrix);
    };
    add(ground, {0.5f, 0.5f, 0.45f}, {0, -1, 0}, 0, {8, 1, 8});
    add(box, {0.9f, 0.2f, 0.1f}, {-1.5f, 0, 0}, 27, {0.7f, 0.9f, 0.7f});
    add(sphere, {0.2f, 0.7f, 0.9f}, {0.6f, 0.1f, 0.8f}, 0, {0.8f, 0.8f, 0.8f});
    add(box, {0.9f, 0.9f, 0.3f}, {1.8f, 0.6f, -1}, -38, {0.05f, 1.8f, 0.05f});
    for (int i = 0; i < 8; ++i)
        add(box, {0.8f, 0.8f, 0.9f}, {-4.0f + float(i), 0.4f, -4}, 8.0f * float(i), {0.06f, 1.4f, 0.4f});
    const QSharedPointer<GPUModel> model = builder.build();
    ForwardRenderPass pass;
    glViewport(0, 0, size.width(), size.height());
    pass.setInput(ForwardRenderPass::Viewport, QRect(QPoint(), size));
    pass.setInput(ForwardRenderPass::Geometry, QVariant::fromValue(model.data()));
    pass.setInput(ForwardRenderPass::ProjectionMatrix, perspective(size, 0.5f, 40));
    pass.setInput(ForwardRenderPass::CameraMatrix, lookAt(QVector3D(1.2f, 2.2f, 6), QVector3D(0, 0.1f, 0)));
    pass.start(nullptr);
    return readTexture(pass.output(ForwardRenderPass::Frame).value<Texture *>());
}

void drawCopy(Texture *source)
{
    const auto program = copyProgram();
    AutoBinder programBinder(program.get());
    AutoBinder sourceBinder(source);
    program->setUniform(QStringLiteral("u_Source"), source->unit());
    const QSharedPointer<DrawBuffers> quad = OpenGLDeviceContext::current()->createScreenQuad();
    AutoBinder quadBinder(quad);
    quad->draw();
}

} // namespace Velmora::Kvz
