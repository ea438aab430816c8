// SPDX-License-Identifier: MIT
#include <ExtraPasses/CutoutAntiAliasingRenderPass.h>

#include "smaa/SmaaSources.h"
#include "smaa/SmaaTextures.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ResolveMultisampled.h"
#include "steps/Sampling.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/BlitTexture.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>

#include <QtGui/QVector4D>

#include <GL/TrackedGL.h>

#include <optional>

namespace Velmora::Kvz {

namespace {

// The published filter, led by luma or by alpha: by that which changes more around a pixel.
const QString fxaaFragmentSource = QStringLiteral(R"(#version 150
#include "FXAA.glslh"

uniform sampler2D u_FrameSampler;
uniform vec2 u_Texel;
in vec2 vo_TexCoord;
out vec4 out_output;

const vec4 lumaOf = vec4(0.299, 0.587, 0.114, 0.0);
const vec4 alphaOf = vec4(0.0, 0.0, 0.0, 1.0);
vec4 leading;

float fxaaLuma(vec4 texel)
{
    return dot(texel, leading);
}

vec2 lumaAndAlpha(ivec2 offset)
{
    vec4 texel = textureLod(u_FrameSampler, vo_TexCoord + vec2(offset) * u_Texel, 0.0);
    return vec2(dot(texel, lumaOf), texel.a);
}

void main()
{
    vec2 here = lumaAndAlpha(ivec2(0));
    vec2 left = lumaAndAlpha(ivec2(-1, 0));
    vec2 right = lumaAndAlpha(ivec2(1, 0));
    vec2 top = lumaAndAlpha(ivec2(0, -1));
    vec2 bottom = lumaAndAlpha(ivec2(0, 1));
    vec2 range = max(here, max(max(left, right), max(top, bottom))) - min(here, min(min(left, right), min(top, bottom)));
    leading = range.y > range.x ? alphaOf : lumaOf;
    // The arguments for consoles are read by nothing.
    out_output = FxaaPixelShader(vo_TexCoord, vec4(0.0), u_FrameSampler, u_FrameSampler, u_FrameSampler, u_Texel, vec4(0.0),
        vec4(0.0), vec4(0.0), 0.75, 0.125, 0.0312, 8.0, 0.125, 0.05, vec4(0.0));
}
)");

// SMAA's edges by luma, with the larger of the two differences in place of luma's.
const QString edgeFragmentSource = smaaFragmentHead + QStringLiteral(R"(
uniform sampler2D u_FrameSampler;
in vec4 vo_offsets[3];
out vec2 out_output;

vec2 lumaAndAlpha(vec2 place)
{
    vec4 texel = texture(u_FrameSampler, place);
    return vec2(dot(texel.rgb, vec3(0.2126, 0.7152, 0.0722)), texel.a);
}

float difference(vec2 a, vec2 b)
{
    vec2 apart = abs(a - b);
    return max(apart.x, apart.y);
}

void main()
{
    // All reads stand before the first branch, where texture() may not be used.
    vec2 here = lumaAndAlpha(vo_TexCoord);
    vec2 left = lumaAndAlpha(vo_offsets[0].xy);
    vec2 top = lumaAndAlpha(vo_offsets[0].zw);
    vec2 right = lumaAndAlpha(vo_offsets[1].xy);
    vec2 bottom = lumaAndAlpha(vo_offsets[1].zw);
    vec2 twoLeft = lumaAndAlpha(vo_offsets[2].xy);
    vec2 twoTop = lumaAndAlpha(vo_offsets[2].zw);

    vec2 delta = vec2(difference(here, left), difference(here, top));
    vec2 edges = step(SMAA_THRESHOLD, delta);
    if (edges.x + edges.y == 0.0)
        discard;
    vec2 beside = max(vec2(difference(here, right), difference(here, bottom)),
        vec2(difference(left, twoLeft), difference(top, twoTop)));
    vec2 strongest = max(delta, beside);
    out_output = edges * step(max(strongest.x, strongest.y), SMAA_LOCAL_CONTRAST_ADAPTATION_FACTOR * delta);
}
)");

Texture *take(TextureFormat format, const QSize &size)
{
    Texture *const texture = TextureManager::Instance()->tempTexture(format, size.width(), size.height(), 1, 1);
    sampleLinearly(texture);
    return texture;
}

void clearColour()
{
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);
}

} // namespace

