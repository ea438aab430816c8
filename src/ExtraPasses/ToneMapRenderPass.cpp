// SPDX-License-Identifier: MIT
#include <ExtraPasses/ToneMapRenderPass.h>

#include "TexelReadback.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QVector2D>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// The luminance to which automatic exposure brings the mean, and how far it goes for that.
constexpr double middleGrey = 0.18;
constexpr double mostStops = 16;
/// The sides of the blocks that are summed, in texels.
constexpr int blockSide = 8;

const QString head = QStringLiteral("#version 150\n");

// What is mapped and measured.
const QString gatherSource = QStringLiteral(R"(
uniform sampler2D u_Frame;
#ifdef KVZ_INDIRECT
uniform sampler2D u_Indirect;
#endif
#ifdef KVZ_VISIBILITY
uniform sampler2D u_Visibility;
#endif
#ifdef KVZ_LAYERS
uniform sampler2D u_Layers;
#endif

// Linear light multiplied by its alpha; what is no number counts as 0.
vec4 gather(vec2 place)
{
    vec4 colour = texture(u_Frame, place);
#ifdef KVZ_INDIRECT
    vec3 indirect = texture(u_Indirect, place).rgb;
#ifdef KVZ_VISIBILITY
    indirect *= texture(u_Visibility, place).rgb;
#endif
    colour.rgb += indirect;
#endif
#ifdef KVZ_LAYERS
    vec4 layers = texture(u_Layers, place);
    colour = vec4(layers.rgb + layers.a * colour.rgb, 1.0 - layers.a * (1.0 - colour.a));
#endif
    colour = mix(colour, vec4(0.0), isnan(colour));
    return vec4(clamp(colour.rgb, 0.0, 65504.0), clamp(colour.a, 0.0, 1.0));
}
)");

const QString mapFragmentSource = head + gatherSource + QStringLiteral(R"(
uniform float u_Exposure;
#ifdef KVZ_MEASURED
uniform sampler2D u_Sum;
uniform float u_MiddleGrey;
uniform float u_MostStops;
#endif
#ifdef KVZ_BACKGROUND
uniform sampler2D u_Background;
#endif
uniform vec2 u_PatternOrigin;
in vec2 vo_TexCoord;
out vec4 out_FragColor;
#ifdef KVZ_LINEAR
out vec4 out_Linear;
#endif

float largest(vec3 colour)
{
    return max(colour.r, max(colour.g, colour.b));
}

vec3 mapped(vec3 colour)
{
#if KVZ_OPERATOR == 0
    const float start = 0.8 - 0.04;
    const float room = 1.0 - start;
    const float desaturation = 0.15;
    float least = min(colour.r, min(colour.g, colour.b));
    // What every dielectric mirrors, which is not part of its base colour; less of it where dark colours would turn negative.
    colour -= least < 0.08 ? least - 6.25 * least * least : 0.04;
    float peak = largest(colour);
    if (peak < start)
        return colour;
    float compressed = 1.0 - room * room / (peak + room - start);
    float white = 1.0 - 1.0 / (desaturation * (peak - compressed) + 1.0);
    return mix(colour * (compressed / peak), vec3(compressed), white);
#elif KVZ_OPERATOR == 1
    // Beyond this it is 1, and squares would overflow.
    colour = min(colour, vec3(1e4));
    return colour * (2.51 * colour + 0.03) / (colour * (2.43 * colour + 0.59) + 0.14);
#else
    return colour;
#endif
}

vec3 encoded(vec3 linear)
{
    return mix(1.055 * pow(linear, vec3(1.0 / 2.4)) - 0.055, 12.92 * linear, lessThanEqual(linear, vec3(0.0031308)));
}

// Interleaved gradient noise from -0.48 to 0.48.
float noise(vec2 pixel)
{
    return 0.96 * (fract(52.9829189 * fract(dot(pixel, vec2(0.06711056, 0.00583715)))) - 0.5);
}

void main()
{
    vec4 colour = gather(vo_TexCoord);
#ifdef KVZ_BACKGROUND
    colour += (1.0 - colour.a) * texture(u_Background, vo_TexCoord);
#endif
    float stops = u_Exposure;
#ifdef KVZ_MEASURED
    vec2 sum = texelFetch(u_Sum, ivec2(0), 0).rg;
    if (sum.g > 0.0)
        stops += clamp(log2(u_MiddleGrey) - sum.r / sum.g, -u_MostStops, u_MostStops);
#endif
    vec3 exposed = colour.rgb * exp2(stops);
#ifdef KVZ_LINEAR
    out_Linear = vec4(min(exposed, vec3(65504.0)), colour.a);
#endif
    vec3 straight = colour.a > 0.0 ? exposed / colour.a : vec3(0.0);
    vec3 display = encoded(clamp(mapped(straight), 0.0, 1.0)) * colour.a;
#ifdef KVZ_DITHER
    // At most the alpha that is stored, so that no colour is brighter than its alpha allows.
    float most = floor(255.0 * colour.a + 0.5) / 255.0;
    display = clamp(display + noise(gl_FragCoord.xy + u_PatternOrigin) / 255.0, 0.0, most);
#endif
    out_FragColor = vec4(display, colour.a);
}
)");

