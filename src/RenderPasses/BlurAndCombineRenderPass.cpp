// SPDX-License-Identifier: MIT
#include <RenderPasses/BlurAndCombineRenderPass.h>

#include "steps/InputRead.h"
#include "steps/OneTexel.h"
#include "steps/Replaced.h"
#include "steps/ResolveMultisampled.h"
#include "steps/Sampling.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/TextureManager.h>

#include <QtGui/QVector2D>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString thresholdSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Input;
uniform float glow_threshold;
in vec2 vo_TexCoord;
out vec4 o_Output;

float luma(vec4 color)
{
    return dot(color.rgb, vec3(0.2125, 0.7154, 0.0721));
}

void main()
{
    vec4 color = texture(u_Input, vo_TexCoord);
    o_Output = step(glow_threshold, luma(color)) * color;
}
)");

/// The common start of both blurs: 2 * SAMPLES_COUNT - 1 reads of the image.
const QString blurSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Blurred;
uniform vec2 stepVec;
uniform float weight[SAMPLES_COUNT];
uniform float offset[SAMPLES_COUNT];
uniform float glow_amount;
in vec2 vo_TexCoord;
out vec4 o_Output;

vec4 fast_gaussian_blur(sampler2D source, vec2 texCoord, vec2 tapStep)
{
    vec4 sum = texture(source, texCoord) * weight[0];
    for (int i = 1; i < SAMPLES_COUNT; ++i) {
        sum += texture(source, texCoord + offset[i] * tapStep) * weight[i];
        sum += texture(source, texCoord - offset[i] * tapStep) * weight[i];
    }
    return sum;
}
)");

const QString blurOnlySource = blurSource + QStringLiteral(R"(
void main()
{
    o_Output = glow_amount * fast_gaussian_blur(u_Blurred, vo_TexCoord, stepVec);
}
)");

const QString blurAndAddSource = blurSource + QStringLiteral(R"(
uniform sampler2D u_Original;

void main()
{
    o_Output = texture(u_Original, vo_TexCoord) + glow_amount * fast_gaussian_blur(u_Blurred, vo_TexCoord, stepVec);
}
)");

} // namespace

BlurAndCombineRenderPass::BlurAndCombineRenderPass()
    : BlurBaseRenderPass(1.0f, 0.0f, 3.0f)
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_NormalFrame"), QVariant());
    addInput(QStringLiteral("Kvz_float_BlurRadius"), 2.0f);
    addInput(QStringLiteral("Kvz_float_GlowThreshold"), QVariant());
    addInput(QStringLiteral("Kvz_float_GlowAmount"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_BlurFrame"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Output"));
}

BlurAndCombineRenderPass::~BlurAndCombineRenderPass() = default;

