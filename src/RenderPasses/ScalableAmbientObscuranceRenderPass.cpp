// SPDX-License-Identifier: MIT
#include <RenderPasses/ScalableAmbientObscuranceRenderPass.h>

#include "steps/InputRead.h"
#include "steps/PositionFromDepth.h"
#include "steps/ResolveMultisampled.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/AutoDisabler.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/InternalFormat.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>

#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

// Nothing calls its function; it is a fixed part of the program.
const QString reconstructionSource = QStringLiteral("#version 150\n") + positionFromDepthSource;

} // namespace

// Made of this literal alone: a string of another file might not be initialised yet.
const QString gSaoFragmentShaderSource = QStringLiteral(R"(#version 150
#extension GL_EXT_gpu_shader4 : enable
#extension GL_ARB_gpu_shader5 : enable
#define gl_FragColor out_FragColor

// Uniforms replace the first three.
#define NUM_SAMPLES (7)
#define LOG_MAX_OFFSET (3)
#define NUM_SPIRAL_TURNS (3)
// The coarsest level that taps read.
#define MAX_MIP_LEVEL (5)
// What lies beyond is not obscured.
#define FAR_PLANE_Z (-50.0)

// Depth under CS_POS_CALCULATE, else positions in camera space.
#ifdef MULTISAMPLE_ZBUFFER_TEXTURE
uniform sampler2DMS CS_Z_buffer;
#else
uniform sampler2D CS_Z_buffer;
#endif

#if defined(NORMAL_TRANSPOSE_INVERT) || defined(NORMAL_SCREENSPACE)
#ifdef MULTISAMPLE_NORMAL_TEXTURE
uniform sampler2DMS u_Normals;
#else
uniform sampler2D u_Normals;
#endif
#endif

uniform mat4 u_Camera;
// Height in pixels of an object of one unit at a distance of one unit.
uniform float projScale;
// How far to look, in units of the scene.
uniform float radius;
uniform float radius2;
uniform float invRadius2;
// Heights up to this do not obscure.
uniform float bias;
// As it stands, not divided by a power of the radius.
uniform float intensity;
// near * far, near - far, far
uniform vec3 u_ClipInfo;
// (-2 / (W P00), -2 / (H P11), (1 - P20) / P00, (1 + P21) / P11)
uniform vec4 u_ProjInfo;
uniform float u_NumSamples;
uniform int u_LogMaxOffset;
uniform float u_NumSpiralTurns;
// Of the images that are read, in pixels.
uniform vec2 u_viewportInfo;
uniform vec4 projInfo;

in vec2 vo_TexCoord;
out vec4 out_FragColor;

// The point at a window position and depth, with x, y and z negated.
vec3 reconstructCSPosition(vec2 S, float z)
{
    // Nothing was drawn there.
    if (z == 1.0)
        discard;
    float csZ = u_ClipInfo[0] / (u_ClipInfo[1] * z + u_ClipInfo[2]);
    return vec3((S.xy * u_ProjInfo.xy + u_ProjInfo.zw) * csZ, csZ);
}

// The normal of the face at this fragment.
vec3 reconstructCSFaceNormal(vec3 C)
{
    return normalize(cross(dFdy(C), dFdx(C)));
}

// The direction of a tap on the spiral, and how far out it is, up to 1.
vec2 tapLocation(float sampleNumber, float spinAngle, float divAll, out float ssR)
{
    float alpha = (sampleNumber + 0.5) * divAll;
    float angle = alpha * (u_NumSpiralTurns * 6.28) + spinAngle;
    ssR = alpha;
    return vec2(cos(angle), sin(angle));
}

// The point at a pixel.
vec3 getPosition(ivec2 ssP)
{
#ifdef CS_POS_CALCULATE
    return 0.0 - reconstructCSPosition(vec2(ssP) + 0.5, texelFetch(CS_Z_buffer, ssP, 0).x);
#else
#ifdef MULTISAMPLE_ZBUFFER_TEXTURE
    return texelFetch(
        CS_Z_buffer, ivec2(vo_TexCoord.x * u_viewportInfo.x, vo_TexCoord.y * u_viewportInfo.y), 0).xyz;
#else
    return texture(CS_Z_buffer, vo_TexCoord).xyz;
#endif
#endif
}

// The point that lies ssR pixels away from a pixel.
vec3 getOffsetPosition(ivec2 ssC, vec2 unitOffset, float ssR)
{
#ifdef GL_EXT_gpu_shader5
    int mipLevel = clamp(findMSB(int(ssR * fwidth(vo_TexCoord))) - u_LogMaxOffset, 0, MAX_MIP_LEVEL);
#else
    int mipLevel = clamp(int(floor(log2(ssR * fwidth(vo_TexCoord)))) - u_LogMaxOffset, 0, MAX_MIP_LEVEL);
#endif
#ifdef CS_POS_CALCULATE
    vec2 ssP = ssR * unitOffset + vec2(ssC);
#ifdef MULTISAMPLE_ZBUFFER_TEXTURE
    float d = texelFetch(CS_Z_buffer, ivec2(ssP), 0).x;
#else
    float d = texelFetch(CS_Z_buffer, ivec2(ssP), mipLevel).x;
#endif
    return 0.0 - reconstructCSPosition(ssP + 0.5, d);
#else
    vec2 ssP = ssR * unitOffset * fwidth(vo_TexCoord) + vo_TexCoord;
#ifdef MULTISAMPLE_ZBUFFER_TEXTURE
    return texelFetch(CS_Z_buffer, ivec2(ssP.x * u_viewportInfo.x, ssP.y * u_viewportInfo.y), 0).xyz;
#else
    return texture(CS_Z_buffer, ssP, float(mipLevel)).xyz;
#endif
#endif
}

// How much one tap obscures the point C with the normal n_C.
float sampleAO(ivec2 ssC, vec3 C, vec3 n_C, float ssDiskRadius, float tapIndex, float angle, float divAll)
{
    float ssR;
    vec2 unitOffset = tapLocation(tapIndex, angle, divAll, ssR);
    ssR *= ssDiskRadius;
    vec3 Q = getOffsetPosition(ssC, normalize(unitOffset), ssR);
    vec3 v = Q - C;
    float vv = dot(v, v);
    float vn = dot(v, n_C);

    // C: medium contrast, without a division.
    return 4.0 * max(1.0 - vv * invRadius2, 0.0) * max(vn - bias, 0.0);
    // D: low contrast, without a division. Not in use.
    return 2.0 * float(vv < radius2) * max(vn - bias, 0.0);
}

void main()
{
    ivec2 ssC = ivec2(gl_FragCoord.xy);
    vec3 C = getPosition(ssC);
    if (C.z < FAR_PLANE_Z)
        discard;
    float randomPatternRotationAngle = (3.0 * float(ssC.x ^ ssC.y) + float(ssC.x * ssC.y)) * 10.0;

#if defined(NORMAL_CALCULATE)
    vec3 n_C = -reconstructCSFaceNormal(C);
#elif defined(NORMAL_TRANSPOSE_INVERT)
#ifdef MULTISAMPLE_NORMAL_TEXTURE
    vec3 worldNormal = texelFetch(
        u_Normals, ivec2(vo_TexCoord.x * u_viewportInfo.x, vo_TexCoord.y * u_viewportInfo.y), 0).xyz;
#else
    vec3 worldNormal = texture(u_Normals, vo_TexCoord).xyz;
#endif
    // Not normalised, on purpose.
    vec3 n_C = transpose(inverse(mat3(u_Camera))) * worldNormal;
#elif defined(NORMAL_SCREENSPACE)
    vec3 n_C = normalize(texture(u_Normals, vo_TexCoord).xyz);
    if (n_C.z < 0.0)
        n_C = -n_C;
#else
#error Not know Normal processing
#endif

    float ssDiskRadius = -projScale * radius / C.z;
    float divAll = 1.0 / u_NumSamples;
    float sum = 0.0;
    for (float i = 0.0; i < u_NumSamples; ++i)
        sum += sampleAO(ssC, C, n_C, ssDiskRadius, i, randomPatternRotationAngle, divAll);
    float A = clamp(1.0 - sum * intensity * (5.0 / u_NumSamples), 0.0, 1.0);
    out_FragColor = vec4(vec3(A), 1.0);
}
)");

