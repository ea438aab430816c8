// SPDX-License-Identifier: MIT
#include <ExtraPasses/FragmentListRenderPass.h>

#include "FragmentCounter.h"
#include "SurfaceProgram.h"
#include "steps/InputRead.h"
#include "steps/ModelProgram.h"
#include "steps/TargetFramebuffer.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"
#include "steps/VisibilityLists.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>

#include <QtGui/QMatrix4x4>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

constexpr GLuint headImageUnit = 0;
constexpr GLuint nodeImageUnit = 1;

/// Nodes in a row of their image, and the most rows, if the driver's textures can have so many.
constexpr int nodeWidth = 2048;
constexpr int mostRows = 16384;

/// Nodes for each pixel before anything was counted.
constexpr qint64 firstLayers = 2;

/// `bool isHidden()`: whether the fragment lies at or behind an opaque surface.
const QString hiddenSource = QStringLiteral(R"(
uniform bool u_HasDepth;
uniform sampler2D u_Depth;
flat in uint vo_DrawNumber;

bool isHidden()
{
    return u_HasDepth && gl_FragCoord.z >= texelFetch(u_Depth, ivec2(gl_FragCoord.xy), 0).r;
}
)");

// A fragment beyond the room is counted all the same. Its pixel keeps the list that it has.
const QString listSource = QStringLiteral(R"(#version 150
#extension GL_ARB_shader_atomic_counters : enable
#extension GL_ARB_shader_image_load_store : enable
#extension GL_ARB_shading_language_420pack : enable
#include "ShaderBitEncoding.glslh"
layout(binding = 0, offset = 0) uniform atomic_uint u_FragmentCount;
layout(r32ui) uniform uimage2D u_HeadPointerImage;
layout(rgba32ui) writeonly uniform uimage2D u_NodeBufferImage;
uniform int u_NodeBufferImageWidth;
uniform uint u_NodeCount;
)") + hiddenSource
    + QStringLiteral(R"(
void main()
{
    if (isHidden())
        return;
    uint number = atomicCounterIncrement(u_FragmentCount);
    if (number >= u_NodeCount)
        return;
    uint next = imageAtomicExchange(u_HeadPointerImage, ivec2(gl_FragCoord.xy), number + 1u);
    ivec2 place = ivec2(int(number) % u_NodeBufferImageWidth, int(number) / u_NodeBufferImageWidth);
    imageStore(u_NodeBufferImage, place, uvec4(next, uint(gl_PrimitiveID + 1), floatBitsToUint(gl_FragCoord.z), vo_DrawNumber));
}
)");

const QString nearestSource = QStringLiteral(R"(#version 150
#include "ShaderBitEncoding.glslh"
uniform int u_NodeBufferImageWidth;
out uvec4 out_HeadPointer;
out ivec4 out_NodeBuffer;
)") + hiddenSource
    + QStringLiteral(R"(
void main()
{
    if (isHidden())
        discard;
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    out_HeadPointer = uvec4(uint(pixel.x + pixel.y * u_NodeBufferImageWidth + 1), 0u, 0u, 0u);
    out_NodeBuffer = ivec4(0, gl_PrimitiveID + 1, floatBitsToInt(gl_FragCoord.z), int(vo_DrawNumber));
}
)");

std::unique_ptr<ShaderProgram> buildListProgram(bool hasLists)
{
    GLSLMacroProcessor macros;
    addDrawNumberMacros(macros);
    auto program = std::make_unique<ShaderProgram>(nullptr);
    program->setMacroProcessor(&macros);
    if (!hasLists)
        program->setFragDataLocations({QStringLiteral("out_HeadPointer"), QStringLiteral("out_NodeBuffer")});
    addModelVertexStage(*program, modelPlaceVertexSource);
    program->addShader(GL_FRAGMENT_SHADER, hasLists ? listSource : nearestSource, QString());
    program->compile();
    program->link();
    program->setMacroProcessor(nullptr);
    return program;
}

void clearIntegers(int drawBuffer)
{
    const GLuint nothing[] = {0, 0, 0, 0};
    glClearBufferuiv(GL_COLOR, drawBuffer, nothing);
}

} // namespace

FragmentListRenderPass::FragmentListRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_HeadPointers"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_NodeBuffer"));
    addOutput(QStringLiteral("Kvz_int_NodeBufferWidth"));
}

FragmentListRenderPass::~FragmentListRenderPass()
{
    settleCounts();
}

void FragmentListRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);
    auto *const depth = getInputPointer<Texture>(Depth);
    if (size.isEmpty() || !model || model->isDrawEmpty(GPUModel::Transparent, GPUModel::Transparent)) {
        rest();
        giveBack(depth);
        return;
    }
    if (!m_program)
        prepare();
    if (size != m_size) {
        settleCounts();
        m_size = size;
        m_counted = -1;
        m_nodeRows = 0;
        m_heads.reset();
    }
    ensureFramebuffer(m_heads);
    if (m_hasLists) {
        while (const auto count = m_counter->take())
            learn(count->fragments, count->room);
        ensureRoom();
        recordLists(*model, depth);
        if (m_counted < 0)
            recordAgainIfShort(*model, depth);
        publishTarget(m_outputs[HeadPointers], *m_heads, GL_COLOR_ATTACHMENT0);
        publishTarget(m_outputs[NodeBuffer], *m_nodes, GL_COLOR_ATTACHMENT0);
        m_outputs[NodeBufferWidth].value = nodeWidth;
    } else {
        recordNearest(*model, depth);
        publishTarget(m_outputs[HeadPointers], *m_heads, GL_COLOR_ATTACHMENT0);
        publishTarget(m_outputs[NodeBuffer], *m_heads, GL_COLOR_ATTACHMENT1);
        m_outputs[NodeBufferWidth].value = m_size.width();
    }
    giveBack(depth);
}

/// There is nothing to record.
void FragmentListRenderPass::rest()
{
    m_outputs[HeadPointers].value = QVariant::fromValue<Texture *>(nullptr);
    m_outputs[NodeBuffer].value = QVariant::fromValue<Texture *>(nullptr);
    m_outputs[NodeBufferWidth].value = 0;
}

void FragmentListRenderPass::prepare()
{
    m_hasLists = supportsVisibilityLists();
    m_program = buildListProgram(m_hasLists);
    m_counter = std::make_unique<FragmentCounter>();
    GLint side = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &side);
    m_mostRows = std::min(side, mostRows);
}

/// Waits for the counts that are under way, so that none of them goes untold.
void FragmentListRenderPass::settleCounts()
{
    while (const auto count = m_counter ? m_counter->wait() : std::nullopt)
        learn(count->fragments, count->room);
}

/// Takes what a frame counted, and tells when it had too little room: once, until a frame has enough.
void FragmentListRenderPass::learn(qint64 fragments, qint64 room)
{
    m_counted = fragments;
    const bool wasShort = m_isShort;
    m_isShort = fragments > room;
    if (!m_isShort || wasShort)
        return;
    const bool isTooMuch = fragments > qint64(m_mostRows) * nodeWidth;
    KVZ_WARNING(
        QStringLiteral("A frame had %1 transparent fragments and room for %2: the others are missing from it; %3")
            .arg(fragments)
            .arg(room)
            .arg(isTooMuch ? QStringLiteral("select fewer items or make the viewport smaller")
                           : QStringLiteral("draw it again")));
}

/// Waits for the count of the frame just recorded, the first of its size, and gives it the room that it needs.
void FragmentListRenderPass::recordAgainIfShort(GPUModel &model, Texture *depth)
{
    const auto count = m_counter->wait();
    m_counted = count ? count->fragments : 0;
    if (m_counted <= room())
        return;
    ensureRoom();
    learn(m_counted, room()); // What even the largest image has no room for.
    recordLists(model, depth);
}

qint64 FragmentListRenderPass::room() const
{
    return qint64(m_nodeRows) * nodeWidth;
}

/// Makes the image of the nodes as large as the counted fragments ask for.
void FragmentListRenderPass::ensureRoom()
{
    const qint64 wanted = std::max(firstLayers * m_size.width() * m_size.height(), m_counted + m_counted / 4);
    if (m_nodeRows > 0 && wanted <= room())
        return;
    // Half as much again, so that lists that grow slowly do not get an image in each frame.
    const qint64 nodes = m_nodeRows > 0 ? wanted + wanted / 2 : wanted;
    const int rows = int(std::min((nodes + nodeWidth - 1) / nodeWidth, qint64(m_mostRows)));
    if (rows == m_nodeRows)
        return;
    m_nodeRows = rows;
    ensureFramebuffer(m_nodes);
    AutoBinder framebuffer(m_nodes.get());
    m_nodes->remakeTarget(
        GL_COLOR_ATTACHMENT0, GL_RGBA32UI, QSize(nodeWidth, m_nodeRows), GL_RGBA_INTEGER, GL_UNSIGNED_INT);
}

