// SPDX-License-Identifier: MIT
#include <ExtraPasses/AmbientVisibilityRenderPass.h>

#include "EnvironmentUniforms.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/ShadowMaps.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>

#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>
#include <QtGui/QVector4D>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

// What the three programs share: positions, normals, and which neighbours lie on a pixel's surface.
const QString surfaceSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Depth;
#ifdef KVZ_NORMALS
uniform sampler2D u_Normals;
#endif
uniform vec4 u_Scale; // Of the projection: elements 00, 11, 02 and 12.
uniform vec4 u_Range; // 22, 23, 32 and 33.
uniform vec2 u_Shift; // 03 and 13.
uniform float u_Radius;
uniform ivec2 u_Size;

vec3 positionAtZ(vec2 uv, float z)
{
    float w = u_Range.z * z + u_Range.w;
    return vec3(((2.0 * uv - 1.0) * w - u_Scale.zw * z - u_Shift) / u_Scale.xy, z);
}

float cameraZ(float depth)
{
    float device = 2.0 * depth - 1.0;
    return (u_Range.y - device * u_Range.w) / (device * u_Range.z - u_Range.x);
}

vec3 positionAt(vec2 uv, float depth)
{
    return positionAtZ(uv, cameraZ(depth));
}

// Towards the eye.
vec3 viewFrom(vec3 position)
{
    return u_Range.z != 0.0 ? normalize(-position) : vec3(0.0, 0.0, 1.0);
}

vec2 centreOf(ivec2 texel)
{
    return (vec2(texel) + 0.5) / vec2(u_Size);
}

#ifndef KVZ_NORMALS
// To the neighbour on one axis that lies nearer in depth: across an edge the other one would be of another surface.
vec3 alongAxis(ivec2 texel, vec3 position, ivec2 step)
{
    ivec2 before = clamp(texel - step, ivec2(0), u_Size - 1);
    ivec2 behind = clamp(texel + step, ivec2(0), u_Size - 1);
    float depthBefore = texelFetch(u_Depth, before, 0).r;
    float depthBehind = texelFetch(u_Depth, behind, 0).r;
    vec3 back = position - positionAt(centreOf(before), depthBefore);
    vec3 on = positionAt(centreOf(behind), depthBehind) - position;
    bool hasBack = before != texel && depthBefore < 1.0;
    bool hasOn = behind != texel && depthBehind < 1.0;
    if (!hasBack && !hasOn)
        return positionAtZ(centreOf(texel + step), position.z) - position;
    return hasBack && (!hasOn || abs(back.z) < abs(on.z)) ? back : on;
}
#endif

// On the visible side.
vec3 normalAt(ivec2 texel, vec3 position, vec3 view)
{
#ifdef KVZ_NORMALS
    vec3 normal = texelFetch(u_Normals, texel, 0).xyz;
#else
    vec3 normal = cross(alongAxis(texel, position, ivec2(1, 0)), alongAxis(texel, position, ivec2(0, 1)));
#endif
    float size = length(normal);
    normal = size > 0.0 ? normal / size : view;
    return normalize(normal - 1.001 * min(dot(normal, view), 0.0) * view);
}

// How much a neighbour counts: not at all a tenth of the radius off the tangent plane, and little beyond a third of the radius on
// it, where a surface that is seen from its edge has its next texels.
float onPlane(vec3 position, vec3 normal, vec3 neighbour)
{
    vec3 way = neighbour - position;
    float on = max(1.0 - abs(dot(normal, way)) / (0.1 * u_Radius), 0.0);
    return on * max(1.0 - length(way) / (0.35 * u_Radius), 0.02);
}
)");

