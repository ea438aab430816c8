// SPDX-License-Identifier: MIT
#include <RenderPasses/TextureToScreenRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <GL/TextureManager.h>

#include <QtGui/QVector2D>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString fragmentSource = QStringLiteral(R"(#version 150
#include "KvzUtilities.glslh"
uniform sampler2D u_SamplerTexture;
uniform vec2 u_RenderSize;
#if defined(PROCESS_DEPTH)
uniform sampler2D u_SamplerDepth;
#endif
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    vec2 TextureSize = vec2(textureSize(u_SamplerTexture, 0));
    ivec2 StepSize = max(ivec2(1, 1), ivec2(round(TextureSize / u_RenderSize)));
    ivec2 Base = ivec2(gl_FragCoord.xy) * StepSize;
    vec4 Output = vec4(0.0);
    for (int x = 0; x < StepSize.x; ++x) {
        for (int y = 0; y < StepSize.y; ++y)
            Output += texelFetch(u_SamplerTexture, Base + ivec2(x, y), 0);
    }
    out_FragColor = Output / (float(StepSize.x) * float(StepSize.y));
#if defined(PROCESS_DEPTH)
    // Not scaled by StepSize, on purpose: the depth image has the destination's size.
    gl_FragDepth = texelFetch(u_SamplerDepth, ivec2(gl_FragCoord.xy), 0).r;
#endif
}
)");

QVector<QRect> rectanglesOf(const QVariant &value, const QRect &fallback)
{
    QVector<QRect> rectangles;
    RenderPassHelper::getVectorFromVariant<QRect>(value, rectangles);
    if (rectangles.isEmpty())
        rectangles.append(fallback);
    return rectangles;
}

} // namespace

TextureToScreenRenderPass::TextureToScreenRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Texture"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addInput(QStringLiteral("Kvz_Bool_EnableSuperSampling"), QVariant());
    addInput(QStringLiteral("Kvz_QRect_ViewportOut"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_TextureOut"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_DepthOut"), QVariant());
    addInput(QStringLiteral("Kvz_Bool_LinearFilter"), false);
    addInput(QStringLiteral("Kvz_QVariant_Rects"), QVariant());
    addInput(QStringLiteral("Kvz_KvzFramebuffer*_FramebufferOut"), QVariant());
}

TextureToScreenRenderPass::~TextureToScreenRenderPass()
{
    TextureToScreenRenderPass::teardownContextData(nullptr);
}

void TextureToScreenRenderPass::start(RenderCallbacks *)
{
    const QRect viewport = inputValue<QRect>(m_inputs[Viewport]);
    const QVector<QRect> destinations = rectanglesOf(m_inputs[ViewportOut].value, viewport);
    const QVector<QRect> sources = rectanglesOf(m_inputs[Rects].value, viewport);
    const int count = qMin(destinations.size(), sources.size());
    Texture *source = getInputPointer<Texture>(SourceTexture);
    Texture *const textureOut = getInputPointer<Texture>(TextureOut);
    Texture *const depth = getInputPointer<Texture>(SourceDepth);
    Texture *const depthOut = getInputPointer<Texture>(DepthOut);
    FramebufferObject *const framebufferOut = getInputPointer<FramebufferObject>(FramebufferOut);

    const bool useShader = depth || inputValue<bool>(m_inputs[EnableSuperSampling]);
    if (useShader != m_useShader) {
        m_useShader = useShader;
        deletePrograms();
    }
    if (!source && useShader) {
        if (!m_fallbackTexture)
            m_fallbackTexture = TextureManager::Instance()->colorTexture(QColor(Qt::transparent));
        source = m_fallbackTexture;
    }
    if (useShader)
        ensureDrawing();
    ensureFramebuffer(m_drawFramebuffer);

    bindDestination(textureOut, depthOut, framebufferOut);
    if (useShader)
        draw(source, depth, destinations, count);
    else if (source)
        blit(source, sources, destinations, count);
    else
        glClear(GL_COLOR_BUFFER_BIT);

    // DepthOut stays attached, on purpose.
    if (textureOut)
        glFramebufferTexture(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, 0, 0);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
    giveBack(source);
}