/// Records all fragments by image writes. Nodes of earlier frames stay where they are, since no list leads to them.
void FragmentListRenderPass::recordLists(GPUModel &model, Texture *depth)
{
    {
        AutoBinder framebuffer(m_heads.get());
        if (!m_heads->hasAttachment(GL_COLOR_ATTACHMENT0))
            m_heads->remakeTarget(GL_COLOR_ATTACHMENT0, GL_R32UI, m_size, GL_RED_INTEGER, GL_UNSIGNED_INT);
        m_heads->setDrawBuffers();
        glDisable(GL_SCISSOR_TEST);
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
        clearIntegers(0);
    }
    // A framebuffer needs a target. Writes to it are off, lest a rasteriser takes draws that fill a tile for reason to leave out
    // those before, and what they record.
    ensureFramebuffer(m_framebuffer);
    AutoBinder framebuffer(m_framebuffer.get());
    attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::LowDynamicRange, m_size);
    m_framebuffer->setDrawBuffers();
    glViewport(0, 0, m_size.width(), m_size.height());
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    m_counter->restart();
    const GLuint heads = m_heads->attachment(GL_COLOR_ATTACHMENT0)->textureID();
    const GLuint nodes = m_nodes->attachment(GL_COLOR_ATTACHMENT0)->textureID();
    glBindImageTexture(headImageUnit, heads, 0, GL_FALSE, 0, GL_READ_WRITE, GL_R32UI);
    glBindImageTexture(nodeImageUnit, nodes, 0, GL_FALSE, 0, GL_WRITE_ONLY, GL_RGBA32UI);
    // What the last frame read of the nodes comes before they are written again.
    glMemoryBarrier(GL_SHADER_IMAGE_ACCESS_BARRIER_BIT);
    draw(model, depth);
    glBindImageTexture(headImageUnit, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_R32UI);
    glBindImageTexture(nodeImageUnit, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI);
    // The sort reads by images, the shading by fetches, and the next frame clears.
    glMemoryBarrier(GL_TEXTURE_FETCH_BARRIER_BIT | GL_SHADER_IMAGE_ACCESS_BARRIER_BIT | GL_FRAMEBUFFER_BARRIER_BIT);
    m_counter->copy(room());
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

/// Records the nearest fragment of each pixel by colour targets.
void FragmentListRenderPass::recordNearest(GPUModel &model, Texture *depth)
{
    AutoBinder framebuffer(m_heads.get());
    if (!m_heads->hasAttachment(GL_COLOR_ATTACHMENT0)) {
        m_heads->remakeTarget(GL_COLOR_ATTACHMENT0, GL_R32UI, m_size, GL_RED_INTEGER, GL_UNSIGNED_INT);
        m_heads->remakeTarget(GL_COLOR_ATTACHMENT1, GL_RGBA32I, m_size, GL_RGBA_INTEGER, GL_INT);
        m_heads->remakeDepthTarget(m_size);
    }
    m_heads->setDrawBuffers();
    glViewport(0, 0, m_size.width(), m_size.height());
    glDisable(GL_SCISSOR_TEST);
    glDisable(GL_BLEND);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    glDepthFunc(GL_LESS);
    glClearDepth(1);
    glClear(GL_DEPTH_BUFFER_BIT);
    clearIntegers(0); // Nodes without a head are not read.
    glEnable(GL_DEPTH_TEST);
    draw(model, depth);
    glDisable(GL_DEPTH_TEST);
}

void FragmentListRenderPass::draw(GPUModel &model, Texture *depth)
{
    AutoBinder program(m_program.get());
    AutoBinder depthBinder(depth);
    m_program->setUniform(QStringLiteral("u_ProjectionMatrix"), inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]));
    m_program->setUniform(QStringLiteral("u_CameraMatrix"), inputValue<QMatrix4x4>(m_inputs[CameraMatrix]));
    m_program->setUniform(QStringLiteral("u_HasDepth"), depth != nullptr);
    setSampler(*m_program, QStringLiteral("u_Depth"), depth);
    m_program->setUniform(QStringLiteral("u_NodeBufferImageWidth"), m_hasLists ? nodeWidth : m_size.width());
    if (m_hasLists) {
        m_program->setUniform(QStringLiteral("u_NodeCount"), unsigned(room()));
        m_program->setUniform(QStringLiteral("u_HeadPointerImage"), int(headImageUnit));
        m_program->setUniform(QStringLiteral("u_NodeBufferImage"), int(nodeImageUnit));
    }
    model.draw(m_program.get(), GPUModel::Transparent, GPUModel::Transparent, WindingCounterClockwise, false);
}

} // namespace Velmora::Kvz
