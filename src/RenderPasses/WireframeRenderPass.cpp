// SPDX-License-Identifier: MIT
#include <RenderPasses/WireframeRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QColor>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString viewportName = QStringLiteral("Kvz_QRect_Viewport");
const QString idName = QStringLiteral("Kvz_KvzTexture*_Id");
const QString wireColorName = QStringLiteral("Kvz_QColor_WireColor");
const QString frameName = QStringLiteral("Kvz_KvzTexture*_Frame");

const QString fragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_IdSampler;
uniform int u_IdSamplerWidth;
uniform int u_IdSamplerHeight;
uniform vec4 u_WireframeColour;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

// Removes rounding noise, so that identities compare exactly.
ivec4 Clampi(vec4 value)
{
    return ivec4(floor(value + vec4(0.1)));
}

float edgeTo(ivec4 Sample, vec2 offset)
{
    ivec4 neighbour = Clampi(texture(u_IdSampler, vo_TexCoord + offset));
    if (neighbour.r != Sample.r)
        return 1.0; // Another triangle.
    if (1.0 / 256.0 < abs(float(neighbour.b) - float(Sample.b)))
        return 0.33; // Another part of a tessellated triangle.
    return 0.0;
}

void main()
{
    ivec4 Sample = Clampi(texture(u_IdSampler, vo_TexCoord));
    float dx = 1.0 / float(u_IdSamplerWidth);
    float dy = 1.0 / float(u_IdSamplerHeight);
    float alpha = 0.0;
    alpha += edgeTo(Sample, vec2(-dx, -dy));
    alpha += edgeTo(Sample, vec2(-dx, dy));
    alpha += edgeTo(Sample, vec2(dx, -dy));
    alpha += edgeTo(Sample, vec2(dx, dy));
    alpha += edgeTo(Sample, vec2(-dx, 0.0));
    alpha += edgeTo(Sample, vec2(0.0, -dy));
    alpha += edgeTo(Sample, vec2(0.0, dy));
    alpha += edgeTo(Sample, vec2(dx, 0.0));
    alpha /= 8.0;
    out_FragColor = u_WireframeColour * vec4(alpha);
}
)");

} // namespace

WireframeRenderPass::WireframeRenderPass()
{
    addInput(viewportName, QVariant());
    addInput(idName, QVariant());
    addInput(wireColorName, QVariant());
    addOutput(frameName);
}

WireframeRenderPass::~WireframeRenderPass() = default;

void WireframeRenderPass::start(RenderCallbacks *)
{
    const int viewportPort = findInput(viewportName);
    const int idPort = findInput(idName);
    if (viewportPort < 0 || idPort < 0)
        return;
    const int framePort = findOutput(frameName);
    if (framePort < 0)
        return;

    // Intentional: an unset port gives an invalid colour, not this one.
    QColor color(23, 23, 23, 23);
    const int colorPort = findInput(wireColorName);
    if (colorPort >= 0)
        color = inputValue<QColor>(m_inputs[colorPort]);
    const QRect viewport = inputValue<QRect>(m_inputs[viewportPort]);
    Texture *const id = getInputPointer<Texture>(idPort);
    if (!id) {
        m_outputs[framePort].value = QVariant();
        return;
    }

    ensureFramebuffer(m_framebuffer);
    AutoBinder framebuffer(m_framebuffer.get());
    attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::LowDynamicRange, viewport.size());
    if (!m_program)
        m_program = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource);
    ensureScreenQuad(m_screenQuad, *m_program);

    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glViewport(viewport.left(), viewport.top(), viewport.width(), viewport.height());
    glClear(GL_COLOR_BUFFER_BIT);
    {
        AutoBinder program(m_program.get());
        // The viewport's size, not the image's, on purpose.
        m_program->setUniform(QStringLiteral("u_IdSamplerWidth"), viewport.width());
        m_program->setUniform(QStringLiteral("u_IdSamplerHeight"), viewport.height());
        m_program->setUniform(QStringLiteral("u_WireframeColour"), color);
        AutoBinder idBinder(id);
        m_program->setUniform(QStringLiteral("u_IdSampler"), id->unit());
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }

    handOn(m_outputs[framePort], m_numOutputUsers[framePort], m_framebuffer->attachment(GL_COLOR_ATTACHMENT0));
    giveBack(id);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

} // namespace Velmora::Kvz
