// SPDX-License-Identifier: MIT
#include <GL/DrawBuffers.h>

#include "FrameState.h"
#include "SceneSamplers.h"
#include "TessellationPrograms.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/BufferTexture.h>
#include <GL/GLErrors.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>

#include <QtCore/QLoggingCategory>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

constexpr int commandStride = sizeof(DrawElementsIndirectCommand) / sizeof(quint32);

Q_LOGGING_CATEGORY(glLog, "kvz.gl")

/// Takes the errors that earlier calls left, so that one after the draw is the draw's own.
void reportEarlierErrors()
{
    const GLenum error = takeGLErrors();
    if (error == GL_OUT_OF_MEMORY)
        KVZ_WARNING(QStringLiteral("out of graphics memory before a draw"));
    else if (error != GL_NO_ERROR)
        qCDebug(glLog, "GL error 0x%04x was pending before a draw", error);
}

/// The bound program, or 0 when a draw could not succeed.
GLuint drawableProgram()
{
    GLint program = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    if (program == 0 || glCheckFramebufferStatus(GL_DRAW_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
        return 0;
    return GLuint(program);
}

} // namespace

DrawBuffers::DrawBuffers(QObject *parent)
    : QObject(parent),
      m_primitiveType(GL_TRIANGLES)
{ }

DrawBuffers::~DrawBuffers() = default;

void DrawBuffers::setVAO(const QSharedPointer<VertexArrayObject> &vao)
{
    m_vao = vao;
}

QSharedPointer<VertexArrayObject> DrawBuffers::VAO() const
{
    return m_vao;
}

void DrawBuffers::setPrimitiveType(unsigned int type)
{
    m_primitiveType = type;
}

unsigned int DrawBuffers::primitiveType() const
{
    return m_primitiveType;
}

void DrawBuffers::setVertexCount(unsigned int count)
{
    m_vertexCount = count;
}

void DrawBuffers::setIndexedDraw(const QSharedPointer<BufferObject> &indices, int count, unsigned int type)
{
    m_indices = indices;
    m_indexCount = count;
    m_indexType = type;
}

QSharedPointer<BufferObject> DrawBuffers::indexBO() const
{
    return m_indices;
}

void DrawBuffers::setDrawElementsIndirectCommands(const DrawElementsIndirectCommand *commands, int count)
{
    m_commands.resize(commands ? qMax(count, 0) : 0);
    std::copy_n(commands, m_commands.size(), m_commands.begin());
    m_commandTexture.clear();
}

const QVector<DrawElementsIndirectCommand> &DrawBuffers::drawElementsIndirectCommands() const
{
    return m_commands;
}

QSharedPointer<Bindable> DrawBuffers::getDrawElementsIndirectCommandsUniformBufferObject() const
{
    if (!m_commandTexture) {
        m_commandTexture = QSharedPointer<BufferTexture>::create(drawCommandsSampler(), GL_R32UI);
        m_commandTexture->upload(m_commands.constData(), m_commands.size() * long(sizeof(DrawElementsIndirectCommand)));
    }
    return m_commandTexture;
}

void DrawBuffers::setup(GLSLMacroProcessor *processor)
{
    if (processor)
        processor->addDefine(QStringLiteral("KVZ_DRAW_COMMAND_STRIDE"), QString::number(commandStride));
}

void DrawBuffers::bind()
{
    if (!m_vao)
        return;
    m_vao->bind();
    if (!m_indices)
        return;
    // The element buffer is a part of the vertex array.
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, m_indices->getBO());
}

void DrawBuffers::unbind()
{
    if (m_vao)
        m_vao->unbind();
}

bool DrawBuffers::draw()
{
    const GLuint program = drawableProgram();
    if (!program)
        return false;
    const int count = m_indices ? m_indexCount : int(m_vertexCount);
    if (count <= 0)
        return true;
    GLenum primitives = m_primitiveType;
    if (primitives == GL_TRIANGLES && TessellationPrograms::current().contains(program)) {
        glPatchParameteri(GL_PATCH_VERTICES, 3);
        primitives = GL_PATCHES;
    }
    FrameState *const frame = FrameState::active();
    const FrameState::Draw draw{program, m_vao ? m_vao->getVAO() : 0, primitives};
    const bool isAccepted = frame && frame->isAccepted(draw);
    if (!isAccepted)
        reportEarlierErrors();
    if (m_indices)
        glDrawElements(primitives, count, m_indexType, nullptr);
    else
        glDrawArrays(primitives, 0, count);
    if (isAccepted)
        return true;
    const GLenum error = takeGLErrors();
    if (error == GL_OUT_OF_MEMORY)
        KVZ_WARNING(QStringLiteral("out of graphics memory in a draw"));
    if (frame && error == GL_NO_ERROR)
        frame->accept(draw);
    return error == GL_NO_ERROR;
}

bool DrawBuffers::draw(ShaderProgram *program)
{
    if (!program)
        return false;
    AutoBinder binder(program);
    return draw();
}

} // namespace Velmora::Kvz
