// SPDX-License-Identifier: MIT
#include <RenderPasses/TemporalAARenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/MatrixChange.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <GL/TrackedGL.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

// Blending makes the mean; nothing sets u_prevFrame.
const QString fragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_newFrame;
uniform sampler2D u_prevFrame;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    out_FragColor = texture(u_newFrame, vo_TexCoord);
}
)");

/// A side of the accumulation texture; 0 where no integer is near the quotient.
int scaled(int side, float scale)
{
    const float quotient = float(side) / scale;
    return std::abs(quotient) < 2147483648.0f ? int(quotient) : 0;
}

void clearToZeros()
{
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);
}

} // namespace

TemporalAARenderPass::TemporalAARenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Frame"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_bool_ResetTemporal"), true);
    // Capitalised as hosts know them.
    addInput(QStringLiteral("Kvz_Float_ViewportScale"), 1.0f);
    addInput(QStringLiteral("Kvz_Bool_ViewportScale_Enable"), true);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

TemporalAARenderPass::~TemporalAARenderPass()
{
    if (m_framebuffer) {
        AutoBinder framebuffer(m_framebuffer.get());
        detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
    }
}

void TemporalAARenderPass::start(RenderCallbacks *)
{
    const QSize viewport = inputValue<QRect>(m_inputs[Viewport]).size();
    Texture *const frame = getInputPointer<Texture>(Frame);
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    const bool resets = inputValue<bool>(m_inputs[ResetTemporal]);
    auto scale = inputValue<float>(m_inputs[ViewportScale]);
    if (!inputValue<bool>(m_inputs[ViewportScaleEnable]))
        scale = 1.0f;
    if (resets)
        return passThrough(frame);

    const QSize size(scaled(viewport.width(), scale), scaled(viewport.height(), scale));
    const bool isResized = size != m_size;
    const bool hasChanged = isResized || differs(projection, m_previousProjection) || differs(camera, m_previousCamera);
    if (hasChanged) {
        m_previousProjection = projection;
        m_previousCamera = camera;
        m_size = size;
    }

    ensureAccumulation(isResized);
    if (!m_program)
        m_program = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource);
    ensureScreenQuad(m_screenQuad, *m_program);

    m_framebuffer->bind();
    glViewport(0, 0, size.width(), size.height());
    if (frame) {
        glDisable(GL_DEPTH_TEST);
        glDepthMask(GL_FALSE);
        if (hasChanged)
            restartMean();
        else
            continueMean();
        drawFrame(frame);
        glDepthMask(GL_TRUE);
        if (!hasChanged)
            glDisable(GL_BLEND);
    } else {
        // The count stays as it was, on purpose.
        clearToZeros();
    }

    // It stays attached: the same texture is published frame after frame.
    handOn(m_outputs[FrameOut], m_numOutputUsers[FrameOut], m_framebuffer->attachment(GL_COLOR_ATTACHMENT0));
    giveBack(frame);
    m_framebuffer->unbind();
}

void TemporalAARenderPass::passThrough(Texture *frame)
{
    m_frameCount = 0;
    handOn(m_outputs[FrameOut], m_numOutputUsers[FrameOut], frame);
    giveBack(frame);
}

void TemporalAARenderPass::ensureAccumulation(bool isResized)
{
    const bool isNew = ensureFramebuffer(m_framebuffer);
    if (!isNew && !isResized)
        return;
    m_framebuffer->bind();
    if (!isNew)
        detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
    attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::LowDynamicRange, m_size);
    m_framebuffer->setDrawBuffers();
    m_framebuffer->unbind();
}

void TemporalAARenderPass::restartMean()
{
    clearToZeros();
    glDisable(GL_BLEND);
    m_frameCount = 0;
}

void TemporalAARenderPass::continueMean()
{
    // Intentional: after the first frame this is 0, so the second one replaces it.
    const float kept = float(m_frameCount) / float(m_frameCount + 1);
    ++m_frameCount;
    glEnable(GL_BLEND);
    glBlendEquation(GL_FUNC_ADD);
    glBlendFunc(GL_ONE_MINUS_CONSTANT_COLOR, GL_CONSTANT_COLOR);
    glBlendColor(kept, kept, kept, kept);
}

void TemporalAARenderPass::drawFrame(Texture *frame)
{
    AutoBinder program(m_program.get());
    AutoBinder quad(m_screenQuad);
    AutoBinder source(frame);
    m_program->setUniform(QStringLiteral("u_newFrame"), frame->unit());
    m_screenQuad->draw();
}

} // namespace Velmora::Kvz
