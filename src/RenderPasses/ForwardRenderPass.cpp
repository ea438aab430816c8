// SPDX-License-Identifier: MIT
#include <RenderPasses/ForwardRenderPass.h>

#include "steps/DirectionalLight.h"
#include "steps/ForwardVertex.h"
#include "steps/InputRead.h"
#include "steps/ModelProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"

#include <GL/AutoBinder.h>
#include <GL/AutoEnabler.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <Scene/GPUModel.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

// Intentional: the interpolated normal is not normalised.
const QString fragmentSource = QStringLiteral(R"(#version 150
#instancedata "OBJMaterial"
#include "TextureManager.glslh"
in vec3 vo_Normal;
in vec2 vo_TexCoord;
out vec4 out_FragColor;
out vec4 out_Id;
)") + directionalLightSource
    + QStringLiteral(R"(
void main()
{
    vec3 Kd = getKd() * managedTexture(getMap_Kd(), vo_TexCoord).rgb;
    vec3 Ks = getKs() * managedTexture(getMap_Ks(), vo_TexCoord).rgb;
    vec3 L = normalize(vec3(100.0, 100.0, 100.0));
    out_FragColor = vec4(directionalLight(Kd, Ks, getNs(), vo_Normal, L), getD());
    out_Id = vec4(gl_PrimitiveID + 1.0);
}
)");

} // namespace

ForwardRenderPass::ForwardRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Id"));
}

ForwardRenderPass::~ForwardRenderPass() = default;

void ForwardRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);

    ensureFramebuffer(m_framebuffer);
    if (size != m_size)
        resizeTargets(size);
    if (!m_program)
        m_program = buildModelProgram(
            {QStringLiteral("out_FragColor"), QStringLiteral("out_Id")}, forwardVertexSource, fragmentSource);

    {
        // Intentional: no glViewport here. The pass draws with the viewport that it finds.
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->setDrawBuffers();
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        if (model) {
            AutoEnabler depthTest(GL_DEPTH_TEST);
            AutoBinder program(m_program.get());
            m_program->setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
            m_program->setUniform(QStringLiteral("u_CameraMatrix"), camera);
            model->draw(m_program.get(), 0, 0, WindingCounterClockwise, false);
        }
    }

    publishTarget(m_outputs[Frame], *m_framebuffer, GL_COLOR_ATTACHMENT0);
    publishTarget(m_outputs[Id], *m_framebuffer, GL_COLOR_ATTACHMENT1);
}

void ForwardRenderPass::resizeTargets(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA, size, GL_BGRA, GL_FLOAT);
    m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT1, GL_RGBA, size, GL_BGRA, GL_FLOAT);
    m_framebuffer->remakeDepthTarget(size);
}

} // namespace Velmora::Kvz
