// SPDX-License-Identifier: MIT
#include <RenderPasses/LuminanceAverageRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/OneTexel.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QString viewportName = QStringLiteral("Kvz_QRect_Viewport");
const QString textureName = QStringLiteral("Kvz_KvzTexture*_Texture");
const QString frameName = QStringLiteral("Kvz_KvzTexture*_Frame");
const QString luminanceName = QStringLiteral("Kvz_float_averageLuminance");

const QString fragmentSource = QStringLiteral(R"(#version 150
#include "KvzUtilities.glslh"

uniform sampler2D u_SamplerTexture;
uniform vec2 u_RenderSize;
uniform float u_ScreenGamma;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    vec2 StepSize = vec2(textureSize(u_SamplerTexture, 0)) / u_RenderSize;
    ivec2 Base = ivec2(vec2(ivec2(gl_FragCoord.xy)) * StepSize);
    vec4 Output = vec4(0.0);
    for (int x = 0; float(x) < StepSize.x; ++x) {
        for (int y = 0; float(y) < StepSize.y; ++y)
            Output += texelFetch(u_SamplerTexture, Base + ivec2(x, y), 0);
    }
    // Intentional: the area, and not the number of texels, where a step is fractional.
    Output /= float(StepSize.x) * float(StepSize.y);
    out_FragColor = Output; // gammaCorrect(Output, u_ScreenGamma);
}
)");

float luminance(const float *color)
{
    return float(0.2126 * double(color[0]) + 0.7152 * double(color[1]) + 0.0722 * double(color[2]));
}

} // namespace

LuminanceAverageRenderPass::LuminanceAverageRenderPass()
{
    addInput(viewportName, QVariant());
    addInput(textureName, QVariant());
    addOutput(frameName);
    addOutput(luminanceName);
}

LuminanceAverageRenderPass::~LuminanceAverageRenderPass() = default;

void LuminanceAverageRenderPass::start(RenderCallbacks *)
{
    const int viewportPort = findInput(viewportName);
    const int texturePort = findInput(textureName);
    const int framePort = findOutput(frameName);
    const int luminancePort = findOutput(luminanceName);
    if (std::min({viewportPort, texturePort, framePort, luminancePort}) < 0)
        return;

    const auto viewport = inputValue<QRect>(m_inputs[viewportPort]);
    auto *source = getInputPointer<Texture>(texturePort);
    if (!source) {
        if (!m_blackTexture)
            m_blackTexture = makeOneTexel(0);
        source = m_blackTexture.get();
    }

    const bool isFirstFrame = ensureFramebuffer(m_reduceFramebuffer);
    const int reducedWidth = viewport.width() / 8;
    const int reducedHeight = viewport.height() / 8;
    if (isFirstFrame || reducedWidth != m_reducedWidth || reducedHeight != m_reducedHeight) {
        m_reducedWidth = reducedWidth;
        m_reducedHeight = reducedHeight;
        remakeReducedTarget();
    }
    if (!m_averageFramebuffer)
        makeAverageTarget();
    if (!m_shaderProgram)
        m_shaderProgram = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource,
            nullptr, {QStringLiteral("KvzUtilities.glslc")});
    ensureScreenQuad2(m_screenQuad, *m_shaderProgram);

    {
        AutoBinder framebuffer(m_reduceFramebuffer.get());
        m_reduceFramebuffer->setDrawBuffers();
        // The frame's size, and not that of the square, on purpose: the square lies within.
        glViewport(viewport.left(), viewport.top(), viewport.width(), viewport.height());
        drawReduced(source, QSize(m_reducedWidth, m_reducedWidth));
    }
    Texture *const reduced = m_reduceFramebuffer->attachment(GL_COLOR_ATTACHMENT0);
    {
        AutoBinder binder(reduced);
        glGenerateMipmap(GL_TEXTURE_2D);
    }

    float average[4] = {};
    {
        AutoBinder framebuffer(m_averageFramebuffer.get());
        m_averageFramebuffer->setDrawBuffers();
        glViewport(viewport.left(), viewport.top(), m_averageWidth, m_averageHeight);
        drawReduced(reduced, QSize(1, 1));
        // Always the corner's pixel, even when the viewport lies elsewhere.
        glReadPixels(0, 0, 1, 1, GL_RGBA, GL_FLOAT, average);
    }
    m_outputs[luminancePort].value = luminance(average);
    publishTarget(m_outputs[framePort], *m_averageFramebuffer, GL_COLOR_ATTACHMENT0);
}

void LuminanceAverageRenderPass::remakeReducedTarget()
{
    AutoBinder framebuffer(m_reduceFramebuffer.get());
    // Square, on purpose: the reduced height only says when to remake it.
    Texture *const target = m_reduceFramebuffer->remakeTarget(
        GL_COLOR_ATTACHMENT0, GL_RGBA32F, QSize(m_reducedWidth, m_reducedWidth), GL_BGRA, GL_FLOAT);
    AutoBinder binder(target);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST_MIPMAP_NEAREST);
    glGenerateMipmap(GL_TEXTURE_2D);
}

void LuminanceAverageRenderPass::makeAverageTarget()
{
    m_averageWidth = 1;
    m_averageHeight = 1;
    ensureFramebuffer(m_averageFramebuffer);
    AutoBinder framebuffer(m_averageFramebuffer.get());
    m_averageFramebuffer->remakeTarget(
        GL_COLOR_ATTACHMENT0, GL_RGBA32F, QSize(m_averageWidth, m_averageHeight), GL_BGRA, GL_FLOAT);
}

void LuminanceAverageRenderPass::drawReduced(Texture *source, const QSize &size)
{
    for (GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_CULL_FACE, GL_STENCIL_TEST})
        glDisable(capability);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    AutoBinder program(m_shaderProgram.get());
    AutoBinder texture(source);
    m_shaderProgram->setUniform(QStringLiteral("u_SamplerTexture"), source->unit());
    m_shaderProgram->setUniform(QStringLiteral("u_RenderSize"), size);
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

} // namespace Velmora::Kvz
