// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSize>
#include <QtGui/QColor>

namespace Velmora::Kvz {

/// Sets the state that every pass of a chain starts from, which RenderChain documents. Needs a current context.
void applyBaselineState(const QSize &viewport, const QColor &clearColor);

/// The GL state that a chain disturbs: what the baseline sets, stencil functions, scissor box and bindings.
class SavedGLState
{
public:
    /// Reads the state of the current context.
    SavedGLState();
    void restore() const;

private:
    struct StencilFace
    {
        int func, ref, valueMask, writeMask, fail, depthFail, depthPass;
    };

    static constexpr int capabilityCount = 7;
    unsigned char m_enabled[capabilityCount];
    int m_viewport[4];
    int m_scissorBox[4];
    unsigned char m_colorMask[4];
    unsigned char m_depthMask;
    int m_depthFunc;
    StencilFace m_stencil[2];
    int m_blendEquation[2];
    int m_blendFunction[4];
    float m_blendColor[4];
    int m_cullFace;
    int m_frontFace;
    int m_polygonMode[2];
    float m_clearColor[4];
    float m_clearDepth;
    int m_clearStencil;
    int m_unpackAlignment;
    int m_unpackBuffer;
    int m_readFramebuffer;
    int m_drawFramebuffer;
    int m_program;
    int m_vertexArray;
    int m_arrayBuffer;
    int m_activeTexture;
};

} // namespace Velmora::Kvz
