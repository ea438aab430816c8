// SPDX-License-Identifier: MIT
#include <RenderPasses/SkyboxRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <GL/AutoBinder.h>
#include <GL/AutoEnabler.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QMatrix4x4>

#include <GL/TrackedGL.h>

#include <optional>

namespace Velmora::Kvz {

namespace {

/// %1: the statement that sets vo_TexCoord, without its semicolon.
const QString vertexSource = QStringLiteral(R"(#version 150
in vec3 va_Vertex;
in vec2 va_TexCoord;
out vec3 vo_Vertex;
out vec2 vo_TexCoord;

void main()
{
    gl_Position = vec4(va_Vertex, 1.0);
    vo_Vertex = va_Vertex;
%1;
}
)");

const QString plainTexCoord = QStringLiteral("  vo_TexCoord = va_TexCoord");
/// Turns the flat image top to bottom, on purpose.
const QString flippedTexCoord = QStringLiteral("  vo_TexCoord = vec2(1.0, -1.0) * va_TexCoord + vec2(0.0, 1.0)");

const QString forwardDirectionSource = QStringLiteral(R"(
uniform mat4 u_InvCameraMatrix;
uniform mat4 u_NDCCoordToDirection;

vec3 forwardDirection_WS(vec3 texcoord)
{
    vec4 direction_PS = vec4(texcoord, 1.0);
    vec4 direction_ES4 = u_NDCCoordToDirection * direction_PS;
    vec3 direction_ES3 = normalize(direction_ES4.xyz / direction_ES4.w);
    vec3 position1_WS = (u_InvCameraMatrix * vec4(direction_ES3, 1.0)).xyz;
    vec3 position0_WS = (u_InvCameraMatrix * vec4(0.0, 0.0, 0.0, 1.0)).xyz;
    return normalize(position1_WS - position0_WS);
}
)");

const QString cubemapSource = QStringLiteral(R"(#version 150
uniform samplerCube u_EnvTexture;
in vec3 vo_Vertex;
out vec4 out_FragColor;
)") + forwardDirectionSource
    + QStringLiteral(R"(
void main()
{
    out_FragColor = texture(u_EnvTexture, forwardDirection_WS(vo_Vertex));
}
)");

const QString latLongSource = QStringLiteral(R"(#version 150
#include "KvzUtilities.glslh"
uniform sampler2D u_EnvTexture;
in vec3 vo_Vertex;
out vec4 out_FragColor;
)") + forwardDirectionSource
    + QStringLiteral(R"(
void main()
{
    vec3 viewDir = forwardDirection_WS(vo_Vertex);
    vec2 latlong = directionToLatLong_Tavo(viewDir);
    out_FragColor = texture(u_EnvTexture, latlong);
}
)");

/// Converts from gamma to linear.
const QString backgroundSource = QStringLiteral(R"(#version 150
uniform sampler2D u_EnvTexture;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    vec4 texSample = texture(u_EnvTexture, vo_TexCoord);
    out_FragColor = vec4(pow(texSample.rgb, vec3(2.2)), texSample.a);
}
)");

std::unique_ptr<ShaderProgram> buildEnvironmentProgram(const QString &texCoord, const QString &fragmentSource)
{
    const bool usesUtilities = fragmentSource.contains(QStringLiteral("KvzUtilities.glslh"));
    return buildProgram({QStringLiteral("out_FragColor")}, vertexSource.arg(texCoord), fragmentSource, nullptr,
        usesUtilities ? QStringList(QStringLiteral("KvzUtilities.glslc")) : QStringList());
}

// For these the source must be bound and its unit be the active one.

void setBackgroundSampling()
{
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
}

void setCubemapSampling()
{
    glTexParameteri(GL_TEXTURE_CUBE_MAP, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_CUBE_MAP, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_CUBE_MAP, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_CUBE_MAP, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
}

void setLatLongSampling()
{
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    // No mip levels, which would show the jump of the texture coordinates behind the viewer as a line.
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
}

} // namespace

SkyboxRenderPass::SkyboxRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Cubemap"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_LatLongMap"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Background"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Frame"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addInput(QStringLiteral("Kvz_bool_RenderInHDR"), true);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

SkyboxRenderPass::~SkyboxRenderPass() = default;

void SkyboxRenderPass::setup(RenderCallbacks *)
{
    if (!m_cubemapProgram)
        m_cubemapProgram = buildEnvironmentProgram(plainTexCoord, cubemapSource);
    if (!m_latLongProgram)
        m_latLongProgram = buildEnvironmentProgram(plainTexCoord, latLongSource);
    if (!m_backgroundProgram)
        m_backgroundProgram = buildEnvironmentProgram(flippedTexCoord, backgroundSource);
}

void SkyboxRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    if (!m_framebuffer || size != QSize(m_width, m_height)) {
        release();
        m_width = size.width();
        m_height = size.height();
        init();
    }
    auto *const cubemap = getInputPointer<Texture>(Cubemap);
    auto *const latLongMap = getInputPointer<Texture>(LatLongMap);
    auto *const background = getInputPointer<Texture>(Background);
    auto *const frame = getInputPointer<Texture>(SourceFrame);
    auto *const depth = getInputPointer<Texture>(Depth);

