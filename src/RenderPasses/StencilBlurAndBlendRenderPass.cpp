// SPDX-License-Identifier: MIT
#include <RenderPasses/StencilBlurAndBlendRenderPass.h>

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

const QString blurAndBlendSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Blurred;
uniform sampler2D u_Original;
uniform vec2 stepVec;
uniform float weight[SAMPLES_COUNT];
uniform float offset[SAMPLES_COUNT];
in vec2 vo_TexCoord;
out vec4 o_Output;

// With the centre's, 2 * SAMPLES_COUNT - 1 reads of the image.
vec4 fast_gaussian_blur(vec4 fragCol, sampler2D source, vec2 texCoord, vec2 tapStep)
{
    vec4 sum = fragCol * weight[0];
    for (int i = 1; i < SAMPLES_COUNT; ++i) {
        sum += texture(source, texCoord + offset[i] * tapStep) * weight[i];
        sum += texture(source, texCoord - offset[i] * tapStep) * weight[i];
    }
    return sum;
}

void main()
{
    vec4 fragCol = texture(u_Blurred, vo_TexCoord);
    if (fragCol.a > 0.0)
        o_Output = texture(u_Original, vo_TexCoord) + fast_gaussian_blur(fragCol, u_Blurred, vo_TexCoord, stepVec);
    else
        o_Output = texture(u_Original, vo_TexCoord) + fragCol;
}
)");

} // namespace

StencilBlurAndBlendRenderPass::StencilBlurAndBlendRenderPass()
    : BlurBaseRenderPass(1.0f, 0.0f, 2.0f)
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_NormalFrame"), QVariant());
    addInput(QStringLiteral("Kvz_float_BlurRadius"), 2.0f);
    addInput(QStringLiteral("Kvz_KvzTexture*_BlurFrame"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Output"));
}

StencilBlurAndBlendRenderPass::~StencilBlurAndBlendRenderPass() = default;

void StencilBlurAndBlendRenderPass::start(RenderCallbacks *callbacks)
{
    const auto radius = inputValue<float>(m_inputs[BlurRadius]);
    RenderPassHelper::start(callbacks);

    auto *normal = getInputPointer<Texture>(NormalFrame);
    auto *blur = getInputPointer<Texture>(BlurFrame);
    if (radius <= 0.0f) {
        m_outputs[Result].value = QVariant::fromValue<QObject *>(normal);
        TextureManager::Instance()->addTempTextureRef(normal, m_numOutputUsers[Result]);
        giveBack(normal);
        giveBack(blur);
        return;
    }

    const bool rebuilt = radius != m_blurRadius || !m_shaderProgram || !m_blurAndBlendProgram;
    if (rebuilt) {
        m_blurRadius = radius;
        calculateBlurWeights();
        // The programs of the previous radius are not deleted, on purpose.
        replaceUndeleted(m_shaderProgram, makeShaderProgram(getBaseFragmentShaderSource()));
        replaceUndeleted(m_blurAndBlendProgram, makeShaderProgram(blurAndBlendSource));
    }
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    m_width = float(size.width());
    m_height = float(size.height());

    if (!normal)
        normal = takeBlackTexel(GL_RGBA);
    if (!blur)
        blur = takeBlackTexel(GL_RGBA);
    if (isMultisampled(blur)) {
        if (!m_warnedBlur)
            KVZ_WARNING(QStringLiteral("Multisample blur texture downsampled."));
        m_warnedBlur = true;
        blur = resolveMultisampled(blur, TextureFormat::HighDynamicRange, size);
    }
    if (isMultisampled(normal)) {
        if (!m_warnedBase)
            KVZ_WARNING(QStringLiteral("Multisample base texture downsampled."));
        m_warnedBase = true;
        normal = resolveMultisampled(normal, TextureFormat::HighDynamicRange, size);
    }

    ensureFramebuffer(m_framebuffer);
    ensureScreenQuad(m_screenQuad, *m_shaderProgram);
    AutoBinder framebuffer(m_framebuffer.get());

    Texture *const across = takeTarget(size);
    drawWithBlurOnlyShader(rebuilt, blur, across);
    giveBack(blur);
    Texture *const combined = takeTarget(size);
    drawWithBlurAndAddShader(rebuilt, normal, across, combined);

    handOn(m_outputs[Result], m_numOutputUsers[Result], combined);
    giveBack(combined);
    giveBack(normal);
    giveBack(across);
}

void StencilBlurAndBlendRenderPass::drawWithBlurOnlyShader(const bool &, Texture *source, Texture *target)
{
    attachAndClear(target);
    sampleLinearly(source);
    {
        AutoBinder program(m_shaderProgram.get());
        AutoBinder sourceBinder(source);
        enableArrays(m_screenQuad, *m_shaderProgram);
        m_shaderProgram->setUniform(QStringLiteral("stepVec"), QVector2D(float(1.0 / double(m_width)), 0.0f));
        m_shaderProgram->setUniform(QStringLiteral("u_Input"), source->unit());
        setKernel(*m_shaderProgram);
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }
    m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
}

void StencilBlurAndBlendRenderPass::drawWithBlurAndAddShader(
    const bool &, Texture *original, Texture *blurred, Texture *target)
{
    attachAndClear(target);
    sampleLinearly(blurred);
    {
        AutoBinder program(m_blurAndBlendProgram.get());
        AutoBinder blurredBinder(blurred);
        AutoBinder originalBinder(original);
        enableArrays(m_screenQuad, *m_blurAndBlendProgram);
        m_blurAndBlendProgram->setUniform(QStringLiteral("stepVec"), QVector2D(0.0f, float(1.0 / double(m_height))));
        m_blurAndBlendProgram->setUniform(QStringLiteral("u_Blurred"), blurred->unit());
        m_blurAndBlendProgram->setUniform(QStringLiteral("u_Original"), original->unit());
        setKernel(*m_blurAndBlendProgram);
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }
    m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
}

} // namespace Velmora::Kvz
