// SPDX-License-Identifier: MIT
#include <ExtraPasses/LitForwardRenderPass.h>

#include "PlainLights.h"
#include "SurfaceProgram.h"
#include "steps/TargetFramebuffer.h"
#include "steps/TempTexture.h"

#include <GL/AutoBinder.h>
#include <GL/BlitTexture.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

// Clamped before it is multiplied, so that no colour exceeds its alpha.
const QString fragmentSource = QStringLiteral(R"(#version 150
#include "SurfaceShading.glslh"
out vec4 out_Frame;
#if TRIANGLE_IDS
out float out_Id;
#endif
)") + surfaceInputSource
    + directionToEyeSource + QStringLiteral(R"(
void main()
{
    Surface surface = surfaceAt(surfacePlace());
    if (!surface.isThere)
        discard;
    vec3 normal = surfaceNormal(surface, vo_Normal, gl_FrontFacing);
    vec3 shaded = clamp(shadeSurface(surface, fullVisibility, vo_Position, normal, directionToEye(vo_Position)), 0.0, 1.0);
    out_Frame = vec4(shaded * surface.opacity, surface.opacity);
#if TRIANGLE_IDS
    out_Id = float(gl_PrimitiveID + 1);
#endif
}
)");

} // namespace

LitForwardRenderPass::LitForwardRenderPass()
    : m_programs(std::make_unique<SurfaceProgramVariants>([this](GLSLMacroProcessor &macros) {
          macros.addDefine(QStringLiteral("TRIANGLE_IDS"), QString::number(m_hasIds ? 1 : 0));
          return buildSurfaceProgram(
              macros, {QStringLiteral("out_Frame"), QStringLiteral("out_Id")}, fragmentSource, {surfaceShadingFile});
      }))
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addLightInputs(*this);
    addInput(QStringLiteral("Kvz_KvzTexture*_Background"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Id"));
}

LitForwardRenderPass::~LitForwardRenderPass() = default;

void LitForwardRenderPass::start(RenderCallbacks *callbacks)
{
    const SurfaceScene scene = SurfaceScene::read(m_inputs);
    if (scene.size.isEmpty()) {
        skip(callbacks);
        return;
    }
    ensureFramebuffer(m_framebuffer);
    if (scene.size != m_size)
        resizeTargets(scene.size);
    {
        AutoBinder framebuffer(m_framebuffer.get());
        beginFrame(scene.size);
        scene.draw(*m_programs, m_isOpaqueOnly ? SurfaceSelection::Opaque : SurfaceSelection::All,
            [this](ShaderProgram &program) { PlainLights::read(m_inputs, HeadlightIntensity).set(program); });
        glDisable(GL_DEPTH_TEST);
    }
    publishTarget(m_outputs[Frame], *m_framebuffer, GL_COLOR_ATTACHMENT0);
    publishTarget(m_outputs[Depth], *m_framebuffer, GL_DEPTH_ATTACHMENT);
    publishTarget(m_outputs[Id], *m_framebuffer, GL_COLOR_ATTACHMENT1);
    giveBack(getInputPointer<Texture>(Background));
}

/// The background, or nothing where there is none, and a clear depth.
void LitForwardRenderPass::beginFrame(const QSize &size)
{
    m_framebuffer->setDrawBuffers();
    auto *const background = getInputPointer<Texture>(Background);
    if (!background) {
        clearForSurfaces(size);
        return;
    }
    BlitTexture(background, m_framebuffer->attachment(GL_COLOR_ATTACHMENT0), TextureFormat::LowDynamicRange,
        size.width(), size.height());
    setSurfaceState(size);
    glClear(GL_DEPTH_BUFFER_BIT);
    const GLfloat none[] = {0, 0, 0, 0};
    if (m_hasIds)
        glClearBufferfv(GL_COLOR, 1, none);
}

void LitForwardRenderPass::setOpaqueOnly(bool isOpaqueOnly)
{
    m_isOpaqueOnly = isOpaqueOnly;
}

void LitForwardRenderPass::setTriangleIds(bool hasIds)
{
    if (hasIds == m_hasIds)
        return;
    m_hasIds = hasIds;
    m_programs->clear();
    m_framebuffer.reset();
    m_size = QSize();
}

void LitForwardRenderPass::resizeTargets(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA8, size, GL_RGBA, GL_UNSIGNED_BYTE);
    if (m_hasIds)
        m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT1, GL_R32F, size, GL_RED, GL_FLOAT);
    m_framebuffer->remakeDepthTarget(size);
}

} // namespace Velmora::Kvz
