// SPDX-License-Identifier: MIT
#include <ExtraPasses/VisibilityOcclusionRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"
#include "steps/VisibilityLists.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

constexpr GLuint nodeImageUnit = 1;

// %1 is 1 for lists of several nodes, which are relinked, and 0 for one node a pixel, which is kept or not.
const QString fragmentSource = QStringLiteral(R"(#version 150
#include "ShaderBitEncoding.glslh"
#define LISTS %1
#if LISTS
#extension GL_ARB_shader_image_load_store : enable
#extension GL_ARB_shading_language_420pack : enable
#endif

uniform usampler2D u_SamplerHeadPointer;
uniform sampler2D u_SamplerDepth;
uniform int u_NodeBufferImageWidth;
#if LISTS
layout(rgba32ui) uniform uimage2D u_NodeBufferImage;
#else
uniform isampler2D u_SamplerNodeBuffer;
#endif
in vec2 vo_TexCoord;
out uvec4 out_HeadPointer;

ivec2 placeOf(uint pointer)
{
    int node = int(pointer - 1u);
    return ivec2(node % u_NodeBufferImageWidth, node / u_NodeBufferImageWidth);
}

void main()
{
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    float limit = texelFetch(u_SamplerDepth, pixel, 0).r;
    uint pointer = texelFetch(u_SamplerHeadPointer, pixel, 0).r;
    uint head = 0u;
#if LISTS
    // The last node that stays, where it lies, and whether it leads on to a node that does not.
    uvec4 last = uvec4(0u);
    uint lastPointer = 0u;
    bool isStale = false;
    while (pointer != 0u) {
        // A node outside of the image, for which there was no room, reads as zeros and ends the list.
        uvec4 node = imageLoad(u_NodeBufferImage, placeOf(pointer));
        if (node.g != 0u && uintBitsToFloat(node.b) < limit) {
            if (head == 0u)
                head = pointer;
            if (isStale) {
                last.r = pointer;
                imageStore(u_NodeBufferImage, placeOf(lastPointer), last);
                isStale = false;
            }
            last = node;
            lastPointer = pointer;
        } else {
            isStale = lastPointer != 0u;
        }
        pointer = node.r;
    }
    if (isStale) {
        last.r = 0u;
        imageStore(u_NodeBufferImage, placeOf(lastPointer), last);
    }
#else
    if (pointer != 0u && intBitsToFloat(texelFetch(u_SamplerNodeBuffer, placeOf(pointer), 0).b) < limit)
        head = pointer;
#endif
    out_HeadPointer = uvec4(head, 0u, 0u, 0u);
}
)");

} // namespace

VisibilityOcclusionRenderPass::VisibilityOcclusionRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_HeadPointers"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_NodeBuffer"), QVariant());
    addInput(QStringLiteral("Kvz_int_NodeBufferWidth"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_HeadPointers"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_NodeBuffer"));
    addOutput(QStringLiteral("Kvz_int_NodeBufferWidth"));
}

VisibilityOcclusionRenderPass::~VisibilityOcclusionRenderPass() = default;

void VisibilityOcclusionRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    auto *const heads = getInputPointer<Texture>(HeadPointersIn);
    auto *const nodes = getInputPointer<Texture>(NodeBufferIn);
    const int nodeWidth = m_inputs[NodeBufferWidthIn].value.toInt();
    auto *const depth = getInputPointer<Texture>(Depth);
    m_outputs[HeadPointers] = m_inputs[HeadPointersIn];
    m_outputs[NodeBuffer] = m_inputs[NodeBufferIn];
    m_outputs[NodeBufferWidth] = m_inputs[NodeBufferWidthIn];
    if (size.isEmpty() || !heads || !nodes || nodeWidth <= 0 || !depth)
        return;

    const bool hasLists = supportsVisibilityLists();
    ensureFramebuffer(m_framebuffer);
    if (!m_program) {
        m_program = buildProgram(
            {QStringLiteral("out_HeadPointer")}, screenQuadVertexSource, fragmentSource.arg(hasLists ? 1 : 0));
    }
    ensureScreenQuad(m_screenQuad, *m_program);
    AutoBinder framebuffer(m_framebuffer.get());
    if (size != m_size) {
        m_size = size;
        m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_R32UI, size, GL_RED_INTEGER, GL_UNSIGNED_INT);
    }
    m_framebuffer->setDrawBuffers();
    glViewport(0, 0, size.width(), size.height());
    glDisable(GL_DEPTH_TEST);
    {
        AutoBinder program(m_program.get());
        AutoBinder headBinder(heads);
        AutoBinder depthBinder(depth);
        AutoBinder nodeBinder(hasLists ? nullptr : nodes);
        m_program->setUniform(QStringLiteral("u_SamplerHeadPointer"), heads->unit());
        m_program->setUniform(QStringLiteral("u_SamplerDepth"), depth->unit());
        m_program->setUniform(QStringLiteral("u_NodeBufferImageWidth"), nodeWidth);
        if (hasLists) {
            // The barrier of the recording pass covers fetches alone. A chain issues this one too; other hosts need not know.
            glMemoryBarrier(GL_SHADER_IMAGE_ACCESS_BARRIER_BIT);
            glBindImageTexture(nodeImageUnit, nodes->textureID(), 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI);
            m_program->setUniform(QStringLiteral("u_NodeBufferImage"), int(nodeImageUnit));
        } else {
            m_program->setUniform(QStringLiteral("u_SamplerNodeBuffer"), nodes->unit());
        }
        {
            AutoBinder quad(m_screenQuad);
            m_screenQuad->draw();
        }
        if (hasLists) {
            glBindImageTexture(nodeImageUnit, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI);
            // The sort reads by images, the shading by fetches.
            glMemoryBarrier(GL_TEXTURE_FETCH_BARRIER_BIT | GL_SHADER_IMAGE_ACCESS_BARRIER_BIT);
        }
    }
    publishTarget(m_outputs[HeadPointers], *m_framebuffer, GL_COLOR_ATTACHMENT0);
}

} // namespace Velmora::Kvz