    {
        // Attached and drawn to within one binding, so that the viewport becomes that of the frame.
        AutoBinder framebuffer(m_framebuffer.get());
        if (frame) {
            m_framebuffer->attach(frame, GL_COLOR_ATTACHMENT0, 0);
        } else {
            const bool isHdr = inputValue<bool>(m_inputs[RenderInHDR]);
            attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0,
                isHdr ? TextureFormat::HighDynamicRange : TextureFormat::LowDynamicRange, size);
        }
        if (depth)
            m_framebuffer->attach(depth, GL_DEPTH_STENCIL_ATTACHMENT, 0);
        else
            attachTempTexture(*m_framebuffer, GL_DEPTH_STENCIL_ATTACHMENT, TextureFormat::DepthStencil, size);
        const bool isSetUp = m_cubemapProgram && m_latLongProgram && m_backgroundProgram;
        if (isSetUp && (cubemap || latLongMap || background))
            draw(cubemap, latLongMap, background, frame, depth);
    }

    handOn(m_outputs[Frame], m_numOutputUsers[Frame], m_framebuffer->attachment(GL_COLOR_ATTACHMENT0));
    giveBack(cubemap);
    giveBack(latLongMap);
    giveBack(background);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
    detachAndGiveBack(*m_framebuffer, GL_DEPTH_STENCIL_ATTACHMENT);
}

void SkyboxRenderPass::draw(Texture *cubemap, Texture *latLongMap, Texture *background, bool hasFrame, bool hasDepth)
{
    m_framebuffer->setDrawBuffers();
    if (!hasFrame) {
        const GLfloat opaqueBlack[] = {0, 0, 0, 1};
        glClearBufferfv(GL_COLOR, 0, opaqueBlack);
    }
    if (!hasDepth)
        glClearBufferfi(GL_DEPTH_STENCIL, 0, 1.0f, 0);
    glDisable(GL_DEPTH_TEST);

    std::optional<AutoEnabler> seamless;
    if (!background && cubemap)
        seamless.emplace(GL_TEXTURE_CUBE_MAP_SEAMLESS);
    Texture *const environment = background ? background : cubemap ? cubemap : latLongMap;
    ShaderProgram &program = background ? *m_backgroundProgram : cubemap ? *m_cubemapProgram : *m_latLongProgram;
    AutoBinder environmentBinder(environment);
    if (background)
        setBackgroundSampling();
    else if (cubemap)
        setCubemapSampling();
    else
        setLatLongSampling();

    AutoBinder programBinder(&program);
    enableArrays(m_screenQuad, program);
    program.setUniform(QStringLiteral("u_EnvTexture"), environment->unit());
    if (!background) {
        const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
        const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
        program.setUniform(QStringLiteral("u_InvCameraMatrix"), camera.inverted());
        program.setUniform(QStringLiteral("u_NDCCoordToDirection"), projection.inverted());
    }

    if (hasDepth) {
        glDisable(GL_BLEND);
        glEnable(GL_STENCIL_TEST);
        glStencilFunc(GL_EQUAL, 0, 0xff);
        glStencilOp(GL_KEEP, GL_KEEP, GL_KEEP);
        glStencilMask(0);
    } else if (hasFrame) {
        glDisable(GL_STENCIL_TEST);
        glEnable(GL_BLEND);
        glBlendEquationSeparate(GL_FUNC_ADD, GL_MAX);
        glBlendFunc(GL_ONE_MINUS_DST_ALPHA, GL_ONE);
    } else {
        glDisable(GL_STENCIL_TEST);
        glDisable(GL_BLEND);
    }
    {
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }
    glDisable(hasDepth ? GL_STENCIL_TEST : GL_BLEND);
}

void SkyboxRenderPass::init()
{
    release();
    m_framebuffer = std::make_unique<FramebufferObject>(nullptr);
    m_screenQuad = OpenGLDeviceContext::current()->createScreenQuad();
}

void SkyboxRenderPass::release()
{
    if (!m_framebuffer)
        return;
    {
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
        m_framebuffer->detach(GL_DEPTH_STENCIL_ATTACHMENT);
    }
    m_framebuffer.reset();
    m_screenQuad.clear();
}

} // namespace Velmora::Kvz
