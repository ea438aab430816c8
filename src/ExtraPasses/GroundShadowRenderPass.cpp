// SPDX-License-Identifier: MIT
#include <ExtraPasses/GroundShadowRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ModelProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/ShadowMaps.h"
#include "steps/TargetFramebuffer.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>
#include <Scene/GPUModel.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QtMath>
#include <QtGui/QColor>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>
#include <QtGui/QVector4D>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

constexpr int mostLights = 8;
constexpr int mostLayers = 24;
/// Sides of the two images of the ground, in texels.
constexpr int heightSide = 256;
constexpr int contactSide = 128;

const QString heightFragmentSource = QStringLiteral(R"(#version 150
void main()
{
}
)");

// The share of the sky that what stands over the ground covers, by rings around each place.
const QString contactFragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Heights;
uniform vec2 u_HeightRange; // Of depth 0, and how much depth 1 is above it, in radii of the ground.
in vec2 vo_TexCoord;
out vec4 out_Covered;

const int ringCount = 9;
const int sectorCount = 16;

// Of the lowest surface; below 0 where there is none.
float heightAt(vec2 place)
{
    float depth = textureLod(u_Heights, place, 0.0).r;
    bool isOutside = any(notEqual(place, clamp(place, 0.0, 1.0)));
    return depth >= 1.0 || isOutside ? -1.0 : max(u_HeightRange.x + depth * u_HeightRange.y, 0.0);
}

// A disc around the place at this height.
float covered(float radius, float height)
{
    return radius * radius / (radius * radius + height * height + 1e-9);
}

// Interleaved gradient noise, from 0 to 1.
float noise(vec2 pixel)
{
    return fract(52.9829189 * fract(dot(pixel, vec2(0.06711056, 0.00583715))));
}

void main()
{
    float turn = 6.2831853 / float(sectorCount) * noise(gl_FragCoord.xy);
    float inner = 1.0 / 128.0;
    float height = heightAt(vo_TexCoord);
    float sum = height < 0.0 ? 0.0 : covered(inner, height);
    for (int ring = 0; ring < ringCount; ++ring) {
        float outer = inner * 1.7;
        float reach = sqrt(inner * outer);
        float share = 0.0;
        for (int sector = 0; sector < sectorCount; ++sector) {
            // Turned from ring to ring and from texel to texel, so that no spokes line up.
            float angle = 6.2831853 * float(sector) / float(sectorCount) + 2.3999632 * float(ring) + turn;
            float there = heightAt(vo_TexCoord + 0.5 * reach * vec2(cos(angle), sin(angle)));
            share += there < 0.0 ? 0.0 : covered(outer, there) - covered(inner, there);
        }
        sum += share / float(sectorCount);
        inner = outer;
    }
    out_Covered = vec4(clamp(sum, 0.0, 1.0));
}
)");

