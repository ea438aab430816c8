// SPDX-License-Identifier: MIT
#pragma once

#include <epoxy/gl.h>

#include <array>
#include <vector>

namespace Velmora::Kvz {

/// Records the draws, clears and blits that are issued while it listens, with the state that they depend on, and replays them
/// through raw GL with nothing around them: the floor that a pass is measured against.
///
/// Targets are attached to framebuffers of the recorder's own, so the replay also works for textures that the pass has
/// given back to the pool. They must not be deleted while the recorder is used.
class DrawRecorder
{
public:
    DrawRecorder();
    ~DrawRecorder();
    DrawRecorder(const DrawRecorder &) = delete;
    DrawRecorder &operator=(const DrawRecorder &) = delete;

    /// Starts listening. Only one recorder listens at a time.
    void begin();
    void end();
    /// Issues everything that was recorded, setting only the state that changes from one call to the next.
    void replay() const;
    /// Unbinds what the replay bound: a program that is deleted while it is current could not be bound again.
    static void unbind();
    /// How many draws, clears and blits were recorded.
    int commandCount() const { return int(m_commands.size()); }

private:
    struct TextureBinding
    {
        GLuint unit;
        GLenum target;
        GLuint name;
    };
    struct ImageBinding
    {
        GLuint unit;
        GLuint name;
        GLint level;
        GLenum access;
        GLenum format;
    };
    struct State
    {
        GLuint drawFramebuffer = 0;
        GLuint readFramebuffer = 0;
        GLuint program = 0;
        GLuint vertexArray = 0;
        std::array<GLint, 4> viewport{};
        std::array<GLfloat, 4> clearColor{};
        bool depthTest = false;
        std::array<bool, 2> blend{}; ///< Of the first two draw buffers.
        bool cullFace = false;
        bool writesColor = true;
        bool depthMask = true;
        std::array<GLint, 4> blendFunction{}; ///< Source and destination, of colour and then of alpha.
        std::array<GLfloat, 4> blendColor{};
        bool stencilTest = false;
        std::array<GLint, 3> stencilFunc{}; ///< Function, reference, mask.
        std::array<GLint, 3> stencilOp{};
        GLint stencilWriteMask = 0;
        GLint clearStencil = 0;
        std::vector<TextureBinding> textures;
        std::vector<ImageBinding> images;
        GLuint atomicCounter = 0; ///< The buffer behind binding 0.
    };
    /// A uniform that a pass sets between draws.
    struct Uniform
    {
        enum Kind { Vector2, Vector4, Matrix4, Int } kind;
        GLint location;
        std::vector<GLfloat> floats;
        GLint integer = 0;
    };
    struct Command
    {
        enum Kind { DrawArrays, DrawElements, DrawElementsOfItem, DrawMany, Clear, Blit, UniformUInt, SetCounter } kind;
        int state; ///< Index; -1 for the state of the previous command.
        GLenum mode = 0;
        GLint first = 0;
        GLsizei count = 0;
        GLenum type = 0;
        const void *indices = nullptr;
        GLbitfield mask = 0;
        std::array<GLint, 8> rectangles{};
        GLenum filter = 0;
        GLint location = 0;
        GLuint value = 0;
        std::vector<Uniform> uniforms = {}; ///< Set since the previous draw, for this one.
    };

    static void onDrawArrays(GLenum mode, GLint first, GLsizei count);
    static void onDrawElements(GLenum mode, GLsizei count, GLenum type, const void *indices);
    static void onDrawElementsOfItem(
        GLenum mode, GLsizei count, GLenum type, const void *indices, GLsizei instances, GLuint baseInstance);
    static void onDrawMany(GLenum mode, GLenum type, const void *commands, GLsizei count, GLsizei stride);
    static void onClear(GLbitfield mask);
    static void onBlit(GLint sx0, GLint sy0, GLint sx1, GLint sy1, GLint dx0, GLint dy0, GLint dx1, GLint dy1,
        GLbitfield mask, GLenum filter);
    static void onUniformUInt(GLint location, GLuint value);
    static void onBufferSubData(GLenum target, GLintptr offset, GLsizeiptr size, const void *data);
    static void onUniformVector(GLint location, GLsizei count, const GLfloat *value);
    static void onUniformMatrix(GLint location, GLsizei count, GLboolean transpose, const GLfloat *value);
    static void onUniformInt(GLint location, GLsizei count, const GLint *value);
    static void send(const std::vector<Uniform> &uniforms);
    static void onUniformVector4(GLint location, GLsizei count, const GLfloat *value);

    int recordState();
    GLuint copyFramebuffer(GLenum binding);
    void apply(const State &state, const State *before) const;

    std::vector<State> m_states;
    std::vector<Command> m_commands;
    std::vector<GLuint> m_framebuffers;
    std::vector<Uniform> m_uniforms; ///< Those set since the last draw.
};

} // namespace Velmora::Kvz