// The sum over a block of alpha times the logarithm of luminance, and of alpha.
const QString luminanceFragmentSource = head + gatherSource + QStringLiteral(R"(
uniform ivec2 u_Size;
uniform int u_BlockSide;
out vec4 out_Sum;

void main()
{
    ivec2 first = ivec2(gl_FragCoord.xy) * u_BlockSide;
    ivec2 end = min(first + u_BlockSide, u_Size);
    vec2 sum = vec2(0.0);
    for (int y = first.y; y < end.y; ++y) {
        for (int x = first.x; x < end.x; ++x) {
            vec4 colour = gather((vec2(x, y) + 0.5) / vec2(u_Size));
            if (colour.a > 0.0) {
                float luminance = dot(colour.rgb / colour.a, vec3(0.2126, 0.7152, 0.0722));
                sum += colour.a * vec2(log2(clamp(luminance, 1e-4, 1e6)), 1.0);
            }
        }
    }
    out_Sum = vec4(sum, 0.0, 1.0);
}
)");

const QString sumFragmentSource = head + QStringLiteral(R"(
uniform sampler2D u_Sums;
uniform ivec2 u_Size;
uniform int u_BlockSide;
out vec4 out_Sum;

void main()
{
    ivec2 first = ivec2(gl_FragCoord.xy) * u_BlockSide;
    ivec2 end = min(first + u_BlockSide, u_Size);
    vec2 sum = vec2(0.0);
    for (int y = first.y; y < end.y; ++y) {
        for (int x = first.x; x < end.x; ++x)
            sum += texelFetch(u_Sums, ivec2(x, y), 0).rg;
    }
    out_Sum = vec4(sum, 0.0, 1.0);
}
)");

int blocksIn(int texels)
{
    return (texels + blockSide - 1) / blockSide;
}

} // namespace

bool ToneMapRenderPass::Variant::operator==(const Variant &other) const
{
    return hasIndirect == other.hasIndirect && hasVisibility == other.hasVisibility && hasLayers == other.hasLayers
        && hasBackground == other.hasBackground && isMeasured == other.isMeasured && isDithered == other.isDithered
        && hasLinear == other.hasLinear && toneMapping == other.toneMapping;
}