CutoutAntiAliasingRenderPass::CutoutAntiAliasingRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Frame"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_SecondFrame"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Velocity"), QVariant());
    addInput(QStringLiteral("Kvz_int_JitterIndex"), QVariant());
    addInput(QStringLiteral("Kvz_Vector2D_JitterAmount"), QVariant());
    addInput(QStringLiteral("Kvz_bool_RenderInHDR"), false);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

CutoutAntiAliasingRenderPass::~CutoutAntiAliasingRenderPass()
{
    CutoutAntiAliasingRenderPass::teardownContextData(nullptr);
}

void CutoutAntiAliasingRenderPass::setMode(Mode mode)
{
    m_mode = mode;
}

void CutoutAntiAliasingRenderPass::forgetPast()
{
    giveBack(m_previous);
    giveBack(m_previousSpeeds);
    m_previous = nullptr;
    m_previousSpeeds = nullptr;
    m_previousJitter = QVector2D();
}

void CutoutAntiAliasingRenderPass::start(RenderCallbacks *callbacks)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    Texture *const frame = getInputPointer<Texture>(FrameIn);
    Texture *velocity = getInputPointer<Texture>(Velocity);
    if (velocity && isMultisampled(velocity))
        velocity = nullptr;
    std::array<Texture *, 2> samples = {};
    if (size.isEmpty() || !frame || !takeSamples(frame, &samples)) {
        skip(callbacks);
        return;
    }
    if (size != m_size || m_mode != m_builtMode) {
        forgetPast();
        m_edgeProgram.reset();
    }
    m_size = size;
    m_builtMode = m_mode;
    prepare();

    glDisable(GL_DEPTH_TEST);
    glDisable(GL_STENCIL_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glViewport(0, 0, size.width(), size.height());
    const TextureFormat format =
        inputValue<bool>(m_inputs[RenderInHDR]) ? TextureFormat::HighDynamicRange : TextureFormat::LowDynamicRange;
    if (isMultisampled(frame)) {
        AutoBinder framebuffer(m_framebuffer.get());
        AutoBinder program(m_separateProgram.get());
        AutoBinder frameBinder(frame);
        for (size_t i = 0; i < samples.size(); ++i) {
            samples[i] = take(format, size);
            m_framebuffer->attach(samples[i], GL_COLOR_ATTACHMENT0 + unsigned(i), 0);
        }
        m_framebuffer->setDrawBuffers();
        setSampler(*m_separateProgram, QStringLiteral("u_ColorTexMS"), frame);
        draw(*m_separateProgram);
        m_framebuffer->detachAll();
    }

    // Two samples are averaged in floats: some drivers round each half to 8 bits.
    Texture *result = take(hasTwoSamples() ? TextureFormat::HighDynamicRange : format, size);
    {
        const LinearFilters filters(samples[0]);
        std::optional<LinearFilters> secondFilters;
        if (samples[1] && samples[1] != samples[0])
            secondFilters.emplace(samples[1]);
        if (m_mode == Mode::Fxaa) {
            drawFxaa(result, samples[0]);
        } else {
            Texture *const speeds = isTemporal() ? take(TextureFormat::Velocity, size) : nullptr;
            smooth(result, speeds, samples[0], velocity, 0);
            if (hasTwoSamples())
                smooth(result, speeds, samples[1], velocity, 1);
            if (isTemporal()) {
                Texture *const current = result;
                result = take(format, size);
                resolve(result, current, speeds, velocity);
            } else if (hasTwoSamples() && format != TextureFormat::HighDynamicRange) {
                Texture *const mean = result;
                result = take(format, size);
                BlitTexture(mean, result, format, size.width(), size.height());
                giveBack(mean);
            }
        }
    }

    handOn(m_outputs[Frame], m_numOutputUsers[Frame], result);
    giveBack(result);
    if (isMultisampled(frame)) {
        giveBack(samples[0]);
        giveBack(samples[1]);
    }
    for (const Input input : {FrameIn, SecondFrame, Velocity})
        giveBack(getInputPointer<Texture>(input));
}

