// SPDX-License-Identifier: MIT
#include <RenderPasses/CameraSpaceZBufferRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/PositionFromDepth.h"
#include "steps/ResolveMultisampled.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QMatrix4x4>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

// %1: type of the sampler; %2: the depth of this fragment.
const QString fragmentSource = QStringLiteral(R"(#version 150
uniform %1 u_SamplerDepth;
in vec2 vo_TexCoord;
out vec4 out_FragColor;
)") + positionFromDepthSource
    + QStringLiteral(R"(
void main()
{
    out_FragColor = positionFromDepth(vo_TexCoord, %2);
}
)");

QString fragmentSourceFor(bool multisampled)
{
    return multisampled
        ? fragmentSource.arg(
            QStringLiteral("sampler2DMS"), QStringLiteral("texelFetch(u_SamplerDepth,ivec2(gl_FragCoord.xy), 0).x"))
        : fragmentSource.arg(QStringLiteral("sampler2D"), QStringLiteral("texture(u_SamplerDepth,vo_TexCoord).x"));
}

} // namespace

CameraSpaceZBufferRenderPass::CameraSpaceZBufferRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_int_NumberMultisamples"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

CameraSpaceZBufferRenderPass::~CameraSpaceZBufferRenderPass() = default;

void CameraSpaceZBufferRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    auto *const depth = getInputPointer<Texture>(Depth);
    const int samples = inputValue<int>(m_inputs[NumberMultisamples]);

    ensureFramebuffer(m_framebuffer);
    // Intentional: the first frame decides the sampler's type for good.
    if (!m_program) {
        m_program = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource,
            fragmentSourceFor(depth && isMultisampled(depth)));
    }

    {
        AutoBinder framebuffer(m_framebuffer.get());
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::Position, size, samples);
        ensureScreenQuad(m_screenQuad, *m_program);
        m_framebuffer->setDrawBuffers();
        glViewport(0, 0, size.width(), size.height());

        AutoBinder program(m_program.get());
        AutoBinder depthBinder(depth);
        setSampler(*m_program, QStringLiteral("u_SamplerDepth"), depth);
        m_program->setUniform(QStringLiteral("u_InvProjMatrix"), projection.inverted());
        AutoBinder quad(m_screenQuad);
        glDisable(GL_STENCIL_TEST);
        glDepthMask(GL_FALSE);
        m_screenQuad->draw();
    }

    handOn(m_outputs[Frame], m_numOutputUsers[Frame], m_framebuffer->attachment(GL_COLOR_ATTACHMENT0));
    AutoBinder framebuffer(m_framebuffer.get());
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
    giveBack(depth);
}

} // namespace Velmora::Kvz
