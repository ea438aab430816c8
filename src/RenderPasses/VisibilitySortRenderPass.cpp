// SPDX-License-Identifier: MIT
#include <RenderPasses/VisibilitySortRenderPass.h>

#include "steps/InputRead.h"
#include "steps/Replaced.h"
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

// Nothing uses insertionSort or the macros for packed pointers here: they are for programs that start from this text.
const QString sortSource = QStringLiteral(R"(#version 150
#extension GL_ARB_shader_atomic_counters : enable
#extension GL_ARB_shader_image_load_store : enable
#extension GL_ARB_shading_language_420pack : enable
#extension GL_ARB_shader_bit_encoding : enable

#define MAX_DEPTH 50u
// Allows sorting up to two to the power MAX_LEVELS elements.
#define MAX_LEVELS 16
#define COMPARE(x,y) (x>y)
// Pointers stay: the payloads move along the chain of nodes, which does not change.
#define COPY(x,y) { x.m_depth = y.m_depth; x.m_primitiveID = y.m_primitiveID; x.m_drawID = y.m_drawID; }

#define NEXT_NODE_PTR(node) (node.r % 65536u)
#define PREV_NODE_PTR(node) (node.r / 65536u)
#define NEXT_NODE(node) loadNode(NEXT_NODE_PTR(node))
#define PREV_NODE(node) loadNode(PREV_NODE_PTR(node))
#define NULL_NODE 0u
#define DEPTH(node) uintBitsToFloat(node.b)

uniform usampler2D u_SamplerHeadPointer;
layout(rgba32ui) uniform uimage2D u_NodeBufferImage;
uniform int u_NodeBufferImageWidth;

in vec2 vo_TexCoord;

struct Fragment
{
    uint m_primitiveID;
    uint m_drawID;
    float m_depth;
    uint m_pointer;
};

Fragment fragments[MAX_DEPTH];

ivec2 placeOf(uint pointer)
{
    int node = int(pointer - 1u);
    return ivec2(node % u_NodeBufferImageWidth, node / u_NodeBufferImageWidth);
}

uvec4 loadNode(uint pointer)
{
    return imageLoad(u_NodeBufferImage, placeOf(pointer));
}

void insertionSort(int l, int r)
{
    for (int i = l + 1; i <= r; ++i) {
        Fragment piv = fragments[i];
        int j = i;
        while (j > l) {
            if (!COMPARE(fragments[j - 1].m_depth, piv.m_depth))
                break;
            COPY(fragments[j], fragments[j - 1])
            --j;
        }
        COPY(fragments[j], piv)
    }
}

// The ranges that wait, and what is done to the one at hand.
const int NEXT_RANGE = 0;
const int SCAN_FROM_RIGHT = 1;
const int SCAN_FROM_LEFT = 2;

// Iterative quicksort, ascending, the first element of a range its pivot. The scans are states of one flat loop: nested
// loops over the array come out wrong on some drivers.
void quickSort(int l, int r)
{
    int beg[MAX_LEVELS];
    int end[MAX_LEVELS];
    int i = 0;
    int L = 0;
    int R = 0;
    int state = NEXT_RANGE;
    Fragment piv;
    beg[0] = 0;
    end[0] = r - l + 1;
    while (i >= 0) {
        if (state == NEXT_RANGE) {
            L = beg[i];
            R = end[i] - 1;
            if (L < R) {
                piv = fragments[l + L];
                state = SCAN_FROM_RIGHT;
            } else {
                --i;
            }
        } else if (state == SCAN_FROM_RIGHT) {
            if (L < R && COMPARE(fragments[l + R].m_depth, piv.m_depth)) {
                --R;
            } else {
                if (L < R) {
                    COPY(fragments[l + L], fragments[l + R])
                    ++L;
                }
                state = SCAN_FROM_LEFT;
            }
        } else if (L < R && COMPARE(piv.m_depth, fragments[l + L].m_depth)) {
            ++L;
        } else {
            if (L < R) {
                COPY(fragments[l + R], fragments[l + L])
                --R;
            }
            state = SCAN_FROM_RIGHT;
            if (L >= R) {
                COPY(fragments[l + L], piv)
                beg[i + 1] = L + 1;
                end[i + 1] = end[i];
                end[i] = L;
                ++i;
                // The smaller range first keeps the stack shallow.
                if (end[i] - beg[i] > end[i - 1] - beg[i - 1]) {
                    int swapped = beg[i];
                    beg[i] = beg[i - 1];
                    beg[i - 1] = swapped;
                    swapped = end[i];
                    end[i] = end[i - 1];
                    end[i - 1] = swapped;
                }
                state = NEXT_RANGE;
            }
        }
    }
}

uint process(uint headPointer)
{
    uint count = 0u;
    uint pointer = headPointer;
    while (pointer != 0u) {
        uvec4 node = loadNode(pointer);
        pointer = node.r;
        fragments[count].m_primitiveID = node.g;
        fragments[count].m_drawID = node.a;
        fragments[count].m_depth = uintBitsToFloat(node.b);
        fragments[count].m_pointer = pointer;
        ++count;
        if (count == MAX_DEPTH)
            break;
    }
    quickSort(0, int(count) - 1);
    pointer = headPointer;
    for (uint i = 0u; i < count; ++i) {
        Fragment fragment = fragments[i];
        uvec4 node = uvec4(fragment.m_pointer, fragment.m_primitiveID, floatBitsToUint(fragment.m_depth), fragment.m_drawID);
        imageStore(u_NodeBufferImage, placeOf(pointer), node);
        pointer = fragment.m_pointer;
    }
    return count;
}

void main()
{
    uint headPointer = texelFetch(u_SamplerHeadPointer, ivec2(gl_FragCoord.xy), 0).r;
    if (headPointer == 0u) {
        discard;
        return;
    }
    process(headPointer);
}
)");

} // namespace