// Visibility, camera-space z, and 1 where there is a surface.
const QString horizonFragmentSource = surfaceSource + QStringLiteral(R"(
uniform float u_Turn;
uniform ivec2 u_PatternOrigin;
out vec4 out_Visibility;

const int sliceCount = 2;
const int stepCount = 6;
const float pi = 3.14159265;

// The cosine of the horizon to one side with what a place shows. A texel hardly ever lies on the line of the slice. So it
// counts by its height over the tangent plane, and what lies on that plane raises nothing. `tangent` is that plane's direction
// to this side, and `up` the normal's, both in the slice.
float raised(float horizon, vec2 uv, vec3 position, vec3 view, vec3 normal, vec3 tangent, vec3 up, float lean)
{
    ivec2 texel = clamp(ivec2(floor(uv * vec2(u_Size))), ivec2(0), u_Size - 1);
    float depth = texelFetch(u_Depth, texel, 0).r;
    vec3 way = positionAt(centreOf(texel), depth) - position;
    float reach = max(length(way), 1e-12);
    float height = clamp(dot(normal, way) / (lean * reach), -1.0, 1.0);
    // What is clearly above may lean over to the other side; near the plane only the texel lies beside the line.
    float aside = mix(sqrt(1.0 - height * height), dot(way, tangent) / reach, smoothstep(0.3, 0.7, height));
    vec2 raise = vec2(aside, height) / max(length(vec2(aside, height)), 1e-6);
    float open = dot(tangent, view);
    // The highest place stands for all below it, of which most are nearer, so it fades later than they would.
    float share = clamp((1.0 - reach / u_Radius) / 0.2, 0.0, 1.0);
    // Neither the void nor what lies outside of the frame hides anything.
    share *= float(depth < 1.0 && all(equal(uv, clamp(uv, 0.0, 1.0))));
    return max(horizon, mix(open, raise.x * open + raise.y * dot(up, view), share));
}

// The integral from the view's direction to a horizon, over the cosine with the normal in the slice.
float arc(float horizon, float tilt)
{
    return 0.25 * (cos(tilt) - cos(2.0 * horizon - tilt) + 2.0 * horizon * sin(tilt));
}

void main()
{
    ivec2 place = ivec2(gl_FragCoord.xy);
    ivec2 texel = min(2 * place, u_Size - 1);
    float depth = texelFetch(u_Depth, texel, 0).r;
    if (depth >= 1.0) {
        out_Visibility = vec4(1.0, 0.0, 0.0, 1.0);
        return;
    }
    vec2 uv = centreOf(texel);
    vec3 position = positionAt(uv, depth);
    vec3 view = viewFrom(position);
    vec3 normal = normalAt(texel, position, view);
    // The radius in texture coordinates, and the least step: what lies on the same texel hides nothing.
    vec2 reach = 0.5 * u_Radius * abs(u_Scale.xy) / abs(u_Range.z * position.z + u_Range.w);
    float leastStep = 1.0 / max(reach.y * float(u_Size.y), 1.0);

    ivec2 pattern = place + u_PatternOrigin;
    float turn = fract(float((((pattern.x + pattern.y) & 3) << 2) + (pattern.x & 3)) / 16.0 + u_Turn);
    float offset = fract(float((pattern.y - pattern.x) & 3) / 4.0 + 1.618 * u_Turn);
    float seen = 0.0;
    float open = 0.0;
    for (int slice = 0; slice < sliceCount; ++slice) {
        float angle = (float(slice) + turn) * pi / float(sliceCount);
        vec2 direction = vec2(cos(angle), sin(angle));
        vec3 forward = vec3(direction, 0.0);
        vec3 along = forward - dot(forward, view) * view;
        vec3 axis = normalize(cross(along, view));
        vec3 inSlice = normal - axis * dot(normal, axis);
        float size = max(length(inSlice), 1e-5);
        float tilt = acos(clamp(dot(inSlice, view) / size, -1.0, 1.0)) * (dot(along, inSlice) < 0.0 ? -1.0 : 1.0);
        vec3 up = inSlice / size;
        vec3 tangent = cross(up, axis) * (dot(cross(up, axis), along) < 0.0 ? -1.0 : 1.0);
        // The cosines of the tangent plane to both sides.
        vec2 horizon = vec2(-sin(tilt), sin(tilt));
        for (int i = 0; i < stepCount; ++i) {
            float part = (float(i) + offset) / float(stepCount);
            vec2 way = max(part * part, leastStep) * reach * direction;
            horizon.x = raised(horizon.x, uv + way, position, view, normal, tangent, up, size);
            horizon.y = raised(horizon.y, uv - way, position, view, normal, -tangent, up, size);
        }
        vec2 angles = acos(clamp(horizon, -1.0, 1.0));
        seen += size * (arc(angles.x, tilt) + arc(-angles.y, tilt));
        open += size * (cos(tilt) + tilt * sin(tilt));
    }
    out_Visibility = vec4(clamp(seen / open, 0.0, 1.0), position.z, 1.0, 1.0);
}
)");