ToneMapRenderPass::ToneMapRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Frame"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Indirect"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Visibility"), QVariant());
    addInput(QStringLiteral("Kvz_float_Exposure"), 0.0f);
    addInput(QStringLiteral("Kvz_bool_AutoExposure"), false);
    addInput(QStringLiteral("Kvz_bool_RenderInHDR"), false);
    addInput(QStringLiteral("Kvz_Vector2D_PatternOrigin"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Layers"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Background"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Linear"));
    addOutput(QStringLiteral("Kvz_float_Exposure"));
}

ToneMapRenderPass::~ToneMapRenderPass()
{
    ToneMapRenderPass::teardownContextData(nullptr);
}

void ToneMapRenderPass::setOperator(Operator toneMapping)
{
    m_operator = toneMapping;
}

void ToneMapRenderPass::setDither(bool isOn)
{
    m_dither = isOn;
}

void ToneMapRenderPass::forgetMeasurement()
{
    m_readback.reset();
}

void ToneMapRenderPass::start(RenderCallbacks *callbacks)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto isAutomatic = inputValue<bool>(m_inputs[AutoExposure]);
    const auto isHdr = inputValue<bool>(m_inputs[RenderInHDR]);
    Texture *const source = getInputPointer<Texture>(FrameIn);
    if (size.isEmpty() || !source) {
        skip(callbacks);
        return;
    }
    Variant variant;
    variant.hasIndirect = getInputPointer<Texture>(Indirect);
    variant.hasVisibility = variant.hasIndirect && getInputPointer<Texture>(Visibility);
    variant.hasLayers = getInputPointer<Texture>(Layers);
    variant.hasBackground = getInputPointer<Texture>(Background);
    variant.isMeasured = isAutomatic;
    variant.isDithered = m_dither && !isHdr && m_operator != Operator::Clamp;
    variant.hasLinear = m_numOutputUsers[Linear] > 0;
    variant.toneMapping = m_operator;
    ensureFramebuffer(m_framebuffer);
    buildPrograms(variant);
    ensureScreenQuad(m_screenQuad, *m_mapProgram);

    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    AutoBinder framebuffer(m_framebuffer.get());
    Texture *const sum = isAutomatic ? measure() : nullptr;
    readMeasurement(sum);

    Texture *const frame = attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0,
        isHdr ? TextureFormat::HighDynamicRange : TextureFormat::LowDynamicRange, size);
    Texture *const linear = variant.hasLinear
        ? attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT1, TextureFormat::HighDynamicRange, size)
        : nullptr;
    m_framebuffer->setDrawBuffers();
    glViewport(0, 0, size.width(), size.height());
    map(sum);
    giveBack(sum);
    handOn(m_outputs[Frame], m_numOutputUsers[Frame], frame);
    handOn(m_outputs[Linear], m_numOutputUsers[Linear], linear);
    for (const Input input : {FrameIn, Indirect, Visibility, Layers, Background})
        giveBack(getInputPointer<Texture>(input));
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT1);
}

void ToneMapRenderPass::teardownContextData(RenderCallbacks *)
{
    m_mapProgram.reset();
    m_luminanceProgram.reset();
    m_sumProgram.reset();
    m_framebuffer.reset();
    m_screenQuad.reset();
    m_readback.reset();
}

void ToneMapRenderPass::buildPrograms(const Variant &variant)
{
    if (m_mapProgram && variant == m_variant)
        return;
    m_variant = variant;
    const QString one = QStringLiteral("1");
    GLSLMacroProcessor macros;
    if (variant.hasIndirect)
        macros.addDefine(QStringLiteral("KVZ_INDIRECT"), one);
    if (variant.hasVisibility)
        macros.addDefine(QStringLiteral("KVZ_VISIBILITY"), one);
    if (variant.hasLayers)
        macros.addDefine(QStringLiteral("KVZ_LAYERS"), one);
    if (variant.hasBackground)
        macros.addDefine(QStringLiteral("KVZ_BACKGROUND"), one);
    if (variant.isMeasured)
        macros.addDefine(QStringLiteral("KVZ_MEASURED"), one);
    if (variant.isDithered)
        macros.addDefine(QStringLiteral("KVZ_DITHER"), one);
    if (variant.hasLinear)
        macros.addDefine(QStringLiteral("KVZ_LINEAR"), one);
    macros.addDefine(QStringLiteral("KVZ_OPERATOR"), QString::number(int(variant.toneMapping)));

    QStringList outputs = {QStringLiteral("out_FragColor")};
    if (variant.hasLinear)
        outputs.append(QStringLiteral("out_Linear"));
    const QStringList sum = {QStringLiteral("out_Sum")};
    m_mapProgram = buildProgram(outputs, screenQuadVertexSource, mapFragmentSource, &macros);
    m_luminanceProgram.reset();
    if (!variant.isMeasured)
        return;
    m_luminanceProgram = buildProgram(sum, screenQuadVertexSource, luminanceFragmentSource, &macros);
    if (!m_sumProgram)
        m_sumProgram = buildProgram(sum, screenQuadVertexSource, sumFragmentSource);
}

/// Points the samplers of what is mapped at the inputs, which must be bound.
void ToneMapRenderPass::bindImages(ShaderProgram &program) const
{
    setSampler(program, QStringLiteral("u_Frame"), getInputPointer<Texture>(FrameIn));
    setSampler(program, QStringLiteral("u_Indirect"), getInputPointer<Texture>(Indirect));
    setSampler(program, QStringLiteral("u_Visibility"), getInputPointer<Texture>(Visibility));
    setSampler(program, QStringLiteral("u_Layers"), getInputPointer<Texture>(Layers));
}