void TextureToScreenRenderPass::teardownContextData(RenderCallbacks *)
{
    m_readFramebuffer.reset();
    m_drawFramebuffer.reset();
    m_screenQuad.clear();
}

void TextureToScreenRenderPass::deletePrograms()
{
    m_shaderProgram.reset();
    m_depthShaderProgram.reset();
}

void TextureToScreenRenderPass::ensureDrawing()
{
    if (!m_screenQuad)
        m_screenQuad = OpenGLDeviceContext::current()->createScreenQuad2();
    if (!m_shaderProgram)
        m_shaderProgram = buildDrawProgram(nullptr);
    if (!m_depthShaderProgram) {
        GLSLMacroProcessor macros;
        macros.addDefine(QStringLiteral("PROCESS_DEPTH"), QStringLiteral("1"));
        m_depthShaderProgram = buildDrawProgram(&macros);
    }
}

std::unique_ptr<ShaderProgram> TextureToScreenRenderPass::buildDrawProgram(GLSLMacroProcessor *macros) const
{
    std::unique_ptr<ShaderProgram> program =
        buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource, macros);
    enableArrays(m_screenQuad, *program);
    return program;
}

void TextureToScreenRenderPass::bindDestination(
    const Texture *texture, const Texture *depth, const FramebufferObject *framebuffer) const
{
    if (texture) {
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, m_drawFramebuffer->getFBO());
        glFramebufferTexture(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, texture->textureID(), 0);
        if (depth)
            glFramebufferTexture(GL_DRAW_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, depth->textureID(), 0);
        glDrawBuffer(GL_COLOR_ATTACHMENT0);
    } else if (framebuffer && framebuffer->getFBO()) {
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer->getFBO());
        glDrawBuffer(GL_COLOR_ATTACHMENT0);
    } else {
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
    }
}

void TextureToScreenRenderPass::draw(
    Texture *source, Texture *depth, const QVector<QRect> &destinations, int count) const
{
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_STENCIL_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glEnable(GL_SCISSOR_TEST);
    if (depth) {
        // Depth is written only while the test is on.
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(GL_ALWAYS);
        glDepthMask(GL_TRUE);
    }

    ShaderProgram *const program = depth ? m_depthShaderProgram.get() : m_shaderProgram.get();
    AutoBinder programBinder(program);
    AutoBinder sourceBinder(source);
    AutoBinder quadBinder(m_screenQuad);
    program->setUniform(QStringLiteral("u_SamplerTexture"), source->unit());
    {
        AutoBinder depthBinder(depth);
        if (depth)
            program->setUniform(QStringLiteral("u_SamplerDepth"), depth->unit());
        for (int i = 0; i < count; ++i) {
            const QRect &rectangle = destinations[i];
            glViewport(rectangle.left(), rectangle.top(), rectangle.width(), rectangle.height());
            glScissor(rectangle.left(), rectangle.top(), rectangle.width(), rectangle.height());
            program->setUniform(
                QStringLiteral("u_RenderSize"), QVector2D(float(rectangle.width()), float(rectangle.height())));
            m_screenQuad->draw();
        }
    }
    glDisable(GL_SCISSOR_TEST);
}

void TextureToScreenRenderPass::blit(
    const Texture *source, const QVector<QRect> &sources, const QVector<QRect> &destinations, int count)
{
    const bool linearFilter = inputValue<bool>(m_inputs[LinearFilter]);
    ensureFramebuffer(m_readFramebuffer);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, m_readFramebuffer->getFBO());
    glFramebufferTexture(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, source->textureID(), 0);
    glReadBuffer(GL_COLOR_ATTACHMENT0);
    for (int i = 0; i < count; ++i) {
        const QRect &s = sources[i];
        const QRect &d = destinations[i];
        const GLenum filter = linearFilter && s.size() != d.size() ? GL_LINEAR : GL_NEAREST;
        glBlitFramebuffer(s.left(), s.top(), s.left() + s.width(), s.top() + s.height(), d.left(), d.top(),
            d.left() + d.width(), d.top() + d.height(), GL_COLOR_BUFFER_BIT, filter);
    }
    glFramebufferTexture(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, 0, 0);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
}

} // namespace Velmora::Kvz