// The mean over a block of the pattern, along the surface.
const QString smoothFragmentSource = surfaceSource + QStringLiteral(R"(
uniform sampler2D u_Source;
out vec4 out_Visibility;

void main()
{
    ivec2 place = ivec2(gl_FragCoord.xy);
    vec4 here = texelFetch(u_Source, place, 0);
    if (here.b == 0.0) {
        out_Visibility = here;
        return;
    }
    ivec2 last = textureSize(u_Source, 0) - 1;
    ivec2 texel = min(2 * place, u_Size - 1);
    vec3 position = positionAtZ(centreOf(texel), here.g);
    vec3 normal = normalAt(texel, position, viewFrom(position));
    vec2 sum = vec2(0.0);
    for (int y = -2; y < 2; ++y) {
        for (int x = -2; x < 2; ++x) {
            ivec2 other = clamp(place + ivec2(x, y), ivec2(0), last);
            vec4 there = texelFetch(u_Source, other, 0);
            vec3 neighbour = positionAtZ(centreOf(min(2 * other, u_Size - 1)), there.g);
            sum += there.b * onPlane(position, normal, neighbour) * vec2(there.r, 1.0);
        }
    }
    out_Visibility = vec4(sum.g > 0.0 ? sum.r / sum.g : here.r, here.gb, 1.0);
}
)");

// Brings the visibility to the frame's resolution and adds what surfaces give each other.
const QString enlargeFragmentSource = surfaceSource + QStringLiteral(R"(
#ifdef KVZ_SENT_LIGHT
#include "EnvironmentLight.glslh"
uniform sampler2D u_Sent;
#endif
uniform sampler2D u_Source;
#ifdef KVZ_COLOURS
uniform sampler2D u_Colours;
#endif
uniform float u_Albedo;
in vec2 vo_TexCoord;
out vec4 out_Visibility;

void main()
{
    ivec2 texel = ivec2(gl_FragCoord.xy);
    float depth = texelFetch(u_Depth, texel, 0).r;
    if (depth >= 1.0) {
        out_Visibility = vec4(1.0);
        return;
    }
    vec3 position = positionAt(centreOf(texel), depth);
    vec3 normal = normalAt(texel, position, viewFrom(position));
    ivec2 last = textureSize(u_Source, 0) - 1;
    ivec2 first = texel / 2;
    vec2 part = 0.5 * vec2(texel - 2 * first);
    vec2 sum = vec2(0.0);
    vec2 nearest = vec2(0.0);
    for (int i = 0; i < 4; ++i) {
        ivec2 corner = ivec2(i & 1, i >> 1);
        ivec2 other = min(first + corner, last);
        vec4 there = texelFetch(u_Source, other, 0);
        vec2 near = mix(1.0 - part, part, vec2(corner));
        vec3 neighbour = positionAtZ(centreOf(min(2 * other, u_Size - 1)), there.g);
        sum += there.b * near.x * near.y * onPlane(position, normal, neighbour) * vec2(there.r, 1.0);
        nearest += there.b / (1e-4 * u_Radius + distance(neighbour, position)) * vec2(there.r, 1.0);
    }
    // A surface that none of the four lies on, such as a wire, takes the nearest ones.
    float visibility = sum.g > 1e-3 ? sum.r / sum.g : nearest.g > 0.0 ? nearest.r / nearest.g : 1.0;
#if defined(KVZ_COLOURS)
    vec3 albedo = texture(u_Colours, vo_TexCoord).rgb;
#elif defined(KVZ_SENT_LIGHT)
    // Of what white would send.
    vec3 albedo = texture(u_Sent, vo_TexCoord).rgb / max(diffuseEnvironment(normal), vec3(1e-4));
#else
    vec3 albedo = vec3(u_Albedo);
#endif
    // What is hidden is as bright as the surface itself, which sees it, which sees ...: a geometric series.
    vec3 lit = visibility / max(1.0 - clamp(albedo, 0.0, 1.0) * (1.0 - visibility), vec3(1e-4));
    out_Visibility = vec4(min(lit, vec3(1.0)), visibility);
}
)");

} // namespace

