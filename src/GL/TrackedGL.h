// SPDX-License-Identifier: MIT
#pragma once

// OpenGL for the sources of this library: <epoxy/gl.h>, whose calls that set or read state go through the FrameState of a frame
// under way. Sources whose code runs in the frames of a chain include this instead of <epoxy/gl.h>, or state would change
// unnoticed; a test looks for those that do not.

#include <GL/Export.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz::TrackedGL {

/// As the GL functions of these names.
/// @{
KVZ_GL_EXPORT void enable(GLenum capability);
KVZ_GL_EXPORT void disable(GLenum capability);
KVZ_GL_EXPORT void enablei(GLenum capability, GLuint index);
KVZ_GL_EXPORT void disablei(GLenum capability, GLuint index);
KVZ_GL_EXPORT GLboolean isEnabled(GLenum capability);
KVZ_GL_EXPORT void depthMask(GLboolean mask);
KVZ_GL_EXPORT void depthFunc(GLenum function);
KVZ_GL_EXPORT void colorMask(GLboolean red, GLboolean green, GLboolean blue, GLboolean alpha);
KVZ_GL_EXPORT void colorMaski(GLuint index, GLboolean red, GLboolean green, GLboolean blue, GLboolean alpha);
KVZ_GL_EXPORT void stencilMask(GLuint mask);
KVZ_GL_EXPORT void stencilMaskSeparate(GLenum face, GLuint mask);
KVZ_GL_EXPORT void blendEquation(GLenum mode);
KVZ_GL_EXPORT void blendEquationSeparate(GLenum rgb, GLenum alpha);
KVZ_GL_EXPORT void blendFunc(GLenum source, GLenum destination);
KVZ_GL_EXPORT void blendFuncSeparate(GLenum sourceRgb, GLenum destRgb, GLenum sourceAlpha, GLenum destAlpha);
KVZ_GL_EXPORT void cullFace(GLenum mode);
KVZ_GL_EXPORT void frontFace(GLenum mode);
KVZ_GL_EXPORT void polygonMode(GLenum face, GLenum mode);
KVZ_GL_EXPORT void polygonOffset(GLfloat factor, GLfloat units);
KVZ_GL_EXPORT void clearColor(GLfloat red, GLfloat green, GLfloat blue, GLfloat alpha);
KVZ_GL_EXPORT void clearDepth(GLdouble depth);
KVZ_GL_EXPORT void clearStencil(GLint stencil);
KVZ_GL_EXPORT void viewport(GLint x, GLint y, GLsizei width, GLsizei height);
KVZ_GL_EXPORT void pixelStorei(GLenum name, GLint value);

KVZ_GL_EXPORT void useProgram(GLuint program);
KVZ_GL_EXPORT void bindVertexArray(GLuint array);
KVZ_GL_EXPORT void bindBuffer(GLenum target, GLuint buffer);
KVZ_GL_EXPORT void bindBufferBase(GLenum target, GLuint index, GLuint buffer);
KVZ_GL_EXPORT void bindBufferRange(GLenum target, GLuint index, GLuint buffer, GLintptr offset, GLsizeiptr size);
KVZ_GL_EXPORT void activeTexture(GLenum unit);
KVZ_GL_EXPORT void bindTexture(GLenum target, GLuint texture);
KVZ_GL_EXPORT void bindFramebuffer(GLenum target, GLuint framebuffer);

KVZ_GL_EXPORT void framebufferTexture(GLenum target, GLenum attachment, GLuint texture, GLint level);
KVZ_GL_EXPORT void framebufferTexture2D(
    GLenum target, GLenum attachment, GLenum textureTarget, GLuint texture, GLint level);
KVZ_GL_EXPORT void framebufferTextureLayer(GLenum target, GLenum attachment, GLuint texture, GLint level, GLint layer);
KVZ_GL_EXPORT void drawBuffers(GLsizei count, const GLenum *buffers);
KVZ_GL_EXPORT void drawBuffer(GLenum buffer);
KVZ_GL_EXPORT void readBuffer(GLenum buffer);

