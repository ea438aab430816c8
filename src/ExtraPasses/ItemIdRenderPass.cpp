// SPDX-License-Identifier: MIT
#include <ExtraPasses/ItemIdRenderPass.h>

#include "SurfaceProgram.h"
#include "steps/TargetFramebuffer.h"

#include <GL/AutoBinder.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

// Of a surface only whether it is there counts; compilers drop the rest.
const QString fragmentHead = QStringLiteral(R"(#version 150
#include "KvzUtilities.glslh"
#include "Surface.glslh"
out uvec2 out_ItemId;
)") + surfaceInputSource;

const QString fragmentSource = fragmentHead + QStringLiteral(R"(
void main()
{
    if (!surfaceAt(surfacePlace()).isThere)
        discard;
    out_ItemId = uvec2(kvzDrawIndex() + 1, gl_PrimitiveID);
}
)");

const QString falseColourFragmentSource = fragmentHead + QStringLiteral(R"(
out vec4 out_FalseColour;

// From 0 to 1, far apart for numbers in a row: multiples of the golden ratio without their whole part.
float scattered(uint number)
{
    return float((number * 2654435769u) >> 8) / 16777216.0;
}

void main()
{
    if (!surfaceAt(surfacePlace()).isThere)
        discard;
    uvec2 id = uvec2(kvzDrawIndex() + 1, gl_PrimitiveID);
    vec3 hue = clamp(abs(fract(scattered(id.x) + vec3(0.0, 2.0, 1.0) / 3.0) * 6.0 - 3.0) - 1.0, 0.0, 1.0);
    float shade = 1.0 - 0.35 * scattered(id.y);
    out_ItemId = id;
    out_FalseColour = vec4(shade * mix(vec3(1.0), hue, 0.7), 1.0);
}
)");

std::unique_ptr<SurfaceProgramVariants> makePrograms(bool hasFalseColours)
{
    return std::make_unique<SurfaceProgramVariants>([hasFalseColours](GLSLMacroProcessor &macros) {
        if (!hasFalseColours)
            return buildSurfaceProgram(macros, {QStringLiteral("out_ItemId")}, fragmentSource);
        return buildSurfaceProgram(
            macros, {QStringLiteral("out_ItemId"), QStringLiteral("out_FalseColour")}, falseColourFragmentSource);
    });
}

/// Clears the images that are bound. glClear() leaves integers undefined.
void clearImages(bool hasFalseColours)
{
    const GLuint nothing[] = {0, 0, 0, 0};
    const GLfloat noColour[] = {0, 0, 0, 0};
    glClearBufferuiv(GL_COLOR, 0, nothing);
    if (hasFalseColours)
        glClearBufferfv(GL_COLOR, 1, noColour);
    glClear(GL_DEPTH_BUFFER_BIT);
}

} // namespace

ItemIdRenderPass::ItemIdRenderPass()
    : m_programs(makePrograms(false))
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_ItemId"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_FalseColour"));
}

ItemIdRenderPass::~ItemIdRenderPass() = default;

void ItemIdRenderPass::start(RenderCallbacks *callbacks)
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
        m_framebuffer->setDrawBuffers();
        setSurfaceState(scene.size);
        clearImages(m_hasFalseColours);
        scene.draw(*m_programs, m_isOpaqueOnly ? SurfaceSelection::Opaque : SurfaceSelection::All);
        glDisable(GL_DEPTH_TEST);
    }
    publishTarget(m_outputs[ItemId], *m_framebuffer, GL_COLOR_ATTACHMENT0);
    publishTarget(m_outputs[Depth], *m_framebuffer, GL_DEPTH_ATTACHMENT);
    if (m_hasFalseColours)
        publishTarget(m_outputs[FalseColour], *m_framebuffer, GL_COLOR_ATTACHMENT1);
    else
        m_outputs[FalseColour].value = QVariant();
}

void ItemIdRenderPass::setOpaqueOnly(bool isOpaqueOnly)
{
    m_isOpaqueOnly = isOpaqueOnly;
}

void ItemIdRenderPass::setFalseColours(bool hasFalseColours)
{
    if (hasFalseColours == m_hasFalseColours)
        return;
    m_hasFalseColours = hasFalseColours;
    m_programs = makePrograms(hasFalseColours);
    m_framebuffer.reset();
    m_size = QSize();
}

void ItemIdRenderPass::resizeTargets(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RG32UI, size, GL_RG_INTEGER, GL_UNSIGNED_INT);
    if (m_hasFalseColours)
        m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT1, GL_RGBA8, size, GL_RGBA, GL_UNSIGNED_BYTE);
    m_framebuffer->remakeDepthTarget(size);
}

} // namespace Velmora::Kvz
