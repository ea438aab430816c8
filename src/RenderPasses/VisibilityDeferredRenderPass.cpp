// SPDX-License-Identifier: MIT
#include <RenderPasses/VisibilityDeferredRenderPass.h>

#include "steps/DirectionalLight.h"
#include "steps/InputRead.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/AutoDisabler.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>
#include <Scene/GPUModel.h>
#include <Scene/InstanceDataRegistry.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

/// Places in the list of buffer textures.
enum { VertexBuffer, TexCoordBuffer, NormalBuffer, IndexBuffer };

// Intentional: two products that nothing reads; the normal's w of 1 and its length; colours that count twice, in a mix and
// in an under-blend; an alpha that starts at 1, since it holds what comes through.
const QString fragmentSource = QStringLiteral(R"(#version 150
#include "VisibilityBuffer.glslh"
#include "TextureManager.glslh"
#instancedata "InstanceInfo"
#instancedata "OBJMaterial"
uniform mat4 u_CameraMatrix;
uniform mat4 u_NormalMatrix;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

float alphaBlend(float frontAlpha, float backAlpha)
{
    return clamp(frontAlpha + (1.0 - frontAlpha) * backAlpha, 0.0, 1.0);
}
)") + directionalLightSource
    + QStringLiteral(R"(
void main()
{
    vec4 output0 = vec4(0.0, 0.0, 0.0, 1.0);
    uint pointer;
    initializeVisibilityBufferQuery(vo_TexCoord, pointer);
    if (!doesVisibilityBufferHaveFragment(pointer)) {
        discard;
        return;
    }
    while (doesVisibilityBufferHaveFragment(pointer)) {
        vec4 Position;
        float Depth;
        vec3 Normal;
        vec2 TexCoord;
        getFragmentInfo(vo_TexCoord, pointer, Position, Depth, Normal, TexCoord);
        vec4 cameraPosition = u_CameraMatrix * Position;
        vec4 cameraNormal = u_NormalMatrix * vec4(Normal, 1.0);
        vec3 Kd = getKd() * managedTexture(getMap_Kd(), TexCoord).rgb;
        vec3 Ks = getKs() * managedTexture(getMap_Ks(), TexCoord).rgb;
        vec3 L = normalize(vec3(100.0, 100.0, 100.0));
        Normal = (transpose(inverse(u_CameraMatrix * getModelMatrix())) * vec4(Normal, 1.0)).rgb;
        vec3 color = directionalLight(Kd, Ks, getNs(), Normal, L);
        float alpha = getD();
        output0.rgb = mix(output0.rgb, color.rgb, alpha);
        output0.a = alphaBlend(alpha, output0.a);
        output0.rgb = output0.a * alpha * color + output0.rgb;
        output0.a = (1.0 - alpha) * output0.a;
        if (alpha >= 1.0)
            break;
    }
    out_FragColor = output0;
}
)");

std::unique_ptr<ShaderProgram> buildShadingProgram()
{
    const InstanceDataRegistry &plans = InstanceDataRegistry::Instance();
    auto program = std::make_unique<ShaderProgram>(nullptr);
    program->setFragDataLocations({QStringLiteral("out_FragColor")});
    program->addShader(GL_VERTEX_SHADER, screenQuadVertexSource, QString());
    program->addShader(GL_FRAGMENT_SHADER, fragmentSource, QString());
    program->addShaderFromFile(GL_FRAGMENT_SHADER, QStringLiteral("VisibilityBuffer.glslc"));
    program->addShaderFromFile(GL_FRAGMENT_SHADER, QStringLiteral("TextureManager.glslc"));
    program->addShader(GL_FRAGMENT_SHADER, plans.getPlan(QStringLiteral("InstanceInfo")).glslc(), QString());
    program->addShader(GL_FRAGMENT_SHADER, plans.getPlan(QStringLiteral("OBJMaterial")).glslc(), QString());
    program->compile();
    program->link();
    return program;
}

} // namespace

