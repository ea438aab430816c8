// SPDX-License-Identifier: MIT
#include <RenderPasses/ModelRenderPass.h>

#include "steps/GeometryTargets.h"
#include "steps/InputRead.h"
#include "steps/ModelProgram.h"
#include "steps/OwnedTarget.h"
#include "steps/ScreenQuad.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

// The normal's w of 1 is meant: it shows with matrices that are not affine.
const QString vertexSource = QStringLiteral(R"(#version 150
#instancedata "InstanceInfo"
uniform mat4 u_CameraMatrix;
uniform mat4 u_ProjectionMatrix;
uniform mat4 u_NormalMatrix;
in vec3 va_Vertex;
in vec3 va_Normal;
in vec2 va_TexCoord;
out vec3 vo_Normal;
out vec2 vo_TexCoord;

void main()
{
    gl_Position = u_ProjectionMatrix * u_CameraMatrix * getModelMatrix() * vec4(va_Vertex, 1.0);
    vo_Normal = (u_NormalMatrix * getModelNormalMatrix() * vec4(va_Normal, 1.0)).xyz;
    vo_TexCoord = va_TexCoord;
}
)");

/// Stands before the code that setDiscardOnDiffuseAlpha() brings to life.
const QString discardMarker = QStringLiteral("//DODA ");

// vo_Vertex, which the vertex stage does not write, is not read, and out_TexCoord has no target; both are meant.
const QString fragmentSource = QStringLiteral(R"(#version 150
#instancedata "OBJMaterial"
#include "TextureManager.glslh"
in vec3 vo_Vertex;
in vec3 vo_Normal;
in vec2 vo_TexCoord;
out vec4 out_Kd;
out vec4 out_Ks;
out vec3 out_Normal;
out vec2 out_TexCoord;
out vec4 out_Id;

void main()
{
//DODA if(managedTexture(getMap_Kd(), vo_TexCoord).a <= 0.01) { discard; }
    out_Kd = vec4(getKd() * managedTexture(getMap_Kd(), vo_TexCoord).rgb, getD());
    out_Ks = vec4(getKs() * managedTexture(getMap_Ks(), vo_TexCoord).rgb, getNs());
    out_Normal = normalize(vo_Normal);
    out_TexCoord = vo_TexCoord;
    out_Id = vec4(gl_PrimitiveID + 1.0);
}
)");

} // namespace

ModelRenderPass::ModelRenderPass()
    : m_configs{
        {QStringLiteral("out_Kd"), GL_RGBA32F},
        {QStringLiteral("out_Ks"), GL_RGBA32F},
        {QStringLiteral("out_Normal"), GL_RGB32F},
        {QStringLiteral("out_Id"), GL_R32F},
    }
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Diffuse"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Specular"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Normal"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Id"));
}

ModelRenderPass::~ModelRenderPass()
{
    if (m_framebuffer) {
        deleteGeometryTargets(m_framebuffer, m_configs);
        delete m_framebuffer;
    }
    delete m_program;
}

void ModelRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);
    const QMatrix4x4 normalMatrix = camera.inverted().transposed();

    ensureFramebuffer(m_framebuffer);
    if (size != m_size)
        resizeTargets(size);
    if (!m_program)
        m_program = buildModelProgram(outputNames(m_configs), vertexSource, shadingSource());

    {
        // No glViewport here: that the pass draws with the viewport that it finds is meant.
        AutoBinder framebuffer(m_framebuffer);
        m_framebuffer->setDrawBuffers();
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        if (model) {
            glEnable(GL_DEPTH_TEST);
            AutoBinder program(m_program);
            m_program->setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
            m_program->setUniform(QStringLiteral("u_CameraMatrix"), camera);
            m_program->setUniform(QStringLiteral("u_NormalMatrix"), normalMatrix);
            model->draw(m_program, 0, 0, WindingCounterClockwise, false);
        }
    }

    publishTarget(m_outputs[Diffuse], m_framebuffer, GL_COLOR_ATTACHMENT0);
    publishTarget(m_outputs[Specular], m_framebuffer, GL_COLOR_ATTACHMENT1);
    publishTarget(m_outputs[Normal], m_framebuffer, GL_COLOR_ATTACHMENT2);
    publishTarget(m_outputs[Depth], m_framebuffer, GL_DEPTH_ATTACHMENT);
    publishTarget(m_outputs[Id], m_framebuffer, GL_COLOR_ATTACHMENT3);
}

void ModelRenderPass::setShaderProgram(ShaderProgram *program)
{
    m_program = program;
}

void ModelRenderPass::setDiscardOnDiffuseAlpha(bool discard)
{
    m_discardOnDiffuseAlpha = discard;
}

/// The fragment source, in which the flag brings the discard to life.
QString ModelRenderPass::shadingSource() const
{
    QString source = fragmentSource;
    if (m_discardOnDiffuseAlpha)
        source.remove(discardMarker);
    return source;
}

void ModelRenderPass::resizeTargets(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer);
    remakeColorTargets(m_framebuffer, m_configs, size);
    deleteTarget(m_framebuffer, GL_DEPTH_ATTACHMENT);
    auto *const depth = new Texture(nullptr);
    depth->setTarget(GL_TEXTURE_2D);
    attachTarget(m_framebuffer, GL_DEPTH_ATTACHMENT, depth, GL_DEPTH_COMPONENT32F, size, GL_DEPTH_COMPONENT, GL_FLOAT);
}

} // namespace Velmora::Kvz