void CutoutAntiAliasingRenderPass::teardownContextData(RenderCallbacks *)
{
    forgetPast();
    m_framebuffer.reset();
    m_areaTexture.reset();
    m_searchTexture.reset();
    for (std::unique_ptr<ShaderProgram> *program :
        {&m_fxaaProgram, &m_edgeProgram, &m_weightProgram, &m_blendProgram, &m_resolveProgram, &m_separateProgram})
        program->reset();
    m_screenQuad.reset();
}

bool CutoutAntiAliasingRenderPass::isTemporal() const
{
    return m_mode == Mode::SmaaT2x || m_mode == Mode::Smaa4x;
}

bool CutoutAntiAliasingRenderPass::hasTwoSamples() const
{
    return m_mode == Mode::SmaaS2x || m_mode == Mode::Smaa4x;
}

/// Finds the images of the samples; those of a multisampled frame are still to be made. Says once what is missing. False: there is
/// nothing to work on.
bool CutoutAntiAliasingRenderPass::takeSamples(Texture *frame, std::array<Texture *, 2> *samples)
{
    const auto warn = [this](const QString &line) {
        if (!m_hasWarned)
            KVZ_WARNING(line);
        m_hasWarned = true;
    };
    if (isMultisampled(frame)) {
        if (hasTwoSamples())
            return true;
        warn(QStringLiteral(
            "CutoutAntiAliasingRenderPass: the frame has several samples per texel, which the modes fxaa, smaa-1x and "
            "smaa-t2x do not take; use smaa-s2x or smaa-4x, or resolve it before"));
        return false;
    }
    Texture *second = getInputPointer<Texture>(SecondFrame);
    if (hasTwoSamples() && (!second || isMultisampled(second))) {
        warn(QStringLiteral(
            "CutoutAntiAliasingRenderPass: the modes smaa-s2x and smaa-4x need two samples; connect the second one to "
            "Kvz_KvzTexture*_SecondFrame, or a multisampled frame; the one frame counts as both"));
        second = frame;
    }
    *samples = {frame, second};
    return true;
}

/// Makes what is missing for the mode and the size.
void CutoutAntiAliasingRenderPass::prepare()
{
    ensureFramebuffer(m_framebuffer);
    if (!m_screenQuad)
        m_screenQuad = OpenGLDeviceContext::current()->createScreenQuad();
    const QStringList output = {QStringLiteral("out_output")};
    GLSLMacroProcessor macros;
    if (m_mode == Mode::Fxaa) {
        macros.addDefine(QStringLiteral("FXAA_GREEN_AS_LUMA"), QStringLiteral("2"));
        macros.addDefine(QStringLiteral("FXAA_QUALITY_PRESET"), QStringLiteral("29"));
        if (!m_fxaaProgram)
            m_fxaaProgram = buildProgram(
                output, screenQuadVertexSource, fxaaFragmentSource, &macros, {QStringLiteral("FXAA.glslc")});
        return;
    }
    if (!m_areaTexture) {
        m_areaTexture = makeSmaaAreaTexture();
        m_searchTexture = makeSmaaSearchTexture();
    }
    if (m_edgeProgram)
        return;
    const QString one = QStringLiteral("1");
    macros.addDefine(QStringLiteral("SMAA_RT_METRICS"),
        QStringLiteral("float4(1.0 / %1, 1.0 / %2, %1, %2)")
            .arg(double(m_size.width()), 0, 'f', 1)
            .arg(double(m_size.height()), 0, 'f', 1));
    macros.addDefine(QStringLiteral("SMAA_GLSL_3"), one);
    macros.addDefine(QStringLiteral("SMAA_PRESET_ULTRA"), one);
    if (isTemporal()) {
        macros.addDefine(QStringLiteral("SMAA_REPROJECTION"), one);
        macros.addDefine(QStringLiteral("SMAA_JITTER_COMPENSATION"), one);
        macros.addDefine(QStringLiteral("SMAA_TRANSPARENCY"), one);
    }
    m_edgeProgram = buildProgram(output, smaaEdgeVertexSource, edgeFragmentSource, &macros);
    m_weightProgram = buildProgram(output, smaaWeightVertexSource, smaaWeightFragmentSource, &macros);
    m_blendProgram = buildProgram({QStringLiteral("out_output"), QStringLiteral("out_velocity")}, smaaBlendVertexSource,
        smaaBlendFragmentSource, &macros);
    if (isTemporal())
        m_resolveProgram = buildProgram(output, smaaPlainVertexSource, smaaResolveFragmentSource, &macros);
    if (hasTwoSamples())
        m_separateProgram = buildProgram({QStringLiteral("out_target0"), QStringLiteral("out_target1")},
            smaaPlainVertexSource, smaaSeparateFragmentSource, &macros);
}

