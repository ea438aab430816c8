// SPDX-License-Identifier: MIT
#include "TrackedGL.h"

#include "FrameState.h"

#include <algorithm>
#include <cstring>

namespace Velmora::Kvz::TrackedGL {

namespace {

quint32 bitsOf(float value)
{
    quint32 bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

std::array<quint32, 4> bitsOf(double value)
{
    std::array<quint32, 4> bits{};
    std::memcpy(bits.data(), &value, sizeof(value));
    return bits;
}

/// True when the call has to be made: outside of frames, and where it changes something.
bool mustSet(std::initializer_list<FrameState::Change> changes)
{
    FrameState *const state = FrameState::active();
    return !state || state->change(changes);
}

bool mustSetVector(GLenum name, const std::array<quint32, 4> &value)
{
    FrameState *const state = FrameState::active();
    return !state || state->changeVector(name, value);
}

void forget(GLenum name)
{
    if (FrameState *const state = FrameState::active())
        state->forget(name);
}

/// The query for a buffer target that is no part of a vertex array; 0 for another one.
GLenum bufferQuery(GLenum target)
{
    switch (target) {
    case GL_ARRAY_BUFFER:
        return GL_ARRAY_BUFFER_BINDING;
    case GL_PIXEL_UNPACK_BUFFER:
        return GL_PIXEL_UNPACK_BUFFER_BINDING;
    case GL_PIXEL_PACK_BUFFER:
        return GL_PIXEL_PACK_BUFFER_BINDING;
    case GL_UNIFORM_BUFFER:
        return GL_UNIFORM_BUFFER_BINDING;
    case GL_ATOMIC_COUNTER_BUFFER:
        return GL_ATOMIC_COUNTER_BUFFER_BINDING;
    case GL_DRAW_INDIRECT_BUFFER:
        return GL_DRAW_INDIRECT_BUFFER_BINDING;
    case GL_SHADER_STORAGE_BUFFER:
        return GL_SHADER_STORAGE_BUFFER_BINDING;
    case GL_TRANSFORM_FEEDBACK_BUFFER:
        return GL_TRANSFORM_FEEDBACK_BUFFER_BINDING;
    case GL_TEXTURE_BUFFER: // These three are asked for by their own names.
    case GL_COPY_READ_BUFFER:
    case GL_COPY_WRITE_BUFFER:
        return target;
    default:
        return 0;
    }
}

/// The texture target of a query for a binding; 0 for another query.
GLenum textureTarget(GLenum query)
{
    switch (query) {
    case GL_TEXTURE_BINDING_1D:
        return GL_TEXTURE_1D;
    case GL_TEXTURE_BINDING_2D:
        return GL_TEXTURE_2D;
    case GL_TEXTURE_BINDING_3D:
        return GL_TEXTURE_3D;
    case GL_TEXTURE_BINDING_1D_ARRAY:
        return GL_TEXTURE_1D_ARRAY;
    case GL_TEXTURE_BINDING_2D_ARRAY:
        return GL_TEXTURE_2D_ARRAY;
    case GL_TEXTURE_BINDING_CUBE_MAP:
        return GL_TEXTURE_CUBE_MAP;
    case GL_TEXTURE_BINDING_CUBE_MAP_ARRAY:
        return GL_TEXTURE_CUBE_MAP_ARRAY;
    case GL_TEXTURE_BINDING_BUFFER:
        return GL_TEXTURE_BUFFER;
    case GL_TEXTURE_BINDING_2D_MULTISAMPLE:
        return GL_TEXTURE_2D_MULTISAMPLE;
    case GL_TEXTURE_BINDING_2D_MULTISAMPLE_ARRAY:
        return GL_TEXTURE_2D_MULTISAMPLE_ARRAY;
    case GL_TEXTURE_BINDING_RECTANGLE:
        return GL_TEXTURE_RECTANGLE;
    default:
        return 0;
    }
}

bool isLimit(GLenum name)
{
    return name == GL_MAX_TEXTURE_SIZE || name == GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS
        || name == GL_MAX_ARRAY_TEXTURE_LAYERS || name == GL_MAX_COLOR_TEXTURE_SAMPLES
        || name == GL_MAX_DEPTH_TEXTURE_SAMPLES || name == GL_MAX_TEXTURE_BUFFER_SIZE || name == GL_MAX_DRAW_BUFFERS;
}

/// How many numbers a query of GLint answers that are kept as they are; 0 for those kept otherwise.
int integerCount(GLenum name)
{
    switch (name) {
    case GL_VIEWPORT:
    case GL_COLOR_WRITEMASK:
        return 4;
    case GL_COLOR_CLEAR_VALUE:
    case GL_DEPTH_CLEAR_VALUE:
    case GL_POLYGON_OFFSET_FACTOR:
    case GL_POLYGON_OFFSET_UNITS:
        return 0;
    default:
        return 1;
    }
}

/// Answers a query from what is known.
bool answer(const FrameState &state, GLenum name, GLint *values)
{
    if (const GLenum target = textureTarget(name))
        return state.textureAt(target, values);
    if (name == GL_ELEMENT_ARRAY_BUFFER_BINDING)
        return state.elements(values);
    const int count = integerCount(name);
    const std::array<quint32, 4> *const known = state.find(name);
    if (known && count > 0) {
        std::copy_n(known->begin(), count, values);
        return true;
    }
    if (known || !state.isAssumedZero(name))
        return false;
    *values = 0;
    return true;
}

/// Keeps what the driver has answered.
void note(FrameState &state, GLenum name, const GLint *values)
{
    if (const GLenum target = textureTarget(name)) {
        state.noteTexture(target, GLuint(*values));
        return;
    }
    if (name == GL_ELEMENT_ARRAY_BUFFER_BINDING) {
        state.bindElements(GLuint(*values));
        return;
    }
    // Masks may differ by face and by draw buffer, modes by face.
    if (name == GL_COLOR_WRITEMASK || name == GL_STENCIL_WRITEMASK || name == GL_POLYGON_MODE)
        return;
    std::array<quint32, 4> value{};
    std::copy_n(values, integerCount(name), value.begin());
    if (integerCount(name) == 1)
        state.change({{name, value[0]}});
    else if (integerCount(name) == 4)
        state.changeVector(name, value);
}

/// Before a call that specifies an image.
void noteImage(GLenum target, GLint level, const FrameState::Specification &specification)
{
    FrameState *const state = FrameState::active();
    if (!state)
        FrameState::objectsChanged();
    else
        state->specify(target, level, specification);
}

/// After a call that respecifies, links or deletes.
void objectsChanged()
{
    FrameState::objectsChanged();
}

} // namespace

// --- state ---------------------------------------------------------------------------------------------------------

void enable(GLenum capability)
{
    if (mustSet({{capability, 1}}))
        epoxy_glEnable(capability);
}

void disable(GLenum capability)
{
    if (mustSet({{capability, 0}}))
        epoxy_glDisable(capability);
}

void enablei(GLenum capability, GLuint index)
{
    forget(capability);
    epoxy_glEnablei(capability, index);
}

void disablei(GLenum capability, GLuint index)
{
    forget(capability);
    epoxy_glDisablei(capability, index);
}

GLboolean isEnabled(GLenum capability)
{
    FrameState *const state = FrameState::active();
    if (const std::array<quint32, 4> *const known = state ? state->find(capability) : nullptr)
        return GLboolean((*known)[0]);
    // What is enabled by draw buffer is not kept.
    const GLboolean isOn = epoxy_glIsEnabled(capability);
    if (state && capability != GL_BLEND && capability != GL_SCISSOR_TEST)
        state->change({{capability, isOn}});
    return isOn;
}

void depthMask(GLboolean mask)
{
    if (mustSet({{GL_DEPTH_WRITEMASK, mask}}))
        epoxy_glDepthMask(mask);
}

void depthFunc(GLenum function)
{
    if (mustSet({{GL_DEPTH_FUNC, function}}))
        epoxy_glDepthFunc(function);
}

void colorMask(GLboolean red, GLboolean green, GLboolean blue, GLboolean alpha)
{
    if (mustSetVector(GL_COLOR_WRITEMASK, {red, green, blue, alpha}))
        epoxy_glColorMask(red, green, blue, alpha);
}

void colorMaski(GLuint index, GLboolean red, GLboolean green, GLboolean blue, GLboolean alpha)
{
    forget(GL_COLOR_WRITEMASK);
    epoxy_glColorMaski(index, red, green, blue, alpha);
}

void stencilMask(GLuint mask)
{
    if (mustSet({{GL_STENCIL_WRITEMASK, mask}}))
        epoxy_glStencilMask(mask);
}

void stencilMaskSeparate(GLenum face, GLuint mask)
{
    forget(GL_STENCIL_WRITEMASK);
    epoxy_glStencilMaskSeparate(face, mask);
}

void blendEquation(GLenum mode)
{
    if (mustSet({{GL_BLEND_EQUATION_RGB, mode}, {GL_BLEND_EQUATION_ALPHA, mode}}))
        epoxy_glBlendEquation(mode);
}

void blendEquationSeparate(GLenum rgb, GLenum alpha)
{
    if (mustSet({{GL_BLEND_EQUATION_RGB, rgb}, {GL_BLEND_EQUATION_ALPHA, alpha}}))
        epoxy_glBlendEquationSeparate(rgb, alpha);
}

void blendFunc(GLenum source, GLenum destination)
{
    if (mustSet({{GL_BLEND_SRC_RGB, source}, {GL_BLEND_DST_RGB, destination}, {GL_BLEND_SRC_ALPHA, source},
            {GL_BLEND_DST_ALPHA, destination}}))
        epoxy_glBlendFunc(source, destination);
}

void blendFuncSeparate(GLenum sourceRgb, GLenum destRgb, GLenum sourceAlpha, GLenum destAlpha)
{
    if (mustSet({{GL_BLEND_SRC_RGB, sourceRgb}, {GL_BLEND_DST_RGB, destRgb}, {GL_BLEND_SRC_ALPHA, sourceAlpha},
            {GL_BLEND_DST_ALPHA, destAlpha}}))
        epoxy_glBlendFuncSeparate(sourceRgb, destRgb, sourceAlpha, destAlpha);
}

void cullFace(GLenum mode)
{
    if (mustSet({{GL_CULL_FACE_MODE, mode}}))
        epoxy_glCullFace(mode);
}

void frontFace(GLenum mode)
{
    if (mustSet({{GL_FRONT_FACE, mode}}))
        epoxy_glFrontFace(mode);
}

void polygonMode(GLenum face, GLenum mode)
{
    if (mustSet({{GL_POLYGON_MODE, mode}}))
        epoxy_glPolygonMode(face, mode);
}

void polygonOffset(GLfloat factor, GLfloat units)
{
    if (mustSet({{GL_POLYGON_OFFSET_FACTOR, bitsOf(factor)}, {GL_POLYGON_OFFSET_UNITS, bitsOf(units)}}))
        epoxy_glPolygonOffset(factor, units);
}

void clearColor(GLfloat red, GLfloat green, GLfloat blue, GLfloat alpha)
{
    if (mustSetVector(GL_COLOR_CLEAR_VALUE, {bitsOf(red), bitsOf(green), bitsOf(blue), bitsOf(alpha)}))
        epoxy_glClearColor(red, green, blue, alpha);
}

void clearDepth(GLdouble depth)
{
    if (mustSetVector(GL_DEPTH_CLEAR_VALUE, bitsOf(depth)))
        epoxy_glClearDepth(depth);
}

void clearStencil(GLint stencil)
{
    if (mustSet({{GL_STENCIL_CLEAR_VALUE, quint32(stencil)}}))
        epoxy_glClearStencil(stencil);
}

void viewport(GLint x, GLint y, GLsizei width, GLsizei height)
{
    // The driver clamps sizes to its limits and refuses negative ones, so only what it surely keeps is kept here.
    constexpr GLsizei surelyKept = 4096;
    if (width < 0 || height < 0 || width > surelyKept || height > surelyKept || std::abs(x) > surelyKept
        || std::abs(y) > surelyKept) {
        forget(GL_VIEWPORT);
        epoxy_glViewport(x, y, width, height);
        return;
    }
    if (mustSetVector(GL_VIEWPORT, {quint32(x), quint32(y), quint32(width), quint32(height)}))
        epoxy_glViewport(x, y, width, height);
}

void pixelStorei(GLenum name, GLint value)
{
    if (mustSet({{name, quint32(value)}}))
        epoxy_glPixelStorei(name, value);
}

// --- bindings ------------------------------------------------------------------------------------------------------

void useProgram(GLuint program)
{
    if (mustSet({{GL_CURRENT_PROGRAM, program}}))
        epoxy_glUseProgram(program);
}

void bindVertexArray(GLuint array)
{
    if (mustSet({{GL_VERTEX_ARRAY_BINDING, array}}))
        epoxy_glBindVertexArray(array);
}

void bindBuffer(GLenum target, GLuint buffer)
{
    FrameState *const state = FrameState::active();
    const GLenum query = bufferQuery(target);
    const bool isNew = !state
        || (target == GL_ELEMENT_ARRAY_BUFFER ? state->bindElements(buffer)
                : query                       ? state->change({{query, buffer}})
                                              : true);
    if (isNew)
        epoxy_glBindBuffer(target, buffer);
}

void bindBufferBase(GLenum target, GLuint index, GLuint buffer)
{
    if (const GLenum query = bufferQuery(target))
        mustSet({{query, buffer}});
    epoxy_glBindBufferBase(target, index, buffer);
}

void bindBufferRange(GLenum target, GLuint index, GLuint buffer, GLintptr offset, GLsizeiptr size)
{
    if (const GLenum query = bufferQuery(target))
        mustSet({{query, buffer}});
    epoxy_glBindBufferRange(target, index, buffer, offset, size);
}

void activeTexture(GLenum unit)
{
    if (mustSet({{GL_ACTIVE_TEXTURE, unit}}))
        epoxy_glActiveTexture(unit);
}

void bindTexture(GLenum target, GLuint texture)
{
    FrameState *const state = FrameState::active();
    if (!state || state->bindTexture(target, texture))
        epoxy_glBindTexture(target, texture);
}

void bindFramebuffer(GLenum target, GLuint framebuffer)
{
    const bool isNew = target == GL_READ_FRAMEBUFFER ? mustSet({{GL_READ_FRAMEBUFFER_BINDING, framebuffer}})
        : target == GL_DRAW_FRAMEBUFFER
        ? mustSet({{GL_DRAW_FRAMEBUFFER_BINDING, framebuffer}})
        : mustSet({{GL_READ_FRAMEBUFFER_BINDING, framebuffer}, {GL_DRAW_FRAMEBUFFER_BINDING, framebuffer}});
    if (isNew)
        epoxy_glBindFramebuffer(target, framebuffer);
}

// --- framebuffers --------------------------------------------------------------------------------------------------

namespace {

void noteAttachment(GLenum target, GLenum point, const FrameState::Attachment &attachment)
{
    if (FrameState *const state = FrameState::active())
        state->attach(target, point, attachment);
    else
        objectsChanged();
}

void noteBuffers(GLenum target, GLenum point, const GLenum *buffers, int count)
{
    if (FrameState *const state = FrameState::active())
        state->setBuffers(
            target, point, QByteArray(reinterpret_cast<const char *>(buffers), count * int(sizeof(GLenum))));
    else
        objectsChanged();
}

} // namespace

void framebufferTexture(GLenum target, GLenum attachment, GLuint texture, GLint level)
{
    noteAttachment(target, attachment, {texture, 0, level, 0});
    epoxy_glFramebufferTexture(target, attachment, texture, level);
}

void framebufferTexture2D(GLenum target, GLenum attachment, GLenum textureTarget, GLuint texture, GLint level)
{
    noteAttachment(target, attachment, {texture, textureTarget, level, 0});
    epoxy_glFramebufferTexture2D(target, attachment, textureTarget, texture, level);
}

void framebufferTextureLayer(GLenum target, GLenum attachment, GLuint texture, GLint level, GLint layer)
{
    noteAttachment(target, attachment, {texture, 1, level, layer});
    epoxy_glFramebufferTextureLayer(target, attachment, texture, level, layer);
}

void drawBuffers(GLsizei count, const GLenum *buffers)
{
    noteBuffers(GL_DRAW_FRAMEBUFFER, GL_DRAW_BUFFER, buffers, count);
    epoxy_glDrawBuffers(count, buffers);
}

void drawBuffer(GLenum buffer)
{
    noteBuffers(GL_DRAW_FRAMEBUFFER, GL_DRAW_BUFFER, &buffer, 1);
    epoxy_glDrawBuffer(buffer);
}

void readBuffer(GLenum buffer)
{
    noteBuffers(GL_READ_FRAMEBUFFER, GL_READ_BUFFER, &buffer, 1);
    epoxy_glReadBuffer(buffer);
}

// --- objects -------------------------------------------------------------------------------------------------------

void texImage2D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height, GLint border,
    GLenum format, GLenum type, const void *pixels)
{
    noteImage(target, level, {internalFormat, width, height, 0, 0, 0});
    epoxy_glTexImage2D(target, level, internalFormat, width, height, border, format, type, pixels);
}

void texImage3D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height, GLsizei depth,
    GLint border, GLenum format, GLenum type, const void *pixels)
{
    noteImage(target, level, {internalFormat, width, height, depth, 0, 0});
    epoxy_glTexImage3D(target, level, internalFormat, width, height, depth, border, format, type, pixels);
}

