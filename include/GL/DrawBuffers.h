// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Bindable.h>
#include <GL/DrawElementsIndirectCommand.h>
#include <GL/VertexArrayObject.h>

#include <QtCore/QObject>
#include <QtCore/QSharedPointer>
#include <QtCore/QVector>

namespace Velmora::Kvz {

class BufferTexture;
class GLSLMacroProcessor;
class ShaderProgram;

/// A drawable: a vertex array, perhaps an index buffer, and what kind of primitives they hold.
class KVZ_GL_EXPORT DrawBuffers : public QObject, public Bindable
{
    Q_OBJECT

public:
    explicit DrawBuffers(QObject *parent = nullptr);
    ~DrawBuffers() override;

    void setVAO(const QSharedPointer<VertexArrayObject> &vao);
    QSharedPointer<VertexArrayObject> VAO() const;
    /// GL_TRIANGLES (the default), GL_POINTS, ….
    void setPrimitiveType(unsigned int type);
    unsigned int primitiveType() const;
    /// Draws this many vertices without indices, starting with the first.
    void setVertexCount(unsigned int count);
    /// Draws the whole index buffer, `count` indices of `type` GL_UNSIGNED_INT. A null buffer goes back to drawing
    /// without indices.
    void setIndexedDraw(const QSharedPointer<BufferObject> &indices, int count, unsigned int type);
    /// The index buffer, or null.
    QSharedPointer<BufferObject> indexBO() const;

    /// Copies the commands that describe the parts of the drawable. draw() still issues the whole index buffer and ignores
    /// their base vertex: the commands are there for shaders and for GPUModel.
    void setDrawElementsIndirectCommands(const DrawElementsIndirectCommand *commands, int count);
    const QVector<DrawElementsIndirectCommand> &drawElementsIndirectCommands() const;
    /// While it is bound, shaders can read the commands: `uniform usamplerBuffer kvz_DrawCommands`, five texels per
    /// command, on a fixed unit. Never null.
    QSharedPointer<Bindable> getDrawElementsIndirectCommandsUniformBufferObject() const;

    /// Adds the defines that tell shaders how drawables feed them: KVZ_DRAW_COMMAND_STRIDE. Null is ignored.
    static void setup(GLSLMacroProcessor *processor);

    void bind() override;
    void unbind() override;

    /// Draws with the bound program and vertex array; triangles are drawn as patches of three when the program has a
    /// tessellation stage. Nothing to draw counts as success. False when no program is bound, the framebuffer is
    /// incomplete, or the driver refuses. GL_OUT_OF_MEMORY, from here or left by earlier calls, gets a line in the log.
    bool draw();
    /// Draws with the given program, bound for this draw. False for null.
    bool draw(ShaderProgram *program);

private:
    QSharedPointer<VertexArrayObject> m_vao;
    QSharedPointer<BufferObject> m_indices;
    unsigned int m_primitiveType;
    unsigned int m_vertexCount = 0;
    int m_indexCount = 0;
    unsigned int m_indexType = 0;
    QVector<DrawElementsIndirectCommand> m_commands;
    mutable QSharedPointer<BufferTexture> m_commandTexture;
};

} // namespace Velmora::Kvz
