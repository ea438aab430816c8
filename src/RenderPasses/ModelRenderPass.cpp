// SPDX-License-Identifier: MIT
#include <RenderPasses/ModelRenderPass.h>

#include "steps/GeometryTargets.h"
#include "steps/InputRead.h"
#include "steps/MaterialImages.h"
#include "steps/ModelProgram.h"
#include "steps/Replaced.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

ModelRenderPass::ModelRenderPass()
    : m_configs{
        {QStringLiteral("out_Kd"), GL_RGBA32F},
        {QStringLiteral("out_Ks"), GL_RGBA32F},
        {QStringLiteral("out_Normal"), GL_RGB32F},
        {QStringLiteral("out_Id"), GL_R32F},
    }
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Diffuse"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Specular"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Normal"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Id"));
}

ModelRenderPass::~ModelRenderPass() = default;

void ModelRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);
    const QMatrix4x4 normalMatrix = camera.inverted().transposed();

    ensureFramebuffer(m_framebuffer);
    if (size != m_size)
        resizeTargets(size);
    if (!m_program)
        m_program = buildModelProgram(
            outputNames(m_configs), materialImagesVertexSource, materialImagesFragmentSource(m_discardOnDiffuseAlpha));

    {
        // Intentional: no glViewport here. The pass draws with the viewport that it finds.
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->setDrawBuffers();
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        if (model) {
            glEnable(GL_DEPTH_TEST);
            AutoBinder program(m_program.get());
            m_program->setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
            m_program->setUniform(QStringLiteral("u_CameraMatrix"), camera);
            m_program->setUniform(QStringLiteral("u_NormalMatrix"), normalMatrix);
            model->draw(m_program.get(), 0, 0, WindingCounterClockwise, false);
        }
    }

    publishTarget(m_outputs[Diffuse], *m_framebuffer, GL_COLOR_ATTACHMENT0);
    publishTarget(m_outputs[Specular], *m_framebuffer, GL_COLOR_ATTACHMENT1);
    publishTarget(m_outputs[Normal], *m_framebuffer, GL_COLOR_ATTACHMENT2);
    publishTarget(m_outputs[Depth], *m_framebuffer, GL_DEPTH_ATTACHMENT);
    publishTarget(m_outputs[Id], *m_framebuffer, GL_COLOR_ATTACHMENT3);
}

void ModelRenderPass::setShaderProgram(ShaderProgram *program)
{
    replaceUndeleted(m_program, program);
}

void ModelRenderPass::setDiscardOnDiffuseAlpha(bool discard)
{
    m_discardOnDiffuseAlpha = discard;
}

void ModelRenderPass::resizeTargets(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer.get());
    remakeColorTargets(*m_framebuffer, m_configs, size);
    auto depth = std::make_unique<Texture>(nullptr);
    depth->setTarget(GL_TEXTURE_2D);
    m_framebuffer->replaceTarget(
        GL_DEPTH_ATTACHMENT, std::move(depth), GL_DEPTH_COMPONENT32F, size, GL_DEPTH_COMPONENT, GL_FLOAT);
}

} // namespace Velmora::Kvz
