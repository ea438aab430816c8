// SPDX-License-Identifier: MIT
#include <RenderPasses/BlendRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ResolveMultisampled.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/TextureManager.h>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QString viewportName = QStringLiteral("Kvz_QRect_Viewport");
const QString frameAName = QStringLiteral("Kvz_KvzTexture*_FrameA");
const QString frameBName = QStringLiteral("Kvz_KvzTexture*_FrameB");
const QString modeName = QStringLiteral("Int_BlendMode");
const QString brightnessName = QStringLiteral("brightness");
const QString frameName = QStringLiteral("Kvz_KvzTexture*_Frame");

/// Follows a version line. Colours are premultiplied by alpha; divisions by alpha are not guarded.
const QString fragmentSource = QStringLiteral(R"(
uniform sampler2D u_SamplerA;
uniform sampler2D u_SamplerB;
uniform int u_BlendMode;
uniform float brightness;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

float unionAlpha(vec4 src, vec4 dst)
{
    return src.a + dst.a - src.a * dst.a;
}

vec4 blendClear(vec4 src, vec4 dst)
{
    return vec4(0.0);
}

vec4 blendSrc(vec4 src, vec4 dst)
{
    return src;
}

vec4 blendDst(vec4 src, vec4 dst)
{
    return dst;
}

vec4 blendSrcOver(vec4 src, vec4 dst)
{
    return vec4(src.rgb + dst.rgb * (1.0 - src.a), unionAlpha(src, dst));
}

vec4 blendDstOver(vec4 src, vec4 dst)
{
    return vec4(dst.rgb + src.rgb * (1.0 - dst.a), unionAlpha(src, dst));
}

vec4 blendSrcIn(vec4 src, vec4 dst)
{
    return src * dst.a;
}

vec4 blendDstIn(vec4 src, vec4 dst)
{
    return dst * src.a;
}

vec4 blendSrcOut(vec4 src, vec4 dst)
{
    return src * (1.0 - dst.a);
}

vec4 blendDstOut(vec4 src, vec4 dst)
{
    return dst * (1.0 - src.a);
}

vec4 blendSrcAtop(vec4 src, vec4 dst)
{
    return vec4(src.rgb * dst.a + dst.rgb * (1.0 - src.a), dst.a);
}

vec4 blendDstAtop(vec4 src, vec4 dst)
{
    return vec4(dst.rgb * src.a + src.rgb * (1.0 - dst.a), src.a);
}

vec4 blendXor(vec4 src, vec4 dst)
{
    return vec4(src.rgb * (1.0 - dst.a) + dst.rgb * (1.0 - src.a), src.a + dst.a - 2.0 * src.a * dst.a);
}

vec4 blendAdd(vec4 src, vec4 dst)
{
    return src + dst;
}

vec4 blendMultiply(vec4 src, vec4 dst)
{
    return vec4(src.rgb * dst.rgb + src.rgb * (1.0 - dst.a) + dst.rgb * (1.0 - src.a), unionAlpha(src, dst));
}

vec4 blendScreen(vec4 src, vec4 dst)
{
    return vec4(src.rgb + dst.rgb - src.rgb * dst.rgb, unionAlpha(src, dst));
}

vec4 blendOverlay(vec4 src, vec4 dst)
{
    vec3 sd2 = 2.0 * src.rgb * dst.rgb;
    vec3 dark = sd2 + src.rgb * (1.0 - dst.a) + dst.rgb * (1.0 - src.a);
    vec3 light = src.rgb * (1.0 + dst.a) + dst.rgb * (1.0 + src.a) - sd2 - dst.a * src.a;
    // Compared with 1.0 and not with dst.a, on purpose.
    return vec4(mix(light, dark, lessThanEqual(2.0 * dst.rgb, vec3(1.0))), unionAlpha(src, dst));
}

vec4 blendDarken(vec4 src, vec4 dst)
{
    return vec4(min(src.rgb * dst.a, dst.rgb * src.a) + src.rgb * (1.0 - dst.a) + dst.rgb * (1.0 - src.a),
        unionAlpha(src, dst));
}

vec4 blendLighten(vec4 src, vec4 dst)
{
    return vec4(max(src.rgb * dst.a, dst.rgb * src.a) + src.rgb * (1.0 - dst.a) + dst.rgb * (1.0 - src.a),
        unionAlpha(src, dst));
}

float blendColorDodge1(float Sca, float Sa, float Dca, float Da)
{
    if (Sca == Sa && Dca == 0.0)
        return Sca * (1.0 - Da);
    if (Sca == Sa)
        return Sa * Da + Sca * (1.0 - Da) + Dca * (1.0 - Sa);
    return Sa * Da * min(1.0, Dca / Da * Sa / (Sa - Sca)) + Sca * (1.0 - Da) + Dca * (1.0 - Sa);
}

vec4 blendColorDodge(vec4 src, vec4 dst)
{
    return vec4(blendColorDodge1(src.r, src.a, dst.r, dst.a),
        blendColorDodge1(src.g, src.a, dst.g, dst.a),
        blendColorDodge1(src.b, src.a, dst.b, dst.a), unionAlpha(src, dst));
}

float blendColorBurn1(float Sca, float Sa, float Dca, float Da)
{
    if (Sca == 0.0 && Dca == Da)
        return Sa * Da + Dca * (1.0 - Sa);
    if (Sca == 0.0)
        return Dca * (1.0 - Sa);
    return Sa * Da * (1.0 - min(1.0, (1.0 - Dca / Da) * Sa / Sca)) + Sca * (1.0 - Da) + Dca * (1.0 - Sa);
}

vec4 blendColorBurn(vec4 src, vec4 dst)
{
    return vec4(blendColorBurn1(src.r, src.a, dst.r, dst.a),
        blendColorBurn1(src.g, src.a, dst.g, dst.a),
        blendColorBurn1(src.b, src.a, dst.b, dst.a), unionAlpha(src, dst));
}

float blendHardLight1(float Sca, float Sa, float Dca, float Da)
{
    if (2.0 * Sca <= Sa)
        return 2.0 * Sca * Dca + Sca * (1.0 - Da) + Dca * (1.0 - Sa);
    return Sca * (1.0 + Da) + Dca * (1.0 + Sa) - Sa * Da - 2.0 * Sca * Dca;
}

vec4 blendHardLight(vec4 src, vec4 dst)
{
    return vec4(blendHardLight1(src.r, src.a, dst.r, dst.a),
        blendHardLight1(src.g, src.a, dst.g, dst.a),
        blendHardLight1(src.b, src.a, dst.b, dst.a), unionAlpha(src, dst));
}

float blendSoftLight1(float Sca, float Sa, float Dca, float Da)
{
    float m = Dca / Da;
    if (2.0 * Sca <= Sa)
        return Dca * (Sa + (2.0 * Sca - Sa) * (1.0 - m)) + Sca * (1.0 - Da) + Dca * (1.0 - Sa);
    if (2.0 * Sca > Sa && 4.0 * Dca <= Da)
        return Da * (2.0 * Sca - Sa) * (16.0 * m * m * m - 12.0 * m * m - 3.0 * m) + Sca - Sca * Da + Dca;
    return Da * (2.0 * Sca - Sa) * (sqrt(m) - m) + Sca - Sca * Da + Dca;
}

vec4 blendSoftLight(vec4 src, vec4 dst)
{
    return vec4(blendSoftLight1(src.r, src.a, dst.r, dst.a),
        blendSoftLight1(src.g, src.a, dst.g, dst.a),
        blendSoftLight1(src.b, src.a, dst.b, dst.a), unionAlpha(src, dst));
}

vec4 blendExclusion(vec4 src, vec4 dst)
{
    return vec4((src.rgb * dst.a + dst.rgb * src.a - 2.0 * src.rgb * dst.rgb)
            + src.rgb * (1.0 - dst.a) + dst.rgb * (1.0 - src.a),
        unionAlpha(src, dst));
}

vec4 blendDifference(vec4 src, vec4 dst)
{
    return vec4(src.rgb + dst.rgb - 2.0 * min(src.rgb * dst.a, dst.rgb * src.a), unionAlpha(src, dst));
}

vec4 blendInvertAndAdd(vec4 src, vec4 dst)
{
    return vec4(src.rgb * (1.0 - dst.a) + dst.rgb * (1.0 - src.a)
            + (0.5 - 0.5 * (dst.rgb - src.rgb)) * src.a * dst.a,
        unionAlpha(src, dst));
}

vec4 blendMultiplyKeepAlpha(vec4 src, vec4 dst)
{
    return src * dst;
}

vec4 blend(vec4 src, vec4 dst)
{
    if (u_BlendMode == 0)
        return blendClear(src, dst);
    if (u_BlendMode == 1)
        return blendSrc(src, dst);
    if (u_BlendMode == 2)
        return blendDst(src, dst);
    if (u_BlendMode == 3)
        return blendSrcOver(src, dst);
    if (u_BlendMode == 4)
        return blendDstOver(src, dst);
    if (u_BlendMode == 5)
        return blendSrcIn(src, dst);
    if (u_BlendMode == 6)
        return blendDstIn(src, dst);
    if (u_BlendMode == 7)
        return blendSrcOut(src, dst);
    if (u_BlendMode == 8)
        return blendDstOut(src, dst);
    if (u_BlendMode == 9)
        return blendSrcAtop(src, dst);
    if (u_BlendMode == 10)
        return blendDstAtop(src, dst);
    if (u_BlendMode == 11)
        return blendXor(src, dst);
    if (u_BlendMode == 12)
        return blendAdd(src, dst);
    if (u_BlendMode == 13)
        return blendMultiply(src, dst);
    if (u_BlendMode == 14)
        return blendScreen(src, dst);
    if (u_BlendMode == 15)
        return blendOverlay(src, dst);
    if (u_BlendMode == 16)
        return blendDarken(src, dst);
    if (u_BlendMode == 17)
        return blendLighten(src, dst);
    if (u_BlendMode == 18)
        return blendColorDodge(src, dst);
    if (u_BlendMode == 19)
        return blendColorBurn(src, dst);
    if (u_BlendMode == 20)
        return blendHardLight(src, dst);
    if (u_BlendMode == 21)
        return blendSoftLight(src, dst);
    if (u_BlendMode == 22)
        return blendExclusion(src, dst);
    if (u_BlendMode == 23)
        return blendDifference(src, dst);
    if (u_BlendMode == 24)
        return blendInvertAndAdd(src, dst);
    if (u_BlendMode == 25)
        return blendMultiplyKeepAlpha(src, dst);
    return vec4(0.0);
}

void main()
{
    vec4 SampleA = texture(u_SamplerA, vo_TexCoord);
    vec4 SampleB = texture(u_SamplerB, vo_TexCoord) * brightness;
    out_FragColor = blend(SampleA, SampleB);
}
)");

} // namespace

