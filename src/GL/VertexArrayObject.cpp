// SPDX-License-Identifier: MIT
#include <GL/VertexArrayObject.h>

#include "CurrentContext.h"
#include "GLStatisticsPrivate.h"
#include "StandardAttributes.h"

#include <GL/ShaderProgram.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

VertexArrayObject::VertexArrayObject()
    : m_owner(GLObject::Sharing::OneContext)
{ }

VertexArrayObject::~VertexArrayObject()
{
    if (!m_name)
        return;
    if (m_owner.isKnownToCurrentContext())
        glDeleteVertexArrays(1, &m_name);
    --liveNames().vertexArrays;
}

void VertexArrayObject::bind()
{
    GLint previous = 0;
    glGetIntegerv(GL_VERTEX_ARRAY_BINDING, &previous);
    m_saved.append(previous);
    glBindVertexArray(getVAO());
}

void VertexArrayObject::unbind()
{
    const int previous = m_saved.isEmpty() ? 0 : m_saved.last();
    if (!m_saved.isEmpty())
        m_saved.removeLast();
    glBindVertexArray(GLuint(previous));
}

void VertexArrayObject::upload(
    const QString &name, const QSharedPointer<BufferObject> &buffer, int components, unsigned int type)
{
    uploadInterleaved(name, buffer, {components, type, false, 0, 0});
}

void VertexArrayObject::uploadInterleaved(
    const QString &name, const QSharedPointer<BufferObject> &buffer, const Interleaving &interleaving)
{
    if (!buffer)
        return;
    for (Array &array : m_arrays) {
        if (array.name == name) {
            array = {name, buffer, interleaving};
            return;
        }
    }
    m_arrays.append({name, buffer, interleaving});
}

QSharedPointer<BufferObject> VertexArrayObject::bo(const QString &name) const
{
    for (const Array &array : m_arrays) {
        if (array.name == name)
            return array.buffer;
    }
    return {};
}

void VertexArrayObject::enableArray(const Array &array, int location)
{
    GLint previous = 0;
    glGetIntegerv(GL_ARRAY_BUFFER_BINDING, &previous);
    glBindBuffer(GL_ARRAY_BUFFER, array.buffer->getBO());
    const Interleaving &place = array.place;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): OpenGL takes the offset as a pointer.
    const auto *const offset = reinterpret_cast<const void *>(quintptr(place.offset));
    glVertexAttribPointer(
        GLuint(location), place.components, place.type, place.isNormalized ? GL_TRUE : GL_FALSE, place.stride, offset);
    glEnableVertexAttribArray(GLuint(location));
    glBindBuffer(GL_ARRAY_BUFFER, GLuint(previous));
}

void VertexArrayObject::enableStandardArrays()
{
    for (const Array &array : qAsConst(m_arrays)) {
        const int location = standardAttributeLocation(array.name);
        if (location >= 0)
            enableArray(array, location);
    }
}

void VertexArrayObject::enableShaderProgramArrays(const ShaderProgram *program)
{
    if (!program || !program->isLinked())
        return;
    for (const Array &array : qAsConst(m_arrays)) {
        const int location = program->attributeLocation(array.name);
        if (location >= 0)
            enableArray(array, location);
    }
}

unsigned int VertexArrayObject::getVAO() const
{
    if (!m_name && currentContextHandle()) {
        glGenVertexArrays(1, &m_name);
        m_owner.claim();
        ++liveNames().vertexArrays;
    }
    return m_name;
}

} // namespace Velmora::Kvz
