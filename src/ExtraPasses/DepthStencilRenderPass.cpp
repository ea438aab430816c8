// SPDX-License-Identifier: MIT
#include <ExtraPasses/DepthStencilRenderPass.h>

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

const QString fragmentSource = QStringLiteral(R"(#version 150
void main()
{
}
)");

} // namespace

DepthStencilRenderPass::DepthStencilRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
}

DepthStencilRenderPass::~DepthStencilRenderPass() = default;

void DepthStencilRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);

    ensureFramebuffer(m_framebuffer);
    if (!m_program)
        m_program = buildModelProgram({}, modelPlaceVertexSource, fragmentSource);
    {
        AutoBinder framebuffer(m_framebuffer.get());
        if (size != m_size)
            remakeDepthStencilTarget(*m_framebuffer, size);
        m_size = size;
        if (!size.isEmpty()) {
            m_framebuffer->setDrawBuffers();
            AutoBinder program(m_program.get());
            m_program->setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
            m_program->setUniform(QStringLiteral("u_CameraMatrix"), camera);
            drawWithCoverage(model, m_program.get(), size);
        }
    }
    publishTarget(m_outputs[Depth], *m_framebuffer, GL_DEPTH_STENCIL_ATTACHMENT);
}

} // namespace Velmora::Kvz