BlendRenderPass::BlendRenderPass(BlendMode mode)
    : m_blendMode(mode)
{
    addInput(viewportName, QVariant());
    addInput(frameAName, QVariant());
    addInput(frameBName, QVariant());
    addInput(modeName, QVariant());
    addInput(brightnessName, QVariant());
    addOutput(frameName);
}

BlendRenderPass::~BlendRenderPass() = default;

void BlendRenderPass::start(RenderCallbacks *)
{
    const int viewportPort = findInput(viewportName);
    const int frameAPort = findInput(frameAName);
    const int frameBPort = findInput(frameBName);
    const int modePort = findInput(modeName);
    const int brightnessPort = findInput(brightnessName);
    const int framePort = findOutput(frameName);
    if (std::min({viewportPort, frameAPort, frameBPort, modePort, brightnessPort, framePort}) < 0)
        return;

    const QRect viewport = inputValue<QRect>(m_inputs[viewportPort]);
    const NamedValue<QVariant> &brightnessInput = m_inputs[brightnessPort];
    const float brightness = brightnessInput.value.isNull() ? 1.0f : inputValue<float>(brightnessInput);
    if (!m_inputs[modePort].value.isNull())
        m_blendMode = inputValue<int>(m_inputs[modePort]);
    Texture *frameA = getInputPointer<Texture>(frameAPort);
    Texture *frameB = getInputPointer<Texture>(frameBPort);

    if (!frameA || !frameB) {
        if (!m_transparentTexture)
            m_transparentTexture = TextureManager::Instance()->colorTexture(QColor(Qt::transparent));
        frameA = frameA ? frameA : m_transparentTexture;
        frameB = frameB ? frameB : m_transparentTexture;
    }
    if (isMultisampled(frameA)) {
        if (!m_warnedFrameA)
            KVZ_WARNING(QStringLiteral("Multisample FrameA texture downsampled."));
        m_warnedFrameA = true;
        frameA = resolveMultisampled(frameA, TextureFormat::HighDynamicRange, viewport.size());
    }
    if (isMultisampled(frameB)) {
        if (!m_warnedFrameB)
            KVZ_WARNING(QStringLiteral("Multisample FrameB texture downsampled."));
        m_warnedFrameB = true;
        frameB = resolveMultisampled(frameB, TextureFormat::HighDynamicRange, viewport.size());
    }

    ensureFramebuffer(m_framebuffer);
    AutoBinder framebuffer(m_framebuffer.get());
    attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::HighDynamicRange, viewport.size());
    if (!m_shaderProgram)
        m_shaderProgram = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource,
            QStringLiteral("#version 150\n") + fragmentSource);
    ensureScreenQuad(m_screenQuad, *m_shaderProgram);

    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glViewport(viewport.left(), viewport.top(), viewport.width(), viewport.height());
    glClear(GL_COLOR_BUFFER_BIT);
    {
        AutoBinder program(m_shaderProgram.get());
        AutoBinder source(frameA);
        AutoBinder destination(frameB);
        m_shaderProgram->setUniform(QStringLiteral("u_SamplerA"), frameA->unit());
        m_shaderProgram->setUniform(QStringLiteral("u_SamplerB"), frameB->unit());
        m_shaderProgram->setUniform(QStringLiteral("u_BlendMode"), m_blendMode);
        m_shaderProgram->setUniform(QStringLiteral("brightness"), brightness);
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }

    handOn(m_outputs[framePort], m_numOutputUsers[framePort], m_framebuffer->attachment(GL_COLOR_ATTACHMENT0));
    giveBack(frameA);
    giveBack(frameB);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

} // namespace Velmora::Kvz
