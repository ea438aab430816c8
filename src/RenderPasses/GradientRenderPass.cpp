// SPDX-License-Identifier: MIT
#include <RenderPasses/GradientRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QColor>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString vertexSource = QStringLiteral(R"(#version 150
in vec3 va_Vertex;
in vec2 va_TexCoord;
out vec4 vo_Color;
uniform vec4 u_ColorTop;
uniform vec4 u_ColorBottom;

void main()
{
    gl_Position = vec4(va_Vertex, 1.0);
    vo_Color = mix(u_ColorBottom, u_ColorTop, va_TexCoord.y);
}
)");

const QString fragmentSource = QStringLiteral(R"(#version 150
in vec4 vo_Color;
out vec4 out_FragColor;

void main()
{
    out_FragColor = vo_Color;
}
)");

} // namespace

GradientRenderPass::GradientRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QColor_ColorTop"), QColor(64, 64, 64, 255));
    addInput(QStringLiteral("Kvz_QColor_ColorBottom"), QColor(153, 153, 153, 255));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

GradientRenderPass::~GradientRenderPass() = default;

void GradientRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();

    if (ensureFramebuffer(m_framebuffer))
        m_size = QSize(0, 0);
    if (size != m_size)
        resizeTarget(size);
    if (!m_program)
        m_program = buildProgram({QStringLiteral("out_FragColor")}, vertexSource, fragmentSource);
    ensureScreenQuad2(m_screenQuad, *m_program);

    if (!m_inputs[ColorTop].value.isNull())
        drawGradient();

    publishTarget(m_outputs[Frame], *m_framebuffer, GL_COLOR_ATTACHMENT0);
}

void GradientRenderPass::resizeTarget(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA32F, size, GL_BGRA, GL_FLOAT);
}

void GradientRenderPass::drawGradient()
{
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->setDrawBuffers();
    glViewport(0, 0, m_size.width(), m_size.height());
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_STENCIL_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_CULL_FACE);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);

    if (m_inputs[ColorBottom].value.isNull())
        return clearFlat();

    AutoBinder program(m_program.get());
    m_program->setUniform(QStringLiteral("u_ColorTop"), inputValue<QColor>(m_inputs[ColorTop]));
    m_program->setUniform(QStringLiteral("u_ColorBottom"), inputValue<QColor>(m_inputs[ColorBottom]));
    AutoBinder quad(m_screenQuad);
    if (!m_screenQuad->draw())
        setErrorCode(unsigned(-1));
}

void GradientRenderPass::clearFlat()
{
    const QColor color = inputValue<QColor>(m_inputs[ColorTop]);
    glDisable(GL_SCISSOR_TEST);
    // The flat image is opaque whatever the colour's alpha says; only the gradient keeps it.
    glClearColor(GLclampf(color.red() / 255.0), GLclampf(color.green() / 255.0), GLclampf(color.blue() / 255.0), 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
}

} // namespace Velmora::Kvz
