// SPDX-License-Identifier: MIT
#include <ExtraPasses/LitDeferredRenderPass.h>

#include "PlainLights.h"
#include "SurfaceProgram.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/PositionFromDepth.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QMatrix4x4>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

const QString fragmentSource = QStringLiteral(R"(#version 150
#include "SurfaceShading.glslh"
uniform sampler2D u_Diffuse;
uniform sampler2D u_Specular;
uniform sampler2D u_Normal;
uniform sampler2D u_Emission;
uniform sampler2D u_Depth;
uniform bool u_HasEmission;
in vec2 vo_TexCoord;
out vec4 out_FragColor;
)") + positionFromDepthSource
    + directionToEyeSource + QStringLiteral(R"(
void main()
{
    vec4 diffuse = texture(u_Diffuse, vo_TexCoord);
    vec4 specular = texture(u_Specular, vo_TexCoord);
    vec3 normal = texture(u_Normal, vo_TexCoord).xyz;
    vec4 emission = u_HasEmission ? texture(u_Emission, vo_TexCoord) : vec4(0.0);
    // Every surface has a normal.
    if (normal == vec3(0.0)) {
        out_FragColor = vec4(0.0);
        return;
    }
    Surface surface;
    surface.baseColour = diffuse.rgb;
    surface.opacity = diffuse.a;
    surface.specular = specular.rgb;
    surface.shininess = specular.a;
    surface.emission = emission.rgb;
    surface.isUnlit = emission.a > 0.5;
    surface.isLitFromBothSides = false; // The normal is turned already.
    surface.isThere = true;
    vec3 position = positionFromDepth(vo_TexCoord, texture(u_Depth, vo_TexCoord).r).xyz;
    vec3 shaded = clamp(
        shadeSurface(surface, position, normalize(normal), directionToEye(position)), 0.0, 1.0);
    out_FragColor = vec4(shaded * surface.opacity, surface.opacity);
}
)");

} // namespace

LitDeferredRenderPass::LitDeferredRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Diffuse"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Specular"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Normal"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Emission"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addLightInputs(*this);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

LitDeferredRenderPass::~LitDeferredRenderPass() = default;

void LitDeferredRenderPass::start(RenderCallbacks *callbacks)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    if (size.isEmpty() || !getInputPointer<Texture>(Diffuse) || !getInputPointer<Texture>(Normal)) {
        skip(callbacks);
        return;
    }
    ensureFramebuffer(m_framebuffer);
    if (!m_program)
        m_program = buildProgram(
            {QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource, nullptr, {surfaceShadingFile});
    ensureScreenQuad(m_screenQuad, *m_program);

    AutoBinder framebuffer(m_framebuffer.get());
    Texture *const frame =
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::LowDynamicRange, size);
    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glViewport(0, 0, size.width(), size.height());
    light();
    handOn(m_outputs[Frame], m_numOutputUsers[Frame], frame);
    for (const Input input : {Diffuse, Specular, Normal, Emission, Depth})
        giveBack(getInputPointer<Texture>(input));
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

void LitDeferredRenderPass::light()
{
    auto *const diffuse = getInputPointer<Texture>(Diffuse);
    auto *const specular = getInputPointer<Texture>(Specular);
    auto *const normal = getInputPointer<Texture>(Normal);
    auto *const emission = getInputPointer<Texture>(Emission);
    auto *const depth = getInputPointer<Texture>(Depth);
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);

    AutoBinder program(m_program.get());
    AutoBinder diffuseBinder(diffuse);
    AutoBinder specularBinder(specular);
    AutoBinder normalBinder(normal);
    AutoBinder emissionBinder(emission);
    AutoBinder depthBinder(depth);
    // Black and depth 0 are right for a null image of highlights or depth, and what the empty unit gives.
    setSampler(*m_program, QStringLiteral("u_Diffuse"), diffuse);
    setSampler(*m_program, QStringLiteral("u_Specular"), specular);
    setSampler(*m_program, QStringLiteral("u_Normal"), normal);
    setSampler(*m_program, QStringLiteral("u_Emission"), emission);
    setSampler(*m_program, QStringLiteral("u_Depth"), depth);
    m_program->setUniform(QStringLiteral("u_HasEmission"), emission != nullptr);
    m_program->setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
    m_program->setUniform(QStringLiteral("u_InvProjMatrix"), projection.inverted());
    PlainLights::read(m_inputs, HeadlightIntensity).set(*m_program);
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

} // namespace Velmora::Kvz
