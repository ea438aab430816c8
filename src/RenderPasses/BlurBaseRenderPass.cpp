// SPDX-License-Identifier: MIT
#include <RenderPasses/BlurBaseRenderPass.h>

#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"

#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>
#include <GL/TextureManager.h>

#include <GL/TrackedGL.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QString baseFragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Input;
uniform vec2 stepVec;
uniform float u_ResolutionDivider;
uniform float weight[SAMPLES_COUNT];
uniform float offset[SAMPLES_COUNT];
in vec2 vo_TexCoord;
out vec4 o_Output;

// With the centre's, 2 * SAMPLES_COUNT - 1 reads of the image.
vec4 fast_gaussian_blur(sampler2D source, vec4 centreColor, vec2 texCoord, vec2 tapStep)
{
    vec4 sum = centreColor * weight[0];
    for (int i = 1; i < SAMPLES_COUNT; ++i) {
        vec2 away = offset[i] * tapStep;
        sum += (texture(source, texCoord + away) + texture(source, texCoord - away)) * weight[i];
    }
    return sum;
}

void main()
{
    vec4 fragCol = texture(u_Input, vo_TexCoord);
#ifdef STENCIL_MASK
    if (fragCol.a > 0.0)
        o_Output = fast_gaussian_blur(u_Input, fragCol, vo_TexCoord, stepVec);
    else
        o_Output = fragCol;
#else
    o_Output = fast_gaussian_blur(u_Input, fragCol, vo_TexCoord, stepVec);
#endif
}
)");

/// The normal density with standard deviation `sigma`, at `x`.
float normalDensity(float x, float sigma)
{
    constexpr double squareRootOfTwoPi = 2.5066282746310002;
    const float denominator = (sigma + sigma) * sigma;
    const auto exponent = float(double(-x * x) / double(denominator));
    return float(double(std::exp(exponent)) * (1.0 / (double(sigma) * squareRootOfTwoPi)));
}

} // namespace

BlurBaseRenderPass::BlurBaseRenderPass(float stencilMask, float blurRadius, float kernelExtent)
    : m_blurRadius(blurRadius),
      m_kernelExtent(kernelExtent),
      m_stencilMask(stencilMask)
{ }

BlurBaseRenderPass::~BlurBaseRenderPass() = default;

void BlurBaseRenderPass::calculateBlurWeights()
{
    m_weights.resize(0);
    m_offsets.resize(0);

    // Keeps a radius of 0 from dividing by 0.
    const float sigma = m_blurRadius + 0.0001f;
    const float limit = m_blurRadius * m_kernelExtent;
    // Above this a float cannot be counted up, and an infinite radius would never end.
    constexpr float lastCount = 16777215.0f;
    float sum = 0.0f;
    float count = 0.0f;
    // Ends on an odd count, so that the samples beside the centre pair up; a NaN radius ends it at 1.
    while ((count < limit && count < lastCount) || int(count) % 2 == 0) {
        const float sample = normalDensity(count, sigma);
        m_weights.append(sample);
        m_offsets.append(count);
        // Each sample beside the centre stands on both sides.
        sum = count == 0.0f ? sample : 2.0f * sample + sum;
        count += 1.0f;
    }
    for (float &weight : m_weights)
        weight /= sum;

    // One read between two texels, nearer to the heavier one, gives the sum of both.
    QVector<float> weights{m_weights[0]};
    QVector<float> offsets{0.0f};
    for (int tap = 1; 0.5f * count > float(tap); ++tap) {
        const int inner = 2 * tap - 1;
        const int outer = inner + 1;
        const float innerWeight = m_weights[inner];
        const float outerWeight = m_weights[outer];
        const float weight = innerWeight + outerWeight;
        weights.append(weight);
        offsets.append((float(inner) * innerWeight + float(outer) * outerWeight) / weight);
    }
    m_weights = weights;
    m_offsets = offsets;
}

ShaderProgram *BlurBaseRenderPass::makeShaderProgram(const QString &fragmentSource) const
{
    GLSLMacroProcessor macros;
    if (m_stencilMask != 0.0f)
        macros.addDefine(QStringLiteral("STENCIL_MASK"), QStringLiteral("1"));
    macros.addDefine(m_samplesCountName, QString::number(qMax(1, m_weights.size())));
    // The sources call their output o_Output, on purpose: an output alone lies at location 0 whatever its name.
    return buildProgram({QStringLiteral("out_FragColor")}, getBaseVertexShaderSource(), fragmentSource, &macros)
        .release();
}

QString BlurBaseRenderPass::getBaseFragmentShaderSource()
{
    return baseFragmentSource;
}

QString BlurBaseRenderPass::getBaseVertexShaderSource()
{
    return screenQuadVertexSource;
}

Texture *BlurBaseRenderPass::takeTarget(const QSize &size)
{
    return TextureManager::Instance()->tempTexture(TextureFormat::HighDynamicRange, size.width(), size.height(), 1, 1);
}

void BlurBaseRenderPass::attachAndClear(Texture *target)
{
    m_framebuffer->attach(target, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glDepthMask(GL_FALSE);
    glClear(GL_COLOR_BUFFER_BIT);
}

void BlurBaseRenderPass::setKernel(ShaderProgram &program) const
{
    program.setUniform(QStringLiteral("weight"), m_weights);
    program.setUniform(QStringLiteral("offset"), m_offsets);
}

} // namespace Velmora::Kvz
