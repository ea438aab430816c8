// SPDX-License-Identifier: MIT
#include <ExtraPasses/MaterialIdRenderPass.h>

#include "CoverageStencil.h"
#include "steps/InputRead.h"
#include "steps/ModelProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <Scene/GPUModel.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString vertexSource = QStringLiteral(R"(#version 150
#instancedata "InstanceInfo"
uniform mat4 u_CameraMatrix;
uniform mat4 u_ProjectionMatrix;
uniform mat4 u_NormalMatrix;
in vec3 va_Vertex;
in vec3 va_Normal;
out vec3 vo_Normal;

void main()
{
    gl_Position = u_ProjectionMatrix * u_CameraMatrix * getModelMatrix() * vec4(va_Vertex, 1.0);
    vo_Normal = mat3(u_NormalMatrix) * mat3(getModelNormalMatrix()) * va_Normal;
}
)");

const QString fragmentSource = QStringLiteral(R"(#version 150
#instancedata "OBJMaterial"
in vec3 vo_Normal;
out vec4 out_NormalAndMaterialId;

void main()
{
    out_NormalAndMaterialId = vec4(normalize(vo_Normal), float(getMaterialId() + 1));
}
)");

} // namespace

MaterialIdRenderPass::MaterialIdRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Normal"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
}

MaterialIdRenderPass::~MaterialIdRenderPass() = default;

void MaterialIdRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);

    ensureFramebuffer(m_framebuffer);
    if (!m_program)
        m_program = buildModelProgram({QStringLiteral("out_NormalAndMaterialId")}, vertexSource, fragmentSource);
    {
        AutoBinder framebuffer(m_framebuffer.get());
        if (size != m_size) {
            m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA32F, size, GL_RGBA, GL_FLOAT);
            remakeDepthStencilTarget(*m_framebuffer, size);
        }
        m_size = size;
        if (!size.isEmpty()) {
            m_framebuffer->setDrawBuffers();
            AutoBinder program(m_program.get());
            m_program->setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
            m_program->setUniform(QStringLiteral("u_CameraMatrix"), camera);
            m_program->setUniform(QStringLiteral("u_NormalMatrix"), camera.inverted().transposed());
            drawWithCoverage(model, m_program.get(), size);
        }
    }
    publishTarget(m_outputs[Normal], *m_framebuffer, GL_COLOR_ATTACHMENT0);
    publishTarget(m_outputs[Depth], *m_framebuffer, GL_DEPTH_STENCIL_ATTACHMENT);
}

} // namespace Velmora::Kvz
