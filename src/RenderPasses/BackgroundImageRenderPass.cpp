// SPDX-License-Identifier: MIT
#include <RenderPasses/BackgroundImageRenderPass.h>

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

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString fragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_EnvTexture;
uniform sampler2D u_FadeTexture;
uniform sampler2D u_ColorTexture;
uniform sampler2D u_NormalAndMatIdTex;
uniform float u_fade1;
uniform float u_fade2;
uniform float u_fadeFloor;
uniform int u_FloorMatId;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    int sampledMatId = int(texture(u_NormalAndMatIdTex, vo_TexCoord).a);
    sampledMatId = sampledMatId * sign(sampledMatId) - 1;
    vec4 background = texture(u_EnvTexture, vo_TexCoord) * u_fade1 + texture(u_FadeTexture, vo_TexCoord) * u_fade2;
    if (sampledMatId == -1)
        out_FragColor = background;
    else if (sampledMatId == u_FloorMatId)
        out_FragColor = texture(u_ColorTexture, vo_TexCoord) * u_fadeFloor + (1.0 - u_fadeFloor) * background;
    else
        out_FragColor = texture(u_ColorTexture, vo_TexCoord);
}
)");

Texture *loadImage(const QString &path)
{
    TextureLoadOptions options;
    options.offset = 0.0f;
    options.scale = 1.0f;
    options.linearFilter = true;
    options.mipMaps = false;
    options.repeat = false;
    options.maximumSize = 0;
    options.format = int(TextureFormat::HighDynamicRange);
    return TextureManager::Instance()->loadTexture(path, options);
}

} // namespace

BackgroundImageRenderPass::BackgroundImageRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Frame"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addInput(QStringLiteral("Kvz_string_FadeImageUrl1"), QVariant());
    addInput(QStringLiteral("Kvz_string_FadeImageUrl2"), QVariant());
    addInput(QStringLiteral("Kvz_float_FadeRatio"), QVariant());
    addInput(QStringLiteral("Kvz_float_FadeRatio2"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Normal"), QVariant());
    addInput(QStringLiteral("Kvz_int_FloorMaterialId"), -1);
    addInput(QStringLiteral("Kvz_float_FadeRatioFloor"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

BackgroundImageRenderPass::~BackgroundImageRenderPass() = default;

void BackgroundImageRenderPass::setup(RenderCallbacks *)
{
    if (!m_shaderProgram)
        m_shaderProgram = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource);
    ensureScreenQuad(m_screenQuad, *m_shaderProgram);
}

void BackgroundImageRenderPass::start(RenderCallbacks *callbacks)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    auto *const depth = getInputPointer<Texture>(Depth);
    auto *const frame = getInputPointer<Texture>(SourceFrame);
    auto *normal = getInputPointer<Texture>(Normal);
    if (!m_image1)
        m_image1 = loadImage(m_inputs[FadeImageUrl1].value.toString());
    if (!m_image2)
        m_image2 = loadImage(m_inputs[FadeImageUrl2].value.toString());

    ensureFramebuffer(m_framebuffer);
    m_width = size.width();
    m_height = size.height();
    if (!m_shaderProgram)
        setup(callbacks);

    {
        AutoBinder framebuffer(m_framebuffer.get());
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::HighDynamicRange, size);
        if (depth)
            m_framebuffer->attach(depth, GL_DEPTH_STENCIL_ATTACHMENT, 0);
        else
            attachTempTexture(*m_framebuffer, GL_DEPTH_STENCIL_ATTACHMENT, TextureFormat::DepthStencil, size);
    }
    if (!normal)
        normal = TextureManager::Instance()->tempTexture(TextureFormat::HighDynamicRange, m_width, m_height, 1, 1);
    draw(frame, normal);

    handOn(m_outputs[Frame], m_numOutputUsers[Frame], m_framebuffer->attachment(GL_COLOR_ATTACHMENT0));
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
    detachAndGiveBack(*m_framebuffer, GL_DEPTH_STENCIL_ATTACHMENT);
    giveBack(frame);
    giveBack(normal);
}

void BackgroundImageRenderPass::draw(Texture *frame, Texture *normal)
{
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->setDrawBuffers();
    glViewport(0, 0, m_width, m_height);

    AutoBinder program(m_shaderProgram.get());
    AutoBinder image1(m_image1);
    AutoBinder image2(m_image2);
    AutoBinder normalBinder(normal);
    AutoBinder frameBinder(frame);
    setSampler(*m_shaderProgram, QStringLiteral("u_EnvTexture"), m_image1);
    setSampler(*m_shaderProgram, QStringLiteral("u_FadeTexture"), m_image2);
    setSampler(*m_shaderProgram, QStringLiteral("u_NormalAndMatIdTex"), normal);
    setSampler(*m_shaderProgram, QStringLiteral("u_ColorTexture"), frame);
    m_shaderProgram->setUniform(QStringLiteral("u_FloorMatId"), m_inputs[FloorMaterialId].value.toInt());
    m_shaderProgram->setUniform(QStringLiteral("u_fade1"), m_inputs[FadeRatio].value.toFloat());
    m_shaderProgram->setUniform(QStringLiteral("u_fade2"), m_inputs[FadeRatio2].value.toFloat());
    m_shaderProgram->setUniform(QStringLiteral("u_fadeFloor"), m_inputs[FadeRatioFloor].value.toFloat());

    glDisable(GL_DEPTH_TEST);
    glDepthMask(GL_FALSE);
    glDisable(GL_STENCIL_TEST);
    // Without effect on the draw; it is the state that the pass leaves behind.
    glStencilFunc(GL_EQUAL, 0, 0xff);
    glStencilOp(GL_KEEP, GL_KEEP, GL_KEEP);
    glStencilMask(0);

    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

void BackgroundImageRenderPass::teardown(RenderCallbacks *)
{ }

} // namespace Velmora::Kvz
