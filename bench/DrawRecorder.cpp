// SPDX-License-Identifier: MIT
#include "DrawRecorder.h"

#include <cstring>

namespace Velmora::Kvz {

namespace {

/// The loader's function pointers, which are redirected while a recorder listens.
struct EntryPoints
{
    decltype(epoxy_glDrawArrays) drawArrays;
    decltype(epoxy_glDrawElements) drawElements;
    decltype(epoxy_glClear) clear;
    decltype(epoxy_glBlitFramebuffer) blit;
    decltype(epoxy_glUniform1ui) uniformUInt;
    decltype(epoxy_glUniform2fv) uniformVector;
    decltype(epoxy_glUniformMatrix4fv) uniformMatrix;
    decltype(epoxy_glUniform1iv) uniformInt;
    decltype(epoxy_glBufferSubData) bufferSubData;
    decltype(epoxy_glUniform4fv) uniformVector4;
    decltype(epoxy_glDrawElementsInstancedBaseInstance) drawElementsOfItem;
    decltype(epoxy_glMultiDrawElementsIndirect) drawMany;
};

EntryPoints driver;
DrawRecorder *listener = nullptr;

struct SamplerKind
{
    GLenum sampler;
    GLenum target;
    GLenum binding;
};

constexpr SamplerKind samplerKinds[] = {
    {GL_SAMPLER_2D, GL_TEXTURE_2D, GL_TEXTURE_BINDING_2D},
    {GL_SAMPLER_2D_ARRAY, GL_TEXTURE_2D_ARRAY, GL_TEXTURE_BINDING_2D_ARRAY},
    {GL_SAMPLER_CUBE, GL_TEXTURE_CUBE_MAP, GL_TEXTURE_BINDING_CUBE_MAP},
    {GL_SAMPLER_BUFFER, GL_TEXTURE_BUFFER, GL_TEXTURE_BINDING_BUFFER},
    {GL_UNSIGNED_INT_SAMPLER_BUFFER, GL_TEXTURE_BUFFER, GL_TEXTURE_BINDING_BUFFER},
    {GL_INT_SAMPLER_BUFFER, GL_TEXTURE_BUFFER, GL_TEXTURE_BINDING_BUFFER},
    {GL_UNSIGNED_INT_SAMPLER_2D, GL_TEXTURE_2D, GL_TEXTURE_BINDING_2D},
    {GL_INT_SAMPLER_2D, GL_TEXTURE_2D, GL_TEXTURE_BINDING_2D},
    {GL_SAMPLER_2D_MULTISAMPLE, GL_TEXTURE_2D_MULTISAMPLE, GL_TEXTURE_BINDING_2D_MULTISAMPLE},
};

GLint integer(GLenum name)
{
    GLint value[4] = {};
    glGetIntegerv(name, value);
    return value[0];
}

/// Whether a texture is a 2D array, found by binding it: GL refuses any other target.
bool isArray(GLuint name)
{
    const GLint before = integer(GL_TEXTURE_BINDING_2D_ARRAY);
    while (glGetError() != GL_NO_ERROR) { }
    glBindTexture(GL_TEXTURE_2D_ARRAY, name);
    const bool isRefused = glGetError() != GL_NO_ERROR;
    glBindTexture(GL_TEXTURE_2D_ARRAY, GLuint(before));
    return !isRefused;
}

bool hasImages()
{
    return epoxy_gl_version() >= 42
        || (epoxy_has_gl_extension("GL_ARB_shader_image_load_store")
            && epoxy_has_gl_extension("GL_ARB_shader_atomic_counters"));
}

void setEnabled(GLenum capability, bool enabled)
{
    (enabled ? glEnable : glDisable)(capability);
}

} // namespace

DrawRecorder::DrawRecorder() = default;

DrawRecorder::~DrawRecorder()
{
    glDeleteFramebuffers(GLsizei(m_framebuffers.size()), m_framebuffers.data());
}

void DrawRecorder::begin()
{
    // The first call of each function resolves the loader's pointer; reading its address does not.
    driver = {epoxy_glDrawArrays, epoxy_glDrawElements, epoxy_glClear, epoxy_glBlitFramebuffer, epoxy_glUniform1ui,
        epoxy_glUniform2fv, epoxy_glUniformMatrix4fv, epoxy_glUniform1iv, epoxy_glBufferSubData, epoxy_glUniform4fv,
        epoxy_glDrawElementsInstancedBaseInstance, epoxy_glMultiDrawElementsIndirect};
    listener = this;
    epoxy_glDrawArrays = onDrawArrays;
    epoxy_glDrawElements = onDrawElements;
    epoxy_glClear = onClear;
    epoxy_glBlitFramebuffer = onBlit;
    epoxy_glUniform1ui = onUniformUInt;
    epoxy_glUniform2fv = onUniformVector;
    epoxy_glUniformMatrix4fv = onUniformMatrix;
    epoxy_glUniform1iv = onUniformInt;
    epoxy_glBufferSubData = onBufferSubData;
    epoxy_glUniform4fv = onUniformVector4;
    epoxy_glDrawElementsInstancedBaseInstance = onDrawElementsOfItem;
    epoxy_glMultiDrawElementsIndirect = onDrawMany;
}

void DrawRecorder::end()
{
    epoxy_glDrawArrays = driver.drawArrays;
    epoxy_glDrawElements = driver.drawElements;
    epoxy_glClear = driver.clear;
    epoxy_glBlitFramebuffer = driver.blit;
    epoxy_glUniform1ui = driver.uniformUInt;
    epoxy_glUniform2fv = driver.uniformVector;
    epoxy_glUniformMatrix4fv = driver.uniformMatrix;
    epoxy_glUniform1iv = driver.uniformInt;
    epoxy_glBufferSubData = driver.bufferSubData;
    epoxy_glUniform4fv = driver.uniformVector4;
    epoxy_glDrawElementsInstancedBaseInstance = driver.drawElementsOfItem;
    epoxy_glMultiDrawElementsIndirect = driver.drawMany;
    listener = nullptr;
}

GLuint DrawRecorder::copyFramebuffer(GLenum binding)
{
    const bool draw = binding == GL_DRAW_FRAMEBUFFER_BINDING;
    const GLenum target = draw ? GL_DRAW_FRAMEBUFFER : GL_READ_FRAMEBUFFER;
    const auto found = GLuint(integer(binding));
    if (found == 0)
        return 0;
    struct Attached
    {
        GLenum point;
        GLuint name;
        GLint layer; ///< -1 for all layers, and for a texture without layers.
    };
    std::vector<Attached> attached;
    std::vector<GLenum> buffers;
    for (GLenum point : {GL_COLOR_ATTACHMENT0, GL_COLOR_ATTACHMENT1, GL_COLOR_ATTACHMENT2, GL_COLOR_ATTACHMENT3,
             GL_DEPTH_ATTACHMENT, GL_STENCIL_ATTACHMENT}) {
        GLint type = GL_NONE;
        glGetFramebufferAttachmentParameteriv(target, point, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE, &type);
        if (type != GL_TEXTURE)
            continue;
        GLint name = 0;
        glGetFramebufferAttachmentParameteriv(target, point, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &name);
        GLint isLayered = GL_FALSE;
        glGetFramebufferAttachmentParameteriv(target, point, GL_FRAMEBUFFER_ATTACHMENT_LAYERED, &isLayered);
        GLint layer = 0;
        glGetFramebufferAttachmentParameteriv(target, point, GL_FRAMEBUFFER_ATTACHMENT_TEXTURE_LAYER, &layer);
        // GL reports layer 0 both for an array's first layer and for a texture without layers.
        const bool isOneLayer = !isLayered && (layer > 0 || isArray(GLuint(name)));
        attached.push_back({point, GLuint(name), isOneLayer ? layer : -1});
        if (point != GL_DEPTH_ATTACHMENT && point != GL_STENCIL_ATTACHMENT)
            buffers.push_back(point);
    }
    GLuint copy = 0;
    glGenFramebuffers(1, &copy);
    m_framebuffers.push_back(copy);
    glBindFramebuffer(target, copy);
    for (const Attached &attachment : attached) {
        if (attachment.layer < 0)
            glFramebufferTexture(target, attachment.point, attachment.name, 0);
        else
            glFramebufferTextureLayer(target, attachment.point, attachment.name, 0, attachment.layer);
    }
    if (draw)
        glDrawBuffers(GLsizei(buffers.size()), buffers.data());
    glBindFramebuffer(target, found);
    return copy;
}

int DrawRecorder::recordState()
{
    State state;
    state.program = GLuint(integer(GL_CURRENT_PROGRAM));
    state.vertexArray = GLuint(integer(GL_VERTEX_ARRAY_BINDING));
    glGetIntegerv(GL_VIEWPORT, state.viewport.data());
    glGetFloatv(GL_COLOR_CLEAR_VALUE, state.clearColor.data());
    state.depthTest = glIsEnabled(GL_DEPTH_TEST);
    state.blend = {bool(glIsEnabledi(GL_BLEND, 0)), bool(glIsEnabledi(GL_BLEND, 1))};
    state.cullFace = glIsEnabled(GL_CULL_FACE);
    GLboolean colorMask[4] = {};
    glGetBooleanv(GL_COLOR_WRITEMASK, colorMask);
    state.writesColor = colorMask[0] == GL_TRUE;
    state.depthMask = integer(GL_DEPTH_WRITEMASK) != 0;
    state.blendFunction = {
        integer(GL_BLEND_SRC_RGB), integer(GL_BLEND_DST_RGB), integer(GL_BLEND_SRC_ALPHA), integer(GL_BLEND_DST_ALPHA)};
    glGetFloatv(GL_BLEND_COLOR, state.blendColor.data());
    state.stencilTest = glIsEnabled(GL_STENCIL_TEST);
    state.stencilFunc = {integer(GL_STENCIL_FUNC), integer(GL_STENCIL_REF), integer(GL_STENCIL_VALUE_MASK)};
    state.stencilOp = {
        integer(GL_STENCIL_FAIL), integer(GL_STENCIL_PASS_DEPTH_FAIL), integer(GL_STENCIL_PASS_DEPTH_PASS)};
    state.stencilWriteMask = integer(GL_STENCIL_WRITEMASK);
    state.clearStencil = integer(GL_STENCIL_CLEAR_VALUE);
    state.drawFramebuffer = copyFramebuffer(GL_DRAW_FRAMEBUFFER_BINDING);
    state.readFramebuffer = copyFramebuffer(GL_READ_FRAMEBUFFER_BINDING);
    if (state.program) {
        const GLint active = integer(GL_ACTIVE_TEXTURE);
        GLint uniforms = 0;
        glGetProgramiv(state.program, GL_ACTIVE_UNIFORMS, &uniforms);
        for (GLint i = 0; i < uniforms; ++i) {
            char name[256];
            GLint size = 0;
            GLenum type = 0;
            glGetActiveUniform(state.program, GLuint(i), sizeof(name), nullptr, &size, &type, name);
            for (const SamplerKind &kind : samplerKinds) {
                if (kind.sampler != type)
                    continue;
                GLint unit = 0;
                glGetUniformiv(state.program, glGetUniformLocation(state.program, name), &unit);
                glActiveTexture(GL_TEXTURE0 + GLenum(unit));
                state.textures.push_back({GLuint(unit), kind.target, GLuint(integer(kind.binding))});
            }
        }
        glActiveTexture(GLenum(active));
    }
    if (hasImages()) {
        for (GLuint unit = 0; unit < 2; ++unit) {
            ImageBinding image{unit, 0, 0, 0, 0};
            GLint value = 0;
            glGetIntegeri_v(GL_IMAGE_BINDING_NAME, unit, &value);
            image.name = GLuint(value);
            glGetIntegeri_v(GL_IMAGE_BINDING_LEVEL, unit, &image.level);
            glGetIntegeri_v(GL_IMAGE_BINDING_ACCESS, unit, &value);
            image.access = GLenum(value);
            glGetIntegeri_v(GL_IMAGE_BINDING_FORMAT, unit, &value);
            image.format = GLenum(value);
            if (image.name)
                state.images.push_back(image);
        }
        GLint buffer = 0;
        glGetIntegeri_v(GL_ATOMIC_COUNTER_BUFFER_BINDING, 0, &buffer);
        state.atomicCounter = GLuint(buffer);
    }
    m_states.push_back(state);
    return int(m_states.size()) - 1;
}

void DrawRecorder::onDrawArrays(GLenum mode, GLint first, GLsizei count)
{
    Command command{Command::DrawArrays, listener->recordState()};
    command.mode = mode;
    command.first = first;
    command.count = count;
    command.uniforms.swap(listener->m_uniforms);
    listener->m_commands.push_back(command);
    driver.drawArrays(mode, first, count);
}

void DrawRecorder::onDrawElements(GLenum mode, GLsizei count, GLenum type, const void *indices)
{
    // A model's items share all state, so a draw right after another item's uniform keeps that state.
    const bool follows = listener->m_commands.size() > 1 && listener->m_commands.back().kind == Command::UniformUInt
        && listener->m_commands[listener->m_commands.size() - 2].kind == Command::DrawElements;
    Command command{Command::DrawElements, follows ? -1 : listener->recordState()};
    command.mode = mode;
    command.count = count;
    command.type = type;
    command.indices = indices;
    command.uniforms.swap(listener->m_uniforms);
    listener->m_commands.push_back(command);
    driver.drawElements(mode, count, type, indices);
}

void DrawRecorder::onDrawElementsOfItem(
    GLenum mode, GLsizei count, GLenum type, const void *indices, GLsizei instances, GLuint baseInstance)
{
    Command command{Command::DrawElementsOfItem, listener->recordState()};
    command.mode = mode;
    command.count = count;
    command.type = type;
    command.indices = indices;
    command.first = instances;
    command.value = baseInstance;
    command.uniforms.swap(listener->m_uniforms);
    listener->m_commands.push_back(command);
    driver.drawElementsOfItem(mode, count, type, indices, instances, baseInstance);
}

void DrawRecorder::onDrawMany(GLenum mode, GLenum type, const void *commands, GLsizei count, GLsizei stride)
{
    Command command{Command::DrawMany, listener->recordState()};
    command.mode = mode;
    command.type = type;
    command.indices = commands;
    command.count = count;
    command.first = stride;
    command.value = GLuint(integer(GL_DRAW_INDIRECT_BUFFER_BINDING));
    command.uniforms.swap(listener->m_uniforms);
    listener->m_commands.push_back(command);
    driver.drawMany(mode, type, commands, count, stride);
}

void DrawRecorder::onClear(GLbitfield mask)
{
    Command command{Command::Clear, listener->recordState()};
    command.mask = mask;
    listener->m_commands.push_back(command);
    driver.clear(mask);
}

void DrawRecorder::onBlit(GLint sx0, GLint sy0, GLint sx1, GLint sy1, GLint dx0, GLint dy0, GLint dx1, GLint dy1,
    GLbitfield mask, GLenum filter)
{
    Command command{Command::Blit, listener->recordState()};
    command.rectangles = {sx0, sy0, sx1, sy1, dx0, dy0, dx1, dy1};
    command.mask = mask;
    command.filter = filter;
    listener->m_commands.push_back(command);
    driver.blit(sx0, sy0, sx1, sy1, dx0, dy0, dx1, dy1, mask, filter);
}

void DrawRecorder::onUniformUInt(GLint location, GLuint value)
{
    const bool follows = !listener->m_commands.empty() && listener->m_commands.back().kind == Command::DrawElements;
    Command command{Command::UniformUInt, follows ? -1 : listener->recordState()};
    command.location = location;
    command.value = value;
    listener->m_commands.push_back(command);
    driver.uniformUInt(location, value);
}

/// The only upload that is recorded is that of an atomic counter.
void DrawRecorder::onBufferSubData(GLenum target, GLintptr offset, GLsizeiptr size, const void *data)
{
    if (target == GL_ATOMIC_COUNTER_BUFFER && offset == 0 && size == sizeof(GLuint)) {
        Command command{Command::SetCounter, -1};
        command.location = integer(GL_ATOMIC_COUNTER_BUFFER_BINDING);
        command.value = *static_cast<const GLuint *>(data);
        listener->m_commands.push_back(command);
    }
    driver.bufferSubData(target, offset, size, data);
}

void DrawRecorder::onUniformVector(GLint location, GLsizei count, const GLfloat *value)
{
    listener->m_uniforms.push_back({Uniform::Vector2, location, {value, value + 2 * count}});
    driver.uniformVector(location, count, value);
}

void DrawRecorder::onUniformVector4(GLint location, GLsizei count, const GLfloat *value)
{
    listener->m_uniforms.push_back({Uniform::Vector4, location, {value, value + 4 * count}});
    driver.uniformVector4(location, count, value);
}

void DrawRecorder::onUniformMatrix(GLint location, GLsizei count, GLboolean transpose, const GLfloat *value)
{
    listener->m_uniforms.push_back({Uniform::Matrix4, location, {value, value + 16 * count}});
    driver.uniformMatrix(location, count, transpose, value);
}

void DrawRecorder::onUniformInt(GLint location, GLsizei count, const GLint *value)
{
    listener->m_uniforms.push_back({Uniform::Int, location, {}, value[0]});
    driver.uniformInt(location, count, value);
}

void DrawRecorder::send(const std::vector<Uniform> &uniforms)
{
    for (const Uniform &uniform : uniforms) {
        const auto floats = GLsizei(uniform.floats.size());
        if (uniform.kind == Uniform::Vector2)
            glUniform2fv(uniform.location, floats / 2, uniform.floats.data());
        else if (uniform.kind == Uniform::Vector4)
            glUniform4fv(uniform.location, floats / 4, uniform.floats.data());
        else if (uniform.kind == Uniform::Matrix4)
            glUniformMatrix4fv(uniform.location, floats / 16, GL_FALSE, uniform.floats.data());
        else
            glUniform1i(uniform.location, uniform.integer);
    }
}

void DrawRecorder::apply(const State &state, const State *before) const
{
    const auto differs = [&](auto member) { return !before || (before->*member) != (state.*member); };
    if (differs(&State::drawFramebuffer))
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, state.drawFramebuffer);
    if (differs(&State::readFramebuffer))
        glBindFramebuffer(GL_READ_FRAMEBUFFER, state.readFramebuffer);
    if (differs(&State::program))
        glUseProgram(state.program);
    if (differs(&State::vertexArray))
        glBindVertexArray(state.vertexArray);
    if (differs(&State::viewport))
        glViewport(state.viewport[0], state.viewport[1], state.viewport[2], state.viewport[3]);
    if (differs(&State::clearColor))
        glClearColor(state.clearColor[0], state.clearColor[1], state.clearColor[2], state.clearColor[3]);
    if (differs(&State::depthTest))
        setEnabled(GL_DEPTH_TEST, state.depthTest);
    if (differs(&State::cullFace))
        setEnabled(GL_CULL_FACE, state.cullFace);
    if (differs(&State::writesColor)) {
        const GLboolean mask = state.writesColor ? GL_TRUE : GL_FALSE;
        glColorMask(mask, mask, mask, mask);
    }
    if (differs(&State::depthMask))
        glDepthMask(state.depthMask ? GL_TRUE : GL_FALSE);
    if (differs(&State::blendFunction))
        glBlendFuncSeparate(GLenum(state.blendFunction[0]), GLenum(state.blendFunction[1]),
            GLenum(state.blendFunction[2]), GLenum(state.blendFunction[3]));
    for (const ImageBinding &image : state.images)
        glBindImageTexture(image.unit, image.name, image.level, GL_FALSE, 0, image.access, image.format);
    if (state.atomicCounter && differs(&State::atomicCounter))
        glBindBufferBase(GL_ATOMIC_COUNTER_BUFFER, 0, state.atomicCounter);
    for (GLuint i = 0; differs(&State::blend) && i < state.blend.size(); ++i)
        (state.blend[i] ? glEnablei : glDisablei)(GL_BLEND, i);
    if (differs(&State::blendColor))
        glBlendColor(state.blendColor[0], state.blendColor[1], state.blendColor[2], state.blendColor[3]);
    if (differs(&State::stencilTest))
        setEnabled(GL_STENCIL_TEST, state.stencilTest);
    if (differs(&State::stencilFunc))
        glStencilFunc(GLenum(state.stencilFunc[0]), state.stencilFunc[1], GLuint(state.stencilFunc[2]));
    if (differs(&State::stencilOp))
        glStencilOp(GLenum(state.stencilOp[0]), GLenum(state.stencilOp[1]), GLenum(state.stencilOp[2]));
    if (differs(&State::stencilWriteMask))
        glStencilMask(GLuint(state.stencilWriteMask));
    if (differs(&State::clearStencil))
        glClearStencil(state.clearStencil);
    for (const TextureBinding &texture : state.textures) {
        glActiveTexture(GL_TEXTURE0 + texture.unit);
        glBindTexture(texture.target, texture.name);
    }
}

