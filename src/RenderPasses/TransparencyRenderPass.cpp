// SPDX-License-Identifier: MIT
#include <RenderPasses/TransparencyRenderPass.h>

#include "steps/DirectionalLight.h"
#include "steps/ForwardVertex.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ModelProgram.h"
#include "steps/OneTexel.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/AutoDisabler.h>
#include <GL/AutoEnabler.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString materialHeader = QStringLiteral(R"(#version 150
#instancedata "OBJMaterial"
#include "TextureManager.glslh"
in vec3 vo_Normal;
in vec2 vo_TexCoord;
)");

// Intentional: the interpolated normal is not normalised.
const QString materialLight = directionalLightSource + QStringLiteral(R"(
vec3 light()
{
    vec3 Kd = getKd() * managedTexture(getMap_Kd(), vo_TexCoord).rgb;
    vec3 Ks = getKs() * managedTexture(getMap_Ks(), vo_TexCoord).rgb;
    vec3 L = normalize(vec3(100.0, 100.0, 100.0));
    return directionalLight(Kd, Ks, getNs(), vo_Normal, L);
}
)");

// Intentional: out_Id is never written.
const QString opaqueSource = materialHeader + QStringLiteral(R"(out vec4 out_FragColor;
out vec4 out_Id;
)") + materialLight
    + QStringLiteral(R"(
void main()
{
    float alpha = getD();
    if (alpha < 1.0)
        discard;
    out_FragColor = vec4(light(), alpha);
}
)");

// Intentional: the divisor is multiplied by alpha, the colour is not.
const QString accumSource = materialHeader + QStringLiteral(R"(out vec4 out_FragColor[2];
)") + materialLight
    + QStringLiteral(R"(
void main()
{
    float alpha = getD();
    float weight = pow(abs(gl_FragCoord.z), -5.0);
    vec3 color = light();
    out_FragColor[0] = vec4(color * weight, alpha);
    out_FragColor[1] = vec4(alpha * weight);
}
)");

const QString resolveSource = QStringLiteral(R"(#version 150
uniform sampler2D u_SamplerA;
uniform sampler2D u_SamplerB;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    vec4 accum = texelFetch(u_SamplerA, ivec2(gl_FragCoord.xy), 0);
    float r = accum.a;
    accum.a = texelFetch(u_SamplerB, ivec2(gl_FragCoord.xy), 0).r;
    out_FragColor = vec4(accum.rgb / clamp(accum.a, 1e-4, 5e4), r);
}
)");

} // namespace

TransparencyRenderPass::TransparencyRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Texture"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
}

TransparencyRenderPass::~TransparencyRenderPass() = default;

void TransparencyRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);

    ensureFramebuffer(m_framebuffer);
    ensureFramebuffer(m_accumFramebuffer);
    if (size != m_size)
        resizeTargets(size);
    makeWhatIsMissing();

    {
        // Intentional: neither glViewport nor glClearColor here. The pass takes both as it finds them.
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->setDrawBuffers();
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        if (model) {
            AutoEnabler depthTest(GL_DEPTH_TEST);
            AutoBinder program(m_opaqueProgram.get());
            drawModel(*m_opaqueProgram, model, projection, camera);
        }
    }
    {
        // The revealage begins at 1, the weight at 0. Depth is kept.
        AutoBinder framebuffer(m_accumFramebuffer.get());
        m_accumFramebuffer->setDrawBuffers();
        glClearColor(0, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        glClearColor(0, 0, 0, 0);
        if (model) {
            AutoEnabler depthTest(GL_DEPTH_TEST);
            AutoEnabler blend(GL_BLEND);
            glBlendFuncSeparate(GL_ONE, GL_ONE, GL_ZERO, GL_ONE_MINUS_SRC_ALPHA);
            glDepthMask(GL_FALSE);
            AutoBinder program(m_accumProgram.get());
            drawModel(*m_accumProgram, model, projection, camera);
            glDepthMask(GL_TRUE);
        }
    }
    if (model)
        resolve();

    publishTarget(m_outputs[Frame], *m_framebuffer, GL_COLOR_ATTACHMENT0);
    publishTarget(m_outputs[Depth], *m_framebuffer, GL_DEPTH_ATTACHMENT);
}

void TransparencyRenderPass::resizeTargets(const QSize &size)
{
    m_size = size;
    {
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA32F, size, GL_BGRA, GL_FLOAT);
        m_framebuffer->remakeDepthTarget(size);
    }
    AutoBinder framebuffer(m_accumFramebuffer.get());
    m_accumFramebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA32F, size, GL_BGRA, GL_FLOAT);
    m_accumFramebuffer->remakeTarget(GL_COLOR_ATTACHMENT1, GL_R32F, size, GL_BGRA, GL_FLOAT);
    m_accumFramebuffer->detach(GL_DEPTH_ATTACHMENT);
    m_accumFramebuffer->attach(m_framebuffer->attachment(GL_DEPTH_ATTACHMENT), GL_DEPTH_ATTACHMENT, 0);
}

void TransparencyRenderPass::makeWhatIsMissing()
{
    if (!m_whiteTexture)
        m_whiteTexture = makeOneTexel(0xFF); // Intentional, though nothing binds it.
    if (!m_opaqueProgram)
        m_opaqueProgram = buildModelProgram({QStringLiteral("out_FragColor")}, forwardVertexSource, opaqueSource);
    if (!m_accumProgram)
        m_accumProgram = buildModelProgram(
            {QStringLiteral("out_FragColor[0]"), QStringLiteral("out_FragColor[1]")}, forwardVertexSource, accumSource);
    if (!m_resolveProgram)
        m_resolveProgram = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, resolveSource);
    ensureScreenQuad(m_screenQuad, *m_resolveProgram);
}

void TransparencyRenderPass::drawModel(
    ShaderProgram &program, GPUModel *model, const QMatrix4x4 &projection, const QMatrix4x4 &camera)
{
    setIfPresent(program, QStringLiteral("u_ProjectionMatrix"), projection);
    setIfPresent(program, QStringLiteral("u_CameraMatrix"), camera);
    model->draw(&program, 0, 0, WindingCounterClockwise, false);
}

/// Blends the weighted mean over the opaque image: the less of that is revealed, the more of the mean shows.
void TransparencyRenderPass::resolve()
{
    AutoDisabler depthTest(GL_DEPTH_TEST);
    AutoEnabler blend(GL_BLEND);
    glBlendFunc(GL_ONE_MINUS_SRC_ALPHA, GL_SRC_ALPHA);
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->setDrawBuffers();
    AutoBinder program(m_resolveProgram.get());
    Texture *const colors = m_accumFramebuffer->attachment(GL_COLOR_ATTACHMENT0);
    Texture *const weights = m_accumFramebuffer->attachment(GL_COLOR_ATTACHMENT1);
    if (!colors || !weights)
        return;
    AutoBinder colorBinder(colors);
    AutoBinder weightBinder(weights);
    m_resolveProgram->setUniform(QStringLiteral("u_SamplerA"), colors->unit());
    m_resolveProgram->setUniform(QStringLiteral("u_SamplerB"), weights->unit());
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

} // namespace Velmora::Kvz
