// SPDX-License-Identifier: MIT
#include <ExtraPasses/BackgroundGradientRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QColor>
#include <QtGui/QVector4D>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString vertexSource = QStringLiteral(R"(#version 150
uniform vec4 u_ColorTop;
uniform vec4 u_ColorBottom;
in vec3 va_Vertex;
in vec2 va_TexCoord;
out vec4 vo_Color;

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

/// Zeros for an invalid colour.
QVector4D premultiplied(const QColor &color)
{
    if (!color.isValid())
        return {};
    const auto alpha = float(color.alphaF());
    return {float(color.redF()) * alpha, float(color.greenF()) * alpha, float(color.blueF()) * alpha, alpha};
}

} // namespace

BackgroundGradientRenderPass::BackgroundGradientRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QColor_ColorTop"), QColor(64, 64, 64));
    addInput(QStringLiteral("Kvz_QColor_ColorBottom"), QColor(153, 153, 153));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

BackgroundGradientRenderPass::~BackgroundGradientRenderPass() = default;

void BackgroundGradientRenderPass::start(RenderCallbacks *callbacks)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    if (size.isEmpty()) {
        skip(callbacks);
        return;
    }
    ensureFramebuffer(m_framebuffer);
    if (!m_program)
        m_program = buildProgram({QStringLiteral("out_FragColor")}, vertexSource, fragmentSource);
    ensureScreenQuad(m_screenQuad, *m_program);
    const auto top = inputValue<QColor>(m_inputs[ColorTop]);
    const auto bottom = inputValue<QColor>(m_inputs[ColorBottom]);

    AutoBinder framebuffer(m_framebuffer.get());
    if (size != m_size) {
        m_size = size;
        m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA8, size, GL_RGBA, GL_UNSIGNED_BYTE);
    }
    m_framebuffer->setDrawBuffers();
    glViewport(0, 0, size.width(), size.height());
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_STENCIL_TEST);
    glDisable(GL_SCISSOR_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_CULL_FACE);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    AutoBinder program(m_program.get());
    m_program->setUniform(QStringLiteral("u_ColorTop"), premultiplied(top));
    m_program->setUniform(QStringLiteral("u_ColorBottom"), premultiplied(bottom.isValid() ? bottom : top));
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
    publishTarget(m_outputs[Frame], *m_framebuffer, GL_COLOR_ATTACHMENT0);
}

} // namespace Velmora::Kvz