/// The values of a frame's inputs.
struct ScalableAmbientObscuranceRenderPass::Settings
{
    QSize viewport;
    QMatrix4x4 projection;
    float nearPlane;
    float farPlane;
    QMatrix4x4 camera;
    float radius;
    float bias;
    float intensity;
    int taps;
    int logMaxOffset;
    int spiralTurns;
    int samples;
    float divider;
};

ScalableAmbientObscuranceRenderPass::ScalableAmbientObscuranceRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_float_NearPlane"), 0.1f);
    addInput(QStringLiteral("Kvz_float_FarPlane"), 100.0f);
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addInput(QStringLiteral("Kvz_float_SAORadius"), 0.09f);
    addInput(QStringLiteral("Kvz_float_SAOBias"), 0.02f);
    addInput(QStringLiteral("Kvz_float_SAOIntensity"), 100.0f);
    addInput(QStringLiteral("Kvz_KvzTexture*_CameraSpacePosition"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Normal"), QVariant());
    addInput(QStringLiteral("Kvz_float_SaoNumSamples"), 7.0f);
    addInput(QStringLiteral("Kvz_float_SaoNumLogMaxOffset"), 3.0f);
    addInput(QStringLiteral("Kvz_float_SaoNumSpiralTurns"), 3.0f);
    addInput(QStringLiteral("Kvz_float_ResolutionDivider"), 1.0f);
    addInput(QStringLiteral("Kvz_int_NumberMultisamples"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

ScalableAmbientObscuranceRenderPass::~ScalableAmbientObscuranceRenderPass() = default;

void ScalableAmbientObscuranceRenderPass::setNormalProcessing(NormalProcessing processing)
{
    if (m_shaderProgram) {
        logAssertion(__FILE__, __LINE__, QStringLiteral("NULL == _shaderProgram"),
            QStringLiteral("Do not set the normal processing once a shader has been created."));
    }
    m_normalProcessing = processing;
}

void ScalableAmbientObscuranceRenderPass::start(RenderCallbacks *)
{
    auto *const depth = getInputPointer<Texture>(Depth);
    auto *const positions = getInputPointer<Texture>(CameraSpacePosition);
    auto *const normals = getInputPointer<Texture>(Normal);
    if (inputValue<float>(m_inputs[SaoBias]) == 0.0f) {
        m_outputs[Frame].value = QVariant(0);
        for (Texture *texture : {depth, positions, normals})
            giveBack(texture);
        return;
    }
    const Settings settings = readSettings();

    if (settings.divider != m_resolutionDivider) {
        TextureManager::Instance()->deleteUnusedTempTextures();
        m_resolutionDivider = settings.divider;
    }
    m_width = int(float(settings.viewport.width()) / settings.divider);
    m_height = int(float(settings.viewport.height()) / settings.divider);

    ensureFramebuffer(m_framebuffer);
    AutoBinder framebuffer(m_framebuffer.get());
    attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::LowDynamicRange, QSize(m_width, m_height),
        settings.samples);
    if (!m_shaderProgram)
        buildProgram(depth, positions, normals);
    ensureScreenQuad2(m_screenQuad, *m_shaderProgram);

    // Intentional: without a depth image nothing is drawn, even when there are positions.
    unsigned int depthAttachment = GL_DEPTH_ATTACHMENT;
    if (depth) {
        AutoBinder depthBinder(depth);
        depthAttachment = attachDepth(depth);
        m_framebuffer->setDrawBuffers();
        draw(settings, depth, positions, normals);
    }

    handOn(m_outputs[Frame], m_numOutputUsers[Frame], m_framebuffer->attachment(GL_COLOR_ATTACHMENT0));
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
    detachAndGiveBack(*m_framebuffer, depthAttachment);
    giveBack(positions);
    giveBack(normals);
}

ScalableAmbientObscuranceRenderPass::Settings ScalableAmbientObscuranceRenderPass::readSettings() const
{
    Settings settings;
    settings.viewport = inputValue<QRect>(m_inputs[Viewport]).size();
    settings.projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    settings.nearPlane = inputValue<float>(m_inputs[NearPlane]);
    settings.farPlane = inputValue<float>(m_inputs[FarPlane]);
    settings.camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    settings.radius = inputValue<float>(m_inputs[SaoRadius]);
    settings.bias = inputValue<float>(m_inputs[SaoBias]);
    settings.intensity = inputValue<float>(m_inputs[SaoIntensity]);
    settings.taps = int(inputValue<float>(m_inputs[SaoNumSamples]));
    settings.logMaxOffset = m_inputs[SaoNumLogMaxOffset].value.toInt();
    settings.spiralTurns = int(inputValue<float>(m_inputs[SaoNumSpiralTurns]));
    settings.samples = inputValue<int>(m_inputs[NumberMultisamples]);
    settings.divider = std::max(1.0f, inputValue<float>(m_inputs[ResolutionDivider]));
    return settings;
}

void ScalableAmbientObscuranceRenderPass::buildProgram(
    const Texture *depth, const Texture *positions, const Texture *normals)
{
    GLSLMacroProcessor macros;
    const auto define = [&macros](const QString &name) { macros.addDefine(name, QStringLiteral("1")); };
    if (!positions)
        define(QStringLiteral("CS_POS_CALCULATE"));
    const Texture *const source = positions ? positions : depth;
    if (source && isMultisampled(source))
        define(QStringLiteral("MULTISAMPLE_ZBUFFER_TEXTURE"));
    if (!normals) {
        define(QStringLiteral("NORMAL_CALCULATE"));
    } else {
        if (isMultisampled(normals))
            define(QStringLiteral("MULTISAMPLE_NORMAL_TEXTURE"));
        if (m_normalProcessing == NormalTransposeInvert)
            define(QStringLiteral("NORMAL_TRANSPOSE_INVERT"));
        else if (m_normalProcessing == NormalScreenSpace)
            define(QStringLiteral("NORMAL_SCREENSPACE"));
    }

    m_shaderProgram = std::make_unique<ShaderProgram>(nullptr);
    m_shaderProgram->setMacroProcessor(&macros);
    m_shaderProgram->setFragDataLocations({QStringLiteral("out_FragColor")});
    m_shaderProgram->addShader(GL_VERTEX_SHADER, screenQuadVertexSource, QString());
    m_shaderProgram->addShader(GL_FRAGMENT_SHADER, reconstructionSource, QString());
    m_shaderProgram->addShader(GL_FRAGMENT_SHADER, gSaoFragmentShaderSource, QString());
    m_shaderProgram->compile();
    m_shaderProgram->link();
    m_shaderProgram->setMacroProcessor(nullptr);
}

/// Attaches the depth image where its format belongs, and says where that is.
unsigned int ScalableAmbientObscuranceRenderPass::attachDepth(Texture *depth)
{
    const unsigned int format = formatFromInternalFormat(static_cast<unsigned int>(depth->internalFormat(0)));
    const unsigned int attachment = format == GL_DEPTH_STENCIL ? GL_DEPTH_STENCIL_ATTACHMENT : GL_DEPTH_ATTACHMENT;
    if (format != GL_DEPTH_STENCIL && format != GL_DEPTH_COMPONENT)
        logAssertion(__FILE__, __LINE__, QStringLiteral("false"), QStringLiteral("Unhandled depth format"));
    m_framebuffer->attach(depth, attachment, 0);
    return attachment;
}

void ScalableAmbientObscuranceRenderPass::draw(
    const Settings &settings, Texture *depth, Texture *positions, Texture *normals)
{
    AutoDisabler depthTest(GL_DEPTH_TEST);
    glViewport(0, 0, m_width, m_height);
    glClearColor(1, 1, 1, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glClearColor(0, 0, 0, 0);

    AutoBinder program(m_shaderProgram.get());
    AutoBinder positionsBinder(positions);
    AutoBinder normalsBinder(normals);
    m_shaderProgram->setUniform(QStringLiteral("CS_Z_buffer"), positions ? positions->unit() : depth->unit());
    if (normals)
        m_shaderProgram->setUniform(QStringLiteral("u_Normals"), normals->unit());
    setUniforms(settings);

    AutoBinder quad(m_screenQuad);
    glDisable(GL_DEPTH_TEST);
    glDepthMask(GL_FALSE);
    // Intentional, though the test is off.
    glDisable(GL_STENCIL_TEST);
    glStencilFunc(GL_EQUAL, 1, 0xFF);
    glStencilOp(GL_KEEP, GL_KEEP, GL_KEEP);
    glStencilMask(0);
    m_screenQuad->draw();
}

void ScalableAmbientObscuranceRenderPass::setUniforms(const Settings &settings)
{
    const auto set = [this](const char *name, const QVariant &value) {
        m_shaderProgram->setUniform(QString::fromLatin1(name), value);
    };
    const QMatrix4x4 &p = settings.projection;
    const auto width = float(m_width);
    const auto height = float(m_height);
    const float radius2 = settings.radius * settings.radius;
    const float nearPlane = settings.nearPlane;
    const float farPlane = settings.farPlane;

    set("u_Camera", settings.camera);
    set("projScale", 0.5f * height * p(1, 1));
    set("radius", settings.radius);
    set("radius2", radius2);
    set("invRadius2", 1.0f / radius2);
    set("bias", settings.bias);
    set("intensity", settings.intensity);
    set("u_ClipInfo", QVector3D(nearPlane * farPlane, nearPlane - farPlane, farPlane));
    // QMatrix4x4 takes row, column. Intentional: plus P21, which is no inverse for a projection that is off axis in y.
    set("u_ProjInfo",
        QVector4D(-2.0f / (width * p(0, 0)), -2.0f / (height * p(1, 1)), (1.0f - p(0, 2)) / p(0, 0),
            (1.0f + p(1, 2)) / p(1, 1)));
    set("u_NumSamples", float(settings.taps));
    set("u_LogMaxOffset", settings.logMaxOffset);
    set("u_NumSpiralTurns", float(settings.spiralTurns));
    set("u_viewportInfo", QVector2D(float(settings.viewport.width()), float(settings.viewport.height())));
}

} // namespace Velmora::Kvz
