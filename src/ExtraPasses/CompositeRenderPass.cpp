// SPDX-License-Identifier: MIT
#include <ExtraPasses/CompositeRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>

#include <QtGui/QColor>
#include <QtGui/QVector4D>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString fragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Frame;
uniform sampler2D u_Layers;
uniform sampler2D u_Background;
uniform vec4 u_BackgroundColor;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

vec4 over(vec4 front, vec4 behind)
{
    return front + (1.0 - front.a) * behind;
}

void main()
{
    vec4 layers = texture(u_Layers, vo_TexCoord);
    vec4 behind = over(texture(u_Frame, vo_TexCoord), over(texture(u_Background, vo_TexCoord), u_BackgroundColor));
    out_FragColor = vec4(layers.rgb + layers.a * behind.rgb, 1.0 - layers.a * (1.0 - behind.a));
}
)");

/// Zeros for a value that is no colour.
QVector4D premultiplied(const QColor &color)
{
    if (!color.isValid())
        return {};
    const auto alpha = float(color.alphaF());
    return {float(color.redF()) * alpha, float(color.greenF()) * alpha, float(color.blueF()) * alpha, alpha};
}

} // namespace

CompositeRenderPass::CompositeRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Frame"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Layers"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Background"), QVariant());
    addInput(QStringLiteral("Kvz_QColor_BackgroundColor"), QColor(Qt::transparent));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

CompositeRenderPass::~CompositeRenderPass() = default;

void CompositeRenderPass::start(RenderCallbacks *callbacks)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    if (size.isEmpty()) {
        skip(callbacks);
        return;
    }
    if (isFrameAlone(size)) {
        auto *const frame = getInputPointer<Texture>(FrameIn);
        handOn(m_outputs[Frame], m_numOutputUsers[Frame], frame);
        giveBack(frame);
        return;
    }
    ensureFramebuffer(m_framebuffer);
    if (!m_program)
        m_program = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource);
    ensureScreenQuad(m_screenQuad, *m_program);

    AutoBinder framebuffer(m_framebuffer.get());
    Texture *const frame =
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::HighDynamicRange, size);
    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glViewport(0, 0, size.width(), size.height());
    compose();
    handOn(m_outputs[Frame], m_numOutputUsers[Frame], frame);
    for (const Input input : {FrameIn, Layers, Background})
        giveBack(getInputPointer<Texture>(input));
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

/// Whether the picture is the frame as it is.
bool CompositeRenderPass::isFrameAlone(const QSize &size) const
{
    const auto *const frame = getInputPointer<Texture>(FrameIn);
    return frame && frame->target() == GL_TEXTURE_2D && QSize(frame->width(0), frame->height(0)) == size
        && !getInputPointer<Texture>(Layers) && !getInputPointer<Texture>(Background)
        && premultiplied(inputValue<QColor>(m_inputs[BackgroundColor])).w() == 0;
}

void CompositeRenderPass::compose()
{
    auto *frame = getInputPointer<Texture>(FrameIn);
    auto *const layers = getInputPointer<Texture>(Layers);
    auto *background = getInputPointer<Texture>(Background);
    frame = frame ? frame : transparentTexture();
    background = background ? background : transparentTexture();

    AutoBinder program(m_program.get());
    AutoBinder frameBinder(frame);
    AutoBinder layersBinder(layers);
    AutoBinder backgroundBinder(background);
    setSampler(*m_program, QStringLiteral("u_Frame"), frame);
    // Opaque black, which the empty unit gives, is what layers are where there are none.
    setSampler(*m_program, QStringLiteral("u_Layers"), layers);
    setSampler(*m_program, QStringLiteral("u_Background"), background);
    m_program->setUniform(
        QStringLiteral("u_BackgroundColor"), premultiplied(inputValue<QColor>(m_inputs[BackgroundColor])));
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

Texture *CompositeRenderPass::transparentTexture()
{
    if (!m_transparent)
        m_transparent = TextureManager::Instance()->colorTexture(QColor(Qt::transparent));
    return m_transparent;
}

} // namespace Velmora::Kvz
