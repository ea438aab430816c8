// SPDX-License-Identifier: MIT
#include <ExtraPasses/ShadowMaskRenderPass.h>

#include "LightRows.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/ShadowMapManager.h>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QString fragmentSource = QStringLiteral(R"(#version 150
#include "ShadowedLights.glslh"
uniform sampler2D u_DepthSampler;
uniform sampler2D u_NormalSampler;
uniform mat4 u_ClipToCamera;
uniform int u_Cascade;
uniform bool u_HasNormals;
uniform float u_LightBleedingReduction;
uniform float u_AmbientLight;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

const float fullLight = 0.1;

// What a light gives a point when nothing stands between.
float contributionOf(Light light, vec3 position, vec3 normal)
{
    vec3 toLight = directionToLight(light, position, normal);
    float contribution = light.intensity * lightWindow(light, position, toLight);
    return u_HasNormals ? contribution * max(dot(normal, toLight), 0.0) : contribution;
}

void main()
{
    float depth = texture(u_DepthSampler, vo_TexCoord).r;
    if (depth >= 1.0 || lightCount() == 0) {
        out_FragColor = vec4(1.0);
        return;
    }
    vec4 position = u_ClipToCamera * vec4(2.0 * vec3(vo_TexCoord, depth) - 1.0, 1.0);
    position /= position.w;
    vec3 normal = texture(u_NormalSampler, vo_TexCoord).xyz;

    vec3 lift = u_HasNormals ? normal : vec3(0.0);

    float given = 0.0;
    float arriving = 0.0;
    for (int i = 0; i < lightCount(); ++i) {
        Light light = lightAt(i);
        float contribution = contributionOf(light, position.xyz, normal);
        if (contribution <= 0.0)
            continue;
        given += contribution;
        arriving += contribution * visibilityOf(light, position, lift, u_Cascade, u_LightBleedingReduction);
    }
    float share = arriving / max(given, fullLight);
    out_FragColor = vec4(vec3(mix(u_AmbientLight, 1.0, share)), 1.0);
}
)");

} // namespace

ShadowMaskRenderPass::ShadowMaskRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Normal"), QVariant());
    addInput(QStringLiteral("Kvz_QList_KvzShadowMapManagerLight*_Lights"), QVariant());
    addInput(QStringLiteral("Kvz_QVariant_ShadowMapData"), QVariant());
    addInput(QStringLiteral("Kvz_float_LightBleedingReduction"), 0.2f);
    addInput(QStringLiteral("Kvz_float_AmbientLight"), 0.25f);
    addInput(QStringLiteral("Kvz_int_Cascade"), -1);
    addOutput(QStringLiteral("Kvz_KvzTexture*_ShadowMask"));
}

ShadowMaskRenderPass::~ShadowMaskRenderPass()
{
    ShadowMaskRenderPass::teardownContextData(nullptr);
}

void ShadowMaskRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    Texture *const depth = getInputPointer<Texture>(Depth);
    Texture *const normal = getInputPointer<Texture>(Normal);
    const auto lights = ShadowMapManager::lightsIn(m_inputs[Lights].value);
    const auto *const data = getInputPointer<ShadowMapRenderData>(ShadowMapData);
    const auto reduction = inputValue<float>(m_inputs[LightBleedingReduction]);
    const auto ambient = inputValue<float>(m_inputs[AmbientLight]);
    const auto cascade = inputValue<int>(m_inputs[Cascade]);
    Texture *const shadows = data ? data->projectionTexture() : nullptr;

    if (!depth) {
        giveBack(normal);
        m_outputs[ShadowMask].value = QVariant();
        return;
    }

    ensureFramebuffer(m_framebuffer);
    if (!m_program)
        m_program = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource, nullptr,
            {QStringLiteral("ShadowedLights.glslc")});
    ensureScreenQuad(m_screenQuad, *m_program);
    if (!m_lights)
        m_lights = std::make_unique<LightRows>();
    m_lights->upload(lights, shadows ? data : nullptr, camera, LightRows::Relative);

    AutoBinder framebuffer(m_framebuffer.get());
    Texture *const mask = attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::LowDynamicRange, size);
    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glViewport(0, 0, size.width(), size.height());
    {
        AutoBinder program(m_program.get());
        AutoBinder depthBinder(depth);
        AutoBinder normalBinder(normal);
        AutoBinder shadowBinder(shadows);
        m_program->setUniform(QStringLiteral("u_DepthSampler"), depth->unit());
        // Samplers of one type may share a unit, those of different types may not, and unit 0 stays empty.
        m_program->setUniform(QStringLiteral("u_NormalSampler"), normal ? normal->unit() : depth->unit());
        setSampler(*m_program, QStringLiteral("u_ShadowSampler"), shadows);
        m_lights->bind(*m_program);
        m_program->setUniform(QStringLiteral("u_ClipToCamera"), projection.inverted());
        m_program->setUniform(QStringLiteral("u_Cascade"), cascade);
        m_program->setUniform(QStringLiteral("u_HasNormals"), normal != nullptr);
        m_program->setUniform(QStringLiteral("u_LightBleedingReduction"), std::clamp(reduction, 0.0f, 0.99f));
        m_program->setUniform(QStringLiteral("u_AmbientLight"), std::clamp(ambient, 0.0f, 1.0f));
        {
            AutoBinder quad(m_screenQuad);
            m_screenQuad->draw();
        }
        m_lights->unbind();
    }

    handOn(m_outputs[ShadowMask], m_numOutputUsers[ShadowMask], mask);
    giveBack(depth);
    giveBack(normal);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

void ShadowMaskRenderPass::teardownContextData(RenderCallbacks *)
{
    m_framebuffer.reset();
    m_program.reset();
    m_screenQuad.reset();
    m_lights.reset();
}

} // namespace Velmora::Kvz
