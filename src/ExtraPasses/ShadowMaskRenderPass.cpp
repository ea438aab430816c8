// SPDX-License-Identifier: MIT
#include <ExtraPasses/ShadowMaskRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QtMath>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QString fragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_DepthSampler;
uniform sampler2D u_NormalSampler;
uniform sampler2DArray u_ShadowSampler;
uniform samplerBuffer u_LightSampler;
uniform mat4 u_ClipToCamera;
uniform int u_LightCount;
uniform int u_Cascade;
uniform bool u_HasNormals;
uniform float u_LightBleedingReduction;
uniform float u_AmbientLight;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

const int directional = 0;
const int spot = 1;
const int pointLight = 2;
const float minimumVariance = 1e-7;
const float cascadeBlend = 0.1;
const float fullLight = 0.1;
const float liftInTexels = 1.5;

// Rows of the buffer: four for each light, then four for each layer, those of its matrix.
struct Light
{
    vec3 position; // Camera space, as are all vectors here.
    int type;
    vec3 direction; // Where the light goes.
    float intensity;
    float range;
    float outerCosine;
    float innerCosine;
    int firstLayer;
    int layerCount;
};

Light lightAt(int index)
{
    vec4 first = texelFetch(u_LightSampler, 4 * index);
    vec4 second = texelFetch(u_LightSampler, 4 * index + 1);
    vec4 third = texelFetch(u_LightSampler, 4 * index + 2);
    vec4 fourth = texelFetch(u_LightSampler, 4 * index + 3);
    return Light(first.xyz, int(first.w), second.xyz, second.w, third.x, third.y, third.z, int(fourth.x), int(fourth.y));
}

vec4 layerRow(int layer, int row)
{
    return texelFetch(u_LightSampler, 4 * u_LightCount + 4 * layer + row);
}

vec4 inLayer(int layer, vec4 position)
{
    return vec4(dot(layerRow(layer, 0), position), dot(layerRow(layer, 1), position),
        dot(layerRow(layer, 2), position), dot(layerRow(layer, 3), position));
}

// Clip coordinates of a position, lifted off its surface: texels beside an edge hold the surface at another depth, or nothing.
vec4 liftedInLayer(int layer, vec4 position, vec3 normal)
{
    vec4 clip = inLayer(layer, position);
    float texel = 2.0 / float(textureSize(u_ShadowSampler, 0).x) * clip.w / length(layerRow(layer, 0).xyz);
    return u_HasNormals ? inLayer(layer, position + vec4(liftInTexels * texel * normal, 0.0)) : clip;
}

vec2 momentsAt(ivec2 texel, int layer, ivec2 last, float depth)
{
    vec2 moments = texelFetch(u_ShadowSampler, ivec3(clamp(texel, ivec2(0), last), layer), 0).rg;
    return moments.x > 1.0 ? vec2(depth, depth * depth) : moments;
}

vec2 interpolatedMoments(vec2 texCoord, int layer, float depth)
{
    ivec2 size = textureSize(u_ShadowSampler, 0).xy;
    ivec2 last = size - 1;
    vec2 place = texCoord * vec2(size) - 0.5;
    ivec2 texel = ivec2(floor(place));
    vec2 part = place - floor(place);
    vec2 below = mix(momentsAt(texel, layer, last, depth), momentsAt(texel + ivec2(1, 0), layer, last, depth), part.x);
    vec2 above = mix(momentsAt(texel + ivec2(0, 1), layer, last, depth),
        momentsAt(texel + ivec2(1, 1), layer, last, depth), part.x);
    return mix(below, above, part.y);
}

float visibilityInLayer(int layer, vec3 device)
{
    vec2 moments = interpolatedMoments(device.xy * 0.5 + 0.5, layer, device.z);
    float beyond = device.z - moments.x;
    if (beyond <= 0.0)
        return 1.0;
    float variance = max(moments.y - moments.x * moments.x, minimumVariance);
    float bound = variance / (variance + beyond * beyond);
    return clamp((bound - u_LightBleedingReduction) / (1.0 - u_LightBleedingReduction), 0.0, 1.0);
}