void DrawRecorder::replay() const
{
    const State *before = nullptr;
    for (const Command &command : m_commands) {
        if (command.state >= 0) {
            const State *const state = &m_states[size_t(command.state)];
            apply(*state, before);
            before = state;
        }
        const std::array<GLint, 8> &r = command.rectangles;
        switch (command.kind) {
        case Command::DrawArrays:
            send(command.uniforms);
            glDrawArrays(command.mode, command.first, command.count);
            break;
        case Command::DrawElements:
            send(command.uniforms);
            glDrawElements(command.mode, command.count, command.type, command.indices);
            break;
        case Command::DrawElementsOfItem:
            send(command.uniforms);
            glDrawElementsInstancedBaseInstance(
                command.mode, command.count, command.type, command.indices, command.first, command.value);
            break;
        case Command::DrawMany:
            send(command.uniforms);
            glBindBuffer(GL_DRAW_INDIRECT_BUFFER, command.value);
            glMultiDrawElementsIndirect(command.mode, command.type, command.indices, command.count, command.first);
            break;
        case Command::Clear:
            glClear(command.mask);
            break;
        case Command::Blit:
            glBlitFramebuffer(r[0], r[1], r[2], r[3], r[4], r[5], r[6], r[7], command.mask, command.filter);
            break;
        case Command::UniformUInt:
            glUniform1ui(command.location, command.value);
            break;
        case Command::SetCounter:
            glBindBuffer(GL_ATOMIC_COUNTER_BUFFER, GLuint(command.location));
            glBufferSubData(GL_ATOMIC_COUNTER_BUFFER, 0, sizeof(GLuint), &command.value);
            break;
        }
    }
}

void DrawRecorder::unbind()
{
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glUseProgram(0);
    glBindVertexArray(0);
    glActiveTexture(GL_TEXTURE0);
    glDepthMask(GL_TRUE);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
}

} // namespace Velmora::Kvz