AmbientVisibilityRenderPass::AmbientVisibilityRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Normal"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Diffuse"), QVariant());
    addInput(QStringLiteral("Kvz_QVector3D_SceneBoundsMin"), QVariant());
    addInput(QStringLiteral("Kvz_QVector3D_SceneBoundsMax"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addInput(QStringLiteral("Kvz_float_RelativeRadius"), 0.1f);
    addInput(QStringLiteral("Kvz_float_Albedo"), 0.5f);
    addInput(QStringLiteral("Kvz_int_JitterIndex"), QVariant());
    addInput(QStringLiteral("Kvz_Vector2D_PatternOrigin"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Indirect"), QVariant());
    addInput(QStringLiteral("Kvz_QVariant_Irradiance"), QVariant());
    addInput(QStringLiteral("Kvz_float_EnvironmentRotation"), 0.0f);
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Visibility"));
}

AmbientVisibilityRenderPass::~AmbientVisibilityRenderPass()
{
    AmbientVisibilityRenderPass::teardownContextData(nullptr);
}

void AmbientVisibilityRenderPass::start(RenderCallbacks *callbacks)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    Texture *const depth = getInputPointer<Texture>(Depth);
    if (size.isEmpty() || !depth) {
        skip(callbacks);
        return;
    }
    ensureFramebuffer(m_framebuffer);
    buildPrograms(variant());
    ensureScreenQuad(m_screenQuad, *m_enlargeProgram);

    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    const QSize half((size.width() + 1) / 2, (size.height() + 1) / 2);
    Texture *visibility = nullptr;
    {
        AutoBinder framebuffer(m_framebuffer.get());
        Texture *const raw = draw(*m_horizonProgram, nullptr, half, false);
        Texture *const smooth = draw(*m_smoothProgram, raw, half, false);
        giveBack(raw);
        visibility = draw(*m_enlargeProgram, smooth, size, true);
        giveBack(smooth);
    }
    handOn(m_outputs[Visibility], m_numOutputUsers[Visibility], visibility);
    giveBack(visibility);
    for (const Input input : {Depth, Normal, Diffuse, Indirect})
        giveBack(getInputPointer<Texture>(input));
}

void AmbientVisibilityRenderPass::teardownContextData(RenderCallbacks *)
{
    m_horizonProgram.reset();
    m_smoothProgram.reset();
    m_enlargeProgram.reset();
    m_framebuffer.reset();
    m_screenQuad.reset();
}

/// In world units, which are those of the camera's space.
float AmbientVisibilityRenderPass::radius() const
{
    const auto part = std::max(0.0f, inputValue<float>(m_inputs[RelativeRadius]));
    const auto bounds =
        sceneBounds(m_inputs[SceneBoundsMin], m_inputs[SceneBoundsMax], inputValue<GPUModel *>(m_inputs[Geometry]));
    if (!bounds)
        return part;
    const QVector3D sides = bounds->second - bounds->first;
    const float longest = std::max({sides.x(), sides.y(), sides.z()});
    return longest > 0 ? part * longest : part;
}

AmbientVisibilityRenderPass::Variant AmbientVisibilityRenderPass::variant() const
{
    const bool isLit = m_inputs[Irradiance].value.toList().size() == 9;
    Variant wanted;
    wanted.hasNormals = getInputPointer<Texture>(Normal);
    wanted.hasColours = getInputPointer<Texture>(Diffuse);
    wanted.hasSentLight = !wanted.hasColours && isLit && getInputPointer<Texture>(Indirect);
    return wanted;
}

void AmbientVisibilityRenderPass::buildPrograms(const Variant &wanted)
{
    if (m_enlargeProgram && wanted == m_variant)
        return;
    m_variant = wanted;
    const QString one = QStringLiteral("1");
    GLSLMacroProcessor macros;
    if (wanted.hasNormals)
        macros.addDefine(QStringLiteral("KVZ_NORMALS"), one);
    if (wanted.hasColours)
        macros.addDefine(QStringLiteral("KVZ_COLOURS"), one);
    QStringList files;
    if (wanted.hasSentLight) {
        macros.addDefine(QStringLiteral("KVZ_SENT_LIGHT"), one);
        files.append(QStringLiteral("EnvironmentLight.glslc"));
    }
    const QStringList output = {QStringLiteral("out_Visibility")};
    m_horizonProgram = buildProgram(output, screenQuadVertexSource, horizonFragmentSource, &macros);
    m_smoothProgram = buildProgram(output, screenQuadVertexSource, smoothFragmentSource, &macros);
    m_enlargeProgram = buildProgram(output, screenQuadVertexSource, enlargeFragmentSource, &macros, files);
}

/// A pooled image of this size, with one reference of the pass.
Texture *AmbientVisibilityRenderPass::draw(ShaderProgram &program, Texture *source, const QSize &size, bool isResult)
{
    Texture *const depth = getInputPointer<Texture>(Depth);
    Texture *const normals = getInputPointer<Texture>(Normal);
    Texture *const colours = getInputPointer<Texture>(Diffuse);
    Texture *const sent = m_variant.hasSentLight && isResult ? getInputPointer<Texture>(Indirect) : nullptr;
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto origin = inputValue<QVector2D>(m_inputs[PatternOrigin]);
    Texture *const target = attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0,
        isResult ? TextureFormat::LowDynamicRange : TextureFormat::Position, size);
    m_framebuffer->setDrawBuffers();
    glViewport(0, 0, size.width(), size.height());
    {
        AutoBinder binder(&program);
        AutoBinder depthBinder(depth);
        AutoBinder normalBinder(normals);
        AutoBinder colourBinder(colours);
        AutoBinder sentBinder(sent);
        AutoBinder sourceBinder(source);
        setSampler(program, QStringLiteral("u_Depth"), depth);
        setSampler(program, QStringLiteral("u_Normals"), normals);
        setSampler(program, QStringLiteral("u_Colours"), colours);
        setSampler(program, QStringLiteral("u_Sent"), sent);
        setSampler(program, QStringLiteral("u_Source"), source);
        program.setUniform(QStringLiteral("u_Scale"),
            QVector4D(projection(0, 0), projection(1, 1), projection(0, 2), projection(1, 2)));
        program.setUniform(QStringLiteral("u_Range"),
            QVector4D(projection(2, 2), projection(2, 3), projection(3, 2), projection(3, 3)));
        program.setUniform(QStringLiteral("u_Shift"), QVector2D(projection(0, 3), projection(1, 3)));
        program.setUniform(QStringLiteral("u_Radius"), std::max(radius(), 1e-12f));
        program.setUniform(QStringLiteral("u_Size"), QSize(depth->width(0), depth->height(0)));
        program.setUniform(QStringLiteral("u_PatternOrigin"), QSize(int(origin.x()) / 2, int(origin.y()) / 2));
        // The golden ratio's fraction: any number of frames in a row turn evenly.
        const double turns = inputValue<int>(m_inputs[JitterIndex]) * 0.6180339887498949;
        program.setUniform(QStringLiteral("u_Turn"), float(turns - std::floor(turns)));
        program.setUniform(QStringLiteral("u_Albedo"), std::clamp(inputValue<float>(m_inputs[Albedo]), 0.0f, 1.0f));
        if (sent)
            EnvironmentUniforms{0, inputValue<float>(m_inputs[EnvironmentRotation]), m_inputs[Irradiance].value}.set(
                program, inputValue<QMatrix4x4>(m_inputs[CameraMatrix]));
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }
    m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
    return target;
}

} // namespace Velmora::Kvz