const QString groundFragmentSource = QStringLiteral(R"(#version 150
uniform mat4 u_ClipToWorld;
uniform mat4 u_WorldToClip;
uniform vec4 u_Place; // The middle of the ground and its radius.
uniform float u_Diagonal;
uniform sampler2D u_Depth;
uniform bool u_HasDepth;
uniform sampler2D u_Contact;
uniform float u_ContactStrength;
uniform sampler2DArray u_Shadows;
uniform int u_LightCount;
// For each light: position and type; direction and intensity; range, cosines of the cone's rim and of where it fades; layers.
uniform vec4 u_Lights[32];
uniform vec4 u_Layers[96]; // Rows of the matrix of each layer.
uniform float u_Ambient;
uniform float u_LightSize;
uniform bool u_IsForDisplay;
#ifdef KVZ_BACKGROUND
uniform sampler2D u_Background;
#endif
uniform vec2 u_PatternOrigin;
uniform float u_Turn;
in vec2 vo_TexCoord;
out vec4 out_Ground;

const int directional = 0;
const int spot = 1;
const int pointLight = 2;
const int searchTaps = 12;
const int shadowTaps = 40;
const float leastVariance = 1e-7;
const float bleeding = 0.2;

vec4 inLayer(int layer, vec4 position)
{
    return vec4(dot(u_Layers[4 * layer], position), dot(u_Layers[4 * layer + 1], position),
        dot(u_Layers[4 * layer + 2], position), dot(u_Layers[4 * layer + 3], position));
}

// Also beyond the layer's far end, which fits what casts shadows and not the ground.
bool isShown(vec4 clip)
{
    return clip.w > 0.0 && all(lessThanEqual(abs(clip.xy), clip.ww)) && clip.z > 0.0;
}

// The layer of a light that shows a place; -1 for none.
int layerOf(int first, int count, int type, vec4 position)
{
    int best = -1;
    float farthest = 0.0;
    for (int layer = first; layer < first + count; ++layer) {
        vec4 clip = inLayer(layer, position);
        // Of cascades the finest, of a point light's sides the one that faces the place.
        if (isShown(clip) && (best < 0 || (type == pointLight && clip.w > farthest))) {
            best = layer;
            farthest = clip.w;
        }
    }
    return best;
}

// Tap `index` of `count` on a disc, evenly spread, and turned from pixel to pixel: by interleaved gradient noise.
vec2 tap(int index, int count)
{
    vec2 pixel = floor(gl_FragCoord.xy) + u_PatternOrigin;
    float noise = fract(52.9829189 * fract(dot(pixel, vec2(0.06711056, 0.00583715))));
    float angle = 2.3999632 * float(index) + 6.2831853 * (noise + u_Turn);
    return sqrt((float(index) + 0.5) / float(count)) * vec2(cos(angle), sin(angle));
}

vec2 momentsAt(vec2 place, int layer)
{
    ivec2 size = textureSize(u_Shadows, 0).xy;
    ivec2 texel = clamp(ivec2(floor(place * vec2(size))), ivec2(0), size - 1);
    return texelFetch(u_Shadows, ivec3(texel, layer), 0).rg;
}

// How much of a light the model keeps from a place.
float hidden(int layer, vec4 position)
{
    vec4 clip = inLayer(layer, position);
    vec3 device = clip.xyz / clip.w;
    vec2 place = 0.5 * device.xy + 0.5;
    vec4 depthRow = u_Layers[4 * layer + 2];
    vec4 awayRow = u_Layers[4 * layer + 3];
    // Texture coordinates for a unit across, and units along the light for a step of depth.
    vec2 across = 0.5 * vec2(length(u_Layers[4 * layer].xyz), length(u_Layers[4 * layer + 1].xyz)) / clip.w;
    float away = dot(awayRow.xyz, awayRow.xyz);
    float along = 1.0 / length(depthRow.xyz);
    if (away > 1e-12) {
        float slope = dot(depthRow.xyz, awayRow.xyz) / away;
        along = clip.w * clip.w / max(abs(depthRow.w - slope * awayRow.w) * sqrt(away), 1e-12);
    }
    vec2 texel = 1.0 / vec2(textureSize(u_Shadows, 0).xy);
    vec2 search = max(u_LightSize * u_Diagonal * across, 1.5 * texel);
    float distances = 0.0;
    float blockers = 0.0;
    for (int i = 0; i < searchTaps; ++i) {
        float mean = momentsAt(place + tap(i, searchTaps) * search, layer).x;
        float blocks = float(mean < device.z);
        distances += blocks * (device.z - mean);
        blockers += blocks;
    }
    float far = blockers > 0.0 ? distances / blockers * along : 0.0;
    vec2 width = clamp(u_LightSize * far * across, 1.5 * texel, search);
    float sum = 0.0;
    int taps = blockers > 0.0 ? shadowTaps : 0;
    for (int i = 0; i < taps; ++i) {
        vec2 moments = momentsAt(place + tap(i, shadowTaps) * width, layer);
        float beyond = max(device.z - moments.x, 0.0);
        float variance = max(moments.y - moments.x * moments.x, leastVariance);
        float bound = variance / (variance + beyond * beyond);
        sum += 1.0 - clamp((bound - bleeding) / (1.0 - bleeding), 0.0, 1.0);
    }
    return sum / float(shadowTaps);
}

// The share of the lamps' light that does not arrive.
float lostLight(vec3 position)
{
    float given = 0.0;
    float lost = 0.0;
    for (int i = 0; i < u_LightCount; ++i) {
        vec4 where = u_Lights[4 * i];
        vec4 heading = u_Lights[4 * i + 1];
        vec4 reach = u_Lights[4 * i + 2];
        vec4 layers = u_Lights[4 * i + 3];
        int type = int(where.w);
        vec3 toLight = -heading.xyz;
        float light = heading.w;
        if (type != directional) {
            vec3 way = where.xyz - position;
            float size = max(length(way), 1e-9);
            toLight = way / size;
            float part = size / reach.x;
            float window = clamp(1.0 - part * part * part * part, 0.0, 1.0);
            light *= window * window;
            if (type == spot)
                light *= smoothstep(reach.y, reach.z, dot(-toLight, heading.xyz));
        }
        light *= max(toLight.y, 0.0);
        if (light <= 0.0)
            continue;
        given += light;
        int layer = layerOf(int(layers.x), int(layers.y), type, vec4(position, 1.0));
        if (layer >= 0)
            lost += light * hidden(layer, vec4(position, 1.0));
    }
    return given > 0.0 ? lost / given : 0.0;
}

// Whether the depth image is nearer here and two pixels around, so that smoothed rims have ground under them.
bool isHidden(float depth)
{
    vec2 step = 2.0 / vec2(textureSize(u_Depth, 0));
    float farthest = texture(u_Depth, vo_TexCoord).r;
    for (int i = 0; i < 4; ++i)
        farthest = max(farthest, texture(u_Depth, vo_TexCoord + step * (2.0 * vec2(i & 1, i >> 1) - 1.0)).r);
    return farthest < depth;
}

// How much of its light the ground loses in this pixel.
float lossHere()
{
    vec4 near = u_ClipToWorld * vec4(2.0 * vo_TexCoord - 1.0, -1.0, 1.0);
    vec4 far = u_ClipToWorld * vec4(2.0 * vo_TexCoord - 1.0, 1.0, 1.0);
    near /= near.w;
    vec3 way = far.xyz / far.w - near.xyz;
    float part = (u_Place.y - near.y) / way.y;
    // From above, and before the eye; also beyond the far plane, which fits the model.
    if (!(way.y < 0.0 && part > 0.0))
        return 0.0;
    vec3 position = near.xyz + part * way;
    vec2 offset = (position.xz - u_Place.xz) / u_Place.w;
    float fade = 1.0 - smoothstep(0.5, 1.0, length(offset));
    if (fade <= 0.0)
        return 0.0;
    if (u_HasDepth) {
        vec4 clip = u_WorldToClip * vec4(position, 1.0);
        if (isHidden(min(0.5 * clip.z / clip.w + 0.5, 1.0) - 1e-6))
            return 0.0;
    }
    // Over three by three texels, which evens their turns out.
    vec2 place = 0.5 * offset + 0.5;
    vec2 halfTexel = 0.5 / vec2(textureSize(u_Contact, 0));
    float covered = 0.0;
    for (int i = 0; i < 4; ++i)
        covered += 0.25 * textureLod(u_Contact, place + halfTexel * (2.0 * vec2(i & 1, i >> 1) - 1.0), 0.0).r;
    float loss = u_Ambient * u_ContactStrength * covered + (1.0 - u_Ambient) * lostLight(position);
    return clamp(fade * loss, 0.0, 1.0);
}

void main()
{
    float loss = lossHere();
#ifdef KVZ_BACKGROUND
    vec4 behind = texture(u_Background, vo_TexCoord);
    out_Ground = vec4((1.0 - loss) * behind.rgb, behind.a);
#else
    out_Ground = vec4(0.0, 0.0, 0.0, u_IsForDisplay ? 1.0 - pow(1.0 - loss, 1.0 / 2.2) : loss);
#endif
}
)");

