// SPDX-License-Identifier: MIT
#include <RenderPasses/VisibilityBufferRenderPass.h>

#include "steps/GeometryTargets.h"
#include "steps/InputRead.h"
#include "steps/ModelProgram.h"
#include "steps/TargetFramebuffer.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"
#include "steps/VisibilityLists.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>
#include <GL/FramebufferObject.h>
#include <GL/InternalFormat.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

/// Nodes in a row of the pool, and number of rows.
constexpr int poolSide = 4096;

constexpr GLuint headImageUnit = 0;
constexpr GLuint nodeImageUnit = 1;
constexpr GLsizeiptr counterSize = 4;

const QString vertexSource = QStringLiteral(R"(#version 150
#instancedata "InstanceInfo"
uniform mat4 u_CameraMatrix;
uniform mat4 u_ProjectionMatrix;
uniform uint u_DrawID;
in vec3 va_Vertex;

void main()
{
    gl_Position = u_ProjectionMatrix * u_CameraMatrix * getModelMatrix() * vec4(va_Vertex, 1.0);
}
)");

// The pointer to the next node is written after the exchange; nothing reads it before the barrier.
const QString fragmentSource = QStringLiteral(R"(#version 150
#include "ShaderBitEncoding.glslh"
#define KVZ_GL_3_2 %1
#if defined(GL_ARB_shader_atomic_counters) && defined(GL_ARB_shader_image_load_store) && defined(GL_ARB_shading_language_420pack) && (KVZ_GL_3_2 == 0)
#define KVZ_GL_4_2 1
#extension GL_ARB_shader_atomic_counters : enable
#extension GL_ARB_shader_image_load_store : enable
#extension GL_ARB_shading_language_420pack : enable
#else
#define KVZ_GL_4_2 0
#endif

uniform int u_NodeBufferImageWidth;
uniform uint u_DrawID;

#if KVZ_GL_4_2
layout(binding = 0, offset = 0) uniform atomic_uint u_HeadCounter;
layout(r32ui) uniform uimage2D u_HeadPointerImage;
layout(rgba32ui) uniform uimage2D u_NodeBufferImage;

void main()
{
    uint Count = atomicCounterIncrement(u_HeadCounter);
    uint PreviousHead = imageAtomicExchange(u_HeadPointerImage, ivec2(gl_FragCoord.xy), Count + 1u);
    ivec2 place = ivec2(int(Count) % u_NodeBufferImageWidth, int(Count) / u_NodeBufferImageWidth);
    uvec4 node = uvec4(PreviousHead, uint(gl_PrimitiveID + 1), floatBitsToUint(gl_FragCoord.z), u_DrawID);
    imageStore(u_NodeBufferImage, place, node);
}
#else
out uvec4 out_HeadPointer;
out uvec4 out_NodeBuffer;

void main()
{
    ivec2 FragCoord = ivec2(gl_FragCoord.xy);
    out_HeadPointer = uvec4(uint(FragCoord.x + FragCoord.y * u_NodeBufferImageWidth + 1), 0u, 0u, 0u);
    out_NodeBuffer = uvec4(0u, uint(gl_PrimitiveID + 1), floatBitsToUint(gl_FragCoord.z), 0u);
}
#endif
)");

/// Replaces the target at an attachment of a bound framebuffer by one of integers.
void remakeIntegerTarget(TargetFramebuffer &framebuffer, unsigned int attachment, int internalFormat, const QSize &size)
{
    const auto format = GLenum(internalFormat);
    framebuffer.remakeTarget(
        attachment, internalFormat, size, formatFromInternalFormat(format), typeFromInternalFormat(format));
}