KVZ_GL_EXPORT void texImage2D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height,
    GLint border, GLenum format, GLenum type, const void *pixels);
KVZ_GL_EXPORT void texImage3D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height,
    GLsizei depth, GLint border, GLenum format, GLenum type, const void *pixels);
KVZ_GL_EXPORT void texImage2DMultisample(
    GLenum target, GLsizei samples, GLenum internalFormat, GLsizei width, GLsizei height, GLboolean isFixed);
KVZ_GL_EXPORT void texStorage3D(
    GLenum target, GLsizei levels, GLenum internalFormat, GLsizei width, GLsizei height, GLsizei depth);
KVZ_GL_EXPORT void generateMipmap(GLenum target);
KVZ_GL_EXPORT void linkProgram(GLuint program);
KVZ_GL_EXPORT void deleteProgram(GLuint program);
KVZ_GL_EXPORT void deleteTextures(GLsizei count, const GLuint *names);
KVZ_GL_EXPORT void deleteBuffers(GLsizei count, const GLuint *names);
KVZ_GL_EXPORT void deleteFramebuffers(GLsizei count, const GLuint *names);
KVZ_GL_EXPORT void deleteVertexArrays(GLsizei count, const GLuint *names);

KVZ_GL_EXPORT void getIntegerv(GLenum name, GLint *values);
KVZ_GL_EXPORT void getBooleanv(GLenum name, GLboolean *values);
KVZ_GL_EXPORT GLenum checkFramebufferStatus(GLenum target);
/// @}

} // namespace Velmora::Kvz::TrackedGL

