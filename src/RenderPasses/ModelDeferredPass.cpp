// SPDX-License-Identifier: MIT
#include <RenderPasses/ModelDeferredPass.h>

#include "steps/DirectionalLight.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

// u_SamplerDepth is not read.
const QString fragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_SamplerDiffuse;
uniform sampler2D u_SamplerSpecular;
uniform sampler2D u_SamplerNormal;
uniform sampler2D u_SamplerDepth;
in vec2 vo_TexCoord;
out vec4 out_FragColor;
)") + directionalLightSource
    + QStringLiteral(R"(
void main()
{
    vec4 Kd = texture(u_SamplerDiffuse, vo_TexCoord);
    vec4 spec = texture(u_SamplerSpecular, vo_TexCoord);
    vec3 Ks = spec.rgb;
    float Ns = spec.a;
    vec3 N = texture(u_SamplerNormal, vo_TexCoord).xyz;
    vec3 L = normalize(vec3(100.0, 100.0, 100.0));
    out_FragColor = vec4(directionalLight(Kd.rgb, Ks, Ns, N, L), Kd.a);
}
)");

} // namespace

ModelDeferredPass::ModelDeferredPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Diffuse"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Specular"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Normal"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

ModelDeferredPass::~ModelDeferredPass() = default;

void ModelDeferredPass::start(RenderCallbacks *)
{
    // The light depends on neither the matrices nor the depth.
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    Texture *diffuse = getInputPointer<Texture>(Diffuse);
    Texture *specular = getInputPointer<Texture>(Specular);
    Texture *normal = getInputPointer<Texture>(Normal);

    if (!diffuse)
        diffuse = m_fallback.get();
    if (!specular)
        specular = m_fallback.get();
    if (!normal)
        normal = m_fallback.get();
    if (!diffuse || !specular || !normal) {
        m_outputs[Frame].value = QVariant();
        return;
    }

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
        AutoBinder diffuseBinder(diffuse);
        AutoBinder specularBinder(specular);
        AutoBinder normalBinder(normal);
        m_program->setUniform(QStringLiteral("u_SamplerDiffuse"), diffuse->unit());
        m_program->setUniform(QStringLiteral("u_SamplerSpecular"), specular->unit());
        m_program->setUniform(QStringLiteral("u_SamplerNormal"), normal->unit());
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }

    publishTarget(m_outputs[Frame], *m_framebuffer, GL_COLOR_ATTACHMENT0);
}

void ModelDeferredPass::resizeTarget(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA, size, GL_BGRA, GL_UNSIGNED_BYTE);
}

} // namespace Velmora::Kvz