void BlurAndCombineRenderPass::start(RenderCallbacks *callbacks)
{
    const auto radius = inputValue<float>(m_inputs[BlurRadius]);
    m_glowThreshold = inputValue<float>(m_inputs[GlowThreshold]);
    m_glowAmount = inputValue<float>(m_inputs[GlowAmount]);
    RenderPassHelper::start(callbacks);

    auto *normal = getInputPointer<Texture>(NormalFrame);
    auto *blur = getInputPointer<Texture>(BlurFrame);
    if (radius <= 0.0f || m_glowAmount <= 0.0f) {
        m_outputs[Result].value = QVariant::fromValue<QObject *>(normal);
        TextureManager::Instance()->addTempTextureRef(normal, m_numOutputUsers[Result]);
        giveBack(normal);
        giveBack(blur);
        return;
    }

    if (radius != m_blurRadius || !m_shaderProgram || !m_blurAndAddProgram) {
        m_blurRadius = radius;
        calculateBlurWeights();
        // The programs of the previous radius are not deleted, on purpose.
        replaceUndeleted(m_shaderProgram, makeShaderProgram(blurOnlySource));
        replaceUndeleted(m_blurAndAddProgram, makeShaderProgram(blurAndAddSource));
    }
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    m_width = float(size.width());
    m_height = float(size.height());

    if (!normal)
        normal = takeBlackTexel(GL_RGBA);
    if (!blur)
        blur = takeBlackTexel(GL_RGBA);
    if (isMultisampled(normal)) {
        if (!m_warnedFrame)
            KVZ_WARNING(QStringLiteral("Multisample frame texture downsampled."));
        m_warnedFrame = true;
        normal = resolveMultisampled(normal, TextureFormat::HighDynamicRange, size);
    }
    if (isMultisampled(blur)) {
        if (!m_warnedBlur)
            KVZ_WARNING(QStringLiteral("Multisample blur texture downsampled."));
        m_warnedBlur = true;
        blur = resolveMultisampled(blur, TextureFormat::HighDynamicRange, size);
    }
    sampleLinearly(normal);
    sampleLinearly(blur);

    ensureFramebuffer(m_framebuffer);
    // It has no kernel, so it survives a change of radius.
    if (!m_thresholdProgram)
        m_thresholdProgram.reset(makeShaderProgram(thresholdSource));
    ensureScreenQuad(m_screenQuad, *m_thresholdProgram);
    AutoBinder framebuffer(m_framebuffer.get());

    Texture *current = takeTarget(size);
    Texture *source = blur;
    if (m_glowThreshold > 0.0f) {
        drawWithThresholdShader(blur, current);
        giveBack(blur);
        source = current;
        current = takeTarget(size);
    }
    drawWithBlurOnlyShader(source, current);
    giveBack(source);
    Texture *const blurred = current;
    current = takeTarget(size);
    drawWithBlurAndAddShader(normal, blurred, current);

    handOn(m_outputs[Result], m_numOutputUsers[Result], current);
    giveBack(current);
    giveBack(normal);
    giveBack(blurred);
}

void BlurAndCombineRenderPass::drawWithThresholdShader(Texture *source, Texture *target)
{
    attachAndClear(target);
    {
        AutoBinder program(m_thresholdProgram.get());
        AutoBinder sourceBinder(source);
        enableArrays(m_screenQuad, *m_thresholdProgram);
        m_thresholdProgram->setUniform(QStringLiteral("u_Input"), source->unit());
        m_thresholdProgram->setUniform(QStringLiteral("glow_threshold"), m_glowThreshold);
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }
    m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
}

void BlurAndCombineRenderPass::drawWithBlurOnlyShader(Texture *source, Texture *target)
{
    attachAndClear(target);
    sampleLinearly(source);
    {
        AutoBinder program(m_shaderProgram.get());
        AutoBinder sourceBinder(source);
        enableArrays(m_screenQuad, *m_shaderProgram);
        m_shaderProgram->setUniform(QStringLiteral("stepVec"), QVector2D(float(1.0 / double(m_width)), 0.0f));
        m_shaderProgram->setUniform(QStringLiteral("u_Blurred"), source->unit());
        // The amount is applied here and once more in the next draw, on purpose.
        m_shaderProgram->setUniform(QStringLiteral("glow_amount"), m_glowAmount);
        setKernel(*m_shaderProgram);
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }
    m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
}

void BlurAndCombineRenderPass::drawWithBlurAndAddShader(Texture *original, Texture *blurred, Texture *target)
{
    attachAndClear(target);
    sampleLinearly(blurred);
    {
        AutoBinder program(m_blurAndAddProgram.get());
        AutoBinder blurredBinder(blurred);
        AutoBinder originalBinder(original);
        enableArrays(m_screenQuad, *m_blurAndAddProgram);
        m_blurAndAddProgram->setUniform(QStringLiteral("stepVec"), QVector2D(0.0f, float(1.0 / double(m_height))));
        m_blurAndAddProgram->setUniform(QStringLiteral("u_Blurred"), blurred->unit());
        m_blurAndAddProgram->setUniform(QStringLiteral("u_Original"), original->unit());
        m_blurAndAddProgram->setUniform(QStringLiteral("glow_amount"), m_glowAmount);
        setKernel(*m_blurAndAddProgram);
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }
    m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
}

} // namespace Velmora::Kvz
