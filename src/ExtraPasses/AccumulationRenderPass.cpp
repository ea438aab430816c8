// SPDX-License-Identifier: MIT
#include <ExtraPasses/AccumulationRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/MatrixChange.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

constexpr int usualFrames = 32;

const QString fragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Frame;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    out_FragColor = texture(u_Frame, vo_TexCoord);
}
)");

} // namespace

AccumulationRenderPass::AccumulationRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Frame"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_int_AccumulatedFrames"), usualFrames);
    addInput(QStringLiteral("Kvz_bool_Restart"), false);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
    addOutput(QStringLiteral("Kvz_int_FramesInMean"));
    addOutput(QStringLiteral("Kvz_bool_IsDone"));
}

AccumulationRenderPass::~AccumulationRenderPass()
{
    AccumulationRenderPass::teardownContextData(nullptr);
}

void AccumulationRenderPass::start(RenderCallbacks *callbacks)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    const int wanted = std::max(1, inputValue<int>(m_inputs[AccumulatedFrames], usualFrames));
    Texture *const frame = getInputPointer<Texture>(FrameIn);
    if (size.isEmpty()) {
        skip(callbacks);
        return;
    }
    if (size != m_size) {
        giveBack(m_mean);
        m_mean = nullptr;
    }
    if (inputValue<bool>(m_inputs[Restart]) || !m_mean || differs(projection, m_projection)
        || differs(camera, m_camera))
        m_frames = 0;
    m_size = size;
    m_projection = projection;
    m_camera = camera;

    if (frame && m_frames < wanted)
        add(frame);
    handOn(m_outputs[Frame], m_numOutputUsers[Frame], m_frames > 0 ? m_mean : nullptr);
    m_outputs[FramesInMean].value = m_frames;
    m_outputs[IsDone].value = m_frames >= wanted;
    giveBack(frame);
}

void AccumulationRenderPass::teardownContextData(RenderCallbacks *)
{
    giveBack(m_mean);
    m_mean = nullptr;
    m_frames = 0;
    m_framebuffer.reset();
    m_program.reset();
    m_screenQuad.reset();
}

void AccumulationRenderPass::add(Texture *frame)
{
    ensureFramebuffer(m_framebuffer);
    if (!m_program)
        m_program = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource);
    ensureScreenQuad(m_screenQuad, *m_program);
    if (!m_mean)
        m_mean =
            TextureManager::Instance()->tempTexture(TextureFormat::Position, m_size.width(), m_size.height(), 1, 1);

    glDisable(GL_DEPTH_TEST);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glViewport(0, 0, m_size.width(), m_size.height());
    // mean + (frame - mean) / (n + 1); what an older mean holds, such as infinities, must not be multiplied by 0.
    const float share = 1 / float(m_frames + 1);
    if (m_frames > 0)
        glEnable(GL_BLEND);
    else
        glDisable(GL_BLEND);
    glBlendEquation(GL_FUNC_ADD);
    glBlendColor(share, share, share, share);
    glBlendFunc(GL_CONSTANT_COLOR, GL_ONE_MINUS_CONSTANT_COLOR);
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->attach(m_mean, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer->setDrawBuffers();
    {
        AutoBinder program(m_program.get());
        AutoBinder frameBinder(frame);
        setSampler(*m_program, QStringLiteral("u_Frame"), frame);
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }
    m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
    glDisable(GL_BLEND);
    ++m_frames;
}

} // namespace Velmora::Kvz
