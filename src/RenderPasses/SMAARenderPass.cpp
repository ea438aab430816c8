// SPDX-License-Identifier: MIT
#include <RenderPasses/SMAARenderPass.h>

#include "smaa/SmaaSources.h"
#include "smaa/SmaaTextures.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ResolveMultisampled.h"
#include "steps/Sampling.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/BlitTexture.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <GL/TextureManager.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString edgeFragmentSource = smaaFragmentHead + QStringLiteral(R"(
uniform sampler2D u_FrameSampler;
uniform sampler2D u_PredicateSampler;
in vec4 vo_offsets[3];
out vec2 out_output;

void main()
{
#if SMAA_PREDICATION
    out_output = SMAALumaEdgeDetectionPS(vo_TexCoord, vo_offsets, u_FrameSampler, u_PredicateSampler);
#else
    out_output = SMAALumaEdgeDetectionPS(vo_TexCoord, vo_offsets, u_FrameSampler);
#endif
}
)");

const QString gammaFragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_texture;
uniform float u_gamma;
in vec2 vo_TexCoord;
out vec4 out_output;

void main()
{
    vec4 color = texture(u_texture, vo_TexCoord);
    out_output = vec4(clamp(pow(color.rgb, vec3(1.0 / u_gamma)), 0.0, 1.0), color.a);
}
)");

const char *modeName(int mode)
{
    constexpr const char *names[] = {"1x", "S2X", "T2X", "4X"};
    return mode >= 0 && mode < 4 ? names[mode] : "unknown";
}

/// The samples of a pixel that a mode resolves, over all frames.
int samplesOf(int mode)
{
    if (mode == SMAARenderPass::SmaaS2X || mode == SMAARenderPass::SmaaT2X)
        return 2;
    return mode == SMAARenderPass::Smaa4X ? 4 : 1;
}

Texture *takeTexture(TextureFormat format, int width, int height)
{
    Texture *const texture = TextureManager::Instance()->tempTexture(format, width, height, 1, 1);
    sampleLinearly(texture);
    return texture;
}

/// A copy with one sample, which takes the place of the input: that is given back.
Texture *resolved(Texture *texture, TextureFormat format, int width, int height)
{
    Texture *const copy = takeTexture(format, width, height);
    BlitTexture(texture, copy, format, width, height);
    giveBack(texture);
    return copy;
}

void clearColour()
{
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);
}

} // namespace