VisibilitySortRenderPass::VisibilitySortRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_HeadPointers"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_NodeBuffer"), QVariant());
    addInput(QStringLiteral("Kvz_int_NodeBufferWidth"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_HeadPointers"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_NodeBuffer"));
    addOutput(QStringLiteral("Kvz_int_NodeBufferWidth"));
}

VisibilitySortRenderPass::~VisibilitySortRenderPass() = default;

void VisibilitySortRenderPass::start(RenderCallbacks *)
{
    if (!m_modeChosen) {
        m_modeChosen = true;
        m_useGL4 = supportsVisibilityLists();
    }
    m_outputs[HeadPointers] = m_inputs[HeadPointersIn];
    m_outputs[NodeBuffer] = m_inputs[NodeBufferIn];
    m_outputs[NodeBufferWidth] = m_inputs[NodeBufferWidthIn];
    if (!m_useGL4)
        return;

    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    auto *const heads = getInputPointer<Texture>(HeadPointersIn);
    auto *const nodes = getInputPointer<Texture>(NodeBufferIn);
    const int nodeWidth = m_inputs[NodeBufferWidthIn].value.toInt();
    if (!heads || !nodes || nodeWidth == 0)
        return;

    ensureFramebuffer(m_framebuffer);
    {
        // A framebuffer needs a target; nothing is written to this one.
        AutoBinder framebuffer(m_framebuffer.get());
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::HighDynamicRange, size);
        m_framebuffer->setDrawBuffers();
    }
    if (!m_program) {
        m_program = std::make_unique<ShaderProgram>(nullptr);
        m_program->addShader(GL_VERTEX_SHADER, screenQuadVertexSource, QString());
        m_program->addShader(GL_FRAGMENT_SHADER, sortSource, QString());
        m_program->compile();
        m_program->link();
    }
    ensureScreenQuad(m_screenQuad, *m_program);
    glEnable(GL_DEPTH_TEST);
    AutoBinder program(m_program.get());
    AutoBinder framebuffer(m_framebuffer.get());
    AutoBinder headBinder(heads);
    glBindImageTexture(nodeImageUnit, nodes->textureID(), 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI);
    setIfPresent(*m_program, QStringLiteral("u_NodeBufferImageWidth"), nodeWidth);
    setIfPresent(*m_program, QStringLiteral("u_SamplerHeadPointer"), heads->unit());
    setIfPresent(*m_program, QStringLiteral("u_NodeBufferImage"), int(nodeImageUnit));
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
    glBindImageTexture(nodeImageUnit, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI);
    glMemoryBarrier(GL_TEXTURE_FETCH_BARRIER_BIT);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

void VisibilitySortRenderPass::setShaderProgram(ShaderProgram *program)
{
    replaceUndeleted(m_program, program);
}

} // namespace Velmora::Kvz
