// SPDX-License-Identifier: MIT
#include <ExtraPasses/LitDeferredRenderPass.h>

#include "PlainLights.h"
#include "SurfaceProgram.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/BlitTexture.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/InternalFormat.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QMatrix4x4>

#include <GL/TrackedGL.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

// The ray from the eye through a pixel does not depend on depth, so its direction is interpolated over the quad.
const QString vertexSource = QStringLiteral(R"(#version 150
uniform mat4 u_ProjectionMatrix;
uniform mat4 u_InvProjMatrix;
in vec3 va_Vertex;
in vec2 va_TexCoord;
out vec2 vo_TexCoord;
out vec3 vo_ToEye; // In camera space, of any length.

void main()
{
    gl_Position = vec4(va_Vertex.xy, 1.0, 1.0); // As deep as where nothing is.
    vo_TexCoord = va_TexCoord;
    vec4 seen = u_InvProjMatrix * vec4(va_TexCoord * 2.0 - 1.0, 0.0, 1.0);
    bool isPerspective = u_ProjectionMatrix[2][3] != 0.0;
    vo_ToEye = isPerspective ? (seen.w < 0.0 ? seen.xyz : -seen.xyz) : vec3(0.0, 0.0, 1.0);
}
)");

const QString fragmentSource = QStringLiteral(R"(#version 150
#include "SurfaceShading.glslh"
uniform sampler2D u_Diffuse;
uniform sampler2D u_Specular;
uniform sampler2D u_Normal;
#if EMISSION
uniform sampler2D u_Emission;
#endif
#if SHADOWS
uniform sampler2D u_ShadowMask;
#endif
#if OBSCURANCE
uniform sampler2D u_Obscurance;
uniform float u_ObscuranceStrength;
#endif
in vec2 vo_TexCoord;
in vec3 vo_ToEye;
out vec4 out_FragColor;

vec4 imageAt(sampler2D image)
{
#if SAME_SIZE
    return texelFetch(image, ivec2(gl_FragCoord.xy), 0);
#else
    return texture(image, vo_TexCoord);
#endif
}

// Where alpha is 0, there is no image.
float shareOf(vec4 texel, float strength)
{
    return mix(1.0, texel.r, strength * texel.a);
}

void main()
{
    vec4 diffuse = imageAt(u_Diffuse);
    vec4 specular = imageAt(u_Specular);
    vec3 normal = imageAt(u_Normal).xyz;
#if EMISSION
    vec4 emission = imageAt(u_Emission);
#else
    const vec4 emission = vec4(0.0);
#endif
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
    Visibility visibility = fullVisibility;
#if SHADOWS
    visibility.lamps = shareOf(texture(u_ShadowMask, vo_TexCoord), 1.0);
#endif
#if OBSCURANCE
    visibility.surroundings = shareOf(texture(u_Obscurance, vo_TexCoord), u_ObscuranceStrength);
#endif
    vec3 toEye = normalize(vo_ToEye);
    // Plain light does not depend on the place.
    vec3 shaded = clamp(shadeSurface(surface, visibility, vec3(0.0), normalize(normal), toEye), 0.0, 1.0);
    out_FragColor = vec4(shaded * surface.opacity, surface.opacity);
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
    ShaderProgram &program = programFor(size);
    ensureScreenQuad(m_screenQuad, program);

    AutoBinder framebuffer(m_framebuffer.get());
    Texture *const frame =
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::LowDynamicRange, size);
    m_framebuffer->attach(suitableDepth(size), GL_DEPTH_ATTACHMENT, 0);
    m_framebuffer->setDrawBuffers();
    glDisable(GL_SCISSOR_TEST);
    glDisable(GL_STENCIL_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glViewport(0, 0, size.width(), size.height());
    if (auto *const background = getInputPointer<Texture>(Background)) {
        BlitTexture(background, frame, TextureFormat::LowDynamicRange, size.width(), size.height());
        glEnable(GL_BLEND);
        glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
        glBlendEquation(GL_FUNC_ADD);
    } else {
        glDisable(GL_BLEND);
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    // Where nothing is, nothing is lit. Without a depth image the test passes everywhere.
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_GREATER);
    glDepthMask(GL_FALSE);
    light(program);
    glDisable(GL_BLEND);
    glDisable(GL_DEPTH_TEST);
    glDepthMask(GL_TRUE);
    glDepthFunc(GL_LESS);
    m_framebuffer->detach(GL_DEPTH_ATTACHMENT);
    handOn(m_outputs[Frame], m_numOutputUsers[Frame], frame);
    for (const Input input : {Diffuse, Specular, Normal, Emission, Depth, ShadowMask, Obscurance, Background})
        giveBack(getInputPointer<Texture>(input));
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

/// The depth image if it can be attached beside the frame, else null.
Texture *LitDeferredRenderPass::suitableDepth(const QSize &size) const
{
    auto *const depth = getInputPointer<Texture>(Depth);
    const bool isSuitable = depth && depth->target() == GL_TEXTURE_2D
        && isDepthFormat(unsigned(depth->internalFormat(0))) && QSize(depth->width(0), depth->height(0)) == size;
    return isSuitable ? depth : nullptr;
}

/// Without an image there is nothing in the text that reads it: drivers that flatten branches would.
ShaderProgram &LitDeferredRenderPass::programFor(const QSize &size)
{
    const auto isOfSize = [&](Input input) {
        const auto *const image = getInputPointer<Texture>(input);
        return !image || (image->target() == GL_TEXTURE_2D && QSize(image->width(0), image->height(0)) == size);
    };
    const std::pair<const char *, bool> features[] = {
        {"SHADOWS", getInputPointer<Texture>(ShadowMask)},
        {"OBSCURANCE", getInputPointer<Texture>(Obscurance)},
        {"EMISSION", getInputPointer<Texture>(Emission)},
        {"SAME_SIZE", isOfSize(Diffuse) && isOfSize(Specular) && isOfSize(Normal) && isOfSize(Emission)},
    };
    int key = 0;
    GLSLMacroProcessor macros;
    for (const auto &[name, isSet] : features) {
        key = key * 2 + int(isSet);
        macros.addDefine(QString::fromLatin1(name), isSet ? QStringLiteral("1") : QStringLiteral("0"));
    }
    std::unique_ptr<ShaderProgram> &program = m_programs[key];
    if (!program) {
        program = buildProgram(
            {QStringLiteral("out_FragColor")}, vertexSource, fragmentSource, &macros, {surfaceShadingFile});
    }
    return *program;
}

void LitDeferredRenderPass::light(ShaderProgram &program)
{
    auto *const diffuse = getInputPointer<Texture>(Diffuse);
    auto *const specular = getInputPointer<Texture>(Specular);
    auto *const normal = getInputPointer<Texture>(Normal);
    auto *const emission = getInputPointer<Texture>(Emission);
    auto *const shadowMask = getInputPointer<Texture>(ShadowMask);
    auto *const obscurance = getInputPointer<Texture>(Obscurance);
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);

    AutoBinder programBinder(&program);
    AutoBinder diffuseBinder(diffuse);
    AutoBinder specularBinder(specular);
    AutoBinder normalBinder(normal);
    AutoBinder emissionBinder(emission);
    AutoBinder shadowBinder(shadowMask);
    AutoBinder obscuranceBinder(obscurance);
    // Black is right for a null image of highlights, and what the empty unit gives.
    setSampler(program, QStringLiteral("u_Diffuse"), diffuse);
    setSampler(program, QStringLiteral("u_Specular"), specular);
    setSampler(program, QStringLiteral("u_Normal"), normal);
    setSampler(program, QStringLiteral("u_Emission"), emission);
    setSampler(program, QStringLiteral("u_ShadowMask"), shadowMask);
    setSampler(program, QStringLiteral("u_Obscurance"), obscurance);
    program.setUniform(QStringLiteral("u_ObscuranceStrength"), strengthOf(m_inputs[ObscuranceStrength]));
    program.setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
    program.setUniform(QStringLiteral("u_InvProjMatrix"), projection.inverted());
    PlainLights::read(m_inputs, HeadlightIntensity).set(program);
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

} // namespace Velmora::Kvz