/// One pooled texel: alpha times the logarithm to the base 2 of luminance, and alpha, summed over the frame.
Texture *ToneMapRenderPass::measure()
{
    const Texture *const source = getInputPointer<Texture>(FrameIn);
    QSize size(source->width(0), source->height(0));
    Texture *sums = sumBlocks(*m_luminanceProgram, size, nullptr);
    do {
        size = QSize(blocksIn(size.width()), blocksIn(size.height()));
        if (size == QSize(1, 1))
            break;
        Texture *const next = sumBlocks(*m_sumProgram, size, sums);
        giveBack(sums);
        sums = next;
    } while (true);
    return sums;
}

/// The sums over the blocks of an image of this size: of a null source those of the frame, else of earlier sums.
Texture *ToneMapRenderPass::sumBlocks(ShaderProgram &program, const QSize &sourceSize, Texture *source)
{
    const QSize size(blocksIn(sourceSize.width()), blocksIn(sourceSize.height()));
    Texture *const sums = attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::Position, size);
    m_framebuffer->setDrawBuffers();
    glViewport(0, 0, size.width(), size.height());
    {
        AutoBinder binder(&program);
        AutoBinder frame(getInputPointer<Texture>(FrameIn));
        AutoBinder indirect(getInputPointer<Texture>(Indirect));
        AutoBinder visibility(getInputPointer<Texture>(Visibility));
        AutoBinder layers(getInputPointer<Texture>(Layers));
        AutoBinder sourceBinder(source);
        bindImages(program);
        setSampler(program, QStringLiteral("u_Sums"), source);
        program.setUniform(QStringLiteral("u_Size"), sourceSize);
        program.setUniform(QStringLiteral("u_BlockSide"), blockSide);
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }
    m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
    return sums;
}

/// Publishes the number of the frame before, or this one's own where that was not measured.
void ToneMapRenderPass::readMeasurement(Texture *sum)
{
    const auto exposure = inputValue<float>(m_inputs[Exposure]);
    QVariant &published = m_outputs[AppliedExposure].value;
    published = sum ? QVariant() : QVariant(exposure);
    if (!sum || m_numOutputUsers[AppliedExposure] <= 0) {
        m_readback.reset();
        return;
    }
    if (!m_readback)
        m_readback = std::make_unique<TexelReadback>();
    std::optional<QVector4D> measured = m_readback->take();
    m_framebuffer->attach(sum, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer->setDrawBuffers();
    m_readback->copy();
    if (!measured) {
        measured = m_readback->take();
        m_readback->copy();
    }
    m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
    const double weight = measured ? double(measured->y()) : 0;
    const double stops =
        weight > 0 ? std::clamp(std::log2(middleGrey) - double(measured->x()) / weight, -mostStops, mostStops) : 0;
    published = float(double(exposure) + stops);
}

void ToneMapRenderPass::map(Texture *sum)
{
    ShaderProgram &program = *m_mapProgram;
    AutoBinder binder(&program);
    AutoBinder frame(getInputPointer<Texture>(FrameIn));
    AutoBinder indirect(getInputPointer<Texture>(Indirect));
    AutoBinder visibility(getInputPointer<Texture>(Visibility));
    AutoBinder layers(getInputPointer<Texture>(Layers));
    AutoBinder background(getInputPointer<Texture>(Background));
    AutoBinder sumBinder(sum);
    bindImages(program);
    setSampler(program, QStringLiteral("u_Background"), getInputPointer<Texture>(Background));
    setSampler(program, QStringLiteral("u_Sum"), sum);
    program.setUniform(QStringLiteral("u_MiddleGrey"), middleGrey);
    program.setUniform(QStringLiteral("u_MostStops"), mostStops);
    program.setUniform(QStringLiteral("u_Exposure"), inputValue<float>(m_inputs[Exposure]));
    program.setUniform(QStringLiteral("u_PatternOrigin"), inputValue<QVector2D>(m_inputs[PatternOrigin]));
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

} // namespace Velmora::Kvz