float luminance(const QVector3D &colour)
{
    return QVector3D::dotProduct(colour, QVector3D(0.2126f, 0.7152f, 0.0722f));
}

void append(QVector<float> &numbers, const QVector3D &vector, float last)
{
    numbers << vector.x() << vector.y() << vector.z() << last;
}

} // namespace

bool GroundShadowRenderPass::ContactState::operator==(const ContactState &other) const
{
    return model == other.model && matrices == other.matrices && middle == other.middle && radius == other.radius
        && height == other.height;
}

GroundShadowRenderPass::GroundShadowRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addInput(QStringLiteral("Kvz_QVector3D_SceneBoundsMin"), QVariant());
    addInput(QStringLiteral("Kvz_QVector3D_SceneBoundsMax"), QVariant());
    addInput(QStringLiteral("Kvz_QList_KvzShadowMapManagerLight*_Lights"), QVariant());
    addInput(QStringLiteral("Kvz_QVariant_ShadowMapData"), QVariant());
    addInput(QStringLiteral("Kvz_float_AmbientLight"), 0.4f);
    addInput(QStringLiteral("Kvz_float_ContactStrength"), QVariant());
    addInput(QStringLiteral("Kvz_float_LightSize"), 0.1f);
    addInput(QStringLiteral("Kvz_float_GroundExtent"), 1.75f);
    addInput(QStringLiteral("Kvz_bool_DisplayValues"), true);
    addInput(QStringLiteral("Kvz_int_JitterIndex"), QVariant());
    addInput(QStringLiteral("Kvz_Vector2D_PatternOrigin"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Background"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Ground"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Background"));
}

GroundShadowRenderPass::~GroundShadowRenderPass()
{
    GroundShadowRenderPass::teardownContextData(nullptr);
}

void GroundShadowRenderPass::start(RenderCallbacks *callbacks)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);
    auto *const background = getInputPointer<Texture>(BackgroundIn);
    const auto bounds = sceneBounds(m_inputs[SceneBoundsMin], m_inputs[SceneBoundsMax], model);
    const bool hasGround = bounds && inputValue<float>(m_inputs[GroundExtent]) > 0;
    if (size.isEmpty() || (!hasGround && !background)) {
        skip(callbacks);
        return;
    }
    if (!hasGround) {
        m_outputs[Ground].value = QVariant();
        handOn(m_outputs[Background], m_numOutputUsers[Background], background);
        giveBack(getInputPointer<Texture>(Depth));
        giveBack(background);
        return;
    }
    const QVector3D sides = bounds->second - bounds->first;
    Place place;
    place.middle = (bounds->first + bounds->second) / 2;
    place.middle.setY(bounds->first.y());
    place.height = std::max(sides.y(), 0.0f);
    place.diagonal = sides.length();
    place.radius =
        inputValue<float>(m_inputs[GroundExtent]) * (place.height + QVector3D(sides.x(), 0, sides.z()).length() / 2);

    const auto lights = ShadowMapManager::lightsIn(m_inputs[Lights].value);
    const bool isLit = std::any_of(lights.begin(), lights.end(), [](const ShadowMapLight *light) {
        const auto values = ShadowMapManager::valuesOf(*light);
        return values.intensity * luminance(values.colour) > 0;
    });
    const float contactStrength =
        std::clamp(inputValue<float>(m_inputs[ContactStrength], isLit ? 1.0f : 0.0f), 0.0f, 1.0f);

    ensureFramebuffer(m_framebuffer);
    if (!m_groundProgram || m_isOnBackground != (background != nullptr)) {
        m_isOnBackground = background != nullptr;
        GLSLMacroProcessor macros;
        if (m_isOnBackground)
            macros.addDefine(QStringLiteral("KVZ_BACKGROUND"), QStringLiteral("1"));
        m_groundProgram =
            buildProgram({QStringLiteral("out_Ground")}, screenQuadVertexSource, groundFragmentSource, &macros);
    }
    ensureScreenQuad(m_screenQuad, *m_groundProgram);
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_SCISSOR_TEST);
    glDisable(GL_CULL_FACE);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    const bool hasContact = model && contactStrength > 0 && place.radius > 0 && !castsNothing(model);
    if (hasContact)
        drawContact(*model, place);

    AutoBinder framebuffer(m_framebuffer.get());
    Texture *const ground =
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::HighDynamicRange, size);
    m_framebuffer->setDrawBuffers();
    glViewport(0, 0, size.width(), size.height());
    drawGround(place, hasContact ? m_contact->attachment(GL_COLOR_ATTACHMENT0) : nullptr, contactStrength);
    const Output drawn = background ? Background : Ground;
    const Output other = background ? Ground : Background;
    handOn(m_outputs[drawn], m_numOutputUsers[drawn], ground);
    handOn(m_outputs[other], 0, nullptr);
    giveBack(getInputPointer<Texture>(Depth));
    giveBack(background);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