/// Masks writes to the first colour target for a scope. The list program writes no colour, but tile-based rasterisers assume
/// that an opaque draw that fills a tile hides all draws before it, and skip those together with the nodes they would record.
class ColorWritesOff
{
public:
    explicit ColorWritesOff(bool isWanted)
        : m_isWanted(isWanted)
    {
        if (!m_isWanted)
            return;
        glGetBooleani_v(GL_COLOR_WRITEMASK, 0, m_found);
        glColorMaski(0, GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    }
    ~ColorWritesOff()
    {
        if (m_isWanted)
            glColorMaski(0, m_found[0], m_found[1], m_found[2], m_found[3]);
    }

private:
    Q_DISABLE_COPY(ColorWritesOff)

    bool m_isWanted;
    GLboolean m_found[4] = {};
};

void clearTarget(FramebufferObject &framebuffer)
{
    AutoBinder binder(&framebuffer);
    framebuffer.setDrawBuffers();
    glClear(GL_COLOR_BUFFER_BIT);
}

} // namespace

VisibilityBufferRenderPass::VisibilityBufferRenderPass(
    unsigned long long drawFlagsValue, unsigned long long drawFlagsMask)
    : m_drawFlagsMask(drawFlagsMask),
      m_drawFlagsValue(drawFlagsValue)
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_HeadPointers"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_NodeBuffer"));
    addOutput(QStringLiteral("Kvz_int_NodeBufferWidth"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Depth"));
}

VisibilityBufferRenderPass::~VisibilityBufferRenderPass() = default;

void VisibilityBufferRenderPass::start(RenderCallbacks *)
{
    if (!m_modeChosen)
        chooseMode();
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const int nodeWidth = m_useGL4 ? poolSide : size.width();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);

    if (m_useGL4) {
        ensureFramebuffer(m_headFramebuffer);
        ensureFramebuffer(m_nodeFramebuffer);
    }
    ensureFramebuffer(m_framebuffer);
    if (m_useGL4) {
        // A framebuffer needs a target; nothing is written to this one.
        AutoBinder framebuffer(m_framebuffer.get());
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::HighDynamicRange, size);
    }
    if (size != m_size)
        remakeSizedTextures(size);
    if (m_useGL4 && !m_nodeFramebuffer->hasAttachment(GL_COLOR_ATTACHMENT0)) {
        AutoBinder framebuffer(m_nodeFramebuffer.get());
        remakeIntegerTarget(*m_nodeFramebuffer, GL_COLOR_ATTACHMENT0, GL_RGBA32UI, QSize(poolSide, poolSide));
    }
    if (!m_program)
        m_program = buildListProgram();
    if (m_useGL4)
        clearLists();

    {
        // Intentional: no glViewport here. The pass draws with the viewport that it finds.
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->setDrawBuffers();
        if (!m_useGL4) {
            glClearColor(0, 0, 0, 0);
            glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        }
        if (model) {
            // Without a depth attachment all fragments pass the test, and all layers reach their lists.
            glEnable(GL_DEPTH_TEST);
            AutoBinder program(m_program.get());
            if (m_useGL4)
                bindLists();
            m_program->setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
            m_program->setUniform(QStringLiteral("u_CameraMatrix"), camera);
            setIfPresent(*m_program, QStringLiteral("u_NodeBufferImageWidth"), nodeWidth);
            if (m_useGL4) {
                m_program->setUniform(QStringLiteral("u_HeadPointerImage"), int(headImageUnit));
                m_program->setUniform(QStringLiteral("u_NodeBufferImage"), int(nodeImageUnit));
            }
            {
                ColorWritesOff colorWrites(m_useGL4);
                model->draw(m_program.get(), m_drawFlagsValue, m_drawFlagsMask, WindingCounterClockwise, false);
            }
            if (m_useGL4)
                unbindLists();
        }
        if (m_useGL4) {
            publishTarget(m_outputs[HeadPointers], *m_headFramebuffer, GL_COLOR_ATTACHMENT0);
            publishTarget(m_outputs[NodeBuffer], *m_nodeFramebuffer, GL_COLOR_ATTACHMENT0);
            detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
        } else {
            publishTarget(m_outputs[HeadPointers], *m_framebuffer, GL_COLOR_ATTACHMENT0);
            publishTarget(m_outputs[NodeBuffer], *m_framebuffer, GL_COLOR_ATTACHMENT1);
        }
        m_outputs[NodeBufferWidth].value = nodeWidth;
    }
}

