// SPDX-License-Identifier: MIT
#include <RenderPasses/DeferredRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/OneTexel.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QMatrix4x4>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

// Intentional: the depth is not mapped to -1 to 1 as x and y are, and the normal is not normalised.
const QString fragmentSource = QStringLiteral(R"(#version 150
// Some naive example implementation of Lambertian diffuse from fixed light source
uniform sampler2D u_SamplerNormal;
uniform sampler2D u_SamplerTexCoord;
uniform sampler2D u_SamplerDepth;
uniform mat4 u_CameraMatrix;
uniform mat4 u_NormalMatrix;
uniform mat4 u_InvProjMatrix;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

vec4 positionFromDepth(vec2 texCoord)
{
    vec2 xy = texCoord * 2.0 - 1.0;
    float z = texture(u_SamplerDepth, texCoord).r;
    vec4 position = u_InvProjMatrix * vec4(xy, z, 1.0);
    return position / position.w;
}

void main()
{
    vec4 Vertex = positionFromDepth(vo_TexCoord);
    vec4 Normal = texture(u_SamplerNormal, vo_TexCoord);
    vec4 TexCoord = texture(u_SamplerTexCoord, vo_TexCoord);

    vec4 LightSourcePos = u_CameraMatrix * vec4(100.0, 100.0, 100.0, 1.0);
    vec4 VertexInEyeSpace = u_CameraMatrix * Vertex;
    vec4 NormalInEyeSpace = u_NormalMatrix * Normal;
    vec3 VertexToLight = normalize(LightSourcePos.xyz - VertexInEyeSpace.xyz);
    float LDotN = dot(VertexToLight, NormalInEyeSpace.xyz);
    out_FragColor = vec4(vec3(LDotN), 1.0);
}
)");

} // namespace

DeferredRenderPass::DeferredRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Normal"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_TexCoord"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

DeferredRenderPass::~DeferredRenderPass() = default;

void DeferredRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    Texture *normal = getInputPointer<Texture>(Normal);
    Texture *texCoord = getInputPointer<Texture>(TexCoord);
    Texture *depth = getInputPointer<Texture>(Depth);

    const QMatrix4x4 normalMatrix = camera.inverted().transposed();
    // Intentional: transposed like the normal matrix, so it is not the inverse.
    const QMatrix4x4 inverseProjection = projection.inverted().transposed();

    if (!normal)
        normal = placeholder();
    if (!texCoord)
        texCoord = placeholder();
    if (!depth)
        depth = placeholder();

    const bool isFirstFrame = ensureFramebuffer(m_framebuffer);
    if (isFirstFrame || size != m_size)
        resizeTarget(size);
    if (!m_program)
        m_program = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource);
    ensureScreenQuad(m_screenQuad, *m_program);

    {
        // Intentional: no glViewport here. The pass draws with the viewport that it finds.
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->setDrawBuffers();
        glDisable(GL_DEPTH_TEST);
        glClear(GL_COLOR_BUFFER_BIT);
        AutoBinder program(m_program.get());
        AutoBinder normalBinder(normal);
        AutoBinder texCoordBinder(texCoord);
        AutoBinder depthBinder(depth);
        // Intentional: u_SamplerTexCoord stays unset, since the result does not depend on it.
        m_program->setUniform(QStringLiteral("u_SamplerNormal"), normal->unit());
        m_program->setUniform(QStringLiteral("u_SamplerDepth"), depth->unit());
        m_program->setUniform(QStringLiteral("u_CameraMatrix"), camera);
        m_program->setUniform(QStringLiteral("u_NormalMatrix"), normalMatrix);
        m_program->setUniform(QStringLiteral("u_InvProjMatrix"), inverseProjection);
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }

    publishTarget(m_outputs[Frame], *m_framebuffer, GL_COLOR_ATTACHMENT0);
}

Texture *DeferredRenderPass::placeholder()
{
    if (!m_placeholder)
        m_placeholder = makeOneTexel(0);
    return m_placeholder.get();
}

void DeferredRenderPass::resizeTarget(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA, size, GL_BGRA, GL_UNSIGNED_BYTE);
}

} // namespace Velmora::Kvz
