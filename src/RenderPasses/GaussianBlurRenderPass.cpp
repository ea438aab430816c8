// SPDX-License-Identifier: MIT
#include <RenderPasses/GaussianBlurRenderPass.h>

#include "steps/InputRead.h"
#include "steps/OneTexel.h"
#include "steps/Replaced.h"
#include "steps/Sampling.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/TextureManager.h>

#include <QtGui/QVector2D>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

GaussianBlurRenderPass::GaussianBlurRenderPass(float stencilMask)
    : BlurBaseRenderPass(stencilMask, 0.0f, 3.0f)
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Input"), QVariant());
    addInput(QStringLiteral("Kvz_float_BlurRadius"), 2.0f);
    addInput(QStringLiteral("Kvz_float_ResolutionDivider"), 1.0f);
    addInput(QStringLiteral("Kvz_KvzTexture*_Stencil"), QVariant());
    addInput(QStringLiteral("Kvz_int_StencilMaterial"), -1);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Output"));
}

GaussianBlurRenderPass::~GaussianBlurRenderPass() = default;

void GaussianBlurRenderPass::start(RenderCallbacks *)
{
    const auto radius = inputValue<float>(m_inputs[BlurRadius]);
    auto divider = inputValue<float>(m_inputs[ResolutionDivider]);
    if (!(double(divider) >= 0.01))
        divider = 0.01f;

    if (radius != m_blurRadius || !m_shaderProgram) {
        m_blurRadius = radius;
        calculateBlurWeights();
        // The program of the previous radius is not deleted, on purpose.
        replaceUndeleted(m_shaderProgram, makeShaderProgram(getBaseFragmentShaderSource()));
    }
    if (m_blurRadius <= 1.0f)
        return passThrough();

    const auto viewport = inputValue<QRect>(m_inputs[Viewport]);
    const QSize size(int(float(viewport.width()) / divider), int(float(viewport.height()) / divider));
    auto *input = getInputPointer<Texture>(Source);
    auto *stencil = getInputPointer<Texture>(Stencil);
    const int material = inputValue<int>(m_inputs[StencilMaterial]);
    const bool useStencil = stencil && material >= 0;
    // A stencil without a material is dropped and not given back, on purpose.
    if (!useStencil)
        stencil =
            TextureManager::Instance()->tempTexture(TextureFormat::DepthStencil, size.width(), size.height(), 1, 1);
    if (!input)
        input = takeBlackTexel(GL_RGB);
    sampleLinearly(input);

    ensureFramebuffer(m_framebuffer);
    ensureScreenQuad(m_screenQuad, *m_shaderProgram);
    if (useStencil) {
        glEnable(GL_STENCIL_TEST);
        glStencilFunc(GL_EQUAL, material + 1, 0xff);
        glStencilOp(GL_KEEP, GL_KEEP, GL_KEEP);
        glStencilMask(0);
    }

    Texture *across = nullptr;
    {
        AutoBinder framebuffer(m_framebuffer.get());
        across = attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::HighDynamicRange, size);
        m_framebuffer->attach(stencil, GL_DEPTH_STENCIL_ATTACHMENT, 0);
        m_framebuffer->setDrawBuffers();
        glDisable(GL_DEPTH_TEST);
        glDepthMask(GL_FALSE);
        glClear(GL_COLOR_BUFFER_BIT);
        drawBlurred(input, QVector2D(float(1.0 / size.width()), 0.0f), divider);
        m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
    }

    Texture *blurred = nullptr;
    {
        AutoBinder framebuffer(m_framebuffer.get());
        blurred = attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::HighDynamicRange, size);
        sampleLinearly(across);
        m_framebuffer->setDrawBuffers();
        glDisable(GL_DEPTH_TEST);
        // Where the stencil leaves a pixel out, the result is opaque black.
        glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        drawBlurred(across, QVector2D(0.0f, float(1.0 / size.height())), divider);
        m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
        m_framebuffer->detach(GL_DEPTH_STENCIL_ATTACHMENT);
    }

    if (useStencil) {
        glDisable(GL_STENCIL_TEST);
        // Stencil writes stay off, on purpose.
        glStencilMask(0);
    }

    handOn(m_outputs[Result], m_numOutputUsers[Result], blurred);
    giveBack(stencil);
    giveBack(blurred);
    giveBack(input);
    giveBack(across);
}

void GaussianBlurRenderPass::passThrough()
{
    auto *input = getInputPointer<Texture>(Source);
    handOn(m_outputs[Result], m_numOutputUsers[Result], input);
    auto *stencil = getInputPointer<Texture>(Stencil);
    giveBack(input);
    giveBack(stencil);
}

void GaussianBlurRenderPass::drawBlurred(Texture *source, const QVector2D &step, float divider)
{
    AutoBinder program(m_shaderProgram.get());
    AutoBinder sourceBinder(source);
    enableArrays(m_screenQuad, *m_shaderProgram);
    m_shaderProgram->setUniform(QStringLiteral("stepVec"), step);
    m_shaderProgram->setUniform(QStringLiteral("u_Input"), source->unit());
    m_shaderProgram->setUniform(QStringLiteral("u_ResolutionDivider"), divider);
    setKernel(*m_shaderProgram);
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

} // namespace Velmora::Kvz
