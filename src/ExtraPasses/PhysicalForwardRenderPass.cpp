// SPDX-License-Identifier: MIT
#include <ExtraPasses/PhysicalForwardRenderPass.h>

#include "PhysicalLight.h"
#include "SurfaceProgram.h"
#include "steps/TargetFramebuffer.h"
#include "steps/TempTexture.h"

#include <GL/AutoBinder.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString fragmentHead = QStringLiteral(R"(#version 150
#include "PhysicalShading.glslh"
#instancedata "PhysicalMaterial"
out vec4 out_Frame;
out vec4 out_Indirect;
out vec4 out_Normal;
)");

const QString idHead = QStringLiteral(R"(
out uvec2 out_ItemId;
int kvzDrawIndex();
)");

// Half floats end at 65504.
const QString fragmentBody = QStringLiteral(R"(
void main()
{
    SurfacePlace place = surfacePlace();
    Surface surface = surfaceAt(place);
    if (!surface.isThere)
        discard;
    vec3 normal = bumpedNormal(surface, place, vo_Normal, gl_FrontFacing);
    vec3 direct;
    vec3 indirect;
    shadePhysical(surface, fullVisibility, vo_Position, normal, directionToEye(vo_Position), direct, indirect);
    out_Frame = vec4(surface.opacity * min(direct, 65504.0), surface.opacity);
    out_Indirect = vec4(surface.opacity * min(indirect, 65504.0), surface.opacity);
    out_Normal = vec4(normal, float(getPhysicalId() + 1));
)");

const QString idBody = QStringLiteral(R"(
    out_ItemId = uvec2(kvzDrawIndex() + 1, gl_PrimitiveID);
)");

const QStringList outputNames{
    QStringLiteral("out_Frame"), QStringLiteral("out_Indirect"), QStringLiteral("out_Normal")};

} // namespace

PhysicalForwardRenderPass::PhysicalForwardRenderPass()
{
    makePrograms();
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    PhysicalLight::addInputs(*this);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Indirect"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Normal"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_ItemId"));
}

PhysicalForwardRenderPass::~PhysicalForwardRenderPass() = default;

void PhysicalForwardRenderPass::start(RenderCallbacks *callbacks)
{
    const SurfaceScene scene = SurfaceScene::read(m_inputs);
    if (scene.size.isEmpty()) {
        skip(callbacks);
        return;
    }
    ensureFramebuffer(m_framebuffer);
    if (scene.size != m_size)
        resizeTargets(scene.size);
    if (!m_light)
        m_light = std::make_unique<PhysicalLight>();
    m_light->read(m_inputs, Environment, scene.camera);
    {
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->setDrawBuffers();
        clearForSurfaces(scene.size);
        if (m_hasItemIds) { // glClear() leaves integers undefined
            const GLuint nothing[] = {0, 0, 0, 0};
            glClearBufferuiv(GL_COLOR, outputNames.size(), nothing);
        }
        bool isBound = false;
        scene.draw(*m_programs, m_isOpaqueOnly ? SurfaceSelection::Opaque : SurfaceSelection::All,
            [&](ShaderProgram &program) {
                m_light->bind(program);
                isBound = true;
            });
        if (isBound)
            m_light->unbind();
        glDisable(GL_DEPTH_TEST);
    }
    PhysicalLight::release(m_inputs, Environment);
    publishTarget(m_outputs[Frame], *m_framebuffer, GL_COLOR_ATTACHMENT0);
    publishTarget(m_outputs[Indirect], *m_framebuffer, GL_COLOR_ATTACHMENT1);
    publishTarget(m_outputs[Depth], *m_framebuffer, GL_DEPTH_ATTACHMENT);
    publishTarget(m_outputs[Normal], *m_framebuffer, GL_COLOR_ATTACHMENT2);
    if (m_hasItemIds)
        publishTarget(m_outputs[ItemId], *m_framebuffer, GL_COLOR_ATTACHMENT3);
}

void PhysicalForwardRenderPass::teardownContextData(RenderCallbacks *)
{
    m_light.reset();
    m_framebuffer.reset();
    m_size = QSize();
    makePrograms();
}

void PhysicalForwardRenderPass::setOpaqueOnly(bool isOpaqueOnly)
{
    m_isOpaqueOnly = isOpaqueOnly;
}

void PhysicalForwardRenderPass::setItemIds(bool hasItemIds)
{
    m_hasItemIds = hasItemIds;
    makePrograms();
}

void PhysicalForwardRenderPass::makePrograms()
{
    m_programs = std::make_unique<SurfaceProgramVariants>(
        [hasItemIds = m_hasItemIds](GLSLMacroProcessor &macros) {
            const QString source = fragmentHead + (hasItemIds ? idHead : QString()) + surfaceInputSource
                + directionToEyeSource + fragmentBody + (hasItemIds ? idBody : QString()) + QStringLiteral("}\n");
            return buildSurfaceProgram(macros,
                hasItemIds ? outputNames + QStringList{QStringLiteral("out_ItemId")} : outputNames, source,
                physicalShadingFiles, SurfaceKind::Physical);
        },
        SurfaceKind::Physical);
}

void PhysicalForwardRenderPass::resizeTargets(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer.get());
    for (const GLenum attachment : {GL_COLOR_ATTACHMENT0, GL_COLOR_ATTACHMENT1, GL_COLOR_ATTACHMENT2})
        m_framebuffer->remakeTarget(attachment, GL_RGBA16F, size, GL_RGBA, GL_FLOAT);
    if (m_hasItemIds)
        m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT3, GL_RG32UI, size, GL_RG_INTEGER, GL_UNSIGNED_INT);
    m_framebuffer->remakeDepthTarget(size);
}

} // namespace Velmora::Kvz