void VisibilityBufferRenderPass::chooseMode()
{
    m_modeChosen = true;
    m_useGL4 = supportsVisibilityLists();
    if (m_useGL4) {
        KVZ_DEBUG(QStringLiteral("Using GL4 mode"));
        return;
    }
    KVZ_DEBUG(QStringLiteral("Using non-GL4 mode"));
    m_fboConfigs.append({QStringLiteral("out_HeadPointer"), GL_R32UI});
    // Intentional: signed, unlike what writes it and unlike the nodes of the other mode.
    m_fboConfigs.append({QStringLiteral("out_NodeBuffer"), GL_RGBA32I});
}

void VisibilityBufferRenderPass::remakeSizedTextures(const QSize &size)
{
    if (m_useGL4) {
        AutoBinder framebuffer(m_headFramebuffer.get());
        remakeIntegerTarget(*m_headFramebuffer, GL_COLOR_ATTACHMENT0, GL_R32UI, size);
    } else {
        AutoBinder framebuffer(m_framebuffer.get());
        unsigned int attachment = GL_COLOR_ATTACHMENT0;
        for (const FBOConfig &config : qAsConst(m_fboConfigs))
            remakeIntegerTarget(*m_framebuffer, attachment++, config.internalFormat, size);
        m_framebuffer->remakeDepthTarget(size);
    }
    m_size = size;
}

/// Empties all lists: the counter, the heads, and all nodes, even those that the last frame did not use.
void VisibilityBufferRenderPass::clearLists()
{
    if (!m_counterBuffer) {
        m_counterBuffer = OpenGLDeviceContext::current()->createBufferObject();
        m_counterBuffer->setIndexedTarget(GL_ATOMIC_COUNTER_BUFFER, 0, 0, counterSize);
        AutoBinder counter(m_counterBuffer);
        glBufferData(GL_ATOMIC_COUNTER_BUFFER, counterSize, nullptr, GL_DYNAMIC_DRAW);
    }
    glClearColor(0, 0, 0, 0);
    {
        const GLuint zero = 0;
        AutoBinder counter(m_counterBuffer);
        glBufferSubData(GL_ATOMIC_COUNTER_BUFFER, 0, counterSize, &zero);
    }
    clearTarget(*m_headFramebuffer);
    clearTarget(*m_nodeFramebuffer);
}

void VisibilityBufferRenderPass::bindLists()
{
    glBindBufferRange(GL_ATOMIC_COUNTER_BUFFER, 0, m_counterBuffer->getBO(), 0, counterSize);
    // Write-only on purpose, although the shader's exchange also reads the heads.
    const GLuint heads = m_headFramebuffer->attachment(GL_COLOR_ATTACHMENT0)->textureID();
    const GLuint nodes = m_nodeFramebuffer->attachment(GL_COLOR_ATTACHMENT0)->textureID();
    glBindImageTexture(headImageUnit, heads, 0, GL_FALSE, 0, GL_WRITE_ONLY, GL_R32UI);
    glBindImageTexture(nodeImageUnit, nodes, 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI);
}

void VisibilityBufferRenderPass::unbindLists()
{
    glBindImageTexture(headImageUnit, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_R32UI);
    glBindImageTexture(nodeImageUnit, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI);
    glMemoryBarrier(GL_TEXTURE_FETCH_BARRIER_BIT);
}

std::unique_ptr<ShaderProgram> VisibilityBufferRenderPass::buildListProgram() const
{
    auto program = std::make_unique<ShaderProgram>(nullptr);
    program->setFragDataLocations(outputNames(m_fboConfigs));
    addModelVertexStage(*program, vertexSource);
    program->addShader(GL_FRAGMENT_SHADER, fragmentSource.arg(m_useGL4 ? 0 : 1), QString());
    program->compile();
    program->link();
    return program;
}

} // namespace Velmora::Kvz