bool isShown(vec4 clip)
{
    return clip.w > 0.0 && all(lessThanEqual(abs(clip.xy), clip.ww)) && clip.z > 0.0 && clip.z <= clip.w;
}

// Layer by layer, each over the part that the layers before it leave.
float visibilityInCascades(Light light, vec4 position, vec3 normal)
{
    int first = light.firstLayer;
    int end = first + light.layerCount;
    if (u_Cascade >= 0) {
        first = min(first + u_Cascade, end - 1);
        end = first + 1;
    }
    float visibility = 0.0;
    float left = 1.0;
    for (int layer = first; layer < end && left > 0.0; ++layer) {
        vec4 clip = liftedInLayer(layer, position, normal);
        if (!isShown(clip))
            continue;
        vec3 device = clip.xyz / clip.w;
        float inside = 1.0 - max(abs(device.x), abs(device.y));
        float part = layer == end - 1 ? 1.0 : clamp(inside / cascadeBlend, 0.0, 1.0);
        visibility += left * part * visibilityInLayer(layer, device);
        left *= 1.0 - part;
    }
    return visibility + left;
}

float visibilityOf(Light light, vec4 position, vec3 normal)
{
    if (light.layerCount == 0)
        return 1.0;
    if (light.type == directional)
        return visibilityInCascades(light, position, normal);
    int layer = light.firstLayer;
    if (light.type == pointLight) {
        // w is the distance along a layer's axis, so it is largest in the layer that faces the position.
        float farthest = 0.0;
        for (int face = light.firstLayer; face < light.firstLayer + light.layerCount; ++face) {
            float along = dot(layerRow(face, 3), position);
            layer = along > farthest ? face : layer;
            farthest = max(along, farthest);
        }
    }
    vec4 clip = liftedInLayer(layer, position, normal);
    return isShown(clip) ? visibilityInLayer(layer, clip.xyz / clip.w) : 1.0;
}

// What a light gives a point when nothing stands between.
float contributionOf(Light light, vec3 position, vec3 normal)
{
    vec3 toLight = -light.direction;
    float contribution = light.intensity;
    if (light.type != directional) {
        vec3 way = light.position - position;
        float reach = length(way);
        toLight = reach > 0.0 ? way / reach : normal;
        float part = reach / light.range;
        float window = clamp(1.0 - part * part * part * part, 0.0, 1.0);
        contribution *= window * window;
        if (light.type == spot)
            contribution *= smoothstep(light.outerCosine, light.innerCosine, dot(-toLight, light.direction));
    }
    return u_HasNormals ? contribution * max(dot(normal, toLight), 0.0) : contribution;
}

void main()
{
    float depth = texture(u_DepthSampler, vo_TexCoord).r;
    if (depth >= 1.0 || u_LightCount == 0) {
        out_FragColor = vec4(1.0);
        return;
    }
    vec4 position = u_ClipToCamera * vec4(2.0 * vec3(vo_TexCoord, depth) - 1.0, 1.0);
    position /= position.w;
    vec3 normal = texture(u_NormalSampler, vo_TexCoord).xyz;

    float given = 0.0;
    float arriving = 0.0;
    for (int i = 0; i < u_LightCount; ++i) {
        Light light = lightAt(i);
        float contribution = contributionOf(light, position.xyz, normal);
        if (contribution <= 0.0)
            continue;
        given += contribution;
        arriving += contribution * visibilityOf(light, position, normal);
    }
    float share = arriving / max(given, fullLight);
    out_FragColor = vec4(vec3(mix(u_AmbientLight, 1.0, share)), 1.0);
}
)");

/// The part of a cone's half angle over which a spot fades.
constexpr float fadingPart = 0.2f;