void texImage2DMultisample(
    GLenum target, GLsizei samples, GLenum internalFormat, GLsizei width, GLsizei height, GLboolean isFixed)
{
    noteImage(target, 0, {int(internalFormat), width, height, 0, samples, isFixed});
    epoxy_glTexImage2DMultisample(target, samples, internalFormat, width, height, isFixed);
}

void texStorage3D(GLenum target, GLsizei levels, GLenum internalFormat, GLsizei width, GLsizei height, GLsizei depth)
{
    epoxy_glTexStorage3D(target, levels, internalFormat, width, height, depth);
    objectsChanged();
}

void generateMipmap(GLenum target)
{
    // It makes levels where there are none, and leaves what is complete as large as it was.
    epoxy_glGenerateMipmap(target);
}

void linkProgram(GLuint program)
{
    epoxy_glLinkProgram(program);
    objectsChanged();
}

void deleteProgram(GLuint program)
{
    epoxy_glDeleteProgram(program);
    objectsChanged();
}

void deleteTextures(GLsizei count, const GLuint *names)
{
    epoxy_glDeleteTextures(count, names);
    if (FrameState *const state = FrameState::active())
        state->texturesDeleted(count, names);
    objectsChanged();
}

void deleteBuffers(GLsizei count, const GLuint *names)
{
    epoxy_glDeleteBuffers(count, names);
    FrameState *const state = FrameState::active();
    if (!state)
        return;
    for (const GLenum target : {GL_ARRAY_BUFFER, GL_PIXEL_UNPACK_BUFFER, GL_PIXEL_PACK_BUFFER, GL_UNIFORM_BUFFER,
             GL_ATOMIC_COUNTER_BUFFER, GL_DRAW_INDIRECT_BUFFER, GL_SHADER_STORAGE_BUFFER, GL_TRANSFORM_FEEDBACK_BUFFER,
             GL_TEXTURE_BUFFER, GL_COPY_READ_BUFFER, GL_COPY_WRITE_BUFFER}) {
        const std::array<quint32, 4> *const known = state->find(bufferQuery(target));
        if (known && std::find(names, names + count, (*known)[0]) != names + count)
            state->change({{bufferQuery(target), 0}});
    }
    state->forgetElements();
}