// epoxy's functions are macros too, so calls by the usual names need no other spelling.
// NOLINTBEGIN(cppcoreguidelines-macro-usage)
#undef glEnable
#define glEnable ::Velmora::Kvz::TrackedGL::enable
#undef glDisable
#define glDisable ::Velmora::Kvz::TrackedGL::disable
#undef glEnablei
#define glEnablei ::Velmora::Kvz::TrackedGL::enablei
#undef glDisablei
#define glDisablei ::Velmora::Kvz::TrackedGL::disablei
#undef glIsEnabled
#define glIsEnabled ::Velmora::Kvz::TrackedGL::isEnabled
#undef glDepthMask
#define glDepthMask ::Velmora::Kvz::TrackedGL::depthMask
#undef glDepthFunc
#define glDepthFunc ::Velmora::Kvz::TrackedGL::depthFunc
#undef glColorMask
#define glColorMask ::Velmora::Kvz::TrackedGL::colorMask
#undef glColorMaski
#define glColorMaski ::Velmora::Kvz::TrackedGL::colorMaski
#undef glStencilMask
#define glStencilMask ::Velmora::Kvz::TrackedGL::stencilMask
#undef glStencilMaskSeparate
#define glStencilMaskSeparate ::Velmora::Kvz::TrackedGL::stencilMaskSeparate
#undef glBlendEquation
#define glBlendEquation ::Velmora::Kvz::TrackedGL::blendEquation
#undef glBlendEquationSeparate
#define glBlendEquationSeparate ::Velmora::Kvz::TrackedGL::blendEquationSeparate
#undef glBlendFunc
#define glBlendFunc ::Velmora::Kvz::TrackedGL::blendFunc
#undef glBlendFuncSeparate
#define glBlendFuncSeparate ::Velmora::Kvz::TrackedGL::blendFuncSeparate
#undef glCullFace
#define glCullFace ::Velmora::Kvz::TrackedGL::cullFace
#undef glFrontFace
#define glFrontFace ::Velmora::Kvz::TrackedGL::frontFace
#undef glPolygonMode
#define glPolygonMode ::Velmora::Kvz::TrackedGL::polygonMode
#undef glPolygonOffset
#define glPolygonOffset ::Velmora::Kvz::TrackedGL::polygonOffset
#undef glClearColor
#define glClearColor ::Velmora::Kvz::TrackedGL::clearColor
#undef glClearDepth
#define glClearDepth ::Velmora::Kvz::TrackedGL::clearDepth
#undef glClearStencil
#define glClearStencil ::Velmora::Kvz::TrackedGL::clearStencil
#undef glViewport
#define glViewport ::Velmora::Kvz::TrackedGL::viewport
#undef glPixelStorei
#define glPixelStorei ::Velmora::Kvz::TrackedGL::pixelStorei
#undef glUseProgram
#define glUseProgram ::Velmora::Kvz::TrackedGL::useProgram
#undef glBindVertexArray
#define glBindVertexArray ::Velmora::Kvz::TrackedGL::bindVertexArray
#undef glBindBuffer
#define glBindBuffer ::Velmora::Kvz::TrackedGL::bindBuffer
#undef glBindBufferBase
#define glBindBufferBase ::Velmora::Kvz::TrackedGL::bindBufferBase
#undef glBindBufferRange
#define glBindBufferRange ::Velmora::Kvz::TrackedGL::bindBufferRange
#undef glActiveTexture
#define glActiveTexture ::Velmora::Kvz::TrackedGL::activeTexture
#undef glBindTexture
#define glBindTexture ::Velmora::Kvz::TrackedGL::bindTexture
#undef glBindFramebuffer
#define glBindFramebuffer ::Velmora::Kvz::TrackedGL::bindFramebuffer
#undef glFramebufferTexture
#define glFramebufferTexture ::Velmora::Kvz::TrackedGL::framebufferTexture
#undef glFramebufferTexture2D
#define glFramebufferTexture2D ::Velmora::Kvz::TrackedGL::framebufferTexture2D
#undef glFramebufferTextureLayer
#define glFramebufferTextureLayer ::Velmora::Kvz::TrackedGL::framebufferTextureLayer
#undef glDrawBuffers
#define glDrawBuffers ::Velmora::Kvz::TrackedGL::drawBuffers
#undef glDrawBuffer
#define glDrawBuffer ::Velmora::Kvz::TrackedGL::drawBuffer
#undef glReadBuffer
#define glReadBuffer ::Velmora::Kvz::TrackedGL::readBuffer
#undef glTexImage2D
#define glTexImage2D ::Velmora::Kvz::TrackedGL::texImage2D
#undef glTexImage3D
#define glTexImage3D ::Velmora::Kvz::TrackedGL::texImage3D
#undef glTexImage2DMultisample
#define glTexImage2DMultisample ::Velmora::Kvz::TrackedGL::texImage2DMultisample
#undef glTexStorage3D
#define glTexStorage3D ::Velmora::Kvz::TrackedGL::texStorage3D
#undef glGenerateMipmap
#define glGenerateMipmap ::Velmora::Kvz::TrackedGL::generateMipmap
#undef glLinkProgram
#define glLinkProgram ::Velmora::Kvz::TrackedGL::linkProgram
#undef glDeleteProgram
#define glDeleteProgram ::Velmora::Kvz::TrackedGL::deleteProgram
#undef glDeleteTextures
#define glDeleteTextures ::Velmora::Kvz::TrackedGL::deleteTextures
#undef glDeleteBuffers
#define glDeleteBuffers ::Velmora::Kvz::TrackedGL::deleteBuffers
#undef glDeleteFramebuffers
#define glDeleteFramebuffers ::Velmora::Kvz::TrackedGL::deleteFramebuffers
#undef glDeleteVertexArrays
#define glDeleteVertexArrays ::Velmora::Kvz::TrackedGL::deleteVertexArrays
#undef glGetIntegerv
#define glGetIntegerv ::Velmora::Kvz::TrackedGL::getIntegerv
#undef glGetBooleanv
#define glGetBooleanv ::Velmora::Kvz::TrackedGL::getBooleanv
#undef glCheckFramebufferStatus
#define glCheckFramebufferStatus ::Velmora::Kvz::TrackedGL::checkFramebufferStatus
// NOLINTEND(cppcoreguidelines-macro-usage)
