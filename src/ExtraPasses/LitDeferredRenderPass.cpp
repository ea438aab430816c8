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
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QMatrix4x4>

#include <GL/TrackedGL.h>

#include <cmath>

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
#if SHADOWS
uniform sampler2D u_ShadowMask;
#endif
#if OBSCURANCE
uniform sampler2D u_Obscurance;
uniform float u_ObscuranceStrength;
#endif
#if BACKGROUND
uniform sampler2D u_Background;
#endif
in vec2 vo_TexCoord;
out vec4 out_FragColor;
)") + positionFromDepthSource
    + directionToEyeSource + QStringLiteral(R"(
// Where alpha is 0, there is no image.
float shareOf(vec4 texel, float strength)
{
    return mix(1.0, texel.r, strength * texel.a);
}

vec4 overBackground(vec4 colour)
{
#if BACKGROUND
    return colour + (1.0 - colour.a) * texture(u_Background, vo_TexCoord);
#else
    return colour;
#endif
}

void main()
{
    vec4 diffuse = texture(u_Diffuse, vo_TexCoord);
    vec4 specular = texture(u_Specular, vo_TexCoord);
    vec3 normal = texture(u_Normal, vo_TexCoord).xyz;
    vec4 emission = u_HasEmission ? texture(u_Emission, vo_TexCoord) : vec4(0.0);
    // Every surface has a normal.
    if (normal == vec3(0.0)) {
        out_FragColor = overBackground(vec4(0.0));
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
    Visibility visibility = fullVisibility;
#if SHADOWS
    visibility.lamps = shareOf(texture(u_ShadowMask, vo_TexCoord), 1.0);
#endif
#if OBSCURANCE
    visibility.surroundings = shareOf(texture(u_Obscurance, vo_TexCoord), u_ObscuranceStrength);
#endif
    vec3 position = positionFromDepth(vo_TexCoord, texture(u_Depth, vo_TexCoord).r).xyz;
    vec3 shaded = clamp(
        shadeSurface(surface, visibility, position, normalize(normal), directionToEye(position)), 0.0, 1.0);
    out_FragColor = overBackground(vec4(shaded * surface.opacity, surface.opacity));
}
)");

/// The strength from a port: from 0 to 1, and 1 for what is no number.
float strengthOf(const NamedValue<QVariant> &port)
{
    const float value = inputValue<float>(port, 1.0f);
    return std::isnan(value) ? 1.0f : qBound(0.0f, value, 1.0f);
}

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
    addInput(QStringLiteral("Kvz_KvzTexture*_ShadowMask"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Obscurance"), QVariant());
    addInput(QStringLiteral("Kvz_float_ObscuranceStrength"), 1.0f);
    addInput(QStringLiteral("Kvz_KvzTexture*_Background"), QVariant());
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
    ShaderProgram &program = programFor(getInputPointer<Texture>(ShadowMask), getInputPointer<Texture>(Obscurance),
        getInputPointer<Texture>(Background));
    ensureScreenQuad(m_screenQuad, program);

    AutoBinder framebuffer(m_framebuffer.get());
    Texture *const frame =
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::LowDynamicRange, size);
    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glViewport(0, 0, size.width(), size.height());
    light(program);
    handOn(m_outputs[Frame], m_numOutputUsers[Frame], frame);
    for (const Input input : {Diffuse, Specular, Normal, Emission, Depth, ShadowMask, Obscurance, Background})
        giveBack(getInputPointer<Texture>(input));
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

/// Without the images there is nothing in the text that reads them: drivers that flatten branches would.
ShaderProgram &LitDeferredRenderPass::programFor(bool hasShadowMask, bool hasObscurance, bool hasBackground)
{
    std::unique_ptr<ShaderProgram> &program =
        m_programs[hasShadowMask ? 1 : 0][hasObscurance ? 1 : 0][hasBackground ? 1 : 0];
    if (program)
        return *program;
    const auto flag = [](bool isSet) { return isSet ? QStringLiteral("1") : QStringLiteral("0"); };
    GLSLMacroProcessor macros;
    macros.addDefine(QStringLiteral("SHADOWS"), flag(hasShadowMask));
    macros.addDefine(QStringLiteral("OBSCURANCE"), flag(hasObscurance));
    macros.addDefine(QStringLiteral("BACKGROUND"), flag(hasBackground));
    program = buildProgram(
        {QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource, &macros, {surfaceShadingFile});
    return *program;
}

void LitDeferredRenderPass::light(ShaderProgram &program)
{
    auto *const diffuse = getInputPointer<Texture>(Diffuse);
    auto *const specular = getInputPointer<Texture>(Specular);
    auto *const normal = getInputPointer<Texture>(Normal);
    auto *const emission = getInputPointer<Texture>(Emission);
    auto *const depth = getInputPointer<Texture>(Depth);
    auto *const shadowMask = getInputPointer<Texture>(ShadowMask);
    auto *const obscurance = getInputPointer<Texture>(Obscurance);
    auto *const background = getInputPointer<Texture>(Background);
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);

    AutoBinder programBinder(&program);
    AutoBinder diffuseBinder(diffuse);
    AutoBinder specularBinder(specular);
    AutoBinder normalBinder(normal);
    AutoBinder emissionBinder(emission);
    AutoBinder depthBinder(depth);
    AutoBinder shadowBinder(shadowMask);
    AutoBinder obscuranceBinder(obscurance);
    AutoBinder backgroundBinder(background);
    // Black and depth 0 are right for a null image of highlights or depth, and what the empty unit gives.
    setSampler(program, QStringLiteral("u_Diffuse"), diffuse);
    setSampler(program, QStringLiteral("u_Specular"), specular);
    setSampler(program, QStringLiteral("u_Normal"), normal);
    setSampler(program, QStringLiteral("u_Emission"), emission);
    setSampler(program, QStringLiteral("u_Depth"), depth);
    setSampler(program, QStringLiteral("u_ShadowMask"), shadowMask);
    setSampler(program, QStringLiteral("u_Obscurance"), obscurance);
    setSampler(program, QStringLiteral("u_Background"), background);
    program.setUniform(QStringLiteral("u_ObscuranceStrength"), strengthOf(m_inputs[ObscuranceStrength]));
    program.setUniform(QStringLiteral("u_HasEmission"), emission != nullptr);
    program.setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
    program.setUniform(QStringLiteral("u_InvProjMatrix"), projection.inverted());
    PlainLights::read(m_inputs, HeadlightIntensity).set(program);
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

} // namespace Velmora::Kvz