SMAARenderPass::SMAARenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Frame"), QVariant());
    addInput(QStringLiteral("Kvz_int_SmaaMode"), int(SmaaT2X));
    addInput(QStringLiteral("Kvz_KvzTexture*_Predicate"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Velocity"), QVariant());
    addInput(QStringLiteral("Kvz_int_JitterIndex"), QVariant());
    addInput(QStringLiteral("Kvz_bool_RenderInHDR"), true);
    addInput(QStringLiteral("Kvz_Vector2D_JitterAmount"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

SMAARenderPass::~SMAARenderPass()
{
    m_framebuffer.reset();
    m_blendFramebuffer.reset();
    m_areaTexture.reset();
    m_searchTexture.reset();
    deletePrograms();
    giveBack(m_previousColour);
    giveBack(m_previousPackedVelocity);
}

void SMAARenderPass::setup(RenderCallbacks *)
{
    if (!m_areaTexture)
        m_areaTexture = makeSmaaAreaTexture();
    if (!m_searchTexture)
        m_searchTexture = makeSmaaSearchTexture();
    createPrograms();
}

void SMAARenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto mode = inputValue<int>(m_inputs[SmaaMode]);
    const bool predication = !m_inputs[Predicate].value.isNull();
    auto *frameTexture = getInputPointer<Texture>(Frame);
    auto *const predicate = getInputPointer<Texture>(Predicate);
    auto *velocityTexture = getInputPointer<Texture>(Velocity);
    if (!frameTexture) {
        m_outputs[FrameOut].value = QVariant();
        giveBack(predicate);
        giveBack(velocityTexture);
        return;
    }
    if ((mode == SmaaT2X || mode == Smaa4X) && !velocityTexture) {
        logAssertion(__FILE__, __LINE__, QStringLiteral("velocityTexture != NULL"),
            QStringLiteral(
                "SMAA T2X/4X mode requested, but input velocity texture for reprojection was not provided."));
    }
    ensureFramebuffer(m_framebuffer);
    ensureFramebuffer(m_blendFramebuffer);
    createPrograms();
    // Intentional: what the members hold from the start counts as built, so a pass that begins with exactly that has no
    // programs.
    if (size.width() != m_width || size.height() != m_height || predication != m_predication || mode != m_mode) {
        release();
        m_width = size.width();
        m_height = size.height();
        m_predication = predication;
        m_mode = mode;
        init();
    }
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glViewport(0, 0, m_width, m_height);

    const TextureFormat colourFormat =
        inputValue<bool>(m_inputs[RenderInHDR]) ? TextureFormat::HighDynamicRange : TextureFormat::LowDynamicRange;
    Texture *const target = takeTexture(colourFormat, m_width, m_height);
    const auto jitter = inputValue<QVector2D>(m_inputs[JitterAmount]);
    Texture *result = nullptr;
    switch (mode) {
    case Smaa1X:
        clearTarget(target);
        if (isMultisampled(frameTexture))
            frameTexture = resolved(frameTexture, colourFormat, m_width, m_height);
        doSmaa1x(target, nullptr, frameTexture, predicate, nullptr, 0);
        result = target;
        break;
    case SmaaS2X: {
        clearTarget(target);
        KVZ_ASSERT(frameTexture->target() == GL_TEXTURE_2D_MULTISAMPLE,
            "The input frame texture must be of type GL_TEXTURE_2D_MULTISAMPLE for SMAA S2X");
        Texture *const sampleA = takeTexture(colourFormat, m_width, m_height);
        Texture *const sampleB = takeTexture(colourFormat, m_width, m_height);
        doMultiSampleSeparation(frameTexture, sampleA, sampleB);
        doSmaa1x(target, nullptr, sampleA, predicate, nullptr, 0);
        doSmaa1x(target, nullptr, sampleB, predicate, nullptr, 1);
        giveBack(sampleA);
        giveBack(sampleB);
        result = target;
        break;
    }
    case SmaaT2X: {
        clearTarget(target);
        Texture *const resolveTarget = takeTexture(colourFormat, m_width, m_height);
        Texture *const packedVelocity = takeTexture(TextureFormat::Velocity, m_width, m_height);
        if (isMultisampled(frameTexture)) {
            frameTexture = resolved(frameTexture, colourFormat, m_width, m_height);
            if (velocityTexture)
                velocityTexture = resolved(velocityTexture, TextureFormat::ResolvedVelocity, m_width, m_height);
        }
        doSmaa1x(target, packedVelocity, frameTexture, predicate, velocityTexture, 0);
        doTemporalResolve(resolveTarget, target, velocityTexture, packedVelocity, jitter);
        result = resolveTarget;
        break;
    }
    case Smaa4X: {
        clearTarget(target);
        KVZ_ASSERT(frameTexture->target() == GL_TEXTURE_2D_MULTISAMPLE,
            "The input frame texture must be of type GL_TEXTURE_2D_MULTISAMPLE for SMAA 4X");
        Texture *const resolveTarget = takeTexture(colourFormat, m_width, m_height);
        Texture *const packedVelocity = takeTexture(TextureFormat::Velocity, m_width, m_height);
        Texture *const sampleA = takeTexture(colourFormat, m_width, m_height);
        Texture *const sampleB = takeTexture(colourFormat, m_width, m_height);
        if (velocityTexture && isMultisampled(velocityTexture))
            velocityTexture = resolved(velocityTexture, TextureFormat::ResolvedVelocity, m_width, m_height);
        doMultiSampleSeparation(frameTexture, sampleA, sampleB);
        doSmaa1x(target, packedVelocity, sampleA, predicate, velocityTexture, 0);
        doSmaa1x(target, packedVelocity, sampleB, predicate, velocityTexture, 1);
        doTemporalResolve(resolveTarget, target, velocityTexture, packedVelocity, jitter);
        giveBack(sampleA);
        giveBack(sampleB);
        result = resolveTarget;
        break;
    }
    default:
        break; // No such mode: the target leaks and the output is null, on purpose.
    }

    handOn(m_outputs[FrameOut], m_numOutputUsers[FrameOut], result);
    giveBack(frameTexture);
    giveBack(predicate);
    giveBack(velocityTexture);
    giveBack(result);
}

void SMAARenderPass::init()
{
    KVZ_DEBUG(QStringLiteral("SMAA mode: %1").arg(QString::fromLatin1(modeName(m_mode))));
    const QString one = QStringLiteral("1");
    GLSLMacroProcessor macros;
    macros.addDefine(QStringLiteral("SMAA_RT_METRICS"),
        QStringLiteral("float4(1.0 / %1, 1.0 / %2, %1, %2)")
            .arg(double(m_width), 0, 'f', 1)
            .arg(double(m_height), 0, 'f', 1));
    macros.addDefine(QStringLiteral("SMAA_GLSL_3"), one);
    macros.addDefine(QStringLiteral("SMAA_PRESET_ULTRA"), one);
    if (m_predication) {
        macros.addDefine(QStringLiteral("SMAA_PREDICATION"), one);
        KVZ_DEBUG(QStringLiteral("SMAA predication on"));
    }
    if (isTemporal()) {
        macros.addDefine(QStringLiteral("SMAA_REPROJECTION"), one);
        macros.addDefine(QStringLiteral("SMAA_JITTER_COMPENSATION"), one);
    }

    const QStringList output = {QStringLiteral("out_output")};
    fillProgram(*m_edgeProgram, output, smaaEdgeVertexSource, edgeFragmentSource, &macros);
    fillProgram(*m_weightProgram, output, smaaWeightVertexSource, smaaWeightFragmentSource, &macros);
    fillProgram(*m_blendProgram, {QStringLiteral("out_output"), QStringLiteral("out_velocity")}, smaaBlendVertexSource,
        smaaBlendFragmentSource, &macros);
    if (isTemporal())
        fillProgram(*m_resolveProgram, output, smaaPlainVertexSource, smaaResolveFragmentSource, &macros);
    if (m_mode == SmaaS2X || m_mode == Smaa4X) {
        fillProgram(*m_separateProgram, {QStringLiteral("out_target0"), QStringLiteral("out_target1")},
            smaaPlainVertexSource, smaaSeparateFragmentSource, &macros);
    }
    fillProgram(*m_gammaProgram, output, smaaPlainVertexSource, gammaFragmentSource, &macros);
    m_screenQuad = OpenGLDeviceContext::current()->createScreenQuad();
}

void SMAARenderPass::forgetHistory()
{
    dropHistory();
    m_previousJitter = QVector2D();
}

void SMAARenderPass::dropHistory()
{
    giveBack(m_previousColour);
    giveBack(m_previousPackedVelocity);
    m_previousColour = nullptr;
    m_previousPackedVelocity = nullptr;
}

void SMAARenderPass::release()
{
    dropHistory();
    deletePrograms();
    createPrograms();
}

int SMAARenderPass::getSubSampleIndex(int pass, int jitterIndex)
{
    switch (m_mode) {
    case Smaa1X:
        return 0;
    case SmaaS2X:
        return pass;
    case SmaaT2X:
        return jitterIndex;
    case Smaa4X:
        return pass + 2 * jitterIndex;
    default:
        logAssertion(__FILE__, __LINE__, QStringLiteral("false"),
            QString::asprintf("SMAA: the returned subsample index for mode %d will probably be incorrect", m_mode));
        return 0;
    }
}

void SMAARenderPass::doSmaa1x(
    Texture *target, Texture *packedVelocity, Texture *input, Texture *predicate, Texture *velocity, int pass)
{
    Texture *const edges = takeTexture(TextureFormat::LowDynamicRange, m_width, m_height);
    Texture *const stencil = takeTexture(TextureFormat::DepthStencil, m_width, m_height);
    Texture *const weights = takeTexture(TextureFormat::LowDynamicRange, m_width, m_height);
    filterLinearly(input);

    // Edges are found where the eye sees them, whatever the range; what is blended in the end is the input as it came.
    Texture *const gammaCopy = takeTexture(TextureFormat::LowDynamicRange, m_width, m_height);
    applyGamma(input, gammaCopy, 2.2f);
    edgeDetection(edges, stencil, gammaCopy, predicate);
    giveBack(gammaCopy);

    const auto jitterIndex = inputValue<int>(m_inputs[JitterIndex]);
    blendingWeightCalculation(weights, edges, stencil, getSubSampleIndex(pass, jitterIndex));
    m_blendFactor = pass == 0 ? 1.0f : 0.5f;
    neighbourhoodBlending(target, input, weights, velocity, packedVelocity);

    giveBack(edges);
    giveBack(stencil);
    giveBack(weights);
}

void SMAARenderPass::doMultiSampleSeparation(Texture *frame, Texture *target0, Texture *target1)
{
    AutoBinder framebuffer(m_framebuffer.get());
    AutoBinder program(m_separateProgram.get());
    AutoBinder frameBinder(frame);
    m_framebuffer->attach(target0, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer->attach(target1, GL_COLOR_ATTACHMENT1, 0);
    m_framebuffer->setDrawBuffers();
    setSampler(*m_separateProgram, QStringLiteral("u_ColorTexMS"), frame);
    clearColour();
    draw(*m_separateProgram);
    m_framebuffer->detachAll();
}

void SMAARenderPass::applyGamma(Texture *input, Texture *output, float gamma)
{
    AutoBinder framebuffer(m_framebuffer.get());
    AutoBinder program(m_gammaProgram.get());
    AutoBinder inputBinder(input);
    m_framebuffer->attach(output, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer->setDrawBuffers();
    setSampler(*m_gammaProgram, QStringLiteral("u_texture"), input);
    m_gammaProgram->setUniform(QStringLiteral("u_gamma"), gamma);
    clearColour();
    draw(*m_gammaProgram);
    m_framebuffer->detachAll();
}

void SMAARenderPass::edgeDetection(Texture *edges, Texture *stencil, Texture *input, Texture *predicate)
{
    AutoBinder framebuffer(m_framebuffer.get());
    AutoBinder program(m_edgeProgram.get());
    m_framebuffer->attach(edges, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer->attach(stencil, GL_DEPTH_STENCIL_ATTACHMENT, 0);
    m_framebuffer->setDrawBuffers();
    AutoBinder inputBinder(input);
    {
        AutoBinder predicateBinder(predicate);
        filterLinearly(input);
        setSampler(*m_edgeProgram, QStringLiteral("u_FrameSampler"), input);
        if (predicate)
            setSampler(*m_edgeProgram, QStringLiteral("u_PredicateSampler"), predicate);
        // 1 where the shader keeps the fragment.
        glStencilFunc(GL_ALWAYS, 1, 0xff);
        glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);
        glStencilMask(0xff);
        glEnable(GL_STENCIL_TEST);
        glClearColor(0, 0, 0, 0);
        glClearStencil(0);
        glClear(GL_COLOR_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
        draw(*m_edgeProgram);
    }
    m_framebuffer->detachAll();
}

void SMAARenderPass::blendingWeightCalculation(Texture *weights, Texture *edges, Texture *stencil, int subsampleIndex)
{
    AutoBinder framebuffer(m_framebuffer.get());
    AutoBinder program(m_weightProgram.get());
    AutoBinder areaBinder(m_areaTexture.get());
    AutoBinder edgeBinder(edges);
    AutoBinder searchBinder(m_searchTexture.get());
    m_framebuffer->attach(weights, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer->attach(stencil, GL_DEPTH_STENCIL_ATTACHMENT, 0);
    m_framebuffer->setDrawBuffers();
    setSampler(*m_weightProgram, QStringLiteral("u_EdgeTex"), edges);
    setSampler(*m_weightProgram, QStringLiteral("u_AreaTex"), m_areaTexture.get());
    setSampler(*m_weightProgram, QStringLiteral("u_SearchTex"), m_searchTexture.get());
    const int location = m_weightProgram->getUniformLocation(QStringLiteral("u_SubsampleIndice"));
    if (location >= 0)
        glUniform4fv(location, 1, smaaSubsampleRow(samplesOf(m_mode), subsampleIndex));
    glStencilFunc(GL_EQUAL, 1, 0xff);
    glStencilMask(0);
    clearColour();
    draw(*m_weightProgram);
    m_framebuffer->detachAll();
    glDisable(GL_STENCIL_TEST);
}

void SMAARenderPass::neighbourhoodBlending(
    Texture *target, Texture *colour, Texture *weights, Texture *velocity, Texture *packedVelocity)
{
    AutoBinder framebuffer(m_blendFramebuffer.get());
    AutoBinder program(m_blendProgram.get());
    AutoBinder colourBinder(colour);
    AutoBinder weightBinder(weights);
    // Blending averages the passes: the first is added whole to a target of 0, the second halves both.
    glEnablei(GL_BLEND, 0);
    glBlendColor(m_blendFactor, m_blendFactor, m_blendFactor, m_blendFactor);
    glBlendEquation(GL_FUNC_ADD);
    glBlendFunc(GL_CONSTANT_COLOR, GL_CONSTANT_COLOR);
    m_blendFramebuffer->attach(target, GL_COLOR_ATTACHMENT0, 0);
    if (isTemporal())
        m_blendFramebuffer->attach(packedVelocity, GL_COLOR_ATTACHMENT1, 0);
    m_blendFramebuffer->setDrawBuffers();
    setSampler(*m_blendProgram, QStringLiteral("u_ColorTex"), colour);
    setSampler(*m_blendProgram, QStringLiteral("u_BlendTex"), weights);
    {
        AutoBinder velocityBinder(isTemporal() ? velocity : nullptr);
        if (isTemporal())
            setSampler(*m_blendProgram, QStringLiteral("u_VelocityTex"), velocity);
        draw(*m_blendProgram);
    }
    m_blendFramebuffer->detachAll();
    glDisablei(GL_BLEND, 0);
}

void SMAARenderPass::doTemporalResolve(
    Texture *target, Texture *current, Texture *velocity, Texture *packedVelocity, QVector2D jitter)
{
    AutoBinder framebuffer(m_framebuffer.get());
    AutoBinder program(m_resolveProgram.get());
    AutoBinder currentBinder(current);
    AutoBinder velocityBinder(velocity);
    AutoBinder packedVelocityBinder(packedVelocity);
    m_framebuffer->attach(target, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer->setDrawBuffers();
    {
        AutoBinder previousBinder(m_previousColour);
        AutoBinder previousPackedBinder(m_previousPackedVelocity);
        // Half of normalised device units is texture coordinates.
        m_resolveProgram->setUniform(QStringLiteral("u_JitterAmount"), 0.5f * (m_previousJitter - jitter));
        m_resolveProgram->setUniform(QStringLiteral("u_TexelDimensions"),
            QVector2D(float(1.0 / double(m_width)), float(1.0 / double(m_height))));
        // The first frame is resolved with itself.
        setSampler(*m_resolveProgram, QStringLiteral("u_CurrentColorTex"), current);
        setSampler(
            *m_resolveProgram, QStringLiteral("u_PreviousColorTex"), m_previousColour ? m_previousColour : current);
        setSampler(*m_resolveProgram, QStringLiteral("u_VelocityTex"), velocity);
        setSampler(*m_resolveProgram, QStringLiteral("u_PackedVelocityTex"), packedVelocity);
        setSampler(*m_resolveProgram, QStringLiteral("u_PreviousPackedVelocityTex"),
            m_previousPackedVelocity ? m_previousPackedVelocity : packedVelocity);
        clearColour();
        draw(*m_resolveProgram);
    }
    m_previousJitter = jitter;
    giveBack(m_previousColour);
    giveBack(m_previousPackedVelocity);
    // The history takes over their references; it is the frame before its resolve.
    m_previousColour = current;
    m_previousPackedVelocity = packedVelocity;
    m_framebuffer->detachAll();
}

bool SMAARenderPass::isTemporal() const
{
    return m_mode == SmaaT2X || m_mode == Smaa4X;
}

void SMAARenderPass::clearTarget(Texture *target)
{
    AutoBinder framebuffer(m_blendFramebuffer.get());
    m_blendFramebuffer->attach(target, GL_COLOR_ATTACHMENT0, 0);
    // A temporal frame left two draw buffers behind; the clear needs those of what is attached now.
    m_blendFramebuffer->setDrawBuffers();
    clearColour();
    m_blendFramebuffer->detachAll();
}

void SMAARenderPass::draw(const ShaderProgram &program) const
{
    if (!m_screenQuad)
        return; // Never built, so there are no programs to draw with either.
    enableArrays(m_screenQuad, program);
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

void SMAARenderPass::createPrograms()
{
    for (std::unique_ptr<ShaderProgram> *program : programs()) {
        if (!*program)
            *program = std::make_unique<ShaderProgram>(nullptr);
    }
}

void SMAARenderPass::deletePrograms()
{
    for (std::unique_ptr<ShaderProgram> *program : programs())
        program->reset();
}

std::array<std::unique_ptr<ShaderProgram> *, 6> SMAARenderPass::programs()
{
    return {&m_edgeProgram, &m_weightProgram, &m_blendProgram, &m_resolveProgram, &m_separateProgram, &m_gammaProgram};
}

} // namespace Velmora::Kvz
