// SPDX-License-Identifier: MIT
#include <Host/GLState.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

/// All off in the baseline.
const GLenum capabilities[] = {
    GL_DEPTH_TEST, GL_STENCIL_TEST, GL_BLEND, GL_CULL_FACE, GL_SCISSOR_TEST, GL_DEPTH_CLAMP, GL_FRAMEBUFFER_SRGB};

int integer(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

} // namespace

void applyBaselineState(const QSize &viewport, const QColor &clearColor)
{
    glViewport(0, 0, viewport.width(), viewport.height());
    for (GLenum capability : capabilities)
        glDisable(capability);
    glDepthMask(GL_TRUE);
    glStencilMask(~0u);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthFunc(GL_LESS);
    glBlendEquation(GL_FUNC_ADD);
    glBlendFunc(GL_ONE, GL_ZERO);
    glCullFace(GL_BACK);
    glFrontFace(GL_CCW);
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    glClearColor(
        float(clearColor.redF()), float(clearColor.greenF()), float(clearColor.blueF()), float(clearColor.alphaF()));
    glClearDepth(1);
    glClearStencil(0);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
}

SavedGLState::SavedGLState()
{
    static_assert(sizeof capabilities / sizeof *capabilities == capabilityCount, "one flag for each capability");
    for (int i = 0; i < capabilityCount; ++i)
        m_enabled[i] = glIsEnabled(capabilities[i]);
    glGetIntegerv(GL_VIEWPORT, m_viewport);
    glGetIntegerv(GL_SCISSOR_BOX, m_scissorBox);
    glGetBooleanv(GL_COLOR_WRITEMASK, m_colorMask);
    glGetBooleanv(GL_DEPTH_WRITEMASK, &m_depthMask);
    m_depthFunc = integer(GL_DEPTH_FUNC);
    m_stencil[0] = {integer(GL_STENCIL_FUNC), integer(GL_STENCIL_REF), integer(GL_STENCIL_VALUE_MASK),
        integer(GL_STENCIL_WRITEMASK), integer(GL_STENCIL_FAIL), integer(GL_STENCIL_PASS_DEPTH_FAIL),
        integer(GL_STENCIL_PASS_DEPTH_PASS)};
    m_stencil[1] = {integer(GL_STENCIL_BACK_FUNC), integer(GL_STENCIL_BACK_REF), integer(GL_STENCIL_BACK_VALUE_MASK),
        integer(GL_STENCIL_BACK_WRITEMASK), integer(GL_STENCIL_BACK_FAIL), integer(GL_STENCIL_BACK_PASS_DEPTH_FAIL),
        integer(GL_STENCIL_BACK_PASS_DEPTH_PASS)};
    m_blendEquation[0] = integer(GL_BLEND_EQUATION_RGB);
    m_blendEquation[1] = integer(GL_BLEND_EQUATION_ALPHA);
    m_blendFunction[0] = integer(GL_BLEND_SRC_RGB);
    m_blendFunction[1] = integer(GL_BLEND_DST_RGB);
    m_blendFunction[2] = integer(GL_BLEND_SRC_ALPHA);
    m_blendFunction[3] = integer(GL_BLEND_DST_ALPHA);
    glGetFloatv(GL_BLEND_COLOR, m_blendColor);
    m_cullFace = integer(GL_CULL_FACE_MODE);
    m_frontFace = integer(GL_FRONT_FACE);
    m_polygonMode[0] = GL_FILL; // A core context reports one mode or two; both faces share it.
    glGetIntegerv(GL_POLYGON_MODE, m_polygonMode);
    glGetFloatv(GL_COLOR_CLEAR_VALUE, m_clearColor);
    glGetFloatv(GL_DEPTH_CLEAR_VALUE, &m_clearDepth);
    m_clearStencil = integer(GL_STENCIL_CLEAR_VALUE);
    m_unpackAlignment = integer(GL_UNPACK_ALIGNMENT);
    m_unpackBuffer = integer(GL_PIXEL_UNPACK_BUFFER_BINDING);
    m_readFramebuffer = integer(GL_READ_FRAMEBUFFER_BINDING);
    m_drawFramebuffer = integer(GL_DRAW_FRAMEBUFFER_BINDING);
    m_program = integer(GL_CURRENT_PROGRAM);
    m_vertexArray = integer(GL_VERTEX_ARRAY_BINDING);
    m_arrayBuffer = integer(GL_ARRAY_BUFFER_BINDING);
    m_activeTexture = integer(GL_ACTIVE_TEXTURE);
}

void SavedGLState::restore() const
{
    for (int i = 0; i < capabilityCount; ++i)
        (m_enabled[i] ? glEnable : glDisable)(capabilities[i]);
    glViewport(m_viewport[0], m_viewport[1], m_viewport[2], m_viewport[3]);
    glScissor(m_scissorBox[0], m_scissorBox[1], m_scissorBox[2], m_scissorBox[3]);
    glColorMask(m_colorMask[0], m_colorMask[1], m_colorMask[2], m_colorMask[3]);
    glDepthMask(m_depthMask);
    glDepthFunc(GLenum(m_depthFunc));
    for (int i = 0; i < 2; ++i) {
        const GLenum face = i == 0 ? GL_FRONT : GL_BACK;
        const StencilFace &stencil = m_stencil[i];
        glStencilFuncSeparate(face, GLenum(stencil.func), stencil.ref, GLuint(stencil.valueMask));
        glStencilMaskSeparate(face, GLuint(stencil.writeMask));
        glStencilOpSeparate(face, GLenum(stencil.fail), GLenum(stencil.depthFail), GLenum(stencil.depthPass));
    }
    glBlendEquationSeparate(GLenum(m_blendEquation[0]), GLenum(m_blendEquation[1]));
    glBlendFuncSeparate(
        GLenum(m_blendFunction[0]), GLenum(m_blendFunction[1]), GLenum(m_blendFunction[2]), GLenum(m_blendFunction[3]));
    glBlendColor(m_blendColor[0], m_blendColor[1], m_blendColor[2], m_blendColor[3]);
    glCullFace(GLenum(m_cullFace));
    glFrontFace(GLenum(m_frontFace));
    glPolygonMode(GL_FRONT_AND_BACK, GLenum(m_polygonMode[0]));
    glClearColor(m_clearColor[0], m_clearColor[1], m_clearColor[2], m_clearColor[3]);
    glClearDepth(double(m_clearDepth));
    glClearStencil(m_clearStencil);
    glPixelStorei(GL_UNPACK_ALIGNMENT, m_unpackAlignment);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, GLuint(m_unpackBuffer));
    glBindFramebuffer(GL_READ_FRAMEBUFFER, GLuint(m_readFramebuffer));
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, GLuint(m_drawFramebuffer));
    glUseProgram(GLuint(m_program));
    glBindVertexArray(GLuint(m_vertexArray));
    glBindBuffer(GL_ARRAY_BUFFER, GLuint(m_arrayBuffer));
    glActiveTexture(GLenum(m_activeTexture));
}

} // namespace Velmora::Kvz
