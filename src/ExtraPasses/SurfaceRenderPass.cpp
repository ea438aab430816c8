// SPDX-License-Identifier: MIT
#include <ExtraPasses/SurfaceRenderPass.h>

#include "SurfaceProgram.h"
#include "steps/GeometryTargets.h"

#include <GL/AutoBinder.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>
#include <Scene/SurfaceFeature.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

struct Target
{
    QString outputName;
    int internalFormat;
};

// In the order of the attachments.
const QList<Target> &allTargets()
{
    static const QList<Target> list{
        {QStringLiteral("out_Diffuse"), GL_RGBA8},
        {QStringLiteral("out_Specular"), GL_RGBA16F},
        {QStringLiteral("out_Normal"), GL_RGBA16F},
        {QStringLiteral("out_Emission"), GL_RGBA16F},
        {QStringLiteral("out_Id"), GL_R32F},
    };
    return list;
}

constexpr int neededTargets = 3; ///< The first ones, which every surface needs.

QList<Target> targets(bool hasEmission, bool hasIds)
{
    return allTargets().mid(0, hasIds ? -1 : neededTargets + (hasEmission ? 1 : 0));
}

// Half floats end at 65504.
const QString fragmentSource = QStringLiteral(R"(#version 150
#instancedata "SurfaceMaterial"
#include "Surface.glslh"
out vec4 out_Diffuse;
out vec4 out_Specular;
out vec4 out_Normal;
#if EMISSION
out vec4 out_Emission;
#endif
#if TRIANGLE_IDS
out float out_Id;
#endif
)") + surfaceInputSource
    + QStringLiteral(R"(
void main()
{
    Surface surface = surfaceAt(surfacePlace());
    if (!surface.isThere)
        discard;
    out_Diffuse = vec4(surface.baseColour, surface.opacity);
    out_Specular = min(vec4(surface.specular, surface.shininess), 65504.0);
    out_Normal = vec4(surfaceNormal(surface, vo_Normal, gl_FrontFacing), float(getSurfaceId() + 1));
#if EMISSION
    out_Emission = vec4(min(surface.emission, 65504.0), surface.isUnlit ? 1.0 : 0.0);
#endif
#if TRIANGLE_IDS
    out_Id = float(gl_PrimitiveID + 1);
#endif
}
)");

} // namespace

SurfaceRenderPass::SurfaceRenderPass()
    : m_programs(std::make_unique<SurfaceProgramVariants>([this](GLSLMacroProcessor &macros) {
          const auto flag = [](bool isSet) { return isSet ? QStringLiteral("1") : QStringLiteral("0"); };
          macros.addDefine(QStringLiteral("EMISSION"), flag(m_hasEmission));
          macros.addDefine(QStringLiteral("TRIANGLE_IDS"), flag(!m_isSparse));
          return buildSurfaceProgram(macros, outputNames(targets(m_hasEmission, !m_isSparse)), fragmentSource);
      }))
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Diffuse"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Specular"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Normal"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Emission"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Id"));
}

SurfaceRenderPass::~SurfaceRenderPass() = default;

void SurfaceRenderPass::start(RenderCallbacks *callbacks)
{
    const SurfaceScene scene = SurfaceScene::read(m_inputs);
    if (scene.size.isEmpty()) {
        skip(callbacks);
        return;
    }
    const bool hasEmission = !m_isSparse || (scene.model && scene.model->surfaceFeatures() & SurfaceEmission);
    if (hasEmission != m_hasEmission)
        m_framebuffer.reset();
    m_hasEmission = hasEmission;
    if (ensureFramebuffer(m_framebuffer) || scene.size != m_size)
        resizeTargets(scene.size);
    {
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->setDrawBuffers();
        clearForSurfaces(scene.size);
        scene.draw(*m_programs, m_isOpaqueOnly ? SurfaceSelection::Opaque : SurfaceSelection::All);
        glDisable(GL_DEPTH_TEST);
    }
    publishTarget(m_outputs[Diffuse], *m_framebuffer, GL_COLOR_ATTACHMENT0);
    publishTarget(m_outputs[Specular], *m_framebuffer, GL_COLOR_ATTACHMENT1);
    publishTarget(m_outputs[Normal], *m_framebuffer, GL_COLOR_ATTACHMENT2);
    publishTarget(m_outputs[Emission], *m_framebuffer, GL_COLOR_ATTACHMENT3);
    publishTarget(m_outputs[Depth], *m_framebuffer, GL_DEPTH_ATTACHMENT);
    publishTarget(m_outputs[Id], *m_framebuffer, GL_COLOR_ATTACHMENT4);
}

void SurfaceRenderPass::setOpaqueOnly(bool isOpaqueOnly)
{
    m_isOpaqueOnly = isOpaqueOnly;
}

void SurfaceRenderPass::setSparse(bool isSparse)
{
    if (isSparse == m_isSparse)
        return;
    m_isSparse = isSparse;
    m_programs->clear();
    m_framebuffer.reset();
}

void SurfaceRenderPass::resizeTargets(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer.get());
    remakeColorTargets(*m_framebuffer, targets(m_hasEmission, !m_isSparse), size);
    m_framebuffer->remakeDepthTarget(size);
}

} // namespace Velmora::Kvz