void CutoutAntiAliasingRenderPass::drawFxaa(Texture *target, Texture *frame)
{
    AutoBinder framebuffer(m_framebuffer.get());
    AutoBinder program(m_fxaaProgram.get());
    AutoBinder frameBinder(frame);
    m_framebuffer->attach(target, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer->setDrawBuffers();
    setSampler(*m_fxaaProgram, QStringLiteral("u_FrameSampler"), frame);
    m_fxaaProgram->setUniform(
        QStringLiteral("u_Texel"), QVector2D(1 / float(m_size.width()), 1 / float(m_size.height())));
    draw(*m_fxaaProgram);
    m_framebuffer->detachAll();
}

/// From the edges to the blending, for one of the samples. The second is averaged with what the target has.
void CutoutAntiAliasingRenderPass::smooth(
    Texture *target, Texture *speeds, Texture *frame, Texture *velocity, int sample)
{
    Texture *const edges = take(TextureFormat::LowDynamicRange, m_size);
    Texture *const stencil = take(TextureFormat::DepthStencil, m_size);
    Texture *const weights = take(TextureFormat::LowDynamicRange, m_size);
    findEdges(edges, stencil, frame);
    weigh(weights, edges, stencil, sample);
    blend(target, speeds, frame, weights, velocity, sample == 1);
    giveBack(edges);
    giveBack(stencil);
    giveBack(weights);
}

/// Writes edges, and 1 to the stencil where there are some.
void CutoutAntiAliasingRenderPass::findEdges(Texture *edges, Texture *stencil, Texture *frame)
{
    AutoBinder framebuffer(m_framebuffer.get());
    AutoBinder program(m_edgeProgram.get());
    AutoBinder frameBinder(frame);
    m_framebuffer->attach(edges, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer->attach(stencil, GL_DEPTH_STENCIL_ATTACHMENT, 0);
    m_framebuffer->setDrawBuffers();
    setSampler(*m_edgeProgram, QStringLiteral("u_FrameSampler"), frame);
    glEnable(GL_STENCIL_TEST);
    glStencilFunc(GL_ALWAYS, 1, 0xff);
    glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);
    glStencilMask(0xff);
    glClearStencil(0);
    glClear(GL_STENCIL_BUFFER_BIT);
    clearColour();
    draw(*m_edgeProgram);
    m_framebuffer->detachAll();
}

void CutoutAntiAliasingRenderPass::weigh(Texture *weights, Texture *edges, Texture *stencil, int sample)
{
    AutoBinder framebuffer(m_framebuffer.get());
    AutoBinder program(m_weightProgram.get());
    AutoBinder edgeBinder(edges);
    AutoBinder areaBinder(m_areaTexture.get());
    AutoBinder searchBinder(m_searchTexture.get());
    m_framebuffer->attach(weights, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer->attach(stencil, GL_DEPTH_STENCIL_ATTACHMENT, 0);
    m_framebuffer->setDrawBuffers();
    setSampler(*m_weightProgram, QStringLiteral("u_EdgeTex"), edges);
    setSampler(*m_weightProgram, QStringLiteral("u_AreaTex"), m_areaTexture.get());
    setSampler(*m_weightProgram, QStringLiteral("u_SearchTex"), m_searchTexture.get());
    const int index = inputValue<int>(m_inputs[JitterIndex]) & 1;
    const int number = m_mode == Mode::SmaaT2x ? index : m_mode == Mode::Smaa4x ? sample + 2 * index : sample;
    const int samples = m_mode == Mode::Smaa1x ? 1 : m_mode == Mode::Smaa4x ? 4 : 2;
    const float *const row = smaaSubsampleRow(samples, number);
    m_weightProgram->setUniform(QStringLiteral("u_SubsampleIndice"), QVector4D(row[0], row[1], row[2], row[3]));
    glStencilFunc(GL_EQUAL, 1, 0xff);
    glStencilMask(0);
    clearColour();
    draw(*m_weightProgram);
    glStencilMask(0xff);
    glDisable(GL_STENCIL_TEST);
    m_framebuffer->detachAll();
}

void CutoutAntiAliasingRenderPass::blend(
    Texture *target, Texture *speeds, Texture *frame, Texture *weights, Texture *velocity, bool isSecond)
{
    AutoBinder framebuffer(m_framebuffer.get());
    AutoBinder program(m_blendProgram.get());
    AutoBinder frameBinder(frame);
    AutoBinder weightBinder(weights);
    AutoBinder velocityBinder(speeds ? velocity : nullptr);
    m_framebuffer->attach(target, GL_COLOR_ATTACHMENT0, 0);
    if (speeds)
        m_framebuffer->attach(speeds, GL_COLOR_ATTACHMENT1, 0);
    m_framebuffer->setDrawBuffers();
    setSampler(*m_blendProgram, QStringLiteral("u_ColorTex"), frame);
    setSampler(*m_blendProgram, QStringLiteral("u_BlendTex"), weights);
    if (speeds)
        setSampler(*m_blendProgram, QStringLiteral("u_VelocityTex"), velocity);
    if (isSecond) {
        glEnablei(GL_BLEND, 0);
        glBlendColor(0.5f, 0.5f, 0.5f, 0.5f);
        glBlendEquation(GL_FUNC_ADD);
        glBlendFunc(GL_CONSTANT_COLOR, GL_CONSTANT_COLOR);
    }
    draw(*m_blendProgram);
    if (isSecond)
        glDisablei(GL_BLEND, 0);
    m_framebuffer->detachAll();
}

/// Writes the mean of `current` and the last frame, and keeps `current` and `speeds`, with the references of both, as the last one.
void CutoutAntiAliasingRenderPass::resolve(Texture *target, Texture *current, Texture *speeds, Texture *velocity)
{
    const auto jitter = inputValue<QVector2D>(m_inputs[JitterAmount]);
    // A first frame is resolved with itself, where it stands.
    if (!m_previous) {
        m_previousJitter = jitter;
        velocity = nullptr;
    }
    {
        AutoBinder framebuffer(m_framebuffer.get());
        AutoBinder program(m_resolveProgram.get());
        AutoBinder currentBinder(current);
        AutoBinder speedBinder(speeds);
        AutoBinder velocityBinder(velocity);
        AutoBinder previousBinder(m_previous);
        AutoBinder previousSpeedBinder(m_previousSpeeds);
        m_framebuffer->attach(target, GL_COLOR_ATTACHMENT0, 0);
        m_framebuffer->setDrawBuffers();
        // Half of normalised device units is texture coordinates.
        m_resolveProgram->setUniform(QStringLiteral("u_JitterAmount"), 0.5f * (m_previousJitter - jitter));
        m_resolveProgram->setUniform(
            QStringLiteral("u_TexelDimensions"), QVector2D(1 / float(m_size.width()), 1 / float(m_size.height())));
        setSampler(*m_resolveProgram, QStringLiteral("u_CurrentColorTex"), current);
        setSampler(*m_resolveProgram, QStringLiteral("u_PreviousColorTex"), m_previous ? m_previous : current);
        setSampler(*m_resolveProgram, QStringLiteral("u_VelocityTex"), velocity);
        setSampler(*m_resolveProgram, QStringLiteral("u_PackedVelocityTex"), speeds);
        setSampler(*m_resolveProgram, QStringLiteral("u_PreviousPackedVelocityTex"),
            m_previousSpeeds ? m_previousSpeeds : speeds);
        draw(*m_resolveProgram);
        m_framebuffer->detachAll();
    }
    forgetPast();
    m_previous = current;
    m_previousSpeeds = speeds;
    m_previousJitter = jitter;
}

void CutoutAntiAliasingRenderPass::draw(const ShaderProgram &program) const
{
    enableArrays(m_screenQuad, program);
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

} // namespace Velmora::Kvz