void deleteFramebuffers(GLsizei count, const GLuint *names)
{
    epoxy_glDeleteFramebuffers(count, names);
    objectsChanged();
    FrameState *const state = FrameState::active();
    if (!state)
        return;
    for (const GLenum name : {GL_DRAW_FRAMEBUFFER_BINDING, GL_READ_FRAMEBUFFER_BINDING}) {
        const std::array<quint32, 4> *const known = state->find(name);
        if (known && std::find(names, names + count, (*known)[0]) != names + count)
            state->change({{name, 0}});
    }
}

void deleteVertexArrays(GLsizei count, const GLuint *names)
{
    epoxy_glDeleteVertexArrays(count, names);
    objectsChanged();
    FrameState *const state = FrameState::active();
    if (!state)
        return;
    const std::array<quint32, 4> *const known = state->find(GL_VERTEX_ARRAY_BINDING);
    if (known && std::find(names, names + count, (*known)[0]) != names + count)
        state->change({{GL_VERTEX_ARRAY_BINDING, 0}});
    state->forgetElements();
}

// --- queries -------------------------------------------------------------------------------------------------------

void getIntegerv(GLenum name, GLint *values)
{
    FrameState *const state = FrameState::active();
    if (state && isLimit(name)) {
        *values = state->limit(name);
        return;
    }
    if (state && answer(*state, name, values))
        return;
    epoxy_glGetIntegerv(name, values);
    if (state)
        note(*state, name, values);
}

void getBooleanv(GLenum name, GLboolean *values)
{
    FrameState *const state = FrameState::active();
    const std::array<quint32, 4> *const known =
        state && (name == GL_DEPTH_WRITEMASK || name == GL_COLOR_WRITEMASK) ? state->find(name) : nullptr;
    if (!known) {
        epoxy_glGetBooleanv(name, values);
        return;
    }
    for (size_t i = 0; i < (name == GL_COLOR_WRITEMASK ? 4u : 1u); ++i)
        values[i] = GLboolean((*known)[i]);
}

GLenum checkFramebufferStatus(GLenum target)
{
    FrameState *const state = FrameState::active();
    if (state && target != GL_READ_FRAMEBUFFER && state->isDrawFramebufferComplete())
        return GL_FRAMEBUFFER_COMPLETE;
    return epoxy_glCheckFramebufferStatus(target);
}

} // namespace Velmora::Kvz::TrackedGL