void GroundShadowRenderPass::teardownContextData(RenderCallbacks *)
{
    m_framebuffer.reset();
    m_heights.reset();
    m_contact.reset();
    m_heightProgram.reset();
    m_contactProgram.reset();
    m_groundProgram.reset();
    m_screenQuad.reset();
    m_contactState = ContactState();
}

/// Draws how high the model is over the ground, and how much of the sky it covers there, unless both are known.
void GroundShadowRenderPass::drawContact(GPUModel &model, const Place &place)
{
    const ContactState state = {model.serialNumber(), model.matrixRevision(), place.middle, place.radius, place.height};
    if (m_contact && state == m_contactState)
        return;
    m_contactState = state;
    if (ensureFramebuffer(m_heights)) {
        AutoBinder framebuffer(m_heights.get());
        m_heights->remakeDepthTarget(QSize(heightSide, heightSide));
    }
    if (ensureFramebuffer(m_contact)) {
        AutoBinder framebuffer(m_contact.get());
        Texture *const contact =
            m_contact->remakeTarget(GL_COLOR_ATTACHMENT0, GL_R16F, QSize(contactSide, contactSide), GL_RED, GL_FLOAT);
        AutoBinder binder(contact);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
    if (!m_heightProgram)
        m_heightProgram = buildModelProgram({}, modelPlaceVertexSource, heightFragmentSource);
    if (!m_contactProgram)
        m_contactProgram = buildProgram({QStringLiteral("out_Covered")}, screenQuadVertexSource, contactFragmentSource);

    // Seen from below: x to the right, z upwards, and depth from a little under the ground to a little above the bounds.
    const float margin = 0.01f * std::max(place.height, 1e-3f * place.radius);
    const float range = place.height + 2 * margin;
    QMatrix4x4 fromBelow(1 / place.radius, 0, 0, -place.middle.x() / place.radius, //
        0, 0, 1 / place.radius, -place.middle.z() / place.radius, //
        0, 2 / range, 0, -2 * (place.middle.y() - margin) / range - 1, //
        0, 0, 0, 1);
    {
        AutoBinder framebuffer(m_heights.get());
        m_heights->setDrawBuffers();
        glViewport(0, 0, heightSide, heightSide);
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(GL_LESS);
        glDepthMask(GL_TRUE);
        glClearDepth(1);
        glClear(GL_DEPTH_BUFFER_BIT);
        AutoBinder program(m_heightProgram.get());
        m_heightProgram->setUniform(QStringLiteral("u_ProjectionMatrix"), fromBelow);
        m_heightProgram->setUniform(QStringLiteral("u_CameraMatrix"), QMatrix4x4());
        // Culled items too: what the camera does not see may stand on the ground that it sees.
        model.draw(m_heightProgram.get(), 0, castsNoShadow, WindingCounterClockwise, true);
        glDisable(GL_DEPTH_TEST);
    }
    AutoBinder framebuffer(m_contact.get());
    m_contact->setDrawBuffers();
    glViewport(0, 0, contactSide, contactSide);
    Texture *const heights = m_heights->attachment(GL_DEPTH_ATTACHMENT);
    AutoBinder program(m_contactProgram.get());
    AutoBinder heightBinder(heights);
    setSampler(*m_contactProgram, QStringLiteral("u_Heights"), heights);
    m_contactProgram->setUniform(
        QStringLiteral("u_HeightRange"), QVector2D(-margin / place.radius, range / place.radius));
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

void GroundShadowRenderPass::setLights(const QVector<ShadowMapLight *> &lights, const ShadowMapRenderData *data)
{
    QVector<float> numbers;
    QVector<float> layers;
    int count = 0;
    bool isComplete = true;
    for (int i = 0; i < lights.size(); ++i) {
        const ShadowMapManager::LightValues light = ShadowMapManager::valuesOf(*lights[i]);
        const bool hasLayers = data && i < data->projectors.size();
        const auto projector = hasLayers ? data->projectors[i] : ShadowMapRenderData::ProjectorInfo();
        if (!(light.intensity * luminance(light.colour) > 0))
            continue;
        // Layers stand at the numbers that they have in the maps.
        if (count == mostLights || projector.firstLayer + projector.layerCount > mostLayers) {
            isComplete = false;
            continue;
        }
        ++count;
        const float halfAngle = qDegreesToRadians(light.coneAngle) / 2;
        append(numbers, light.position, float(light.type));
        append(numbers, light.direction, light.intensity * luminance(light.colour));
        numbers << light.range << std::cos(halfAngle) << std::cos(0.8f * halfAngle) << 0;
        numbers << float(projector.firstLayer) << float(projector.layerCount) << 0 << 0;
    }
    for (int layer = 0; data && layer < std::min(int(data->transforms.size()), mostLayers); ++layer) {
        const QMatrix4x4 toLayer = QMatrix4x4(data->transforms[layer].matrix).transposed();
        for (int row = 0; row < 4; ++row)
            layers << toLayer(row, 0) << toLayer(row, 1) << toLayer(row, 2) << toLayer(row, 3);
    }
    if (!isComplete && !m_hasWarned) {
        KVZ_WARNING(
            QStringLiteral("GroundShadowRenderPass: only %1 lights with %2 layers of shadow maps together count; "
                           "the others leave no shadow on the ground; give directional lights fewer cascades")
                .arg(mostLights)
                .arg(mostLayers));
        m_hasWarned = true;
    }
    m_groundProgram->setUniform(QStringLiteral("u_LightCount"), count);
    if (count > 0)
        m_groundProgram->setUniform(QStringLiteral("u_Lights"), numbers);
    if (!layers.isEmpty())
        m_groundProgram->setUniform(QStringLiteral("u_Layers"), layers);
}

void GroundShadowRenderPass::drawGround(const Place &place, Texture *contact, float contactStrength)
{
    ShaderProgram &program = *m_groundProgram;
    Texture *const depth = getInputPointer<Texture>(Depth);
    const auto *const data = getInputPointer<ShadowMapRenderData>(ShadowMapData);
    Texture *const shadows = data ? data->projectionTexture() : nullptr;
    const auto lights = ShadowMapManager::lightsIn(m_inputs[Lights].value);
    const QMatrix4x4 worldToClip =
        inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]) * inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);

    auto *const background = getInputPointer<Texture>(BackgroundIn);
    // The empty unit is the maps' where there are none, and samplers of different types must not share one.
    Texture *const none = TextureManager::Instance()->colorTexture(QColor(Qt::black));
    AutoBinder binder(&program);
    AutoBinder noneBinder(none);
    AutoBinder depthBinder(depth);
    AutoBinder contactBinder(contact);
    AutoBinder shadowBinder(shadows);
    AutoBinder backgroundBinder(background);
    setSampler(program, QStringLiteral("u_Depth"), depth ? depth : none);
    setSampler(program, QStringLiteral("u_Contact"), contact ? contact : none);
    setSampler(program, QStringLiteral("u_Shadows"), shadows);
    setSampler(program, QStringLiteral("u_Background"), background);
    setLights(lights, shadows ? data : nullptr);
    program.setUniform(QStringLiteral("u_HasDepth"), depth != nullptr);
    program.setUniform(QStringLiteral("u_WorldToClip"), worldToClip);
    program.setUniform(QStringLiteral("u_ClipToWorld"), worldToClip.inverted());
    program.setUniform(QStringLiteral("u_Place"), QVector4D(place.middle, std::max(place.radius, 1e-30f)));
    program.setUniform(QStringLiteral("u_Diagonal"), place.diagonal);
    program.setUniform(QStringLiteral("u_ContactStrength"), contact ? contactStrength : 0.0f);
    program.setUniform(QStringLiteral("u_Ambient"), std::clamp(inputValue<float>(m_inputs[AmbientLight]), 0.0f, 1.0f));
    program.setUniform(QStringLiteral("u_LightSize"), std::max(0.0f, inputValue<float>(m_inputs[LightSize])));
    program.setUniform(QStringLiteral("u_IsForDisplay"), inputValue<bool>(m_inputs[DisplayValues]));
    program.setUniform(QStringLiteral("u_PatternOrigin"), inputValue<QVector2D>(m_inputs[PatternOrigin]));
    // The golden ratio's fraction: any number of frames in a row turn evenly.
    const double turns = inputValue<int>(m_inputs[JitterIndex]) * 0.6180339887498949;
    program.setUniform(QStringLiteral("u_Turn"), float(turns - std::floor(turns)));
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

} // namespace Velmora::Kvz