VisibilityDeferredRenderPass::VisibilityDeferredRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_HeadPointers"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_NodeBuffer"), QVariant());
    addInput(QStringLiteral("Kvz_int_NodeBufferWidth"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

VisibilityDeferredRenderPass::~VisibilityDeferredRenderPass() = default;

void VisibilityDeferredRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const QMatrix4x4 invProj = projection.inverted();
    const QMatrix4x4 invCamera = camera.inverted();
    const QMatrix4x4 normalMatrix = camera.inverted().transposed();
    auto *heads = getInputPointer<Texture>(HeadPointers);
    auto *nodes = getInputPointer<Texture>(NodeBuffer);
    const int nodeWidth = m_inputs[NodeBufferWidth].value.toInt();
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);
    DrawBuffers *const geometry = model ? model->drawBuffers(0) : nullptr;
    if (!heads)
        heads = m_fallbackTexture.get();
    if (!nodes)
        nodes = m_fallbackTexture.get();

    if (m_bufferTextures.empty() && geometry)
        makeBufferTextures(geometry);
    ensureFramebuffer(m_framebuffer);
    if (size != m_size) {
        m_size = size;
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA, size, GL_BGRA, GL_UNSIGNED_BYTE);
    }
    if (!m_program)
        m_program = buildShadingProgram();
    ensureScreenQuad(m_screenQuad, *m_program);

    // Intentional: neither glViewport nor glClearColor here. The pass takes both as it finds them.
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->setDrawBuffers();
    glClear(GL_COLOR_BUFFER_BIT);
    if (geometry) {
        // The current model decides, although the buffers are those of the first one.
        const bool isIndexed = !geometry->indexBO().isNull();
        Texture *const indices =
            isIndexed && m_bufferTextures.size() > IndexBuffer ? m_bufferTextures[IndexBuffer].get() : nullptr;
        AutoDisabler depthTest(GL_DEPTH_TEST);
        AutoBinder program(m_program.get());
        AutoBinder headBinder(heads);
        AutoBinder nodeBinder(nodes);
        AutoBinder vertexBinder(m_bufferTextures[VertexBuffer].get());
        AutoBinder texCoordBinder(m_bufferTextures[TexCoordBuffer].get());
        AutoBinder normalBinder(m_bufferTextures[NormalBuffer].get());
        if (indices)
            indices->bind();
        setIfPresent(*m_program, QStringLiteral("u_SamplerHeadPointer"), unitOf(heads));
        setIfPresent(*m_program, QStringLiteral("u_SamplerNodeBuffer"), unitOf(nodes));
        setIfPresent(*m_program, QStringLiteral("u_SamplerNodeBufferWidth"), nodeWidth);
        setIfPresent(*m_program, QStringLiteral("u_VertexBuffer"), m_bufferTextures[VertexBuffer]->unit());
        setIfPresent(*m_program, QStringLiteral("u_texCoordBuffer"), m_bufferTextures[TexCoordBuffer]->unit());
        setIfPresent(*m_program, QStringLiteral("u_NormalBuffer"), m_bufferTextures[NormalBuffer]->unit());
        if (indices)
            setIfPresent(*m_program, QStringLiteral("u_IndexBuffer"), indices->unit());
        setIfPresent(*m_program, QStringLiteral("u_CameraMatrix"), camera);
        setIfPresent(*m_program, QStringLiteral("u_ProjectionMatrix"), projection);
        setIfPresent(*m_program, QStringLiteral("u_NormalMatrix"), normalMatrix);
        setIfPresent(*m_program, QStringLiteral("u_InvProjMatrix"), invProj);
        setIfPresent(*m_program, QStringLiteral("u_InvCameraMatrix"), invCamera);
        setIfPresent(*m_program, QStringLiteral("u_indexedDraw"), isIndexed);
        {
            AutoBinder quad(m_screenQuad);
            AutoBinder commands(geometry->getDrawElementsIndirectCommandsUniformBufferObject());
            AutoBinder materials(model->materialData(0));
            AutoBinder objects(model->objectData(0));
            TextureManager::Instance()->bindTextures(m_program.get());
            m_screenQuad->draw();
            if (indices)
                indices->unbind();
            TextureManager::Instance()->unbindTextures(m_program.get());
        }
    }
    publishTarget(m_outputs[Frame], *m_framebuffer, GL_COLOR_ATTACHMENT0);
}

/// Makes a model's vertex buffers readable by shaders.
void VisibilityDeferredRenderPass::makeBufferTextures(const DrawBuffers *geometry)
{
    const auto append = [this](GLenum format, const QSharedPointer<BufferObject> &buffer) {
        m_bufferTextures.push_back(std::make_unique<Texture>(nullptr));
        Texture *const texture = m_bufferTextures.back().get();
        texture->setTarget(GL_TEXTURE_BUFFER);
        AutoBinder binder(texture);
        glTexBuffer(GL_TEXTURE_BUFFER, format, buffer ? buffer->getBO() : 0);
    };
    append(GL_RGB32F, geometry->VAO()->bo(QStringLiteral("va_Vertex")));
    append(GL_RG32F, geometry->VAO()->bo(QStringLiteral("va_TexCoord")));
    append(GL_RGB32F, geometry->VAO()->bo(QStringLiteral("va_Normal")));
    if (geometry->indexBO())
        append(GL_R32I, geometry->indexBO());
}

} // namespace Velmora::Kvz
