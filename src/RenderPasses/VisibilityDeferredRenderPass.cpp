// SPDX-License-Identifier: MIT
#include <RenderPasses/VisibilityDeferredRenderPass.h>

#include "steps/DirectionalLight.h"
#include "steps/InputRead.h"
#include "steps/OwnedTarget.h"
#include "steps/ScreenQuad.h"

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

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

/// Places in the list of buffer textures.
enum { VertexBuffer, TexCoordBuffer, NormalBuffer, IndexBuffer };

// Meant: the two products that nobody reads; the normal's w of 1 and length; that colours enter twice, by a mix and by an
// under-blend; that alpha starts at 1, since it holds what comes through.
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

ShaderProgram *buildShadingProgram()
{
    const InstanceDataRegistry &plans = InstanceDataRegistry::Instance();
    auto *const program = new ShaderProgram(nullptr);
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

void setIfPresent(ShaderProgram *program, const char *name, const QVariant &value)
{
    const QString uniform = QString::fromLatin1(name);
    if (program->hasUniform(uniform))
        program->setUniform(uniform, value);
}

/// The unit of a bound texture; 0, where nothing is bound, for none.
int unitOf(const Texture *texture)
{
    return texture ? texture->unit() : 0;
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

VisibilityDeferredRenderPass::~VisibilityDeferredRenderPass()
{
    if (m_framebuffer) {
        deleteTarget(m_framebuffer, GL_COLOR_ATTACHMENT0);
        delete m_framebuffer;
    }
    delete m_program;
    delete m_fallbackTexture;
    qDeleteAll(m_bufferTextures);
}

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
        heads = m_fallbackTexture;
    if (!nodes)
        nodes = m_fallbackTexture;

    if (m_bufferTextures.isEmpty() && geometry)
        makeBufferTextures(geometry);
    ensureFramebuffer(m_framebuffer);
    if (size != m_size) {
        m_size = size;
        AutoBinder framebuffer(m_framebuffer);
        remakeTarget(m_framebuffer, GL_COLOR_ATTACHMENT0, GL_RGBA, size, GL_BGRA, GL_UNSIGNED_BYTE);
    }
    if (!m_program)
        m_program = buildShadingProgram();
    ensureScreenQuad(m_screenQuad, m_program);

    // Neither glViewport nor glClearColor here: that the pass takes both as it finds them is meant.
    AutoBinder framebuffer(m_framebuffer);
    m_framebuffer->setDrawBuffers();
    glClear(GL_COLOR_BUFFER_BIT);
    if (geometry) {
        // The present model decides, while the buffers are those of the first one.
        const bool isIndexed = !geometry->indexBO().isNull();
        Texture *const indices = isIndexed ? m_bufferTextures.value(IndexBuffer) : nullptr;
        AutoDisabler depthTest(GL_DEPTH_TEST);
        AutoBinder program(m_program);
        AutoBinder headBinder(heads);
        AutoBinder nodeBinder(nodes);
        AutoBinder vertexBinder(m_bufferTextures[VertexBuffer]);
        AutoBinder texCoordBinder(m_bufferTextures[TexCoordBuffer]);
        AutoBinder normalBinder(m_bufferTextures[NormalBuffer]);
        if (indices)
            indices->bind();
        setIfPresent(m_program, "u_SamplerHeadPointer", unitOf(heads));
        setIfPresent(m_program, "u_SamplerNodeBuffer", unitOf(nodes));
        setIfPresent(m_program, "u_SamplerNodeBufferWidth", nodeWidth);
        setIfPresent(m_program, "u_VertexBuffer", m_bufferTextures[VertexBuffer]->unit());
        setIfPresent(m_program, "u_texCoordBuffer", m_bufferTextures[TexCoordBuffer]->unit());
        setIfPresent(m_program, "u_NormalBuffer", m_bufferTextures[NormalBuffer]->unit());
        if (indices)
            setIfPresent(m_program, "u_IndexBuffer", indices->unit());
        setIfPresent(m_program, "u_CameraMatrix", camera);
        setIfPresent(m_program, "u_ProjectionMatrix", projection);
        setIfPresent(m_program, "u_NormalMatrix", normalMatrix);
        setIfPresent(m_program, "u_InvProjMatrix", invProj);
        setIfPresent(m_program, "u_InvCameraMatrix", invCamera);
        setIfPresent(m_program, "u_indexedDraw", isIndexed);
        {
            AutoBinder quad(m_screenQuad);
            AutoBinder commands(geometry->getDrawElementsIndirectCommandsUniformBufferObject());
            AutoBinder materials(model->materialData(0));
            AutoBinder objects(model->objectData(0));
            TextureManager::Instance()->bindTextures(m_program);
            m_screenQuad->draw();
            if (indices)
                indices->unbind();
            TextureManager::Instance()->unbindTextures(m_program);
        }
    }
    publishTarget(m_outputs[Frame], m_framebuffer, GL_COLOR_ATTACHMENT0);
}

/// Lets shaders read the buffers of a model's vertices.
void VisibilityDeferredRenderPass::makeBufferTextures(const DrawBuffers *geometry)
{
    const auto append = [this](GLenum format, const QSharedPointer<BufferObject> &buffer) {
        auto *const texture = new Texture(nullptr);
        m_bufferTextures.append(texture);
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
