// SPDX-License-Identifier: MIT
#include <RenderPasses/GBufferRenderPass.h>

#include "steps/GeometryTargets.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/Replaced.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QMatrix4x4>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString vertexSource = QStringLiteral(R"(#version 150
uniform mat4 u_CameraMatrix;
uniform mat4 u_ProjectionMatrix;
in vec3 va_Vertex;
in vec3 va_Normal;
in vec2 va_TexCoord;
out vec3 vo_Vertex;
out vec3 vo_Normal;
out vec2 vo_TexCoord;

void main()
{
    gl_Position = u_ProjectionMatrix * u_CameraMatrix * vec4(va_Vertex, 1.0);
    vo_Vertex = va_Vertex;
    vo_Normal = va_Normal;
    vo_TexCoord = va_TexCoord;
}
)");

// vo_Vertex is not read; it is there for programs that extend this one.
const QString fragmentSource = QStringLiteral(R"(#version 150
in vec3 vo_Vertex;
in vec3 vo_Normal;
in vec2 vo_TexCoord;
out vec3 out_Normal;
out vec2 out_TexCoord;
out vec4 out_Id;

void main()
{
    out_Normal = vo_Normal;
    out_TexCoord = vo_TexCoord;
    out_Id = vec4(gl_PrimitiveID + 1.0);
}
)");

} // namespace

GBufferRenderPass::GBufferRenderPass()
    : m_configs{
        {QStringLiteral("out_Normal"), GL_RGB32F},
        {QStringLiteral("out_TexCoord"), GL_RG32F},
        {QStringLiteral("out_Id"), GL_R32F},
    }
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzDrawBuffers*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Normal"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_TexCoord"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Id"));
}

GBufferRenderPass::~GBufferRenderPass() = default;

void GBufferRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    glViewport(0, 0, size.width(), size.height());
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    const QVariant geometry = m_inputs[Geometry].value;
    const QVariantList elements =
        geometry.canConvert<QVariantList>() ? geometry.value<QVariantList>() : QVariantList{geometry};

    if (ensureFramebuffer(m_framebuffer))
        m_size = QSize(0, 0);
    if (size != m_size)
        resizeTargets(size);
    if (!m_program)
        m_program = buildProgram(outputNames(m_configs), vertexSource, fragmentSource);

    {
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->setDrawBuffers();
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        if (!elements.isEmpty()) {
            glEnable(GL_DEPTH_TEST);
            AutoBinder program(m_program.get());
            m_program->setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
            m_program->setUniform(QStringLiteral("u_CameraMatrix"), camera);
            for (const QVariant &element : elements) {
                auto *const drawBuffers = element.value<DrawBuffers *>();
                if (!drawBuffers || !drawBuffers->VAO())
                    continue; // Not what the pass accepts, so there is nothing to draw.
                {
                    AutoBinder vao(drawBuffers->VAO());
                    drawBuffers->VAO()->enableShaderProgramArrays(m_program.get());
                }
                AutoBinder binder(drawBuffers);
                drawBuffers->draw();
            }
        }
    }

    publishTarget(m_outputs[Normal], *m_framebuffer, GL_COLOR_ATTACHMENT0);
    publishTarget(m_outputs[TexCoord], *m_framebuffer, GL_COLOR_ATTACHMENT1);
    publishTarget(m_outputs[Depth], *m_framebuffer, GL_DEPTH_ATTACHMENT);
    publishTarget(m_outputs[Id], *m_framebuffer, GL_COLOR_ATTACHMENT2);
}

void GBufferRenderPass::setShaderProgram(ShaderProgram *program)
{
    replaceUndeleted(m_program, program);
}

void GBufferRenderPass::resizeTargets(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer.get());
    remakeColorTargets(*m_framebuffer, m_configs, size);
    m_framebuffer->remakeDepthTarget(size);
}

} // namespace Velmora::Kvz