void append(QVector<float> &rows, const QVector3D &vector, float last)
{
    rows << vector.x() << vector.y() << vector.z() << last;
}

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
        m_program = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource);
    ensureScreenQuad(m_screenQuad, *m_program);
    uploadLights(lights, shadows ? data : nullptr, camera);

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
        AutoBinder lightBinder(m_lightTexture.get());
        m_program->setUniform(QStringLiteral("u_DepthSampler"), depth->unit());
        // Samplers of one type may share a unit, those of different types may not, and unit 0 stays empty.
        m_program->setUniform(QStringLiteral("u_NormalSampler"), normal ? normal->unit() : depth->unit());
        setSampler(*m_program, QStringLiteral("u_ShadowSampler"), shadows);
        m_program->setUniform(QStringLiteral("u_LightSampler"), m_lightTexture->unit());
        m_program->setUniform(QStringLiteral("u_ClipToCamera"), projection.inverted());
        m_program->setUniform(QStringLiteral("u_LightCount"), lights.size());
        m_program->setUniform(QStringLiteral("u_Cascade"), cascade);
        m_program->setUniform(QStringLiteral("u_HasNormals"), normal != nullptr);
        m_program->setUniform(QStringLiteral("u_LightBleedingReduction"), std::clamp(reduction, 0.0f, 0.99f));
        m_program->setUniform(QStringLiteral("u_AmbientLight"), std::clamp(ambient, 0.0f, 1.0f));
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
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
    m_lightTexture.reset();
    m_lightBuffer.reset();
}

/// Uploads lights and layers for the shader, in camera space. Without data the lights have no layers.
void ShadowMaskRenderPass::uploadLights(
    const QVector<ShadowMapLight *> &lights, const ShadowMapRenderData *data, const QMatrix4x4 &camera)
{
    float strongest = 0;
    for (const ShadowMapLight *light : lights)
        strongest = std::max(strongest, ShadowMapManager::valuesOf(*light).intensity);

    QVector<float> rows;
    for (int i = 0; i < lights.size(); ++i) {
        const ShadowMapManager::LightValues light = ShadowMapManager::valuesOf(*lights[i]);
        const bool hasLayers = data && i < data->projectors.size();
        const auto projector = hasLayers ? data->projectors[i] : ShadowMapRenderData::ProjectorInfo();
        const float halfAngle = qDegreesToRadians(light.coneAngle) / 2;
        append(rows, camera * light.position, float(light.type));
        append(rows, camera.mapVector(light.direction).normalized(), strongest > 0 ? light.intensity / strongest : 0);
        rows << light.range << std::cos(halfAngle) << std::cos((1 - fadingPart) * halfAngle) << 0;
        rows << float(projector.firstLayer) << float(projector.layerCount) << 0 << 0;
    }
    const QMatrix4x4 toWorld = camera.inverted();
    for (int layer = 0; data && layer < data->transforms.size(); ++layer) {
        const QMatrix4x4 toLayer = QMatrix4x4(data->transforms[layer].matrix).transposed() * toWorld;
        for (int row = 0; row < 4; ++row)
            rows << toLayer(row, 0) << toLayer(row, 1) << toLayer(row, 2) << toLayer(row, 3);
    }
    if (rows.isEmpty())
        rows.fill(0, 4);

    if (!m_lightTexture) {
        m_lightBuffer = OpenGLDeviceContext::current()->createBufferObject();
        m_lightBuffer->setTarget(GL_TEXTURE_BUFFER);
        m_lightTexture = std::make_unique<Texture>(nullptr);
        m_lightTexture->setTarget(GL_TEXTURE_BUFFER);
        m_lightRows.clear();
    }
    if (rows == m_lightRows)
        return;
    m_lightRows = rows;
    m_lightBuffer->upload(rows.constData(), rows.size(), GL_DYNAMIC_DRAW);
    AutoBinder binder(m_lightTexture.get());
    glTexBuffer(GL_TEXTURE_BUFFER, GL_RGBA32F, m_lightBuffer->getBO());
}

} // namespace Velmora::Kvz
