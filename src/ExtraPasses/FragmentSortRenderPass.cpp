// SPDX-License-Identifier: MIT
#include <ExtraPasses/FragmentSortRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"
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

// Loops have their conditions at their ends: software rasterisers, which mask pixels out instead of branching, run loops that begin
// with theirs once more than they have to.
const QString sortSource = QStringLiteral(R"(#version 150
#extension GL_ARB_shader_image_load_store : enable
#extension GL_ARB_shading_language_420pack : enable
#define WINDOW 64
#define HALF 32

uniform usampler2D u_SamplerHeadPointer;
layout(rgba32ui) uniform uimage2D u_NodeBufferImage;
uniform int u_NodeBufferImageWidth;
in vec2 vo_TexCoord;

// Nodes that follow one another in a list, and their payloads in order.
uint nodes[WINDOW];
uvec3 payloads[WINDOW];

ivec2 placeOf(uint pointer)
{
    int node = int(pointer - 1u);
    return ivec2(node % u_NodeBufferImageWidth, node / u_NodeBufferImageWidth);
}

// A payload is the triangle, the bits of the depth, which are in the order of depths from 0 to 1, and the draw.
bool isBefore(uvec3 a, uvec3 b)
{
    return a.y < b.y || (a.y == b.y && (a.z < b.z || (a.z == b.z && a.x < b.x)));
}

void main()
{
    // A fetch outside of the texture is undefined.
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    uint head = 0u;
    if (all(lessThan(pixel, textureSize(u_SamplerHeadPointer, 0))))
        head = texelFetch(u_SamplerHeadPointer, pixel, 0).r;
    if (head == 0u) {
        discard;
        return;
    }
    // Windows of a longer list overlap by half, and sweeps over it end when one has moved nothing. The first sweep sorts by
    // insertion, which leaves each half of a window in order; later ones merge the two. Each leaves the deepest half window at the
    // end, so the next one has a window less. That also bounds the sweeps of helper invocations, whose writes have no effect.
    uint start = head;
    bool isFirstSweep = true;
    bool hasMoved = false;
    int windows = 0;
    int mostWindows = 0x7fffffff;
    do {
        uint pointer = start;
        int count = 0;
        bool isSorted = true;
        do {
            // A node outside of the image, for which there was no room, reads as zeros and ends the list.
            uvec4 node = imageLoad(u_NodeBufferImage, placeOf(pointer));
            if (node.g != 0u) {
                nodes[count] = pointer;
                int place = count;
                bool isMoving;
                do {
                    int before = max(place - 1, 0);
                    isMoving = isFirstSweep && place > 0 && isBefore(node.gba, payloads[before]);
                    payloads[place] = isMoving ? payloads[before] : node.gba;
                    place = isMoving ? before : place;
                } while (isMoving);
                isSorted = isSorted && place == count;
                ++count;
            }
            pointer = node.r;
        } while (pointer != 0u && count < WINDOW);
        if (!isFirstSweep)
            isSorted = count <= HALF || !isBefore(payloads[HALF], payloads[HALF - 1]);
        if (!isSorted) {
            int i = 0;
            int first = 0;
            int second = isFirstSweep ? count : HALF;
            int end = second;
            do {
                bool isSecond = second < count && (first == end || isBefore(payloads[second], payloads[first]));
                uint next = i + 1 < count ? nodes[i + 1] : pointer;
                imageStore(u_NodeBufferImage, placeOf(nodes[i]), uvec4(next, payloads[isSecond ? second : first]));
                first += isSecond ? 0 : 1;
                second += isSecond ? 1 : 0;
                ++i;
            } while (i < count);
        }
        hasMoved = hasMoved || !isSorted;
        ++windows;
        bool isAtEnd = pointer == 0u || windows == mostWindows;
        mostWindows = isAtEnd ? windows - 1 : mostWindows;
        bool isDone = isAtEnd && (mostWindows == 0 || !hasMoved);
        start = isDone ? 0u : isAtEnd ? head : nodes[HALF];
        windows = isAtEnd ? 0 : windows;
        isFirstSweep = isFirstSweep && !isAtEnd;
        hasMoved = hasMoved && !isAtEnd;
    } while (start != 0u);
}
)");

} // namespace

FragmentSortRenderPass::FragmentSortRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_HeadPointers"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_NodeBuffer"), QVariant());
    addInput(QStringLiteral("Kvz_int_NodeBufferWidth"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_HeadPointers"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_NodeBuffer"));
    addOutput(QStringLiteral("Kvz_int_NodeBufferWidth"));
}

FragmentSortRenderPass::~FragmentSortRenderPass() = default;

void FragmentSortRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    auto *const heads = getInputPointer<Texture>(HeadPointersIn);
    auto *const nodes = getInputPointer<Texture>(NodeBufferIn);
    const int nodeWidth = inputValue<int>(m_inputs[NodeBufferWidthIn]);
    m_outputs[HeadPointers] = m_inputs[HeadPointersIn];
    m_outputs[NodeBuffer] = m_inputs[NodeBufferIn];
    m_outputs[NodeBufferWidth] = m_inputs[NodeBufferWidthIn];
    if (size.isEmpty() || !heads || !nodes || nodeWidth <= 0)
        return;
    if (!m_hasLists)
        m_hasLists = supportsVisibilityLists();
    if (!*m_hasLists)
        return;

    ensureFramebuffer(m_framebuffer);
    if (!m_program)
        m_program = buildProgram({}, screenQuadVertexSource, sortSource);
    ensureScreenQuad(m_screenQuad, *m_program);

    // A framebuffer needs a target; nothing is written to this one.
    AutoBinder framebuffer(m_framebuffer.get());
    attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::LowDynamicRange, size);
    m_framebuffer->setDrawBuffers();
    glViewport(0, 0, size.width(), size.height());
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    {
        AutoBinder program(m_program.get());
        AutoBinder headBinder(heads);
        m_program->setUniform(QStringLiteral("u_SamplerHeadPointer"), heads->unit());
        m_program->setUniform(QStringLiteral("u_NodeBufferImage"), int(nodeImageUnit));
        m_program->setUniform(QStringLiteral("u_NodeBufferImageWidth"), nodeWidth);
        glBindImageTexture(nodeImageUnit, nodes->textureID(), 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI);
        // The lists may come from a pass whose barrier covers fetches alone.
        glMemoryBarrier(GL_SHADER_IMAGE_ACCESS_BARRIER_BIT);
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
        glBindImageTexture(nodeImageUnit, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI);
        glMemoryBarrier(GL_TEXTURE_FETCH_BARRIER_BIT | GL_SHADER_IMAGE_ACCESS_BARRIER_BIT);
    }
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

} // namespace Velmora::Kvz
