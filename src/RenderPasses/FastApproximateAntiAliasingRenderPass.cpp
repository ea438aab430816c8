// SPDX-License-Identifier: MIT
#include <RenderPasses/FastApproximateAntiAliasingRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/Sampling.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <GL/TrackedGL.h>

#include <optional>

namespace Velmora::Kvz {

namespace {

// Only the horizontal step is scaled, on purpose.
const QString fragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_FrameSampler;
uniform int u_Width;
uniform int u_Height;
uniform float u_SubPixelQuality;
uniform float u_RcpFrameQuality;
uniform float u_EdgeThresholdQuality;
uniform float u_EdgeThresholdMinQuality;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

#include "FXAA.glslh"

void main()
{
    float fWidth = float(u_Width);
    float fHeight = float(u_Height);
    vec4 fxaaFragColor = FxaaPixelShader(vo_TexCoord.xy, vec4(0, 0, 0, 0), u_FrameSampler, u_FrameSampler,
        u_FrameSampler, vec2(u_RcpFrameQuality / fWidth, 1.0 / fHeight), vec4(0, 0, 0, 0), vec4(0, 0, 0, 0),
        vec4(0, 0, 0, 0), u_SubPixelQuality, u_EdgeThresholdQuality, u_EdgeThresholdMinQuality, 8.0, 0.125, 0.05,
        vec4(0, 0, 0, 0));
    vec4 inputFragColor = texture(u_FrameSampler, vo_TexCoord);
    out_FragColor = vec4(fxaaFragColor.rgb, max(fxaaFragColor.a, inputFragColor.a));
}
)");

} // namespace

FastApproximateAntiAliasingRenderPass::FastApproximateAntiAliasingRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Frame"), QVariant());
    addInput(QStringLiteral("Kvz_float_SubPixelQuality"), 1.0f);
    addInput(QStringLiteral("Kvz_float_RcpFrameQuality"), 1.1f);
    addInput(QStringLiteral("Kvz_float_EdgeThresholdQuality"), 0.125f);
    addInput(QStringLiteral("Kvz_float_EdgeThresholdMinQuality"), 0.0625f);
    addInput(QStringLiteral("Kvz_bool_RenderInHDR"), true);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

FastApproximateAntiAliasingRenderPass::~FastApproximateAntiAliasingRenderPass() = default;

void FastApproximateAntiAliasingRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    // Intentional: for an invalid value other numbers than the ports are constructed with.
    const float subPixel = inputValue<float>(m_inputs[SubPixelQuality], 0.75f);
    const float rcpFrame = inputValue<float>(m_inputs[RcpFrameQuality], 1.0f);
    const float edgeThreshold = inputValue<float>(m_inputs[EdgeThresholdQuality], 0.166f);
    const float edgeThresholdMin = inputValue<float>(m_inputs[EdgeThresholdMinQuality], 0.0f);
    const bool isHdr = inputValue<bool>(m_inputs[RenderInHDR]);
    Texture *const frame = getInputPointer<Texture>(Frame);
    if (!frame) {
        m_outputs[FrameOut].value = QVariant();
        return;
    }

    ensureFramebuffer(m_framebuffer);
    m_width = size.width();
    m_height = size.height();
    if (!m_program)
        m_program = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource, nullptr,
            {QStringLiteral("FXAA.glslc")});
    ensureScreenQuad(m_screenQuad, *m_program);

    AutoBinder framebuffer(m_framebuffer.get());
    attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0,
        isHdr ? TextureFormat::HighDynamicRange : TextureFormat::LowDynamicRange, size);
    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glViewport(0, 0, size.width(), size.height());
    glClear(GL_COLOR_BUFFER_BIT);
    AutoBinder program(m_program.get());
    AutoBinder frameBinder(frame);
    std::optional<LinearFilters> filters(std::in_place, frame);
    m_program->setUniform(QStringLiteral("u_FrameSampler"), frame->unit());
    m_program->setUniform(QStringLiteral("u_Width"), m_width);
    m_program->setUniform(QStringLiteral("u_Height"), m_height);
    m_program->setUniform(QStringLiteral("u_SubPixelQuality"), subPixel);
    m_program->setUniform(QStringLiteral("u_RcpFrameQuality"), rcpFrame);
    m_program->setUniform(QStringLiteral("u_EdgeThresholdQuality"), edgeThreshold);
    m_program->setUniform(QStringLiteral("u_EdgeThresholdMinQuality"), edgeThresholdMin);
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
    filters.reset();

    handOn(m_outputs[FrameOut], m_numOutputUsers[FrameOut], m_framebuffer->attachment(GL_COLOR_ATTACHMENT0));
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
    giveBack(frame);
}

} // namespace Velmora::Kvz
