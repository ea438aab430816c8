// SPDX-License-Identifier: MIT
#include <ExtraPasses/MultisampleForwardRenderPass.h>

#include "PlainLights.h"
#include "SubsampleTable.h"
#include "SurfaceProgram.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>
#include <Scene/GPUModel.h>

#include <QtGui/QColor>
#include <QtGui/QVector2D>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

constexpr int sampleCount = 2;

const QString backgroundSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Background;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    out_FragColor = texture(u_Background, vo_TexCoord);
}
)");

// Values are interpolated at the texel's centre, which is not where the sample that is drawn lies, so they are carried over.
// Colours are clamped at 1, as in 8-bit frames, since highlights may go far beyond.
const QString fragmentSource = QStringLiteral(R"(#version 150
#include "SurfaceShading.glslh"
uniform sampler2D u_Background;
uniform vec2 u_Size;
uniform vec2 u_FromCentre;
uniform bool u_BlendsOverFrame; // Else the background alone is behind a surface.
out vec4 out_FragColor;
)") + surfaceInputSource
    + directionToEyeSource + QStringLiteral(R"(
SurfacePlace placeAtSample()
{
    SurfacePlace place = surfacePlace();
    vec4 colour = place.colour + dFdx(vo_Colour) * u_FromCentre.x + dFdy(vo_Colour) * u_FromCentre.y;
    place.colour = clamp(colour, 0.0, 1.0);
    for (int i = 0; i < 2; ++i)
        place.texCoords[i] += place.texCoordsX[i] * u_FromCentre.x + place.texCoordsY[i] * u_FromCentre.y;
    return place;
}

void main()
{
    vec3 position = vo_Position + dFdx(vo_Position) * u_FromCentre.x + dFdy(vo_Position) * u_FromCentre.y;
    vec3 normal = vo_Normal + dFdx(vo_Normal) * u_FromCentre.x + dFdy(vo_Normal) * u_FromCentre.y;
    Surface surface = surfaceAt(placeAtSample());
    if (!surface.isThere)
        discard;
    normal = surfaceNormal(surface, normal, gl_FrontFacing);
    vec3 shaded = clamp(shadeSurface(surface, fullVisibility, position, normal, directionToEye(position)), 0.0, 1.0);
    vec4 behind = u_BlendsOverFrame ? vec4(0.0) : texture(u_Background, gl_FragCoord.xy / u_Size);
    out_FragColor = vec4(mix(behind.rgb, shaded, surface.opacity), surface.opacity + behind.a * (1.0 - surface.opacity));
}
)");

} // namespace

MultisampleForwardRenderPass::MultisampleForwardRenderPass()
    : m_modelPrograms(std::make_unique<SurfaceProgramVariants>([](GLSLMacroProcessor &macros) {
          return buildSurfaceProgram(macros, {QStringLiteral("out_FragColor")}, fragmentSource, {surfaceShadingFile});
      }))
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Frame"), QVariant());
    addInput(QStringLiteral("Kvz_int_JitterIndex"), QVariant());
    addInput(QStringLiteral("Kvz_bool_RenderInHDR"), true);
    addLightInputs(*this);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
    addOutput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"));
    addOutput(QStringLiteral("Kvz_Vector2D_JitterAmount"));
}

MultisampleForwardRenderPass::~MultisampleForwardRenderPass() = default;

void MultisampleForwardRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);
    auto *const background = getInputPointer<Texture>(Background);
    const int frame = inputValue<int>(m_inputs[JitterIndex], -1);
    const bool isHdr = inputValue<bool>(m_inputs[RenderInHDR]);

    if (ensureFramebuffer(m_framebuffer))
        m_samplePositions.clear();
    {
        AutoBinder framebuffer(m_framebuffer.get());
        Texture *const color = attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0,
            isHdr ? TextureFormat::HighDynamicRange : TextureFormat::LowDynamicRange, size, sampleCount);
        Texture *const depth = attachTempTexture(
            *m_framebuffer, GL_DEPTH_STENCIL_ATTACHMENT, TextureFormat::DepthStencil, size, sampleCount);
        m_framebuffer->setDrawBuffers();
        glViewport(0, 0, size.width(), size.height());
        glEnable(GL_MULTISAMPLE);
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glDisable(GL_DEPTH_TEST);
        glDisable(GL_BLEND);
        if (background)
            drawBackground(background);
        if (model)
            drawModel(model, background, projection, camera, size, frame);
        handOn(m_outputs[Frame], m_numOutputUsers[Frame], color);
        handOn(m_outputs[Depth], m_numOutputUsers[Depth], depth);
        detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
        detachAndGiveBack(*m_framebuffer, GL_DEPTH_STENCIL_ATTACHMENT);
    }

    const QPointF middle = (subsamplePosition(frame, 0) + subsamplePosition(frame, 1)) / 2;
    const QVector2D jitter = shiftTo(QPointF(0.5, 0.5), middle, size);
    m_outputs[ProjectionMatrixOut].value = shifted(projection, jitter);
    m_outputs[JitterAmount].value = jitter;
    giveBack(background);
}

void MultisampleForwardRenderPass::drawBackground(Texture *background)
{
    if (!m_backgroundProgram)
        m_backgroundProgram = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, backgroundSource);
    ensureScreenQuad(m_screenQuad, *m_backgroundProgram);
    AutoBinder program(m_backgroundProgram.get());
    AutoBinder source(background);
    m_backgroundProgram->setUniform(QStringLiteral("u_Background"), background->unit());
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

void MultisampleForwardRenderPass::drawModel(GPUModel *model, Texture *background, const QMatrix4x4 &projection,
    const QMatrix4x4 &camera, const QSize &size, int frame)
{
    if (!background) {
        if (!m_noBackground)
            m_noBackground = TextureManager::Instance()->colorTexture(QColor(Qt::transparent));
        background = m_noBackground;
    }

    ShaderProgram &program = m_modelPrograms->forModel(*model);
    AutoBinder programBinder(&program);
    AutoBinder source(background);
    program.setUniform(QStringLiteral("u_Background"), background->unit());
    program.setUniform(QStringLiteral("u_Size"), QVector2D(float(size.width()), float(size.height())));
    PlainLights::read(m_inputs, HeadlightIntensity).set(program);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_SAMPLE_MASK);
    while (m_samplePositions.size() < sampleCount) {
        GLfloat position[2] = {0.5f, 0.5f};
        glGetMultisamplefv(GL_SAMPLE_POSITION, GLuint(m_samplePositions.size()), position);
        m_samplePositions.append({double(position[0]), double(position[1])});
    }
    for (int sample = 0; sample < sampleCount; ++sample) {
        const QPointF actual = m_samplePositions[sample];
        // This sample, and every second one of those that a driver adds.
        glSampleMaski(0, 0x55555555u << sample);
        setSurfaceCamera(program, shifted(projection, shiftTo(actual, subsamplePosition(frame, sample), size)), camera);
        program.setUniform(
            QStringLiteral("u_FromCentre"), QVector2D(float(actual.x()) - 0.5f, float(actual.y()) - 0.5f));
        program.setUniform(QStringLiteral("u_BlendsOverFrame"), false);
        drawSurfaces(*model, program, SurfaceSelection::Opaque);
        if (!model->isDrawEmpty(GPUModel::Transparent, GPUModel::Transparent))
            blendTransparentItems(*model, program);
    }
    glSampleMaski(0, 0xffffffffu);
    glDisable(GL_SAMPLE_MASK);
    glDisable(GL_DEPTH_TEST);
}

/// Lays the transparent items over what is drawn, in the order of the model.
void MultisampleForwardRenderPass::blendTransparentItems(GPUModel &model, ShaderProgram &program)
{
    program.setUniform(QStringLiteral("u_BlendsOverFrame"), true);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    glDepthMask(GL_FALSE);
    drawSurfaces(model, program, SurfaceSelection::Transparent);
    glDepthMask(GL_TRUE);
    glDisable(GL_BLEND);
}

} // namespace Velmora::Kvz
